#include "server/HTTPHeader.h"

#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using namespace std::string_view_literals;

TEST(HTTPHeader, TellsWhereTheHeadEnds) {
    struct Row {
        const char* name;
        std::string_view text;
        long end; // -1: no complete head
    };
    const std::string longest = std::string(CHTTPHeader::kFirstLineLimit - 1, 'x') + "\r\n\r\n";
    const std::string tooLong = "x" + longest;
    const Row rows[] = {
        {"usual", "GET / HTTP/1.1\r\nA: b\r\n\r\nbody", 24},
        {"line feeds alone", "GET /\nA:b\n\nbody", 11},
        {"all line ends behind it go with it", "GET /\r\n\r\n\r\n\nbody", 12},
        {"no header lines", "GET /\r\n\r\n", 9},
        {"empty", "", -1},
        {"starts with a line end", "\r\nGET /\r\n\r\n", -1},
        {"no blank line", "GET /\r\nA: b\r\n", -1},
        {"last line without its end", "GET /\r\nA: b", -1},
        {"no colon", "GET /\r\nbad\r\n\r\n", -1},
        {"ends at a zero byte", "GET /\r\n\0\r\n\r\n"sv, -1},
        {"longest first line", longest, static_cast<long>(longest.size())},
        {"first line too long", tooLong, -1},
    };
    for (const Row& row : rows) {
        const auto end = CHTTPHeader().Parse(row.text);
        EXPECT_EQ(row.end, end ? static_cast<long>(*end) : -1) << row.name;
    }
}

TEST(HTTPHeader, HoldsTokensAndLines) {
    CHTTPHeader header;
    ASSERT_TRUE(
        header.Parse("POST  /a b \r\nX: 1\r\nx:  2 \r\nCookie: a: b\r\nEmpty:\r\nContent-Type:t\r\n\r\n"));
    EXPECT_THAT(header.FirstLine(), ElementsAre("POST", "", "/a", "b"));
    EXPECT_TRUE(header.IsPost());
    EXPECT_EQ(" 2 ", header.GetParam("X")); // the later line; one blank goes, others stay
    EXPECT_EQ("a: b", header.GetParam("cookie"));
    EXPECT_EQ("", header.GetParam("empty"));
    EXPECT_EQ("t", header.GetParam("content-TYPE"));
    EXPECT_EQ("", header.GetParam("missing"));

    ASSERT_TRUE(header.Parse("Post / HTTP/1.1\r\n\r\n"));
    EXPECT_FALSE(header.IsPost());
    EXPECT_EQ("", header.GetParam("X"));
}

} // namespace
