// What a request says: its head, its path and its query.

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "server/Request.h"
#include "support/Texts.h"

namespace {

using platform::Bstr;
using support::Lines;
using namespace std::string_view_literals;

TEST(HTTPHeader, TellsWhereTheHeadEnds) {
    const std::string longest = std::string(65535, 'x') + "\r\n\r\n";
    const std::string tooLong = "x" + longest;
    const std::pair<std::string_view, long> rows[] = {
        {"GET / HTTP/1.1\r\nA: b\r\n\r\nbody", 24},
        {"GET /\nA:b\n\nbody", 11},
        {"GET /\r\n\r\n\r\n\nbody", 12}, // all line ends behind it go with it
        {longest, 65539},
        // no complete head
        {"", -1},
        {"\r\nGET /\r\n\r\n", -1},
        {"GET /\r\nA: b\r\n", -1},
        {"GET /\r\nA: b", -1},
        {"GET /\r\nbad\r\n\r\n", -1},
        {"GET /\r\n\0\r\n\r\n"sv, -1},
        {tooLong, -1},
    };
    for (const auto& [text, expected] : rows) {
        const auto end = CHTTPHeader().Parse(text);
        EXPECT_EQ(expected, end ? static_cast<long>(*end) : -1) << text.substr(0, 40);
    }
}

TEST(HTTPHeader, HoldsTokensAndLines) {
    CHTTPHeader header;
    ASSERT_TRUE(
        header.Parse("POST  /a b \r\nX: 1\r\nx:  2 \r\nCookie: a: b\r\nEmpty:\r\nContent-Type:t\r\n\r\n"));
    EXPECT_EQ(header.FirstLine(), (Lines{"POST", "", "/a", "b"}));
    EXPECT_TRUE(header.IsPost());
    // The later line counts; one blank goes, others stay.
    for (const auto& [name, value] :
         {std::pair("X", " 2 "), std::pair("cookie", "a: b"), std::pair("empty", ""),
          std::pair("content-TYPE", "t"), std::pair("missing", "")})
        EXPECT_EQ(value, header.GetParam(name));
    ASSERT_TRUE(header.Parse("Post / HTTP/1.1\r\n\r\n"));
    EXPECT_FALSE(header.IsPost());
    EXPECT_EQ("", header.GetParam("X"));
}

TEST(SplitPath, CutsAndDecodes) {
    struct Row {
        std::u16string path, segment, rest;
    };
    const Row rows[] = {
        {u"abc", u"abc", u""},
        {u"abc?x=1", u"abc", u"x=1"},
        {u"abc/def?x=1", u"abc", u"def?x=1"},
        {u"abc?x=/y", u"abc?x=", u"y"},
        {u"?x", u"", u"x"},
        {u"a%20b+", u"a b+", u""},
        {u"%4a%4A%2f%3F", u"JJ/?", u""},
        {u"%E4%b8%80\u4E00", u"\u4E00\u4E00", u""},
        {u"a%zz/rest", u"", u"rest"},
        {u"a%2", u"", u""},
        {u"a%00b", u"", u""},
        {std::u16string(1023, u'x'), std::u16string(1023, u'x'), u""},
        {std::u16string(1024, u'x'), u"", u""},
    };
    for (const bool utf8 : {false, true}) {
        for (const Row& row : rows) {
            Bstr rest(u"before");
            const Bstr segment = SplitPath(Bstr(row.path), rest, utf8);
            EXPECT_EQ(row.segment, segment.View()) << platform::ToUtf8(row.path);
            EXPECT_EQ(row.rest, rest.View()) << platform::ToUtf8(row.path);
        }
    }
    // Null is not empty.
    Bstr rest(u"before");
    EXPECT_TRUE(SplitPath(nullptr, rest, false).IsNull());
    EXPECT_EQ(u"before", rest.View());
    EXPECT_TRUE(SplitPath(Bstr(u"/x"), rest, false).IsNull());
    EXPECT_FALSE(SplitPath(Bstr(u"%"), rest, false).IsNull());
    EXPECT_TRUE(rest.IsNull());
    EXPECT_FALSE(SplitPath(Bstr(u""), rest, false).IsNull());
}

TEST(SplitPath, TakesBytesInTheThreadsCodePageOrAsUtf8) {
    const support::CodePage page(1252);
    Bstr rest;
    const Bstr path(u"%C3%A4");
    EXPECT_EQ(u"\u00C3\u00A4", SplitPath(path, rest, false).View());
    EXPECT_EQ(u"\u00E4", SplitPath(path, rest, true).View());
    EXPECT_EQ(u"\u00E4", SplitPath(Bstr(u"%E4"), rest, true).View())
        << "not UTF-8: the code page's text stays";
}

TEST(ParseQuery, TakesTheLastValueOfEachKeyAsItIs) {
    const std::pair<std::u16string, QueryMap> rows[] = {
        {u"&&", {}},
        {u"a", {{u"a", u""}}},
        {u"=x&=&a=1", {{u"a", u"1"}}},
        {u"a=b=c&A=%41+", {{u"A", u"%41+"}, {u"a", u"b=c"}}},
        {u"a=1&b=2&a=3&", {{u"a", u"3"}, {u"b", u"2"}}},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(expected, ParseQuery(text)) << platform::ToUtf8(text);
}

} // namespace
