// The language of a module: which of its entries change, with what reports, and on whose pages.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>

#include "Common/Utils/LocalizeEx.h"
#include "Common/Utils/ModuleImage.h"
#include "platform/library.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "support/RecordingLog.h"
#include "support/temp_folder.h"
#include "tools/rescomp/image_writer.h"

namespace {

using rescomp::BuildImage;
using rescomp::Resource;
using Scanner = CLocalizeEx::CResourceScanner;

constexpr std::uint16_t kOne = 1;

// An image that is an instance for the life of the object.
class Instance {
public:
    explicit Instance(std::string bytes) : m_bytes(std::move(bytes)) { Add(Bytes()); }
    explicit Instance(std::span<const std::uint8_t> mapped) { Add(mapped); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    ~Instance() { platform::RemoveResourceInstance(m_handle); }

    [[nodiscard]] platform::ModuleHandle Handle() const { return m_handle; }
    [[nodiscard]] std::span<const std::uint8_t> Bytes() const {
        return {reinterpret_cast<const std::uint8_t*>(m_bytes.data()), m_bytes.size()};
    }
    [[nodiscard]] std::string Read(platform::ResourceKey type, platform::ResourceKey name,
                                   std::uint16_t language) const {
        const auto found = platform::FindResource(m_handle, type, name, language);
        return found ? std::string(found->Text()) + "/" + std::to_string(found->codePage) : "none";
    }

private:
    void Add(std::span<const std::uint8_t> image) {
        m_handle = image.data();
        EXPECT_EQ(platform::AddResourceInstance(image), S_OK);
    }
    std::string m_bytes;
    platform::ModuleHandle m_handle = nullptr;
};

// In map order: texts before numbers.
std::vector<Resource> TwoResources() {
    return {{{u"ZIP"}, {kOne}, 1033, 1252, "english"},
            {{u"ZIP"}, {kOne}, 1049, 1251, "russian!"},
            {{u"XML"}, {kOne}, 0, 65001, "neutral"},
            {{std::uint16_t{6}}, {kOne}, 1033, 1, "one"},
            {{std::uint16_t{6}}, {kOne}, 1036, 2, "un"}};
}

// Writes down every call and ends a directory on demand.
class Recorder final : public resutils::CResourceScanner {
public:
    HRESULT OnResource(const ResourcePath& path, const std::uint8_t* pDataEntry,
                       std::uint32_t nDepth) override {
        std::string line = std::to_string(nDepth) + ":";
        for (const SResourceLevel& level : path)
            line += " " + std::to_string(level.nFlags) + "," +
                    ((level.nFlags & SResourceLevel::kNamed) != 0 ? platform::ToUtf8(level.szName.data())
                                                                  : std::to_string(level.nNumber));
        std::uint32_t size = 0;
        std::memcpy(&size, pDataEntry + 4, sizeof size);
        EXPECT_EQ(size, path[2].nSize);
        line += " " + std::string(reinterpret_cast<const char*>(path[2].pData), path[2].nSize);
        lines.push_back(line);
        return status;
    }
    HRESULT status = S_OK;
    std::vector<std::string> lines;
};

TEST(Localize, TheWalkTellsOfEveryLevel) {
    auto resources = TwoResources();
    resources.push_back({{std::u16string(19, u'N')}, {kOne}, 0, 0, "fits"});
    resources.push_back({{std::u16string(20, u'O')}, {kOne}, 0, 0, "does not"});
    const Instance image(BuildImage(resources));
    Recorder all;
    EXPECT_EQ(all.Scan(image.Handle()), S_OK);
    EXPECT_EQ(all.lines,
              (std::vector<std::string>{"3: 3,NNNNNNNNNNNNNNNNNNN 2,1 0,0 fits", "3: 3,XML 2,1 0,0 neutral",
                                        "3: 3,ZIP 2,1 0,1033 english", "3: 3,ZIP 2,1 0,1049 russian!",
                                        "3: 2,6 2,1 0,1033 one", "3: 2,6 2,1 0,1036 un"}));
    Recorder ending;
    ending.status = E_FAIL; // ends each directory of languages, and none above
    EXPECT_EQ(ending.Scan(image.Handle()), S_OK);
    EXPECT_EQ(ending.lines.size(), 4U);
}

TEST(Localize, WhatIsNoImageHasItsStatus) {
    const std::string sound = BuildImage(TwoResources());
    constexpr std::size_t kTable = 64 + 4 + 20 + 112 + 2 * 8; // the directory of resources in the headers
    struct Case {
        const char* what;
        std::size_t at;
        std::string bytes;
        std::uint32_t status;
    };
    for (const Case& c : {Case{"sound", 0, "MZ", 0},
                          {"signature", 1, "Y", 0x80070072},
                          {"no address", kTable, {0, 0, 0, 0}, 0x80070490},
                          {"no size", kTable + 4, {0, 0, 0, 0}, 0x80070490},
                          {"far size", kTable + 4, "\xFF\xFF\xFF\xFF", 0x80070490},
                          {"far header", 60, "\xFF\xFF\xFF\xFF", 0x80070490},
                          {"no header", 64, "NE", 0x80070490},
                          {"endless root", 4096 + 12, "\xFF\xFF\xFF\xFF", 0x8007000B}}) {
        const Instance image(std::string(sound).replace(c.at, c.bytes.size(), c.bytes));
        Scanner scanner;
        EXPECT_EQ(scanner.Scan(image.Handle()), MakeStatus(c.status)) << c.what;
        EXPECT_EQ(scanner.Resources().empty(), c.status != 0) << c.what;
    }
    EXPECT_EQ(Scanner().Scan(reinterpret_cast<platform::ModuleHandle>(sound.data())),
              MakeStatus(0x80070072)); // no instance
}

TEST(Localize, EveryVariantBecomesTheChosenOne) {
    const std::string original = BuildImage(TwoResources());
    struct Case {
        std::uint32_t language;
        bool result;
        const char* zip;   // of both languages
        const char* block; // of 1036
    };
    for (const Case& c :
         {Case{1033, true, "english/1252", "one/1"},
          Case{1049, false, "russian!/1251", "un/2"}, // the block, which comes later, has no Russian
          Case{1036, false, nullptr, "un/2"}, Case{0x10000 + 1033, false, nullptr, "un/2"}}) {
        const Instance image{std::string(original)};
        Scanner scanner;
        EXPECT_EQ(scanner.Scan(image.Handle()), S_OK);
        EXPECT_EQ(scanner.Resources().size(), 3U);
        scanner.DropSingleLanguage();
        EXPECT_EQ(scanner.Resources().size(), 2U);
        EXPECT_EQ(scanner.Apply(c.language), c.result) << c.language;
        EXPECT_EQ(image.Read(u"ZIP", kOne, 1033), c.zip != nullptr ? c.zip : "english/1252");
        EXPECT_EQ(image.Read(u"ZIP", kOne, 1049), c.zip != nullptr ? c.zip : "russian!/1251");
        EXPECT_EQ(image.Read(6, kOne, 1036), c.block);
        EXPECT_EQ(image.Read(u"XML", kOne, 0), "neutral/65001");
    }
    const std::string neutral = BuildImage({{{u"XML"}, {kOne}, 0, 0, "neutral"}});
    const Instance image{std::string(neutral)};
    Scanner scanner;
    EXPECT_EQ(scanner.Scan(image.Handle()), S_OK);
    scanner.DropSingleLanguage();
    EXPECT_TRUE(scanner.Apply(1049));
    EXPECT_EQ(std::memcmp(image.Handle(), neutral.data(), neutral.size()), 0);
}

TEST(Localize, ChangesThePagesOfThisProcessAlone) {
    const TempFolder folder;
    const std::string path = folder.File("image");
    const std::string original = BuildImage(TwoResources());
    std::ofstream(path) << original;
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    for (const bool isShared : {false, true}) {
        void* const mapped =
            ::mmap(nullptr, original.size(), PROT_READ, isShared ? MAP_SHARED : MAP_PRIVATE, file, 0);
        ASSERT_NE(mapped, MAP_FAILED);
        {
            const Instance image({static_cast<const std::uint8_t*>(mapped), original.size()});
            Scanner scanner;
            EXPECT_EQ(scanner.Scan(image.Handle()), S_OK);
            scanner.DropSingleLanguage();
            // A file that is open for reading has shared pages that cannot be made writable.
            EXPECT_EQ(scanner.Apply(1033), !isShared);
            EXPECT_EQ(image.Read(u"ZIP", kOne, 1049), isShared ? "russian!/1251" : "english/1252");
        }
        EXPECT_DEATH(std::memset(mapped, 0, 1), "") << "the protection is not as it was";
        ::munmap(mapped, original.size());
    }
    ::close(file);
    std::ifstream in(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), original);
}

// Runs in a process of its own, since a language is put in force once in a process.
void InNewProcess(const std::string& registry, const std::function<void()>& body) {
    const TempFolder folder;
    std::ofstream(folder.File("registry")) << registry;
    EXPECT_EXIT(
        {
            EXPECT_EQ(platform::SetRegistryFile(folder.File("registry")), "");
            support::RecordingLog::Fresh();
            body();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

std::string Registry(const std::string& values) {
    return "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Tessaron]\n" + values;
}

std::string Cameras(std::uint16_t language) {
    return platform::ToUtf8(platform::LoadResourceString(101, language).View());
}

TEST(LocalizeModule, PutsTheConfiguredLanguageInForceOnce) {
    InNewProcess(Registry("\"lang\"=25\n\"sublang\"=1\n"), [] {
        EXPECT_EQ(Cameras(1049), "Камеры");
        EXPECT_EQ(Cameras(1033), "Cameras");
        EXPECT_EQ(GetConfiguredLanguage(), 1049U);
        EXPECT_TRUE(CLocalizeEx::LocalizeModule(ThisModule()));
        for (const std::uint16_t language : std::initializer_list<std::uint16_t>{0, 1033, 1036, 1049, 1031})
            EXPECT_EQ(Cameras(language), "Камеры") << language;
        EXPECT_EQ(platform::FindResource(u"ZIP", 211, 1033).value().codePage, 1251U);
        EXPECT_TRUE(support::RecordingLog::Fresh().Lines().empty());

        // What is written later is of the next process.
        const platform::NamedRegistryValue french[] = {{u"lang", 12U}, {u"sublang", 1U}};
        EXPECT_EQ(platform::SetRegistryValues(platform::RegistryRoot::LocalMachine, kLanguageKey, french),
                  S_OK);
        EXPECT_EQ(GetConfiguredLanguage(), 1049U);
        support::RecordingLog& log = support::RecordingLog::Fresh();
        EXPECT_FALSE(CLocalizeEx::LocalizeModule(ThisModule()));
        EXPECT_EQ(log.Texts(),
                  (std::vector<std::string>{"error: module " + platform::FileNameOfModule(ThisModule()) +
                                            " is already localized!\n"}));
        EXPECT_EQ(log.Lines().at(0).function, "CLocalizeEx::LocalizeModule");
    });
}

TEST(LocalizeModule, WithoutAUsableLanguageTheTextsStayAsTheyAre) {
    struct Case {
        const char* what;
        std::string registry;
        std::uint32_t language;
        bool isReported;
    };
    for (const Case& c : {Case{"nothing", "", 0, false}, Case{"half", Registry("\"lang\"=25\n"), 0, false},
                          Case{"other half", Registry("\"sublang\"=1\n"), 0, false},
                          Case{"zero", Registry("\"lang\"=0\n\"sublang\"=0\n"), 0, false},
                          Case{"long text", Registry("\"lang\"=\"25\"\n\"sublang\"=1\n"), 0, false},
                          // The bytes count, and not the type: a digit, and the zero behind it.
                          Case{"text", Registry("\"lang\"=\"7\"\n\"sublang\"=1\n"), 1024 + '7', false},
                          Case{"German", Registry("\"lang\"=7\n\"sublang\"=1\n"), 1031, true}}) {
        InNewProcess(c.registry, [&c] {
            EXPECT_EQ(GetConfiguredLanguage(), c.language) << c.what;
            support::RecordingLog& log = support::RecordingLog::Fresh();
            EXPECT_EQ(CLocalizeEx::LocalizeModule(ThisModule()), c.language == 1024 + '7') << c.what;
            EXPECT_EQ(log.Texts(), c.isReported
                                       ? std::vector<std::string>{"TRASSDO: bModuleLocalized && \"cannot "
                                                                  "localize the module!\"\n"}
                                       : std::vector<std::string>{})
                << c.what;
            EXPECT_EQ(Cameras(0), c.language == 1024 + '7' ? "?" : "Cameras") << c.what;
        });
    }
}

} // namespace
