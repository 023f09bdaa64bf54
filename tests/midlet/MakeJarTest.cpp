#include "midlet/MakeJar.h"

#include <chrono>
#include <filesystem>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/resources.h"
#include "platform/text.h"
#include "runtime/archive/Archive.h"
#include "support/OtherResources.h"
#include "support/RecordingLog.h"
#include "support/Texts.h"
#include "support/Zip.h"

namespace {

namespace fs = std::filesystem;
using namespace support;
using namespace std::string_literals;

std::string Resource(const char16_t* type, std::uint16_t number) {
    return std::string(platform::FindResource(ThisModule(), type, number).value().Text());
}

// The module's archive tool, or the test's own, and texts of the test's own; both midlets are the same
// archive. The temporary folder is empty.
std::vector<rescomp::Resource> Resources(const std::string& midlet, const std::string& tool = "") {
    fs::remove_all(platform::TemporaryFolder());
    const std::string texts = Utf16(u"[Sendora]\r\nok=\u0414\u0430\r\n[Viewlander]\r\nok=\u041D\u0435\u0442");
    return {Neutral(u"JAR", kUploadMidlet, midlet), Neutral(u"JAR", kViewingMidlet, midlet),
            Neutral(u"EXE", 209, tool.empty() ? Resource(u"EXE", 209) : tool),
            Neutral(u"ZIP", 211, Zip({{"gui.eng.ini", texts}}))};
}

std::string Template() {
    return Zip({{"META-INF/", "", false},
                {"META-INF/MANIFEST.MF", "Manifest-Version: 1.0\r\nOld: yes\r\n"},
                {"Quillstart.class", std::string(3000, 'c')},
                {"icons/logo_small.png", "icon", false},
                {"meta-inf/Manifest.mf", "another one"}});
}

// The entries' names in their order, and each one's content.
std::vector<std::pair<std::string, std::string>> Entries(const std::string& archive) {
    std::vector<std::pair<std::string, std::string>> entries;
    const ArchivePtr handle(
        OpenArchive(archive.data(), static_cast<std::uint32_t>(archive.size()), 3, nullptr));
    SArchiveEntry entry;
    if (!handle || GetArchiveItem(handle->pReader, -1, &entry) != kArchiveOk)
        return entries;
    for (std::int32_t n = 0, count = entry.nIndex; n < count; ++n) {
        EXPECT_EQ(kArchiveOk, GetArchiveItem(handle->pReader, n, &entry));
        std::string data(entry.nUncompressedSize, '\0');
        ReadArchiveItem(handle->pReader, n, data.data(), entry.nUncompressedSize);
        entries.emplace_back(platform::ToUtf8(entry.szName), data);
    }
    return entries;
}

// Names of what is in the temporary folder.
std::vector<std::string> LeftBehind() {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(platform::TemporaryFolder()))
        names.push_back(entry.path().filename().string());
    std::ranges::sort(names);
    return names;
}

constexpr char kHead[] = "Manifest-Version: 1.0\r\n"
                         "MicroEdition-Configuration: CLDC-1.0\r\n"
                         "Created-By: 1.4.2_03 (Sun Microsystems Inc.)\r\n"
                         "MIDlet-Vendor: Norvane\r\n"
                         "MIDlet-Version: 6.0\r\n"
                         "MicroEdition-Profile: MIDP-2.0\r\n"
                         "logo: /icons/logo_big.png\r\n"
                         "testJPEG: /icons/test.jpg\r\n"
                         "RESOURCE: /mobile/video\r\n";
constexpr char kSending[] = "ok: \u0414\u0430\r\n";
constexpr char kViewing[] = "CAMLIST: /xslt/enum/all?xslt=cameras.xsl\r\n"
                            "RANGES: /xslt/<hash>/ranges?xslt=archives.xsl\r\nok: \u041D\u0435\u0442\r\n";

