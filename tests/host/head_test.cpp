// The head of a request, as it is waited for on a real socket and as the router reads it.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/wire.h"
#include "support/TcpPair.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using support::TcpPair;

const std::string kHead = "POST /mobile/video HTTP/1.1\r\nHost: a\r\nX: \r\n\r\n";
// The bytes themselves are followed through the web server: this is what becomes of the socket's end.
TEST(Head, IsWaitedForAndToldApartFromWhatIsNone) {
    enum class Then { Nothing, Finish, Reset, Stop };
    struct Case {
        const char* what;
        std::string sent;
        Then then;
        HeadResult result;
    };
    const std::string longest = std::string(kMaxHeadBytes - 4, 'x') + "\r\n\r\n";
    const Case cases[] = {
        {"a peer that leaves", "", Then::Finish, HeadResult::Closed},
        {"a peer that leaves in the middle", "GET / HTT", Then::Finish, HeadResult::Closed},
        {"a reset", "", Then::Reset, HeadResult::Closed},
        {"a whole head from a peer that has finished sending", kHead, Then::Finish, HeadResult::Complete},
        {"line feeds alone", "GET / HTTP/1.0\nHost: b\n\n", Then::Nothing, HeadResult::Complete},
        {"a head without an end", std::string(kMaxHeadBytes + 1, 'x'), Then::Nothing, HeadResult::TooLarge},
        {"the longest head", longest, Then::Nothing, HeadResult::Complete},
        {"half a head when the host stops", "GET", Then::Stop, HeadResult::Stopped},
    };
    for (const Case& c : cases) {
        TcpPair pair;
        Stream near(std::move(pair.near));
        Wakeup stop;
        pair.far.Send(c.sent.substr(0, 3));
        std::thread rest([&] {
            std::this_thread::sleep_for(20ms); // what has come before is there, and is not enough
            pair.far.Send(c.sent.substr(std::min<std::size_t>(3, c.sent.size())));
            if (c.then == Then::Finish)
                pair.far.FinishSending();
            if (c.then == Then::Reset)
                pair.far.Reset();
            if (c.then == Then::Stop)
                stop.Signal();
        });
        const auto begin = Clock::now();
        const Head head = ReadHead(near, stop, begin + 10s);
        EXPECT_EQ(head.result, c.result) << c.what;
        EXPECT_EQ(head.anyBytes, !c.sent.empty()) << c.what;
        EXPECT_LT(Clock::now() - begin, 3s) << c.what;
        EXPECT_EQ(head.text, head.result == HeadResult::Complete ? c.sent : "") << c.what;
        rest.join();
        if (head.result != HeadResult::Complete || c.then != Then::Nothing)
            continue;
        // One byte of a record is enough to be told of.
        pair.far.Send("x");
        EXPECT_EQ(WaitFor({.socket = near.Fd(), .socketEvents = POLLIN}, Clock::now() + 5s), Waited::Ready);
    }
}

TEST(Request, IsReadOrRefusedAsItsHeadSays) {
    struct Case {
        std::string head;
        unsigned status;
        std::string path = {}, query = {};
    };
    const std::string host = "Host: a\r\n\r\n";
    const Case cases[] = {
        {"GET /a%20b?x=/y&z HTTP/1.1\r\n" + host, 200, "/a%20b", "x=/y&z"},
        {"POST mobile/video/u HTTP/1.1\n\n", 200, "/mobile/video/u", ""}, // an old phone
        {"GET http://h:1/p?q HTTP/1.1\r\n" + host, 200, "/p", "q"},
        {"GET /a#b HTTP/1.1\r\n" + host, 400},
        {"GET / HTTP/1.1\r\nHost: a\r\nHost: b\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nAuthorization: a\r\nAuthorization: b\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nbad line\r\n\r\n", 400},
        {"GET  HTTP/1.1\r\n\r\n", 400},
        {"GET /" + std::string(2100, 'a') + " HTTP/1.1\r\n" + host, 414},
        // A phone's upload has no end, and some announce the largest length that they can.
        {"POST /mobile/video HTTP/1.1\r\nContent-Length: 2147483647\r\n\r\n", 200, "/mobile/video", ""},
    };
    for (const Case& c : cases) {
        const ParsedRequest parsed = ParseRequest(c.head);
        ASSERT_EQ(parsed.request.has_value(), c.status == 200) << c.head;
        if (!parsed.request) {
            EXPECT_EQ(parsed.status, c.status) << c.head;
        } else {
            EXPECT_EQ(parsed.request->path + '?' + parsed.request->query, c.path + '?' + c.query);
            EXPECT_EQ(parsed.request->head, c.head);
        }
    }
}

TEST(Request, NamesAreDecodedStrictly) {
    const std::pair<const char*, const char*> good[] = {
        {"yard", "yard"}, {"%41%2f%c3%A4", "A/ä"}, {"%25", "%"}, {"a+b", "a+b"}};
    for (const auto& [text, decoded] : good)
        EXPECT_EQ(PercentDecode(text), decoded) << text;
    for (const char* bad : {"%", "%4", "a%4", "%zz", "%00", "%FF", "%c3", "%ED%A0%80"})
        EXPECT_EQ(PercentDecode(bad), std::nullopt) << bad;
    const std::string hostile = "a/\"<&>'%\n ä\xF0\x9F\x93\xB7";
    EXPECT_EQ(PercentDecode(PercentEncode(hostile)), hostile);
}

TEST(Request, HostAndOriginNamesCannotBeForged) {
    for (const char* name : {"LOCALHOST:8080", "127.0.0.1", "[::1]", "[::1]:8080"})
        EXPECT_TRUE(IsLoopbackHost(name)) << name;
    for (const char* name : {"", "localhost.evil.example", "evil.example:80", "127.0.0.1.evil.example",
                             "[::2]", "::1", "evil@localhost", "[::1].evil:80", "localhost:80:80"})
        EXPECT_FALSE(IsLoopbackHost(name)) << name;
    EXPECT_TRUE(IsSameOrigin("http://A.example:80", "a.example:80"));
    EXPECT_TRUE(IsSameOrigin("https://a", "a"));
    const std::pair<const char*, const char*> foreign[] = {
        {"null", "null"}, {"http://", ""}, {"http://a:1", "a:2"}, {"http://a.evil", "a"}, {"ftp://a", "a"}};
    for (const auto& [origin, host] : foreign)
        EXPECT_FALSE(IsSameOrigin(origin, host)) << origin;
}

} // namespace
} // namespace host
