// Texts, their encodings, and the texts and numbers of errors.

#include "platform/text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "platform/status.h"

namespace {

using namespace std::literals;

TEST(BstrTest, CountsBytesAndEndsWithAZeroUnit) {
    const std::string source = "abcdefghi";
    for (std::uint32_t count = 0; count <= source.size(); ++count) {
        const auto text = platform::Bstr::Adopt(SysAllocStringByteLen(source.data(), count));
        EXPECT_EQ(text.Bytes(), source.substr(0, count));
        EXPECT_EQ(text.Length(), count / 2);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text.Get()) % alignof(char16_t), 0U);
        // A reader of wide text finds the last odd byte as a unit of its own, then the end.
        std::u16string units((count + 1) / 2, u'\0');
        std::memcpy(units.data(), source.data(), count);
        EXPECT_EQ(std::u16string(text.Get()), units);
        EXPECT_EQ(platform::Bstr(text).Bytes(), text.Bytes());
        EXPECT_EQ(platform::Bstr::FromBytes(text.Bytes()).ByteLength(), count);
    }
    // Null, empty, and too long.
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr) + SysStringByteLen(nullptr), 0U);
    SysFreeString(nullptr);
    const auto zeroed = platform::Bstr::Adopt(SysAllocStringLen(nullptr, 3));
    EXPECT_EQ(zeroed.View(), u"\0\0\0"sv);
    EXPECT_EQ(platform::Bstr(), platform::Bstr(u""));
    EXPECT_FALSE(platform::Bstr(std::u16string_view{}).IsNull());
    EXPECT_TRUE(platform::Bstr::CopyOf(nullptr).IsNull());
    for (const std::uint32_t units : {0x40000001U, 0xFFFFFFFFU})
        EXPECT_EQ(SysAllocStringLen(nullptr, units), nullptr);
    EXPECT_THROW(platform::Bstr(std::u16string_view(u"", std::size_t{1} << 31)), std::bad_alloc);
    platform::Bstr held(u"old");
    *held.Receive() = SysAllocString(u"new");
    EXPECT_EQ(held.View(), u"new");
}

TEST(ConversionTest, KnownTextsBothWays) {
    const struct {
        unsigned page;
        std::string bytes;
        std::u16string text;
    } rows[] = {
        {1250, "\xA5\xE8\xF8 \x80", u"Ąčř €"},
        {1251, "\xCA\xE0\xEC\xE5\xF0\xE0 \xB9\xA8", u"Камера №Ё"},
        {1252, "Caf\xE9 \x80\x9F\xFF", u"Café €Ÿÿ"},
        {1253, "\xC1\xE8\xDE", u"Αθή"},
        {1254, "\xD0\xFD\xDE", u"ĞıŞ"},
        {1255, "\xE0\xF9", u"אש"},
        {1256, "\xC7\xE1", u"ال"},
        {1257, "\xF0\xE2\xC8", u"šāČ"},
        {1258, "A\xD0\xFE\xEC", u"AĐ\u20AB\u0301"},
        {20127, "plain ~\x7F", u"plain ~\x7F"},
        {28591, "\xA0\xFF\x80", u"\u00A0\u00FF\u0080"},
        {65001, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x93\xB7", u"aé€\U0001F4F7"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(platform::ToWide(row.bytes, row.page), row.text) << row.page;
        EXPECT_EQ(platform::ToNarrow(row.text, row.page), row.bytes) << row.page;
    }
    EXPECT_EQ(platform::ToNarrow(u"a\0b"sv, 1251), "a\0b"sv);
    EXPECT_EQ(platform::ToWide("a\0\xC3\xA9"sv, 65001), u"a\0é"sv);
    EXPECT_EQ(platform::ToWide("\xC3\xA9", 932), u"é") << "an unknown page is taken for UTF-8";
    // What the target cannot hold.
    EXPECT_EQ(platform::ToNarrow(u"кот é \U0001F4F7 \xD800!", 1252), "??? \xE9 ? ?!");
    EXPECT_EQ(platform::ToNarrow(u"é€", 20127), "??");
    EXPECT_EQ(platform::ToNarrow(u"\xDC00x\xD83D", 65001), "?x?");
    EXPECT_EQ(platform::ToWide("\x81\xE9", 1252), u"\uFFFDé");
    EXPECT_EQ(platform::ToWide("a\x80", 20127), u"a\uFFFD");
}

TEST(Utf8Test, EveryCharacterComesBack) {
    std::u16string all;
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0x10000)
            all.append(
                {static_cast<char16_t>(0xD7C0 + (c >> 10)), static_cast<char16_t>(0xDC00 + c % 0x400)});
        else if (c < 0xD800 || c > 0xDFFF)
            all.push_back(static_cast<char16_t>(c));
    }
    const std::string bytes = platform::ToUtf8(all);
    EXPECT_EQ(bytes.size(), 0x80U + 0x780U * 2 + (0x10000U - 0x800 - 0x800) * 3 + 0x100000U * 4);
    EXPECT_TRUE(platform::Utf8ToWideStrict(bytes) == all);
    EXPECT_TRUE(platform::FromUtf8(bytes) == all);
}

