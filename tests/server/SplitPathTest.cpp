#include "server/SplitPath.h"

#include <string>

#include <gtest/gtest.h>

#include "support/CodePage.h"

namespace {

using platform::Bstr;

TEST(SplitPath, CutsAndDecodes) {
    struct Row {
        std::u16string path, segment, rest;
    };
    const Row rows[] = {
        {u"abc", u"abc", u""},
        {u"abc?x=1", u"abc", u"x=1"},
        {u"abc/def?x=1", u"abc", u"def?x=1"},
        {u"abc?x=/y", u"abc?x=", u"y"},
        {u"abc/", u"abc", u""},
        {u"/abc", u"", u"abc"},
        {u"?x", u"", u"x"},
        {u"a%20b", u"a b", u""},
        {u"a+b", u"a+b", u""},
        {u"%4a%4A%2f%3F", u"JJ/?", u""},
        {u"%E4%b8%80", u"\u4E00", u""},
        {u"\u4E00", u"\u4E00", u""},
        {u"a%zz/rest", u"", u"rest"},
        {u"a%2", u"", u""},
        {u"a%", u"", u""},
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
}

TEST(SplitPath, TellsNullFromEmpty) {
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

} // namespace
