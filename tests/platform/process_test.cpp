#include "platform/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "platform/files.h"
#include "platform/status.h"
#include "platform/text.h"
#include "support/Wait.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using platform::Process;

TEST(CommandLineTest, SplitsByTheRuleOfQuotes) {
    using Arguments = std::vector<std::u16string>;
    const std::pair<std::u16string, Arguments> rows[] = {
        {u"", {}},
        {u" \t ", {}},
        {u"  tool a\tb  ", {u"tool", u"a", u"b"}},
        {uR"("C:\a b\t.exe"x "" "c d")", {uR"(C:\a b\t.exe)", u"x", u"", u"c d"}},
        {uR"(t a\b a\\"b c" \"d\" "e\\\"f")", {u"t", uR"(a\b)", uR"(a\b c)", u"\"d\"", uR"(e\"f)"}},
        {uR"(t "a""b" "open c\)", {u"t", u"a\"b", uR"(open c\)"}},
        {u"t $(x) ;`y` *", {u"t", u"$(x)", u";`y`", u"*"}},
    };
    for (const auto& [line, arguments] : rows)
        EXPECT_EQ(arguments, platform::SplitCommandLine(line)) << platform::ToUtf8(line);
    for (const std::u16string text :
         {u"", u"plain", u"a b", u"\"", uR"(a\)", uR"(a b\)", uR"(\\" x)", u"tab\there", uR"(a\\b)"})
        EXPECT_EQ((Arguments{u"t", text, u"z"}),
                  platform::SplitCommandLine(u"t " + platform::QuoteArgument(text) + u" z"));
    EXPECT_EQ(u"a.jar", platform::QuoteArgument(u"a.jar"));
}

std::vector<std::string> Shell(const std::string& script, const std::string& argument = "") {
    return {"/bin/sh", "-c", script, "sh", argument};
}

TEST(ProcessTest, HandsOverArgumentsAndNothingElse) {
    const TempFolder folder;
    const std::string hostile = "$(touch x) `y` \"'\\\n*; | &";
    const platform::File open(::dup(STDOUT_FILENO)); // would be inherited
    const auto previous = ::signal(SIGPIPE, SIG_IGN);
    auto process = Process::Start(Shell("printf %s \"$1\" > argument; ls -l /proc/$$/fd > descriptors;"
                                        "grep SigIgn /proc/$$/status > ignored; pwd > folder",
                                        hostile),
                                  folder.Path().string());
    ::signal(SIGPIPE, previous);
    ASSERT_TRUE(process);
    EXPECT_TRUE(process->Wait(20000));
    EXPECT_TRUE(process->Wait(0)) << "once ended, for good";
    EXPECT_EQ(hostile, platform::ReadWholeFile(folder.File("argument")));
    EXPECT_EQ(folder.Path().string() + "\n", platform::ReadWholeFile(folder.File("folder")));
    // The C library ignores signals of its own, above the 31 of the system.
    EXPECT_EQ(0U, std::stoull(platform::ReadWholeFile(folder.File("ignored"))->substr(8), nullptr, 16) &
                      0x7FFFFFFF);
    const std::string descriptors = platform::ReadWholeFile(folder.File("descriptors")).value();
    EXPECT_NE(std::string::npos, descriptors.find(" 0 -> /dev/null"));
    EXPECT_NE(std::string::npos, descriptors.find(" 2 -> /dev/null"));
    EXPECT_EQ(std::string::npos, descriptors.find(" 3 -> ")) << descriptors;
}

TEST(ProcessTest, EndsWhatTakesTooLongWithAllThatItStarted) {
    const TempFolder folder;
    {
        auto process =
            Process::Start(Shell("sleep 600 & echo $! > child; mv child started; wait"), folder.Path());
        ASSERT_TRUE(process && support::Eventually([&] { return fs::exists(folder.File("started")); }));
        EXPECT_FALSE(process->Wait(50));
        EXPECT_EQ(platform::kErrorWaitTimeout, platform::LastError());
    }
    const int child = std::stoi(platform::ReadWholeFile(folder.File("started")).value());
    // The orphan goes to whoever collects those, or stays a zombie where nobody does.
    EXPECT_TRUE(support::Eventually([&] {
        const auto status = platform::ReadWholeFile("/proc/" + std::to_string(child) + "/status");
        return !status || status->find("State:\tZ") != std::string::npos;
    }));
}

TEST(ProcessTest, IsHeardAndEndsWhenAskedOrWithItsStarter) {
    int ends[2];
    ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    const platform::Descriptor reading(ends[0]);
    platform::Descriptor writing(ends[1]);
    auto process =
        Process::Start(Shell("trap 'echo asked; exit' TERM; echo ready; while :; do sleep 0.01; done"),
                       platform::ProcessSetup{.output = writing.Get()});
    ASSERT_TRUE(process);
    writing.Close();
    const auto hear = [&] {
        char bytes[64];
        return std::string(bytes, std::max<ssize_t>(0, ::read(ends[0], bytes, sizeof bytes)));
    };
    EXPECT_EQ("ready\n", hear());
    process->AskToEnd();
    EXPECT_TRUE(process->Wait(20000));
    EXPECT_EQ("asked\n", hear());
    EXPECT_EQ("", hear()) << "nobody else has the other end";

    std::thread([&] {
        process = Process::Start({"/bin/sleep", "600"}, platform::ProcessSetup{.endsWithStarter = true});
    }).join();
    ASSERT_TRUE(process);
    EXPECT_TRUE(process->Wait(20000));
}

TEST(ProcessTest, TellsWhyItCannotStart) {
    const TempFolder folder;
    const std::pair<std::vector<std::string>, std::uint32_t> rows[] = {
        {{}, platform::kErrorInvalidParameter},
        {{folder.File("missing")}, platform::kErrorFileNotFound},
        {{folder.Write("text", "no program")}, platform::kErrorAccessDenied},
        {{"/bin/sh", std::string("a\0b", 3)}, platform::kErrorInvalidParameter}};
    for (const auto& [arguments, error] : rows) {
        EXPECT_FALSE(Process::Start(arguments, folder.Path()));
        EXPECT_EQ(error, platform::LastError());
    }
    EXPECT_FALSE(Process::Start({"/bin/true"}, folder.File("missing")));
}

// Written a moment ago while others fork: the file may be open in a child that is no other program yet.
TEST(ProcessTest, StartsProgramsThatWereJustWritten) {
    const TempFolder folder;
    std::vector<std::jthread> threads;
    for (int n = 0; n < 4; ++n)
        threads.emplace_back([&, n] {
            const std::string path = folder.File("tool" + std::to_string(n));
            for (int i = 0; i < 25; ++i) {
                ASSERT_EQ(S_OK, platform::WriteWholeFile(path, "#!/bin/sh\nexit 0\n", 0700));
                auto process = Process::Start({path}, folder.Path());
                ASSERT_TRUE(process) << platform::LastError();
                EXPECT_TRUE(process->Wait(20000));
            }
        });
}

TEST(TemporaryFolderTest, IsPrivateAndMadeAnewWhenItWasTaken) {
    const std::string first = platform::TemporaryFolder();
    EXPECT_TRUE(first.ends_with('/'));
    EXPECT_EQ(first, platform::TemporaryFolder());
    EXPECT_EQ(fs::perms::owner_all, fs::status(first).permissions());
    fs::permissions(first, fs::perms::all);
    const std::string second = platform::TemporaryFolder();
    EXPECT_NE(first, second);
    fs::remove_all(first);
    fs::remove_all(second);
    EXPECT_TRUE(fs::is_directory(platform::TemporaryFolder()));
}

} // namespace