TEST(MakeJar, PutsThePersonalManifestIntoTheTemplate) {
    const OtherResources resources(Resources(Template()));
    const auto named = [](const std::string& name) {
        return (name.empty() ? "" : "MIDlet-Name: " + name + "\r\n") + "MIDlet-1: " + name +
               ", /icons/logo_small.png, Quillstart\r\n";
    };
    struct Row {
        QueryMap params;
        std::u16string host;
        const char* format;
        std::string lines; // behind the head
    };
    const Row rows[] = {
        {{{u"JarName", u"Sendora"}, {u"login", u"yard"}, {u"password", u"demo"}},
         u"10.0.0.1:8080",
         "320x240",
         named("Sendora") + "LOGIN: yard\r\nPSW: demo\r\nSRV: 10.0.0.1:8080\r\nFORMAT: 320x240\r\n" +
             kSending},
        {{}, u"", "", named("") + "SRV: \r\nFORMAT: \r\n" + kSending},
        {{{u"JarName", u""}, {u"login", u""}, {u"password", u"x"}, {u"other", u"y"}},
         u"h",
         nullptr,
         named("") + "PSW: x\r\nSRV: h\r\n" + kViewing},
        {{{u"JarName", u"\u041C\u043E\u0439 \"$(id)\" '; *%s\u20AC"},
          {u"login", u"- \"q\" \\"},
          {u"password", u"`x`"}},
         u"h\r\nLOGIN: forged",
         nullptr,
         named("\xCC\xEE\xE9 \"$(id)\" '; *%s\x88") +
             "LOGIN: - \"q\" \\\r\nPSW: `x`\r\nSRV: hLOGIN: forged\r\n" + kViewing},
        {{{u"JarName", std::u16string(100, u'n')}, {u"login", std::u16string(5000, u'l')}},
         u"h",
         nullptr,
         named(std::string(100, 'n')) + "LOGIN: " + std::string(5000, 'l') + "\r\nSRV: h\r\n" + kViewing},
    };
    const CodePage page(1251);
    for (const Row& row : rows) {
        auto& log = RecordingLog::Fresh();
        const auto archive =
            MakeJar(row.format == nullptr ? kViewingMidlet : kUploadMidlet, row.params, row.host, row.format);
        EXPECT_EQ(log.Texts(), Lines());
        ASSERT_TRUE(archive);
        // Where the template had it, in front of all that a reader of streams meets.
        const std::vector<std::pair<std::string, std::string>> expected = {
            {"META-INF/", ""},
            {"META-INF/MANIFEST.MF", kHead + row.lines},
            {"Quillstart.class", std::string(3000, 'c')},
            {"icons/logo_small.png", "icon"}};
        EXPECT_EQ(expected, Entries(*archive));
        EXPECT_EQ(LeftBehind(), Lines());
    }
}

TEST(MakeJar, RefusesWhatIsNoFileNameOrWouldForgeLines) {
    const OtherResources resources(Resources(Template()));
    std::vector<QueryMap> rows = {{{u"login", u"a\r\nSRV: forged"}}, {{u"password", u"a\nb"}}};
    for (const std::u16string& name :
         {u"../x"s, u"a/b"s, u"a\\b"s, u"-d"s, u"."s, u".hidden"s, u"a\nb"s, u"a\tb"s, u"a\u0085b"s, u"a\0b"s,
          std::u16string(101, u'n'), std::u16string(100, u'\u20AC')}) // more bytes than a file name holds
        rows.push_back({{u"JarName", name}});
    for (const QueryMap& params : rows) {
        SCOPED_TRACE(platform::ToUtf8(params.begin()->second));
        auto& log = RecordingLog::Fresh();
        EXPECT_FALSE(MakeJar(kViewingMidlet, params, u"h", nullptr));
        EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: bResult\n"}));
        EXPECT_EQ(LeftBehind(), Lines());
    }
}

