// Files, and the registry that is kept in one: what its file says, what is refused, and changes from several
// processes.

#include "platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/registry.h"
#include "support/temp_folder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

std::size_t CountEntries(const TempFolder& folder) {
    return std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator());
}

TEST(FileTest, IsMadeOrReplacedAsAWhole) {
    const TempFolder folder;
    const std::string path = folder.File(std::string(255, 'n')); // the longest name there is
    for (const unsigned mode : {0600U, 0644U, 0640U}) {
        const std::string content(mode, 'c');
        EXPECT_EQ(ReplaceFile(path, content, mode), S_OK);
        EXPECT_EQ(ReadWholeFile(path), content);
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode) << "whatever the umask is";
    }
    // What was there is replaced, not written over, and writers do not meet in one new file.
    fs::create_hard_link(path, folder.File("old"));
    {
        std::vector<std::jthread> writers;
        for (const char letter : {'a', 'b'})
            writers.emplace_back([&, letter] {
                for (int n = 0; n < 40; ++n) {
                    ASSERT_EQ(ReplaceFile(path, std::string(100'000, letter)), S_OK);
                    const std::string content = ReadWholeFile(path).value_or("none");
                    ASSERT_EQ(content, std::string(100'000, content.front()));
                }
            });
    }
    EXPECT_EQ(ReadWholeFile(folder.File("old")), std::string(0640, 'c'));
    EXPECT_EQ(CountEntries(folder), 2U);
}

TEST(FileTest, StaysWhenItsReplacementFails) {
    const TempFolder folder;
    fs::create_directory(folder.Path() / "taken");
    EXPECT_EQ(ReplaceFile(folder.File("taken"), "text"), E_ACCESSDENIED);
    EXPECT_EQ(LastError(), kErrorAccessDenied);
    EXPECT_EQ(ReplaceFile(folder.File("missing/file"), "text"), MakeStatus(0x80070002));
    EXPECT_TRUE(FAILED(ReplaceFile("", "text")));
    EXPECT_TRUE(FAILED(ReplaceFile(folder.File(std::string("a\0b", 3)), "text")));
    EXPECT_TRUE(fs::is_directory(folder.Path() / "taken"));
    EXPECT_EQ(CountEntries(folder), 1U) << "a new file was left behind";
}

TEST(FileTest, IsReadWithinALimit) {
    const TempFolder folder;
    const std::string path = folder.File("file");
    ASSERT_EQ(ReplaceFile(path, std::string(1000, 'x')), S_OK);
    EXPECT_EQ(ReadWholeFile(path, 1000)->size(), 1000U);
    ASSERT_EQ(::mkfifo(folder.File("pipe").c_str(), 0600), 0);
    const struct {
        std::string path;
        std::size_t limit;
        std::uint32_t error;
    } rows[] = {{path, 999, kErrorInsufficientBuffer},
                {path, 0, kErrorInsufficientBuffer},
                {"/proc/self/status", 10, kErrorInsufficientBuffer}, // its size is said to be 0
                {folder.File("pipe"), 10, kErrorAccessDenied},
                {folder.Path().string(), 10, kErrorAccessDenied},
                {folder.File("none"), 10, kErrorFileNotFound},
                {path + "/none", 10, kErrorPathNotFound}};
    for (const auto& row : rows) {
        EXPECT_EQ(ReadWholeFile(row.path, row.limit), std::nullopt) << row.path;
        EXPECT_EQ(LastError(), row.error) << row.path;
    }
    ASSERT_EQ(ReplaceFile(path, ""), S_OK);
    EXPECT_EQ(ReadWholeFile(path, 0), "");
    EXPECT_GT(ReadWholeFile("/proc/self/status")->size(), 100U);
}

TEST(FolderTest, IsMadeWithThoseAboveIt) {
    const TempFolder folder;
    for (int n = 0; n < 2; ++n)
        EXPECT_EQ(CreateFolder(folder.File("a//b/c/")), S_OK);
    EXPECT_EQ(fs::status(folder.Path() / "a/b/c").permissions(), fs::perms::owner_all);
    EXPECT_EQ(CreateFolder("/"), S_OK);
    ASSERT_EQ(ReplaceFile(folder.File("file"), ""), S_OK);
    EXPECT_EQ(CreateFolder(folder.File("file")), MakeStatus(0x80070050));
    EXPECT_EQ(CreateFolder(folder.File("file/below")), MakeStatus(0x80070050));
    EXPECT_TRUE(FAILED(CreateFolder("")));
}

constexpr auto kMachine = RegistryRoot::LocalMachine;
constexpr auto kClasses = RegistryRoot::ClassesRoot;

class Registry : public testing::Test {
protected:
    ~Registry() override { SetRegistryFile(""); }

    std::string Use(const std::string& content) {
        EXPECT_GE(ReplaceFile(m_path, content), 0);
        return SetRegistryFile(m_path);
    }
    HRESULT Set(RegistryRoot root, std::u16string_view key, std::u16string_view name,
                const RegistryValue& value) {
        const NamedRegistryValue values[] = {{name, value}};
        return SetRegistryValues(root, key, values);
    }
    TempFolder m_folder;
    std::string m_path = m_folder.File("registry");
};

TEST_F(Registry, WritesWhatAPersonCanRead) {
    EXPECT_EQ(Set(kMachine, u"A", u"n", 1U), StatusFromError(kErrorFileNotFound)) << "no file is named";
    EXPECT_EQ(SetRegistryFile(m_path), "") << "none need be there";
    EXPECT_EQ(Set(kClasses, u"CLSID\\{1}", u"", u"Двор \"№1\"\\\r\n"), S_OK);
    const NamedRegistryValue language[] = {{u"sublang", 1U}, {u"lang", 0xFFFFFFFFU}};
    EXPECT_EQ(SetRegistryValues(kMachine, u"SOFTWARE\\Norvane", language), S_OK);
    fs::create_hard_link(m_path, m_folder.File("old"));
    const std::string before = ReadWholeFile(m_path).value();
    EXPECT_EQ(Set(kMachine, u"software\\NORVANE", u"LANG", 25U), S_OK) << "the same key and value";
    EXPECT_EQ(ReadWholeFile(m_folder.File("old")), before) << "replaced, not written over";
    const std::string content = ReadWholeFile(m_path).value();
    EXPECT_EQ(content.substr(content.find('\n') + 1), "\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\n"
                                                      "\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane]\n"
                                                      "\"lang\"=25\n\"sublang\"=1\n"
                                                      "\n[HKEY_CLASSES_ROOT\\CLSID]\n"
                                                      "\n[HKEY_CLASSES_ROOT\\CLSID\\{1}]\n"
                                                      "@=\"Двор \\\"№1\\\"\\\\\\r\\n\"\n");
    EXPECT_EQ(QueryRegistryValue(kClasses, u"clsid\\{1}", u""), RegistryValue(u"Двор \"№1\"\\\r\n"));
    EXPECT_EQ(QueryRegistryValue(kMachine, u"CLSID\\{1}", u""), std::nullopt);
}

TEST_F(Registry, ReadsWhatAPersonWrites) {
    EXPECT_EQ(Use("\xEF\xBB\xBF; mine\r\n"), "");
    EXPECT_EQ(
        Use("# mine\r\n  [HKEY_LOCAL_MACHINE\\a\\B] \r\n\t\"x\" = dword:0000001F\r\n@=\"\"\n\n\"y=\"=\"z\""),
        "");
    EXPECT_EQ(QueryRegistryValue(kMachine, u"A\\b", u"X"), RegistryValue(31U));
    EXPECT_EQ(QueryRegistryValue(kMachine, u"A\\b", u""), RegistryValue(u""));
    EXPECT_EQ(QueryRegistryValue(kMachine, u"A\\b", u"y="), RegistryValue(u"z"));
    std::array<std::uint8_t, 4> bytes{9, 9, 9, 9};
    EXPECT_EQ(QueryRegistryBytes(kMachine, u"A\\b", u"", bytes), 2U);
    EXPECT_EQ(QueryRegistryBytes(kMachine, u"A\\b", u"y=", bytes), 4U);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 4>{'z', 0, 0, 0}));
    EXPECT_EQ(QueryRegistryBytes(kMachine, u"A\\b", u"x", std::span(bytes).first(3)), std::nullopt);
}

TEST_F(Registry, NamesTheLineOfADamageAndKeepsTheFile) {
    const std::pair<const char*, const char*> cases[] = {
        {"[HKEY_LOCAL_MACHINE\\A\n", "a key ends with \"]\""},
        {"[HKEY_LOCAL_MACHINE]", "a key begins with HKEY_LOCAL_MACHINE\\ or HKEY_CLASSES_ROOT\\"},
        {"[HKEY_LOCAL_MACHINE\\A\\\\B]", "this is no path of keys"},
        {"\"x\"=1", "a value stands before the first key"},
        {"\"x\xFF\"=1", "this is no UTF-8"},
        {"[HKEY_LOCAL_MACHINE\\A]\nx=1", "expected \"name\"=value"},
        {"[HKEY_LOCAL_MACHINE\\A]\n\"x\"=4294967296", "a value is a number or a text in double quotes"},
        {"[HKEY_LOCAL_MACHINE\\A]\n\"x\"=\"y\\q\"", "a value is a number or a text in double quotes"},
        {"[HKEY_LOCAL_MACHINE\\A]\n\"x\"=\"y\\", "a value is a number or a text in double quotes"},
        {"[HKEY_LOCAL_MACHINE\\A]\n\"x\"=\"y\"z", "a value is a number or a text in double quotes"},
    };
    for (const auto& [content, what] : cases) {
        // The last line of each is at fault.
        const std::string text = content;
        const auto line = 1 + std::count(text.begin(), text.end() - 1, '\n');
        EXPECT_EQ(Use(text), m_path + ", line " + std::to_string(line) + ": " + what);
        EXPECT_FALSE(RegistryKeyExists(kMachine, u"A")) << "a damaged file counts as empty";
        EXPECT_EQ(Set(kMachine, u"B", u"y", 2U), S_OK);
        EXPECT_EQ(ReadWholeFile(m_path + ".damaged"), text);
        EXPECT_EQ(QueryRegistryValue(kMachine, u"B", u"y"), RegistryValue(2U));
    }
    EXPECT_NE(SetRegistryFile(m_folder.Path()), "") << "a folder is no file";
}

TEST_F(Registry, RefusesWhatAFileCannotHold) {
    SetRegistryFile(m_path);
    for (const std::u16string_view key : {u"", u"\\A", u"A\\", u"A\\\\B", u"A\nB", u"A\x01"})
        EXPECT_EQ(Set(kMachine, key, u"x", 1U), E_INVALIDARG);
    EXPECT_EQ(Set(kMachine, u"A", std::u16string_view(u"x\0y", 3), 1U), E_INVALIDARG);
    EXPECT_EQ(Set(kMachine, u"A", u"x", std::u16string(1, char16_t{0xD800})), E_INVALIDARG);
    EXPECT_FALSE(ReadWholeFile(m_path)) << "a refused change writes nothing";
}

TEST_F(Registry, DeletesAKeyWithAllBelowItAndNothingBesideIt) {
    SetRegistryFile(m_path);
    for (const std::u16string_view key : {u"A", u"A\\B", u"A\\B\\C", u"A\\B-C", u"AB", u"a\\D"})
        EXPECT_EQ(Set(kMachine, key, u"x", 1U), S_OK);
    EXPECT_EQ(RegistrySubkeys(kMachine, u"a"), (std::vector<std::u16string>{u"B", u"B-C", u"D"}));
    EXPECT_EQ(RegistrySubkeys(kMachine, u""), (std::vector<std::u16string>{u"A", u"AB"}));
    EXPECT_EQ(DeleteRegistryKey(kMachine, u"A\\b"), S_OK);
    EXPECT_EQ(DeleteRegistryKey(kMachine, u"A\\b"), S_FALSE);
    EXPECT_EQ(RegistrySubkeys(kMachine, u"A"), (std::vector<std::u16string>{u"B-C", u"D"}));
    EXPECT_EQ(DeleteRegistryValue(kMachine, u"A\\D", u"X"), S_OK);
    EXPECT_EQ(DeleteRegistryValue(kMachine, u"A\\D", u"X"), S_FALSE);
    EXPECT_TRUE(RegistryKeyExists(kMachine, u"A\\D")) << "a key stays without its values";
}

TEST_F(Registry, LosesNoChangeOfAnotherProcess) {
    constexpr unsigned kProcesses = 4, kChanges = 25;
    const auto name = [](unsigned n) { return u"v" + std::u16string(n, u'x'); };
    SetRegistryFile(m_path);
    for (unsigned i = 0; i < kProcesses; ++i) {
        if (::fork() == 0) {
            bool good = true;
            for (unsigned n = i; n < kProcesses * kChanges; n += kProcesses)
                good = Set(kMachine, u"A", name(n), n) == S_OK && good;
            ::_exit(good ? 0 : 1);
        }
    }
    for (unsigned i = 0; i < kProcesses; ++i) {
        int status = -1;
        ::wait(&status);
        EXPECT_EQ(status, 0);
    }
    for (unsigned n = 0; n < kProcesses * kChanges; ++n)
        EXPECT_EQ(QueryRegistryValue(kMachine, u"A", name(n)), RegistryValue(n));
}

} // namespace
} // namespace platform
