// The program itself: exit statuses, the lines it prints, and its data folder.

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include <sys/stat.h>

#include "platform/files.h"
#include "support/Program.h"
#include "support/temp_folder.h"

namespace {

using support::Program;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::vector<std::string> Host(std::vector<std::string> words) {
    words.insert(words.begin(), HOST_PROGRAM);
    return words;
}

TEST(HostProgram, RefusesWhatMakesNoSense) {
    const TempFolder folder;
    const std::string data = folder.File("data");
    const std::string file = folder.File("file");
    platform::ReplaceFile(file, "ann\tviewer\tx\nbad line\n");
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string line;
        std::string input = {};
    };
    const Case cases[] = {
        {{"--what"}, 2, "morrowstream-host: unknown argument \"--what\"; see morrowstream-host --help\n"},
        {{"--x\x1B[2J"}, 2, "morrowstream-host: unknown argument \"--x"},
        {{"--demo", "--data", data, "--listen", "0.0.0.0:0"},
         1,
         "morrowstream-host: the demo's passwords are known to everybody, so it listens on a loopback "
         "address only"},
        {{"--data", file}, 1, "morrowstream-host: cannot make the data folder"},
        {{"--data", data, "--listen", "192.0.2.1:0"}, 1, "morrowstream-host: cannot listen on 192.0.2.1:0: "},
        {{"--data", data, "--add-user", "a:b", "--kind", "viewer"},
         1,
         "user \"a:b\": a login has no control",
         "p\n"},
        {{"--data", data, "--add-user", "ann", "--kind", "viewer"},
         1,
         "user \"ann\": a password of this kind"},
        {{"--data", data, "--add-users", file}, 1, ", line 2: a user has three fields"},
        {{"--data", data, "--add-users", folder.File("none")}, 1, "morrowstream-host: cannot read "},
        {{"--data", data, "--demo", "--listen", "127.0.0.1:0", "--pictures", data},
         1,
         "the demo needs the pictures in " + data + "/yard (--pictures DIR)\n"},
        {{"--help"}, 0, "morrowstream-host: a video server whose cameras are mobile phones.\n"},
        {{"--version"}, 0, "morrowstream-host 0."},
    };
    for (const Case& c : cases) {
        Program program(Host(c.arguments), c.input);
        EXPECT_EQ(program.Wait(), c.status) << c.line;
        EXPECT_THAT(program.output, testing::AllOf(HasSubstr(c.line), Not(HasSubstr("\x1B"))));
    }
    EXPECT_THAT(platform::ReadWholeFile(data + "/users").value(), Not(HasSubstr("ann")))
        << "a file with a fault adds nobody";
}

