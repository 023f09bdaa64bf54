#include <gtest/gtest.h>

#include <ranges>
#include <vector>

#include "phone/commands.h"

namespace phone::test {
namespace {

// The words of a line.
std::vector<std::string_view> Words(std::string_view line) {
    std::vector<std::string_view> words;
    for (const auto word : line | std::views::split(' ')) {
        if (!word.empty())
            words.emplace_back(word.begin(), word.end());
    }
    return words;
}

std::string UploadLine(const std::string& more) {
    return "--server h:1 --login l --password p --pictures d " + more;
}
std::string ViewLine(const std::string& more) {
    return "--server h:1 --login l --source yard " + more;
}

TEST(Options, AreRead) {
    const std::string line = UploadLine("--fps 2.5 --frames 7 --split 0 --phones 200");
    const UploadCommand upload = *ParseUpload(Words(line));
    EXPECT_EQ(upload.upload.server.Text(), "h:1");
    EXPECT_EQ(upload.upload.framesPerSecond, 2.5);
    EXPECT_TRUE(upload.upload.frames == 7U && upload.split == 0 && upload.phones == 200);
    EXPECT_EQ(ParseUpload(Words(UploadLine("")))->upload.frames, std::nullopt);
    EXPECT_EQ(ParseUpload(Words(UploadLine("")))->split, 607U);
    EXPECT_FALSE(ParseUpload(Words("--help")));
    EXPECT_EQ(ParseServer("[::1]:8080").host, "::1");
    EXPECT_EQ(NumberedLogin("cam", 7) + NumberedLogin("cam", 10000), "cam0007cam10000");
    const std::string viewLine = ViewLine("--source clock --params fps=5&rotate --frames 3 --viewers 7");
    const ViewCommand view = *ParseView(Words(viewLine));
    EXPECT_EQ(view.sources, (std::vector<std::string>{"yard", "clock"}));
    EXPECT_EQ(view.view.parameters, "fps=5&rotate");
    EXPECT_TRUE(view.view.frames == 3U && view.viewers == 7);
    EXPECT_EQ(ParseView(Words(ViewLine("--out d")))->view.folder, "d");
}

TEST(Options, ThatMakeNoSenseAreRefused) {
    for (const std::string& line :
         {std::string(), std::string("--server h:1 --login l"), UploadLine("--fps"),
          UploadLine("--password " + std::string(65, 'p')), UploadLine("--what 1"), UploadLine("extra 1")})
        EXPECT_THROW(ParseUpload(Words(line)), platform::UsageError) << line;
    const std::pair<const char*, std::vector<const char*>> cases[] = {
        {"--fps ", {"0", "-1", "nan", "inf", "5x"}},
        {"--frames ", {"0", "-1", "99999999999999999999"}},
        {"--split ", {"65536"}},
        {"--phones ", {"0", "10001"}},
        {"--login ", {"a:b"}},
        {"--server ", {"h", ":1", "h:", "h:0", "h:65536", "h:1x", "::1:80", "[]:80"}},
    };
    for (const auto& [option, values] : cases) {
        for (const char* value : values)
            EXPECT_THROW(ParseUpload(Words(UploadLine(std::string(option) + value))), platform::UsageError)
                << option << value;
    }
    for (const char* more : {"--params a\r\nX:y", "--params a#b", "--viewers 0", "--login a:b",
                             "--pictures d", "--out d --viewers 2", "--out d --source clock"})
        EXPECT_THROW(ParseView(Words(ViewLine(more))), platform::UsageError) << more;
}

} // namespace
} // namespace phone::test
