#include <gtest/gtest.h>

#include <vector>

#include "phone/commands.h"

namespace phone::test {
namespace {

using Words = std::vector<std::string_view>;

Words With(std::initializer_list<std::string_view> more) {
    Words all{"--server", "h:1", "--login", "l", "--password", "p", "--pictures", "d"};
    all.insert(all.end(), more);
    return all;
}

TEST(Options, AreRead) {
    const UploadCommand command =
        *ParseUpload(With({"--fps", "2.5", "--frames", "7", "--split", "0", "--phones", "200"}));
    EXPECT_EQ(command.upload.server.Text(), "h:1");
    EXPECT_EQ(command.upload.framesPerSecond, 2.5);
    EXPECT_EQ(command.upload.frames, 7U);
    EXPECT_EQ(command.split, 0U);
    EXPECT_EQ(command.phones, 200U);
    EXPECT_EQ(ParseUpload(With({}))->upload.frames, std::nullopt);
    EXPECT_EQ(ParseUpload(With({}))->split, 607U);
    EXPECT_FALSE(ParseUpload(Words{"--help"}));
    EXPECT_EQ(ParseServer("[::1]:8080").host, "::1");
    EXPECT_EQ(NumberedLogin("cam", 7), "cam0007");
    EXPECT_EQ(NumberedLogin("cam", 10000), "cam10000");
}

TEST(Options, ThatMakeNoSenseAreRefused) {
    EXPECT_THROW(ParseUpload(Words{}), platform::UsageError);
    EXPECT_THROW(ParseUpload(Words{"--server", "h:1", "--login", "l"}), platform::UsageError);
    EXPECT_THROW(ParseUpload(With({"--fps"})), platform::UsageError);
    EXPECT_THROW(ParseUpload(With({"--password", std::string(65, 'p')})), platform::UsageError);
    const std::pair<const char*, std::vector<const char*>> cases[] = {
        {"--fps", {"0", "-1", "nan", "inf", "5x"}},
        {"--frames", {"0", "-1", "99999999999999999999"}},
        {"--split", {"65536"}},
        {"--phones", {"0", "10001"}},
        {"--what", {"1"}},
        {"extra", {"1"}},
        {"--login", {"a:b"}},
        {"--server", {"h", ":1", "h:", "h:0", "h:65536", "h:1x", "::1:80", "[]:80"}},
    };
    for (const auto& [option, values] : cases) {
        for (const char* value : values)
            EXPECT_THROW(ParseUpload(With({option, value})), platform::UsageError) << option << ' ' << value;
    }
}

TEST(Options, OfAViewerAreRead) {
    const auto with = [](std::initializer_list<std::string_view> more) {
        Words all{"--server", "h:1", "--login", "l", "--source", "yard"};
        all.insert(all.end(), more);
        return ParseView(all).value();
    };
    const ViewCommand command =
        with({"--source", "clock", "--params", "fps=5&rotate", "--frames", "3", "--viewers", "7"});
    EXPECT_EQ(command.sources, (std::vector<std::string>{"yard", "clock"}));
    EXPECT_EQ(command.view.parameters, "fps=5&rotate");
    EXPECT_EQ(command.view.frames, 3U);
    EXPECT_EQ(command.viewers, 7U);
    EXPECT_EQ(with({"--out", "d"}).view.folder, "d");
    EXPECT_THROW(ParseView(Words{"--server", "h:1", "--login", "l"}), platform::UsageError);
    for (const auto& [option, value] : {std::pair{"--params", "a b"},
                                        {"--params", "a\r\nX: y"},
                                        {"--params", "a#b"},
                                        {"--viewers", "0"},
                                        {"--login", "a:b"},
                                        {"--pictures", "d"}})
        EXPECT_THROW(with({option, value}), platform::UsageError) << option << ' ' << value;
    EXPECT_THROW(with({"--out", "d", "--viewers", "2"}), platform::UsageError);
    EXPECT_THROW(with({"--out", "d", "--source", "clock"}), platform::UsageError);
}

} // namespace
} // namespace phone::test