TEST(HostProgram, ServesUntilItIsToldToEndAndHoldsItsFolder) {
    const TempFolder folder;
    const std::string data = folder.File("data");
    Program add(Host({"--data", data, "--add-user", "vera", "--kind", "viewer"}), "geheim\r\n");
    EXPECT_EQ(add.Wait(), 0);
    EXPECT_EQ(add.output, "User \"vera\" is a viewer now.\n");
    EXPECT_THAT(platform::ReadWholeFile(data + "/users").value(), HasSubstr("vera\tviewer\t-\t$y$"));
    struct stat info {};
    ASSERT_EQ(::stat((data + "/users").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);

    platform::ReplaceFile(data + "/cameras", "yard\t320x240\tdemo\n");
    for (const int signal : {SIGINT, SIGTERM}) {
        Program host(Host({"--data", data, "--listen", "127.0.0.1:0", "--quiet"}));
        ASSERT_TRUE(host.Await("Data folder: ")) << host.output;
        const auto at = host.output.find("Open http://127.0.0.1:");
        ASSERT_NE(at, std::string::npos) << host.output;
        const std::string port = host.output.substr(at + 22, host.output.find('/', at + 22) - at - 22);

        Program second(Host({"--data", data, "--listen", "127.0.0.1:0"}));
        EXPECT_EQ(second.Wait(), 1);
        EXPECT_THAT(second.output, HasSubstr("another host runs on the data folder " + data));
        Program samePort(Host({"--data", folder.File("other"), "--listen", "127.0.0.1:" + port}));
        EXPECT_EQ(samePort.Wait(), 1);
        EXPECT_THAT(samePort.output, HasSubstr("port " + port + " is in use"));

        const auto begin = std::chrono::steady_clock::now();
        host.Signal(signal);
        EXPECT_EQ(host.Wait(), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
        EXPECT_THAT(host.output, HasSubstr("yard: 0 frames received, 0 failed\n"));
    }
}

TEST(HostProgram, WritesLevelsWhereTheJournalReads) {
    const TempFolder folder;
    // The service manager names the stream by device and inode; the name of another stream means nothing.
    for (const auto& [inode, marked] : {std::pair("$(stat -Lc %i /proc/self/fd/2)", true), {"1", false}}) {
        Program host({"/bin/sh", "-c",
                      "JOURNAL_STREAM=$(stat -Lc %d /proc/self/fd/2):" + std::string(inode) +
                          " exec \"$0\" --seconds 1 --listen 127.0.0.1:0 --data \"$1\"",
                      HOST_PROGRAM, folder.File(marked ? "a" : "b")});
        EXPECT_EQ(host.Wait(), 0);
        EXPECT_EQ(host.output.find("<6>component: registered ") != std::string::npos, marked) << host.output;
        EXPECT_EQ(host.output.find("  component registered ") != std::string::npos, !marked) << host.output;
    }
}

TEST(HostProgram, KeepsTheLanguageForTheNextStart) {
    const TempFolder folder;
    const std::string registry = folder.File("registry");
    platform::ReplaceFile(registry, "[HKEY_LOCAL_MACHINE\\SOFTWARE]\n\"lang\"=twenty-five\n");
    Program set(Host({"--data", folder.Path(), "--language", "ru"}));
    EXPECT_EQ(set.Wait(), 0);
    EXPECT_THAT(set.output, StartsWith("The registry is damaged and counts as empty: " + registry +
                                       ", line 2: a value is a number or a text in double quotes\n"));
    EXPECT_THAT(set.output, HasSubstr("component registered "));
    EXPECT_THAT(set.output, EndsWith("The language \"ru\" takes effect at the next start of the host.\n"));
    Program wrong(Host({"--data", folder.Path(), "--language", "RU"}));
    EXPECT_EQ(wrong.Wait(), 2);
    EXPECT_THAT(wrong.output, HasSubstr("--language takes one of en, es, fr, ru, lv, az, ka, not \"RU\""));
    EXPECT_THAT(platform::ReadWholeFile(registry).value(),
                HasSubstr("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Tessaron]\n\"lang\"=25\n\"sublang\"=1\n"));
    EXPECT_THAT(platform::ReadWholeFile(registry + ".damaged").value(), HasSubstr("twenty-five"));
}

TEST(HostProgram, LoadsTheComponentThatIsRegistered) {
    const TempFolder folder;
    const std::string registry = folder.File("registry");
    // A component that went away is replaced by the one that came with the program, and can be taken out.
    const std::string moved = folder.File("it's moved.so");
    std::filesystem::copy_file(
        std::filesystem::path(HOST_PROGRAM).parent_path() / "../lib/libmorrowstream.so", moved);
    for (const auto& [option, there] :
         {std::pair{"--register", true}, {"--unregister", false}, {"--register", true}}) {
        Program change(Host({"--data", folder.Path(), option, moved}));
        EXPECT_EQ(change.Wait(), 0) << change.output;
        EXPECT_EQ(platform::ReadWholeFile(registry)->find(moved) != std::string::npos, there);
    }
    std::filesystem::remove(moved);
    Program again(Host({"--data", folder.Path(), "--language", "en"}));
    EXPECT_EQ(again.Wait(), 0);
    EXPECT_THAT(again.output, HasSubstr(" in place of " + moved));
    Program none(Host({"--data", folder.Path(), "--register", moved}));
    EXPECT_EQ(none.Wait(), 1);
    EXPECT_THAT(none.output, HasSubstr("registering " + moved + " failed with 0x8007007E"));
}

TEST(HostProgram, DemoShowsItsPhonesAndLeavesNothingBehind) {
    const TempFolder folder;
    const std::string data = folder.File("data");
    Program demo(Host({"--demo", "--data", data, "--listen", "127.0.0.1:0", "--seconds", "3", "--pictures",
                       HOST_PICTURES}));
    EXPECT_EQ(demo.Wait(), 0) << demo.output;
    EXPECT_THAT(demo.output, HasSubstr("spare: 0 frames received, 0 failed\n"));
    EXPECT_THAT(demo.output,
                testing::ContainsRegex("gate: [0-9]+ frames received, 0 failed, [0-9]+ sent by its demo "
                                       "phone: all arrived"));
    EXPECT_THAT(platform::ReadWholeFile(data + "/users").value(), HasSubstr("yard\tphone\tdemo\t"));
    const std::string settings = data + "/Norvane/Tessaron/Servers/Morrowstream.xml";
    EXPECT_THAT(platform::ReadWholeFile(settings).value(), HasSubstr(">spare<"));
    // A camera of one's own stays, and comes from a file that is read once.
    platform::ReplaceFile(data + "/cameras", "Двор №1\t160x120\tp\n");
    Program plain(Host({"--data", data, "--listen", "127.0.0.1:0", "--seconds", "1"}));
    EXPECT_EQ(plain.Wait(), 0);
    EXPECT_THAT(plain.output, HasSubstr("The demo's users and cameras are removed from the data folder.\n"));
    EXPECT_THAT(plain.output, HasSubstr("the file is kept as " + data + "/cameras.stored\n"));
    EXPECT_THAT(platform::ReadWholeFile(data + "/users").value(), Not(HasSubstr("\tdemo\t")));
    EXPECT_THAT(platform::ReadWholeFile(settings).value(),
                testing::AllOf(HasSubstr(">Двор №1<"), Not(HasSubstr(">yard<"))));

    // An address that the host entered follows it; one that a person entered stays, which the start says.
    // Somebody's editor left a camera without a name: what is whole is served, and the rest is told.
    EXPECT_THAT(platform::ReadWholeFile(settings).value(), HasSubstr(">127.0.0.1:"));
    const auto start = [&](const std::string& content) {
        platform::ReplaceFile(settings, content);
        Program host(Host({"--data", data, "--listen", "127.0.0.1:0", "--seconds", "1"}));
        EXPECT_EQ(host.Wait(), 0);
        return host.output;
    };
    const std::string old = platform::ReadWholeFile(settings).value();
    EXPECT_THAT(start(old), HasSubstr("\nPhones are told to connect to 127.0.0.1:"));
    EXPECT_NE(platform::ReadWholeFile(settings).value(), old);
    const std::string text = "<Type type=\"BSTR\">320x240</Type><Password type=\"BSTR\"/></item>";
    const std::string damaged =
        "<config><host type=\"BSTR\">cams.example</host><cams KeyXPath=\"Name/text()\">"
        "<item><Name type=\"BSTR\">tor</Name>" +
        text + "<item>" + text + "<item><Name type=\"BSTR\">hof</Name>" + text + "</cams></config>";
    EXPECT_THAT(
        start(damaged),
        testing::AllOf(
            HasSubstr("Phones are told to connect to cams.example, as the settings have it"),
            HasSubstr("\nThe settings file is damaged: starting with what can be read. It is kept as " +
                      settings + ".damaged\n"),
            HasSubstr(" settings: /config/cams/item[2]/Name: a camera has a name"),
            HasSubstr(" settings: the camera \"hof\" is not served"), HasSubstr("\ntor: 0 frames received"),
            Not(HasSubstr("\nhof: "))));
    EXPECT_EQ(platform::ReadWholeFile(settings + ".damaged").value(), damaged);
    EXPECT_THAT(start("<config><cams>"), HasSubstr("settings: nothing of it can be read"));
}

} // namespace
