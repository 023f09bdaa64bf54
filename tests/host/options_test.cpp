// The command line, and addresses to listen on.

#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "host/http/endpoint.h"
#include "host/main/options.h"

namespace host {
namespace {

Options Parse(const std::string& line) {
    std::istringstream stream(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    return ParseOptions(std::vector<std::string_view>(words.begin(), words.end()));
}

TEST(Options, GoodOnesAreRead) {
    const Options defaults = Parse("");
    EXPECT_EQ(defaults.listen.Text(), "127.0.0.1:8080");
    EXPECT_FALSE(defaults.demo || defaults.seconds);
    const Options options = Parse("--listen [::1]:0 --data d --seconds 10 --demo --quiet --pictures p "
                                  "--max-connections 7 --max-per-address 3 --max-viewers-per-login 1 "
                                  "--max-viewers-per-address 2 --max-streams-per-login 4 "
                                  "--max-streams-per-address 5 --max-archives-per-login 6 "
                                  "--max-archives-per-address 8 --max-pixels 12000000 --reencode");
    EXPECT_EQ(options.command, Command::Serve);
    EXPECT_EQ(options.listen.Text() + options.data + options.pictures, "[::1]:0dp");
    EXPECT_EQ(options.seconds, 10U);
    EXPECT_TRUE(options.demo && options.verbosity == Verbosity::Quiet);
    const Limits& limits = options.limits;
    EXPECT_EQ((std::array{limits.maxConnections, limits.maxPerAddress, limits.maxViewersPerLogin,
                          limits.maxViewersPerAddress, limits.maxStreamsPerLogin, limits.maxStreamsPerAddress,
                          limits.maxArchivesPerLogin, limits.maxArchivesPerAddress}),
              (std::array<std::size_t, 8>{7, 3, 1, 2, 4, 5, 6, 8}));
    EXPECT_TRUE(options.maxPixels == 12'000'000 && defaults.maxPixels == 2048 * 2048);
    EXPECT_TRUE(options.reencode && !defaults.reencode);
    EXPECT_EQ(Parse("--kind phone --add-user ann").command, Command::AddUser);
    EXPECT_EQ(Parse("--kind phone --add-user ann").userKind, UserKind::Phone);
    EXPECT_EQ(Parse("--kind viewer --add-user ann --cameras a,b%2Cc").userCameras,
              std::optional(std::optional(CameraNames{"a", "b,c"})));
    EXPECT_EQ(Parse("--language lv").language, "lv");
}

TEST(Options, BadOnesAreNamed) {
    const std::pair<const char*, const char*> cases[] = {
        {"yard", "unknown argument \"yard\""},
        {"--listen 8080", "--listen takes ADDR:PORT with a numeric address, not \"8080\""},
        {"--seconds 0", "--seconds takes a number from 1 to 31536000, not \"0\""},
        {"--max-pixels 67108865", "--max-pixels takes a number from 1 to 67108864, not \"67108865\""},
        {"--cluster 10.0.0.1:4222", "--cluster takes nats://HOST:PORT or tls://HOST:PORT, with commas "
                                    "between them, not \"10.0.0.1:4222\""},
        {"--cluster nats://a:1,tls://b:2 --node a --public c:80",
         "--cluster needs --node, --cluster-secret and --public"},
        {"--cluster-join=take", "--node and the options of --cluster go with --cluster"},
        {"--node a.b", "--node takes letters, digits, - and _, 64 at most, not \"a.b\""},
        {"--kind viewer", "--add-user and --kind go together"},
        {"--cameras a", "--cameras goes with --add-user"},
        {"--add-user ann --kind king", "--kind takes admin, viewer or phone, not \"king\""},
    };
    for (const auto& [arguments, line] : cases) {
        try {
            (void)Parse(arguments);
            ADD_FAILURE() << line;
        } catch (const platform::UsageError& error) {
            EXPECT_STREQ(error.what(), line);
        }
    }
}

TEST(Endpoint, TakesNumericAddressesAndKnowsItsOwnMachine) {
    for (const auto& [text, read, loopback] : {std::tuple{"127.9.9.9:1", "127.9.9.9:1", true},
                                               {"[::1]:65535", "[::1]:65535", true},
                                               {"localhost:0", "127.0.0.1:0", true},
                                               {":8080", "0.0.0.0:8080", false},
                                               {"[::]:1", "[::]:1", false}}) {
        const auto endpoint = Endpoint::Parse(text);
        ASSERT_TRUE(endpoint) << text;
        EXPECT_EQ(std::pair(endpoint->Text(), endpoint->IsLoopback()),
                  std::pair(std::string(read), loopback));
    }
    for (const char* bad : {"::1:80", "[::1]", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.1:80",
                            "example.org:80", "127.0.0.1:80x", "", "127.0.0.1.evil:80"})
        EXPECT_FALSE(Endpoint::Parse(bad)) << bad;
}

TEST(Endpoint, IsToldToPhonesAsTheyReachIt) {
    EXPECT_EQ(AuthorityForPhones({"::1", 8080}), "[::1]:8080");
    EXPECT_EQ(AuthorityForOthers({"127.0.0.1", 8080}), "");
    EXPECT_EQ(AuthorityForPhones({"192.0.2.7", 80}), "192.0.2.7:80");
    const std::string every = AuthorityForPhones({"0.0.0.0", 80});
    EXPECT_TRUE(Endpoint::Parse(every) && !every.starts_with("0.")) << every;
    struct Case {
        std::string told;
        Endpoint listening;
        bool leads;
    };
    for (const Case& c : {Case{"127.0.0.1:80", {"127.0.0.1", 80}, true},
                          {"localhost", {"127.0.0.1", 80}, true},
                          {"127.0.0.1:8080", {"127.0.0.1", 8081}, false},
                          {"192.0.2.7:80", {"127.0.0.1", 80}, false},
                          {"[::1]:80", {"::1", 80}, true},
                          {every, {"0.0.0.0", 80}, true},
                          {"192.0.2.7:80", {"0.0.0.0", 80}, false},
                          {"cams.example:80", {"0.0.0.0", 80}, false},
                          {"", {"0.0.0.0", 80}, false}})
        EXPECT_EQ(LeadsTo(c.told, c.listening), c.leads) << c.told;
}

} // namespace
} // namespace host
