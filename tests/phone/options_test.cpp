#include <gtest/gtest.h>

#include <vector>

#include "host/phone/options.h"

namespace host::phone::test {
namespace {

using Arguments = std::vector<std::string_view>;

Arguments With(std::initializer_list<std::string_view> more) {
    Arguments all{"--server", "h:1", "--login", "l", "--password", "p", "--pictures", "d"};
    all.insert(all.end(), more);
    return all;
}

TEST(Options, AreRead) {
    const UploadCommand command =
        ParseUpload(With({"--fps", "2.5", "--frames", "7", "--split", "0", "--phones", "200"}));
    EXPECT_EQ(command.upload.server.Text(), "h:1");
    EXPECT_EQ(command.upload.framesPerSecond, 2.5);
    EXPECT_EQ(command.upload.frames, 7U);
    EXPECT_EQ(command.split, 0U);
    EXPECT_EQ(command.phones, 200U);
    EXPECT_EQ(ParseUpload(With({})).upload.frames, std::nullopt);
    EXPECT_EQ(ParseUpload(With({})).split, 607U);
    EXPECT_TRUE(ParseUpload(Arguments{"--help"}).help);
    EXPECT_EQ(ParseServer("[::1]:8080").Text(), "[::1]:8080");
    EXPECT_EQ(ParseServer("[::1]:8080").host, "::1");
    EXPECT_EQ(NumberedLogin("cam", 7), "cam0007");
    EXPECT_EQ(NumberedLogin("cam", 10000), "cam10000");
}

TEST(Options, ThatMakeNoSenseAreRefused) {
    const std::string longPassword(65, 'p');
    for (const Arguments& arguments : {
             Arguments{},
             Arguments{"--server", "h:1", "--login", "l"},
             With({"--fps"}),
             With({"--fps", "0"}),
             With({"--fps", "-1"}),
             With({"--fps", "nan"}),
             With({"--fps", "inf"}),
             With({"--fps", "5x"}),
             With({"--frames", "0"}),
             With({"--frames", "-1"}),
             With({"--frames", "99999999999999999999"}),
             With({"--split", "65536"}),
             With({"--phones", "0"}),
             With({"--phones", "10001"}),
             With({"--what", "1"}),
             With({"extra", "1"}),
             With({"--login", "a:b"}),
             With({"--password", longPassword}),
             With({"--server", "h"}),
             With({"--server", ":1"}),
             With({"--server", "h:"}),
             With({"--server", "h:0"}),
             With({"--server", "h:65536"}),
             With({"--server", "h:1x"}),
             With({"--server", "::1:80"}),
             With({"--server", "[]:80"}),
         }) {
        EXPECT_THROW(ParseUpload(arguments), UsageError) << (arguments.empty() ? "" : arguments.back());
    }
}

} // namespace
} // namespace host::phone::test
