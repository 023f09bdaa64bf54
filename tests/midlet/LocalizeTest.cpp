#include "midlet/Manifest.h"

#include <gtest/gtest.h>

#include "platform/text.h"
#include "support/OtherResources.h"
#include "support/RecordingLog.h"
#include "support/Texts.h"
#include "support/Zip.h"

namespace {

using namespace support;

// "section{key=text|...}..." of what was read, and whether it was read to its end.
std::string Parsed(std::string_view text) {
    CIniTree tree;
    const bool isWhole = tree.LoadIni(text);
    std::string shown;
    for (const CIniNode& section : tree.Root().oChildren) {
        shown += section.strName + "{";
        for (const CIniNode& key : section.oChildren)
            shown += key.strName + "=" + key.strValue + "|";
        shown += "}";
    }
    return shown + (isWhole ? "" : "!");
}

TEST(IniTree, ReadsSectionsKeysAndTexts) {
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {" \r\n", "!"},
        {"; only a comment", "!"},
        {"key=text", "!"},
        {"[a]", "a{}"},
        {"[ a b ]\r\nk=v\r\n", "a b {k=v|}"},
        {"[]\r\nk=v", "{k=v|}"},
        {"[ ]", "{}"},
        {"[a\tb\r\nc]", "abc{}"},
        {"[a", "!"},
        {" ; one\r\n\t; two\r\n[a];three\n;four\r\nk=v;five\r\n ;six", "a{k=v|}"},
        {"[a]\r\n k e y = v a l \r\n\r\nl=m", "a{k e y = v a l |l=m|}"},
        {"[a]\r\nk\t\r\ney=v\tw\nl=", "a{key=vw|l=|}"},
        {"[a]\r\nk=v\r\nbroken", "a{k=v|}!"},
        {"[a]\r\nk=v]l=w[b]m=x[a]k=y", "a{k=y|]l=w|}b{m=x|}"},
        {"[a]\r\nk=1\r\nl=2\r\nk=3\r\nK=4", "a{k=3|l=2|K=4|}"},
        {std::string("[a]\r\nk=v\0[b]", 12), "a{k=v|}"},
        {"[a]\r\n=nameless\r\nx==y", "a{=nameless|x==y|}"},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(expected, Parsed(text)) << text;
}

TEST(Localize, EachFailureLeavesTheManifestAndSaysWhy) {
    const std::string good = Utf16(u"[Sendora]\r\nok=\u0414\u0430\r\n");
    std::string damaged = Zip({{"gui.eng.ini", std::string(100, 'x')}});
    damaged[41] = 7; // no type of block
    std::string mismatched = Zip({{"gui.eng.ini", good}});
    mismatched[8] = 9;
    struct Row {
        const char* name;
        std::string archive;
        std::uint32_t language;
        HRESULT hr;
        std::string result; // lines, or what is reported
    };
    const std::string noKeys = "TRASSDO: oKeys.size()\n";
    const Row rows[] = {
        {"UTF-16", Zip({{"GUI.Eng.INI", good}}), 1033, S_OK, "ok: \u0414\u0430\r\n"},
        {"without a mark", Zip({{"gui.eng.ini", good.substr(2) + "d"}}), 1033, S_OK, "ok: \u0414\u0430\r\n"},
        {"Russian in the thread's code page", Zip({{"gui.rus.ini", "[Sendora]\nok=\xC4\xE0", false}}), 1049,
         S_OK, "ok: \u0414\u0430\r\n"},
        {"Spanish", Zip({{"gui.spa.ini", good}}), 1034, S_OK, "ok: \u0414\u0430\r\n"},
        {"no archive", "nothing like it", 1033, E_UNEXPECTED, "TRASSDO: res\n"},
        {"no such language", Zip({{"gui.eng.ini", good}}), 3082, E_ELEMENT_NOT_FOUND, "TRASSDO: res\n"},
        {"damaged file", damaged, 1033, E_FAIL, noKeys},
        {"headers that disagree", mismatched, 1033, E_FAIL, noKeys},
        {"a bomb", Zip({{"gui.eng.ini", good + std::string(1U << 20, '\0')}}), 1033, E_FAIL, noKeys},
        {"broken line", Zip({{"gui.eng.ini", good + Utf16(u"broken").substr(2)}}), 1033, E_FAIL,
         "TRASSDO: bRes\n"},
        {"another section", Zip({{"gui.eng.ini", Utf16(u"[sendora]\r\nok=OK")}}), 1033, E_FAIL, noKeys},
    };
    const CodePage page(1251);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto& log = RecordingLog::Fresh();
        const OtherResources other({Neutral(u"ZIP", 211, row.archive)});
        std::string manifest = "SRV: x\r\n";
        EXPECT_EQ(row.hr, Localize(manifest, "Sendora", row.language));
        EXPECT_EQ("SRV: x\r\n" + (row.hr == S_OK ? row.result : ""), manifest);
        EXPECT_EQ(log.Texts(), row.hr == S_OK ? Lines() : Lines{row.result});
        for (const auto& line : log.Lines())
            EXPECT_EQ("CUploadServer::Localize", line.function);
    }
    auto& log = RecordingLog::Fresh();
    const OtherResources none({});
    std::string manifest;
    EXPECT_EQ(E_FAIL, Localize(manifest, "Sendora", 1033));
    EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: ptr\n"}));
}

} // namespace