TEST(Utf8Test, RefusesWhatIsNotWellFormed) {
    // Overlong forms, a surrogate, above U+10FFFF, no lead byte; cut or broken off, a run gets one mark.
    const std::pair<std::string_view, std::u16string_view> rows[] = {
        {"a\xC0\xAF\xE0\x9F\xBF\xF0\x8F\xBF\xBF", u"a\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xED\xA0\x80z", u"\uFFFD\uFFFD\uFFFDz"},
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\x80", u"\uFFFD"},
        {"\xF5\xFF", u"\uFFFD\uFFFD"},
        {"\xE2\x82", u"\uFFFD"},
        {"\xF0\x9F\x93z\xC3\xC3\xA9", u"\uFFFDz\uFFFD\u00E9"},
    };
    for (const auto& [bytes, replaced] : rows) {
        EXPECT_EQ(platform::Utf8ToWideStrict(bytes), std::nullopt);
        EXPECT_EQ(platform::FromUtf8(bytes), replaced);
    }
}

TEST(CodePageTest, OfTheProcessTheThreadAndTheLanguage) {
    EXPECT_EQ(platform::SystemCodePage(), platform::kCodePageUtf8);
    EXPECT_EQ(platform::ThreadCodePage(), platform::kCodePageUtf8);
    for (const unsigned page : {0U, 3U, 1U, 932U, 1249U, 1259U}) {
        EXPECT_FALSE(platform::SetSystemCodePage(page)) << page;
        EXPECT_TRUE(page == 0 || !platform::SetThreadCodePage(page)) << page;
    }
    EXPECT_TRUE(platform::SetSystemCodePage(1252));
    EXPECT_EQ(platform::ToNarrow(u"é"), "\xE9") << "a thread without a page has the system's";
    EXPECT_TRUE(platform::SetThreadCodePage(1251));
    EXPECT_EQ(platform::ToNarrow(u"Ж"), "\xC6");
    EXPECT_EQ(platform::ToWide("\xC6", platform::kCodePageAnsi), u"Æ");
    EXPECT_TRUE(platform::SetThreadCodePage(0));
    EXPECT_EQ(platform::ThreadCodePage(), 1252U);
    EXPECT_TRUE(platform::SetSystemCodePage(platform::kCodePageUtf8));
}

TEST(Base64Test, EncodesWithPadding) { // RFC 4648, section 10
    using platform::Base64;
    EXPECT_EQ(Base64("") + Base64("f") + Base64("fo") + Base64("foobar\xFF\xFE\xFD"), "Zg==Zm8=Zm9vYmFy//79");
}

TEST(LanguageTest, HasItsNamesAndItsCodePage) {
    const struct {
        std::uint32_t id;
        std::u16string_view abbreviated;
        std::string_view code;
        unsigned page;
    } rows[] = {{0, u"ENU", "en", 65001},   {1033, u"ENU", "en", 1252}, {1034, u"ESP", "es", 1252},
                {1036, u"FRA", "fr", 1252}, {1049, u"RUS", "ru", 1251}, {1062, u"LVI", "lv", 1257},
                {1068, u"AZE", "az", 1254}, {1079, u"GE", "ka", 65001}, {3082, u"ESN", "es", 1252},
                {0xFFFF, u"", "", 1252},    {0x10409, u"", "", 1252}};
    for (const auto& row : rows) {
        EXPECT_EQ(platform::AbbreviatedLanguageName(row.id), row.abbreviated) << row.id;
        EXPECT_EQ(platform::LanguageCode(row.id), row.code) << row.id;
        EXPECT_EQ(platform::LanguageName(row.id).empty(), row.code.empty()) << row.id;
        EXPECT_EQ(platform::CodePageOfLanguage(row.id), row.page) << row.id;
    }
    const std::pair<unsigned, unsigned> others[] = {{2092, 1251}, {1045, 1250}, {3098, 1251}, {2074, 1250},
                                                    {1032, 1253}, {1037, 1255}, {1025, 1256}, {1041, 65001}};
    for (const auto& [language, page] : others)
        EXPECT_EQ(platform::CodePageOfLanguage(language), page) << language;
}

TEST(StatusTest, ErrorNumbersThatOperatorsKnow) {
    const struct {
        int value;
        std::uint32_t file, socket;
    } rows[] = {{0, 0, 0},          {ENOENT, 2, 31},        {EACCES, 5, 10013},       {EMFILE, 4, 10024},
                {EBADF, 6, 10038},  {ENOMEM, 8, 10055},     {EEXIST, 80, 31},         {EINVAL, 87, 10022},
                {ENOSPC, 112, 31},  {EAGAIN, 1450, 10035},  {ECONNRESET, 31, 10054},  {EPIPE, 31, 10058},
                {EINTR, 31, 10004}, {ETIMEDOUT, 31, 10060}, {ECONNREFUSED, 31, 10061}};
    for (const auto& row : rows) {
        EXPECT_EQ(platform::ErrorFromErrno(row.value), row.file) << row.value;
        EXPECT_EQ(platform::SocketErrorFromErrno(row.value), row.socket) << row.value;
    }
    const std::pair<std::uint32_t, std::string_view> texts[] = {
        {5, "Access is denied.\r\n"},
        {0x80072746, "An existing connection was forcibly closed by the remote host.\r\n"},
        {0x8000FFFF, "Catastrophic failure\r\n"},
        {7777, ""},
        {0x80030005, ""}}; // the same number in another family
    for (const auto& [code, text] : texts)
        EXPECT_EQ(platform::ToUtf8(platform::MessageText(code)), text) << std::hex << code;
    // Whatever the mappers give, an operator can read.
    for (int value = 0; value < 200; ++value) {
        EXPECT_FALSE(platform::MessageText(platform::ErrorFromErrno(value)).empty()) << value;
        EXPECT_FALSE(platform::MessageText(platform::SocketErrorFromErrno(value)).empty()) << value;
    }
}

} // namespace
