// The program itself: exit statuses, the lines it prints, and its data folder.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "support/TcpPair.h"
#include "support/temp_folder.h"

namespace {

using testing::HasSubstr;

class Program {
public:
    // `input` is its standard input; standard output and standard error are read as one.
    Program(std::vector<std::string> arguments, const std::string& input = "") {
        arguments.insert(arguments.begin(), HOST_PROGRAM);
        std::vector<char*> pointers;
        for (std::string& argument : arguments)
            pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        support::Must(
            ::pipe2(in.data(), O_CLOEXEC) == 0 && ::pipe2(out.data(), O_CLOEXEC) == 0 &&
                ::posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO) == 0 &&
                ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO) == 0 &&
                ::posix_spawn_file_actions_adddup2(&actions, out[1], STDERR_FILENO) == 0 &&
                ::posix_spawn(&m_process, HOST_PROGRAM, &actions, nullptr, pointers.data(), environ) == 0,
            "the program does not start");
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        m_output = support::Descriptor(out[0]);
        support::Must(::write(in[1], input.data(), input.size()) == static_cast<ssize_t>(input.size()),
                      "write");
        ::close(in[1]);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        if (m_process > 0) {
            ::kill(m_process, SIGKILL);
            ::waitpid(m_process, nullptr, 0);
        }
    }

    // Reads until `text` has come; false at the end of the output.
    bool Await(const std::string& text) {
        while (output.find(text) == std::string::npos) {
            if (!ReadMore())
                return false;
        }
        return true;
    }
    void Signal(int signal) const { ::kill(m_process, signal); }
    // -1 for a program that a signal ended.
    int Wait() {
        while (ReadMore()) {
        }
        int status = 0;
        ::waitpid(m_process, &status, 0);
        m_process = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string output;

private:
    bool ReadMore() {
        pollfd waiting{m_output.Get(), POLLIN, 0};
        std::array<char, 4096> buffer{};
        if (::poll(&waiting, 1, 30000) <= 0)
            return false;
        const auto got = ::read(m_output.Get(), buffer.data(), buffer.size());
        if (got <= 0)
            return false;
        output.append(buffer.data(), static_cast<std::size_t>(got));
        return true;
    }

    pid_t m_process = 0;
    support::Descriptor m_output;
};

std::string ReadFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

TEST(HostProgram, RefusesWhatMakesNoSense) {
    const TempFolder folder;
    const std::string data = folder.File("data");
    const std::string file = folder.File("file");
    std::ofstream(file) << "ann\tviewer\tx\nbad line\n";
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string line;
        std::string input = {};
    };
    const Case cases[] = {
        {{"--what"}, 2, "morrowstream-host: unknown argument \"--what\"; see morrowstream-host --help\n"},
        {{"--x\x1B[2J"}, 2, "morrowstream-host: unknown argument \"--x"},
        {{"--add-user", "ann"}, 2, "morrowstream-host: --add-user and --kind go together; see"},
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
         "user \"ann\": a password of this kind",
         ""},
        {{"--data", data, "--add-users", file}, 1, ", line 2: a user has three fields"},
        {{"--data", data, "--add-users", folder.File("none")}, 1, "morrowstream-host: cannot read "},
        {{"--help"}, 0, "morrowstream-host: a video server whose cameras are mobile phones.\n"},
        {{"--version"}, 0, "morrowstream-host 0."},
    };
    for (const Case& c : cases) {
        Program program(c.arguments, c.input);
        EXPECT_EQ(program.Wait(), c.status) << c.line;
        EXPECT_THAT(program.output, HasSubstr(c.line));
        EXPECT_THAT(program.output, testing::Not(HasSubstr("\x1B")));
    }
    EXPECT_THAT(ReadFile(data + "/users"), testing::Not(HasSubstr("ann")))
        << "a file with a fault adds nobody";
}

TEST(HostProgram, ServesUntilItIsToldToEndAndHoldsItsFolder) {
    const TempFolder folder;
    const std::string data = folder.File("data");
    Program add({"--data", data, "--add-user", "vera", "--kind", "viewer"}, "geheim\r\n");
    EXPECT_EQ(add.Wait(), 0);
    EXPECT_EQ(add.output, "User \"vera\" is a viewer now.\n");
    EXPECT_THAT(ReadFile(data + "/users"), HasSubstr("vera\tviewer\t-\t$y$"));
    struct stat info {};
    ASSERT_EQ(::stat((data + "/users").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);

    std::ofstream(data + "/cameras") << "yard\t320x240\tdemo\n";
    for (const int signal : {SIGINT, SIGTERM}) {
        Program host({"--data", data, "--listen", "127.0.0.1:0", "--quiet"});
        ASSERT_TRUE(host.Await("Data folder: ")) << host.output;
        const auto at = host.output.find("Open http://127.0.0.1:");
        ASSERT_NE(at, std::string::npos) << host.output;
        const std::string port = host.output.substr(at + 22, host.output.find('/', at + 22) - at - 22);

        Program second({"--data", data, "--listen", "127.0.0.1:0"});
        EXPECT_EQ(second.Wait(), 1);
        EXPECT_THAT(second.output, HasSubstr("another host runs on the data folder " + data));
        Program samePort({"--data", folder.File("other"), "--listen", "127.0.0.1:" + port});
        EXPECT_EQ(samePort.Wait(), 1);
        EXPECT_THAT(samePort.output, HasSubstr("port " + port + " is in use"));

        const auto begin = std::chrono::steady_clock::now();
        host.Signal(signal);
        EXPECT_EQ(host.Wait(), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
        EXPECT_THAT(host.output, HasSubstr("yard: 0 frames received, 0 failed\n"));
    }
}

TEST(HostProgram, DemoShowsItsPhonesAndLeavesNoUserBehind) {
    const TempFolder folder;
    const std::string data = folder.File("data");
    Program demo(
        {"--demo", "--data", data, "--listen", "127.0.0.1:0", "--seconds", "3", "--pictures", HOST_PICTURES});
    EXPECT_EQ(demo.Wait(), 0) << demo.output;
    EXPECT_THAT(demo.output, HasSubstr("yard  "));
    EXPECT_THAT(demo.output, HasSubstr("spare: 0 frames received, 0 failed\n"));
    EXPECT_THAT(demo.output,
                testing::ContainsRegex("gate: [0-9]+ frames received, 0 failed, [0-9]+ sent by its demo "
                                       "phone: all arrived"));
    EXPECT_THAT(ReadFile(data + "/users"), HasSubstr("yard\tphone\tdemo\t"));
    Program plain({"--data", data, "--listen", "127.0.0.1:0", "--seconds", "1"});
    EXPECT_EQ(plain.Wait(), 0);
    EXPECT_THAT(plain.output, HasSubstr("The demo's users are removed from the data folder.\n"));
    EXPECT_THAT(ReadFile(data + "/users"), testing::Not(HasSubstr("\tdemo\t")));

    Program noPictures({"--demo", "--data", data, "--listen", "127.0.0.1:0", "--pictures", data});
    EXPECT_EQ(noPictures.Wait(), 1);
    EXPECT_THAT(noPictures.output,
                HasSubstr("the demo needs the pictures in " + data + "/yard (--pictures DIR)\n"));
}

} // namespace
