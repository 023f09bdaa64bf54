#include "platform/base64.h"
#include "platform/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>

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

        const platform::Bstr copy = text;
        EXPECT_EQ(copy.Bytes(), text.Bytes());
        EXPECT_EQ(platform::Bstr::FromBytes(text.Bytes()).ByteLength(), count);
    }
}

TEST(BstrTest, NullEmptyAndTooLong) {
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr) + SysStringByteLen(nullptr), 0U);
    SysFreeString(nullptr);
    const auto zeroed = platform::Bstr::Adopt(SysAllocStringLen(nullptr, 3));
    EXPECT_EQ(zeroed.View(), u"\0\0\0"sv);
    EXPECT_EQ(platform::Bstr(), platform::Bstr(u""));
    EXPECT_FALSE(platform::Bstr(std::u16string_view{}).IsNull());
    EXPECT_TRUE(platform::Bstr::CopyOf(nullptr).IsNull());
    EXPECT_EQ(SysAllocStringLen(nullptr, 0x40000001), nullptr);
    EXPECT_EQ(SysAllocStringLen(nullptr, 0xFFFFFFFF), nullptr);
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
        {1258, "\xD0\xFE\xEC", u"Đ\u20AB\u0301"},
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
}

TEST(ConversionTest, WhatTheTargetCannotHold) {
    EXPECT_EQ(platform::ToNarrow(u"кот é \U0001F4F7 \xD800!", 1252), "??? \xE9 ? ?!");
    EXPECT_EQ(platform::ToNarrow(u"é€", 20127), "??");
    EXPECT_EQ(platform::ToNarrow(u"\xDC00x\xD83D", 65001), "?x?");
    EXPECT_EQ(platform::ToWide("\x81\xE9", 1252), u"\uFFFDé");
    EXPECT_EQ(platform::ToWide("a\x80", 20127), u"a\uFFFD");
}

TEST(ConversionTest, EveryByteOfAPageThatIsACharacterComesBack) {
    for (const unsigned page :
         {1250U, 1251U, 1252U, 1253U, 1254U, 1255U, 1256U, 1257U, 1258U, 20127U, 28591U}) {
        int characters = 0;
        for (int value = 0; value < 256; ++value) {
            const std::string byte(1, static_cast<char>(value));
            const std::u16string wide = platform::ToWide(byte, page);
            ASSERT_EQ(wide.size(), 1U);
            const bool isCharacter = wide != u"\uFFFD";
            characters += isCharacter;
            EXPECT_EQ(platform::ToNarrow(wide, page), isCharacter ? byte : "?") << page << " " << value;
        }
        EXPECT_GE(characters, page == 20127 ? 128 : 220) << page;
    }
}

TEST(Utf8Test, EveryCharacterComesBack) {
    std::u16string all;
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        if (c < 0x10000) {
            all.push_back(static_cast<char16_t>(c));
        } else {
            all.push_back(static_cast<char16_t>(0xD7C0 + (c >> 10)));
            all.push_back(static_cast<char16_t>(0xDC00 + c % 0x400));
        }
    }
    const std::string bytes = platform::ToUtf8(all);
    EXPECT_EQ(bytes.size(), 0x80U + 0x780U * 2 + (0x10000U - 0x800 - 0x800) * 3 + 0x100000U * 4);
    EXPECT_TRUE(platform::Utf8ToWideStrict(bytes) == all);
    EXPECT_TRUE(platform::FromUtf8(bytes) == all);
}

TEST(Utf8Test, RefusesWhatIsNotWellFormed) {
    const struct {
        std::string_view bytes;
        std::u16string_view replaced;
    } rows[] = {
        {"\x80", u"\uFFFD"},
        {"a\xC0\xAF", u"a\uFFFD\uFFFD"},                   // overlong
        {"\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD"},           // overlong
        {"\xF0\x8F\xBF\xBF", u"\uFFFD\uFFFD\uFFFD\uFFFD"}, // overlong
        {"\xED\xA0\x80z", u"\uFFFD\uFFFD\uFFFDz"},         // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"}, // above U+10FFFF
        {"\xF5\xFF", u"\uFFFD\uFFFD"},
        {"\xE2\x82", u"\uFFFD"},       // cut off: one run, one mark
        {"\xF0\x9F\x93z", u"\uFFFDz"}, // broken off
        {"\xC3\xC3\xA9", u"\uFFFD\u00E9"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(platform::Utf8ToWideStrict(row.bytes), std::nullopt);
        EXPECT_EQ(platform::FromUtf8(row.bytes), row.replaced);
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

    const std::pair<unsigned, unsigned> languages[] = {
        {0, 65001},   {1033, 1252}, {1031, 1252}, {1049, 1251},  {1062, 1257},
        {1068, 1254}, {2092, 1251}, {1045, 1250}, {3098, 1251},  {2074, 1250},
        {1032, 1253}, {1037, 1255}, {1025, 1256}, {1041, 65001}, {1079, 65001}};
    for (const auto& [language, page] : languages)
        EXPECT_EQ(platform::CodePageOfLanguage(language), page) << language;
}

TEST(Base64Test, EncodesWithPadding) { // RFC 4648, section 10
    using platform::Base64;
    EXPECT_EQ(Base64("") + Base64("f") + Base64("fo") + Base64("foobar"), "Zg==Zm8=Zm9vYmFy");
    EXPECT_EQ(Base64("\xFF\xFE\xFD"), "//79");
}

} // namespace
