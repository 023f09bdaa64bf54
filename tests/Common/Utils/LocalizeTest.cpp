// The texts of a module and their language: which entries change, with what reports, and on whose pages.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>

#include "Common/Utils/LocalizeEx.h"
#include "platform/modules.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "support/RecordingLog.h"
#include "support/temp_folder.h"
#include "tools/rescomp/resources.h"

namespace {

using rescomp::BuildImage;
using rescomp::Resource;
using Scanner = CLocalizeEx::CResourceScanner;

constexpr std::uint16_t kOne = 1;

// An image in a file whose pages are mapped, private ones or shared ones, and an instance for the life of the
// object. What is changed of it is so for this process alone.
class Instance {
public:
    explicit Instance(const std::string& bytes, bool isShared = false) : m_bytes(bytes) {
        const int file = ::open(m_folder.Write("image", bytes).c_str(), O_RDONLY | O_CLOEXEC);
        m_mapped = ::mmap(nullptr, bytes.size(), PROT_READ, isShared ? MAP_SHARED : MAP_PRIVATE, file, 0);
        ::close(file);
        EXPECT_EQ(platform::AddResourceInstance({Handle(), bytes.size()}), S_OK);
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    ~Instance() {
        platform::RemoveResourceInstance(Handle());
        ::munmap(m_mapped, m_bytes.size());
        std::ifstream in(m_folder.File("image"));
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), m_bytes);
    }

    [[nodiscard]] platform::ModuleHandle Handle() const { return static_cast<const std::uint8_t*>(m_mapped); }
    [[nodiscard]] std::string Read(platform::ResourceKey type, std::uint16_t language) const {
        const auto found = platform::FindResource(Handle(), type, kOne, language);
        return found ? std::string(found->Text()) + "/" + std::to_string(found->codePage) : "none";
    }

private:
    const TempFolder m_folder;
    const std::string m_bytes;
    void* m_mapped;
};

// In map order: texts before numbers.
std::vector<Resource> TwoResources() {
    return {{{u"ZIP"}, {kOne}, 1033, 1252, "english"},
            {{u"ZIP"}, {kOne}, 1049, 1251, "russian!"},
            {{u"XML"}, {kOne}, 0, 65001, "neutral"},
            {{std::uint16_t{6}}, {kOne}, 1033, 1, "one"},
            {{std::uint16_t{6}}, {kOne}, 1029, 2, "jedna"}};
}

// Writes down every call, and ends a directory if it is told to.
class Recorder final : public resutils::CResourceScanner {
public:
    HRESULT OnResource(const ResourcePath& path, const std::uint8_t* pDataEntry,
                       std::uint32_t nDepth) override {
        std::string line = std::to_string(nDepth) + ":";
        for (const SResourceLevel& level : path)
            line += " " + std::to_string(level.nFlags) + "," + platform::ToUtf8(level.szName.data()) +
                    std::to_string(level.nNumber);
        EXPECT_EQ(std::memcmp(pDataEntry + 4, &path[2].nSize, sizeof path[2].nSize), 0);
        lines.push_back(line + " " +
                        std::string(reinterpret_cast<const char*>(path[2].pData), path[2].nSize));
        return status;
    }
    HRESULT status = S_OK;
    support::Lines lines;
};

TEST(Localize, TheWalkTellsOfEveryLevel) {
    auto resources = TwoResources();
    resources.push_back({{std::u16string(19, u'N')}, {kOne}, 0, 0, "fits"});
    resources.push_back({{std::u16string(20, u'O')}, {kOne}, 0, 0, "does not"});
    const Instance image(BuildImage(resources));
    Recorder all, ending;
    EXPECT_EQ(all.Scan(image.Handle()), S_OK);
    EXPECT_EQ(all.lines,
              (support::Lines{"3: 3,NNNNNNNNNNNNNNNNNNN0 2,1 0,0 fits", "3: 3,XML0 2,1 0,0 neutral",
                              "3: 3,ZIP0 2,1 0,1033 english", "3: 3,ZIP0 2,1 0,1049 russian!",
                              "3: 2,6 2,1 0,1029 jedna", "3: 2,6 2,1 0,1033 one"}));
    ending.status = E_FAIL; // ends each directory of languages, and none above
    EXPECT_EQ(ending.Scan(image.Handle()), S_OK);
    EXPECT_EQ(ending.lines.size(), 4U);
}

