#include "platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;

std::size_t CountEntries(const TempFolder& folder) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator()));
}

TEST(ReplaceFileTest, MakesAndReplacesWithTheModeAskedFor) {
    const TempFolder folder;
    const std::string path = folder.File(std::string(255, 'n')); // the longest name there is
    for (const unsigned mode : {0600U, 0644U, 0640U}) {
        const std::string content(mode, 'c');
        EXPECT_EQ(platform::ReplaceFile(path, content, mode), S_OK);
        EXPECT_EQ(platform::ReadWholeFile(path), content);
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode) << "whatever the umask is";
    }
    EXPECT_EQ(CountEntries(folder), 1U);
}

TEST(ReplaceFileTest, AFailureLeavesEverythingAsItWas) {
    const TempFolder folder;
    fs::create_directory(folder.Path() / "taken");
    EXPECT_EQ(platform::ReplaceFile(folder.File("taken"), "text"), E_ACCESSDENIED);
    EXPECT_EQ(platform::LastError(), platform::kErrorAccessDenied);
    EXPECT_EQ(platform::ReplaceFile(folder.File("missing/file"), "text"), MakeStatus(0x80070002));
    EXPECT_TRUE(FAILED(platform::ReplaceFile("", "text")));
    EXPECT_TRUE(FAILED(platform::ReplaceFile(folder.File(std::string("a\0b", 3)), "text")));
    EXPECT_TRUE(fs::is_directory(folder.Path() / "taken"));
    EXPECT_EQ(CountEntries(folder), 1U) << "a new file was left behind";
}

TEST(ReplaceFileTest, AReaderNeverSeesAPart) {
    const TempFolder folder;
    const std::string path = folder.File("settings.xml");
    constexpr std::size_t kSize = 100'000;
    ASSERT_EQ(platform::ReplaceFile(path, std::string(kSize, 'a')), S_OK);
    std::atomic<bool> isDone{false};
    const auto write = [&](char letter) {
        for (int n = 0; n < 40; ++n)
            ASSERT_EQ(platform::ReplaceFile(path, std::string(kSize, letter)), S_OK);
    };
    std::jthread reader([&] {
        while (!isDone) {
            const auto content = platform::ReadWholeFile(path);
            ASSERT_TRUE(content.has_value());
            ASSERT_EQ(content->size(), kSize);
            ASSERT_EQ(std::ranges::count(*content, content->front()), static_cast<std::ptrdiff_t>(kSize));
        }
    });
    {
        const std::jthread first(write, 'a');
        const std::jthread second(write, 'b');
    }
    isDone = true;
    reader.join();
    EXPECT_EQ(CountEntries(folder), 1U);
}

TEST(ReadWholeFileTest, LimitsAndWhatIsNoFile) {
    const TempFolder folder;
    const std::string path = folder.File("file");
    ASSERT_EQ(platform::ReplaceFile(path, std::string(1000, 'x')), S_OK);
    EXPECT_EQ(platform::ReadWholeFile(path, 1000)->size(), 1000U);
    ASSERT_EQ(::mkfifo(folder.File("pipe").c_str(), 0600), 0);
    const struct {
        std::string path;
        std::size_t limit;
        std::uint32_t error;
    } rows[] = {{path, 999, platform::kErrorInsufficientBuffer},
                {path, 0, platform::kErrorInsufficientBuffer},
                {"/proc/self/status", 10, platform::kErrorInsufficientBuffer}, // its size is said to be 0
                {folder.File("pipe"), 10, platform::kErrorAccessDenied},
                {folder.Path().string(), 10, platform::kErrorAccessDenied},
                {folder.File("none"), 10, platform::kErrorFileNotFound},
                {path + "/none", 10, platform::kErrorPathNotFound}};
    for (const auto& row : rows) {
        EXPECT_EQ(platform::ReadWholeFile(row.path, row.limit), std::nullopt) << row.path;
        EXPECT_EQ(platform::LastError(), row.error) << row.path;
    }
    ASSERT_EQ(platform::ReplaceFile(path, ""), S_OK);
    EXPECT_EQ(platform::ReadWholeFile(path, 0), "");
    EXPECT_GT(platform::ReadWholeFile("/proc/self/status")->size(), 100U);
}

TEST(CreateFolderTest, WithThoseAboveIt) {
    const TempFolder folder;
    for (int n = 0; n < 2; ++n)
        EXPECT_EQ(platform::CreateFolder(folder.File("a//b/c/")), S_OK);
    EXPECT_EQ(fs::status(folder.Path() / "a/b/c").permissions(), fs::perms::owner_all);
    EXPECT_EQ(platform::CreateFolder("/"), S_OK);
    ASSERT_EQ(platform::ReplaceFile(folder.File("file"), ""), S_OK);
    EXPECT_EQ(platform::CreateFolder(folder.File("file")), MakeStatus(0x80070050));
    EXPECT_EQ(platform::CreateFolder(folder.File("file/below")), MakeStatus(0x80070050));
    EXPECT_TRUE(FAILED(platform::CreateFolder("")));
}

} // namespace