TEST(MakeJar, EachFailureSaysWhereAndLeavesWhatWasWritten) {
    const QueryMap params = {{u"JarName", u"x"}};
    struct Row {
        const char* name;
        const char* inTheWay; // a folder where a file should go, or a file where the folder should
        std::string tool;
        std::vector<std::string> reports;
        std::vector<std::string> left;
        bool isMade; // with the template's own manifest
    };
    const std::string done = "#!/bin/sh\n";
    const std::string noProgram =
        "TRASSDO: SUCCEEDED(hr(0x800700c1:'%1 is not a valid Win32 application.'))\n";
    const Row rows[] = {
        {"archive", "x.jar/", done, {"TRASSDO: bResult\n"}, {"x.jar"}, false},
        {"tool", "zip.exe/", done, {"TRASSDO: bResult\n"}, {"x.jar", "zip.exe"}, false},
        {"manifest", "META-INF", done, {"TRASSDO: bResult\n"}, {"META-INF", "x.jar", "zip.exe"}, false},
        {"no program", nullptr, "text", {noProgram}, {"META-INF", "manifest.mf", "x.jar", "zip.exe"}, false},
        {"tool that fails", nullptr, done + "exit 3\n", {}, {}, true},
        {"tool that takes the archive away", nullptr, done + "rm \"$1\"\n", {}, {}, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const OtherResources resources(Resources(Template(), row.tool));
        auto& log = RecordingLog::Fresh();
        if (row.inTheWay != nullptr) {
            const std::string path = platform::TemporaryFolder() + row.inTheWay;
            ASSERT_TRUE(SUCCEEDED(path.ends_with('/') ? platform::CreateFolder(path)
                                                      : platform::ReplaceFile(path, "")));
        }
        const auto archive = MakeJar(kUploadMidlet, params, u"h", "");
        EXPECT_EQ(row.reports, log.Texts());
        for (const auto& line : log.Lines())
            EXPECT_EQ("CUploadServer::MakeJar", line.function);
        EXPECT_EQ(row.left, LeftBehind());
        EXPECT_EQ(row.isMade ? std::optional(Template()) : std::nullopt, archive);
    }
    // The installed zip refuses an archive of no bytes, and that is what comes back.
    {
        const OtherResources none({Neutral(u"EXE", 209, Resource(u"EXE", 209))});
        auto& log = RecordingLog::Fresh();
        EXPECT_EQ("", MakeJar(kUploadMidlet, params, u"h", ""));
        EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: ptr\n"}));
    }
    // The next build does not stumble over what is there, nor take it for its own.
    const OtherResources resources(Resources(Template()));
    ASSERT_EQ(S_OK, platform::CreateFolder(platform::TemporaryFolder() + "META-INF"));
    for (const char* const name : {"x.jar", "zip.exe", "META-INF/manifest.mf", "META-INF/MANIFEST.MF"})
        ASSERT_EQ(S_OK, platform::WriteWholeFile(platform::TemporaryFolder() + name, std::string(9999, 's')));
    const auto archive = MakeJar(kUploadMidlet, params, u"h", "");
    ASSERT_TRUE(archive);
    EXPECT_TRUE(Entries(*archive).at(1).second.starts_with(kHead));
    EXPECT_EQ(LeftBehind(), Lines());
}

TEST(RunProcess, EndsAHungToolAndRefusesALongLine) {
    const std::string folder = platform::TemporaryFolder();
    ASSERT_EQ(S_OK, platform::WriteWholeFile(folder + "tool", "#!/bin/sh\nsleep 600\n", 0700));
    const std::u16string tool = platform::FromUtf8(folder + "tool");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(MakeStatus(0x80070102), RunProcess(tool, 200, folder));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    EXPECT_EQ(MakeStatus(0x8007007A),
              RunProcess(tool + std::u16string(260 - tool.size(), u' '), 200, folder));
    ASSERT_EQ(S_OK, platform::WriteWholeFile(folder + "tool", "#!/bin/sh\nexit 7\n", 0700));
    EXPECT_EQ(S_OK, RunProcess(tool + std::u16string(259 - tool.size(), u' '), 20000, folder));
}

} // namespace