TEST(Localize, WhatIsNoImageHasItsStatus) {
    const std::string sound = BuildImage(TwoResources());
    constexpr std::size_t kTable = 64 + 4 + 20 + 112 + 2 * 8; // the directory of resources in the headers
    const std::string none(4, '\0'), far(4, '\xFF');
    const std::size_t english = sound.find(std::string("\x09\x04\0\0", 4), 4096); // a language's entry
    const std::size_t neutral = sound.find(std::string("\0\0\1\0\0\0\0\0", 8), 4096) + 4;
    const struct {
        std::size_t at;
        std::string bytes;
        std::uint32_t status;
        std::size_t found = 0;
    } rows[] = {{0, "MZ", 0, 3},
                {english + 4, "\xFF\xFF\xFF\x7F", 0, 2},     // ends its directory, and none beside it
                {neutral, sound.substr(4096 + 16, 4), 0, 2}, // a language that has a name
                {1, "Y", 0x80070072},
                {kTable, none, 0x80070490},     // no address
                {kTable + 4, none, 0x80070490}, // no size
                {kTable + 4, far, 0x80070490},
                {60, far, 0x80070490}, // a header
                {64, "NE", 0x80070490},
                {4096 + 16, far, 0x8007000B},  // a name outside
                {4096 + 12, far, 0x8007000B}}; // an endless root
    for (const auto& [at, bytes, status, found] : rows) {
        const Instance image(std::string(sound).replace(at, bytes.size(), bytes));
        Scanner scanner;
        EXPECT_EQ(scanner.Scan(image.Handle()), MakeStatus(status)) << at;
        EXPECT_EQ(scanner.Resources().size(), found) << at;
    }
    EXPECT_EQ(Scanner().Scan(reinterpret_cast<platform::ModuleHandle>(sound.data())),
              MakeStatus(0x80070072)); // no instance
}

// Sixty types are one and the same of sixty names, which are one and the same of sixty languages.
TEST(Localize, NoMoreIsSeenThanAnImageHasRoomFor) {
    std::vector<Resource> resources = {{{std::uint16_t{60}}, {std::uint16_t{60}}, 60, 0, ""}};
    for (std::uint16_t n = 1; n < 60; ++n) {
        resources.push_back({{n}, {kOne}, 0, 0, ""});
        resources.push_back({{std::uint16_t{60}}, {n}, 0, 0, ""});
        resources.push_back({{std::uint16_t{60}}, {std::uint16_t{60}}, n, 0, ""});
    }
    std::string bytes = BuildImage(resources);
    std::size_t directory = 4096;
    for (int level = 0; level < 2; ++level) {
        const std::string last = bytes.substr(directory + 16 + 59 * 8 + 4, 4);
        for (std::size_t n = 0; n < 59; ++n)
            bytes.replace(directory + 16 + n * 8 + 4, 4, last);
        directory = 4096 + static_cast<std::uint8_t>(last[0]) + 256U * static_cast<std::uint8_t>(last[1]);
    }
    const Instance image(bytes);
    Recorder walk;
    EXPECT_EQ(walk.Scan(image.Handle()), S_OK);
    EXPECT_GT(walk.lines.size(), 60U);
    EXPECT_LT(walk.lines.size(), bytes.size() / 8);
}

TEST(Localize, EveryVariantBecomesTheChosenOne) {
    const struct {
        std::uint32_t language;
        bool result;
        const char *english, *russian; // afterwards
        bool isShared = false;
    } rows[] = {{1033, true, "english/1252", "english/1252"},
                {1049, false, "russian!/1251", "russian!/1251"}, // the block, which comes later, has none
                {1029, false, "english/1252", "russian!/1251"},
                {0x10000 + 1033, false, "english/1252", "russian!/1251"},
                // Shared pages of a file that is open for reading cannot be made writable.
                {1033, false, "english/1252", "russian!/1251", true}};
    for (const auto& row : rows) {
        const Instance image(BuildImage(TwoResources()), row.isShared);
        Scanner scanner;
        EXPECT_EQ(scanner.Scan(image.Handle()), S_OK);
        EXPECT_EQ(scanner.Resources().size(), 3U);
        scanner.DropSingleLanguage();
        EXPECT_EQ(scanner.Resources().size(), 2U);
        EXPECT_EQ(scanner.Apply(row.language), row.result) << row.language;
        EXPECT_EQ(image.Read(u"ZIP", 1033), row.english);
        EXPECT_EQ(image.Read(u"ZIP", 1049), row.russian);
        EXPECT_EQ(image.Read(6, 1029), row.result ? "one/1" : "jedna/2");
        EXPECT_EQ(image.Read(6, 1031), "one/1") << "English, where nothing suits";
        EXPECT_EQ(image.Read(u"XML", 0), "neutral/65001");
        EXPECT_DEATH(std::memset(const_cast<std::uint8_t*>(image.Handle()), 0, 1), "")
            << "the protection is not as it was";
    }
    EXPECT_TRUE(Scanner().Apply(1049)) << "nothing has variants";
}

std::string Text(std::uint16_t identifier, std::uint16_t language) {
    return platform::ToUtf8(platform::LoadResourceString(identifier, language).View());
}

// golden/strings.txt: a line of languages, then one for each string, with its identifier in front.
TEST(ModuleStrings, AreThoseOfTheSevenLanguages) {
    constexpr std::uint16_t kLanguages[] = {1033, 1034, 1036, 1049, 1062, 1068, 1079};
    constexpr std::uint16_t kStrings[] = {0,   99,  100, 101, 102, 103, 104, 105, 106, 107, 108,  109,
                                          110, 111, 112, 122, 123, 124, 125, 126, 127, 128, 65535};
    std::string table;
    for (const std::uint16_t language : kLanguages)
        table += "\t" + std::to_string(language);
    for (const std::uint16_t identifier : kStrings) {
        std::string line = "\n" + std::to_string(identifier);
        for (const std::uint16_t language : kLanguages)
            line += "\t" + Text(identifier, language);
        if (Text(identifier, 1033) != "")
            table += line;
        // Without a wish, and with one that nobody can meet, it is the first language.
        EXPECT_EQ(Text(identifier, 0), Text(identifier, 1033));
        EXPECT_EQ(Text(identifier, 1031), Text(identifier, 1033));
    }
    std::ifstream golden(std::string(GOLDEN_FOLDER) + "/strings.txt");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(golden), {}), table + "\n");

    EXPECT_TRUE(std::ranges::equal(platform::ResourceLanguages(u"ZIP", 211), kLanguages));
    EXPECT_TRUE(
        std::ranges::equal(platform::ResourceLanguages(platform::kResourceTypeString, 8), kLanguages));
    EXPECT_EQ(platform::FindResource(ThisModule(), u"ZIP", 211, 1049).value().codePage, 1251U);
    EXPECT_FALSE(platform::FindResource(ThisModule(), u"zip", 211));
    EXPECT_EQ(platform::LastError(), platform::kErrorResourceNotFound);
}

// Runs in a process of its own, since a language is put in force once in a process.
void InNewProcess(const std::string& values, const std::function<void()>& body) {
    const TempFolder folder;
    std::ofstream(folder.File("registry")) << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Tessaron]\n" << values;
    EXPECT_EXIT(
        {
            EXPECT_EQ(platform::SetRegistryFile(folder.File("registry")), "");
            support::RecordingLog::Fresh();
            body();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(LocalizeModule, PutsTheConfiguredLanguageInForceOnce) {
    InNewProcess("\"lang\"=25\n\"sublang\"=1\n", [] {
        EXPECT_EQ(Text(101, 1049), "Камеры");
        EXPECT_EQ(Text(101, 1033), "Cameras");
        EXPECT_EQ(GetConfiguredLanguage(), 1049U);
        EXPECT_TRUE(CLocalizeEx::LocalizeModule(ThisModule()));
        for (const std::uint16_t language : std::initializer_list<std::uint16_t>{0, 1033, 1036, 1049, 1031})
            EXPECT_EQ(Text(101, language), "Камеры") << language;
        EXPECT_EQ(platform::FindResource(ThisModule(), u"ZIP", 211, 1033).value().codePage, 1251U);
        EXPECT_TRUE(support::RecordingLog::Fresh().Lines().empty());

        // What is written later is of the next process.
        const platform::NamedRegistryValue french[] = {{u"lang", 12U}, {u"sublang", 1U}};
        EXPECT_EQ(platform::SetRegistryValues(platform::RegistryRoot::LocalMachine, kLanguageKey, french),
                  S_OK);
        EXPECT_EQ(GetConfiguredLanguage(), 1049U);
        support::RecordingLog& log = support::RecordingLog::Fresh();
        EXPECT_FALSE(CLocalizeEx::LocalizeModule(ThisModule()));
        EXPECT_EQ(log.Texts(), (support::Lines{"error: module " + platform::FileNameOfModule(ThisModule()) +
                                               " is already localized!\n"}));
        EXPECT_EQ(log.Lines().at(0).function, "CLocalizeEx::LocalizeModule");
    });
}

TEST(LocalizeModule, WithoutAUsableLanguageTheTextsStayAsTheyAre) {
    // The bytes of a value count, and not its type: 0x37 is a digit with the zero behind it.
    const std::pair<const char*, std::uint32_t> cases[] = {
        {"", 0},
        {"\"lang\"=25\n", 0},
        {"\"sublang\"=1\n", 0},
        {"\"lang\"=0\n\"sublang\"=0\n", 0},
        {"\"lang\"=\"25\"\n\"sublang\"=1\n", 0},
        {"\"lang\"=\"7\"\n\"sublang\"=1\n", 1024 + 0x37}, // Georgian, of which the module has question marks
        {"\"lang\"=7\n\"sublang\"=1\n", 1031}};           // German, of which it has nothing
    for (const auto& [registry, language] : cases) {
        InNewProcess(registry, [&, language = language] {
            const bool isThere = language == 1079;
            EXPECT_EQ(GetConfiguredLanguage(), language);
            support::RecordingLog& log = support::RecordingLog::Fresh();
            EXPECT_EQ(CLocalizeEx::LocalizeModule(ThisModule()), isThere);
            const support::Lines report{"TRASSDO: bModuleLocalized && \"cannot localize the module!\"\n"};
            EXPECT_EQ(log.Texts(), language == 1031 ? report : support::Lines());
            EXPECT_EQ(Text(101, 0), isThere ? "?" : "Cameras");
        });
    }
}

} // namespace
