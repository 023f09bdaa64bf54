// The program itself: exit statuses, the lines it prints, its signals, and the pictures that come with it.

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include "host/phone/pictures.h"
#include "phone/scripted_server.h"

namespace host::phone::test {
namespace {

class Program {
public:
    explicit Program(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), PHONE_PROGRAM);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        std::array<int, 2> ends{};
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        if (::pipe2(ends.data(), O_CLOEXEC) != 0 ||
            ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO) != 0 ||
            ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO) != 0 ||
            ::posix_spawn(&m_process, PHONE_PROGRAM, &actions, nullptr, pointers.data(), environ) != 0) {
            throw std::runtime_error("the program does not start");
        }
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        m_output = ends[0];
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        if (m_process > 0) {
            Signal(SIGKILL);
            Finish();
        }
        ::close(m_output);
    }
    void Signal(int number) const { ::kill(m_process, number); }
    // Waits for its end; the exit status, or -1 for a signal.
    int Finish() {
        std::array<char, 512> piece{};
        for (ssize_t count = 0; (count = ::read(m_output, piece.data(), piece.size())) > 0;) {
            m_text.append(piece.data(), static_cast<std::size_t>(count));
        }
        int status = 0;
        ::waitpid(std::exchange(m_process, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // All that it printed, both streams.
    const std::string& Output() const { return m_text; }

private:
    pid_t m_process = -1;
    int m_output = -1;
    std::string m_text;
};

std::vector<std::string> Upload(const std::string& address, const char* sequence,
                                std::initializer_list<const char*> more = {}) {
    std::vector<std::string> arguments{"upload",
                                       "--server",
                                       address,
                                       "--login",
                                       "yard",
                                       "--password",
                                       "demo",
                                       "--fps",
                                       "200",
                                       "--pictures",
                                       std::string(PHONE_PICTURES "/") + sequence};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

TEST(PhoneProgram, EndsAsItsHelpSays) {
    struct Case {
        std::vector<std::string> arguments;
        int status;
        const char* output;
    };
    const Case cases[] = {
        Case{{"--help"}, 0, "morrowstream-phone upload"},
        Case{{"upload", "--help"}, 0, "--server HOST:PORT"},
        Case{{}, 2, "morrowstream-phone: no command; see morrowstream-phone --help\n"},
        Case{{"dance"}, 2, "unknown command \"dance\""},
        Case{{"upload", "--server", "x"}, 2, "--server takes HOST:PORT, not \"x\""},
        Case{{"upload", "--server", "h:1", "--login", "l", "--pictures", "/nowhere"},
             1,
             "cannot read the folder /nowhere: "},
    };
    for (const Case& row : cases) {
        Program program(row.arguments);
        EXPECT_EQ(program.Finish(), row.status) << row.output;
        EXPECT_NE(program.Output().find(row.output), std::string::npos) << program.Output();
    }
}

TEST(PhoneProgram, ReportsWhatItSent) {
    for (const char* sequence : {"yard", "gate"}) {
        ScriptedServer server;
        Program program(Upload(server.Address().Text(), sequence, {"--frames", "4"}));
        const std::string header = server.AcceptPhone();
        EXPECT_EQ(header.size(), 607U); // the pictures that come with the program share the usual head
        server.Grant(10);
        for (int i = 0; i < 4; ++i) {
            const std::string picture = header + server.ReadFrame();
            EXPECT_EQ(JpegSize(picture)->width, sequence[0] == 'y' ? 320U : 160U);
            EXPECT_TRUE(picture.ends_with("\xFF\xD9"));
        }
        server.Close();
        EXPECT_EQ(program.Finish(), 0);
        EXPECT_EQ(program.Output(), "sent 4 frames, 1 grants\n");
    }
}

TEST(PhoneProgram, FailsWithAClearLine) {
    ScriptedServer server;
    Program denied(Upload(server.Address().Text(), "gate"));
    server.Accept();
    server.ReadHead();
    server.Read(131);
    server.Send("\x01");
    server.Close();
    EXPECT_EQ(denied.Finish(), 1);
    EXPECT_EQ(denied.Output(), "morrowstream-phone: denied: wrong password\nsent 0 frames, 0 grants\n");

    std::string address;
    {
        const ScriptedServer gone;
        address = gone.Address().Text();
    }
    Program refused(Upload(address, "gate"));
    EXPECT_EQ(refused.Finish(), 1);
    EXPECT_EQ(refused.Output(), "morrowstream-phone: cannot connect to " + address +
                                    ": Connection refused\nsent 0 frames, 0 grants\n");
}

TEST(PhoneProgram, EndsCleanlyOnASignal) {
    for (const int signal : {SIGINT, SIGTERM}) {
        ScriptedServer server;
        Program program(Upload(server.Address().Text(), "gate", {"--phones", "1"}));
        server.AcceptPhone();
        server.Grant(2);
        server.ReadFrame();
        server.ReadFrame();
        program.Signal(signal);
        EXPECT_TRUE(server.AtEnd()); // its side is closed in order
        server.Close();
        EXPECT_EQ(program.Finish(), 0);
        EXPECT_EQ(program.Output(), "sent 2 frames, 1 grants, 1 of 1 phones to the end\n");
    }
}

// Many phones: each logs in under its own name, and the one that fails is named and makes the whole fail.
TEST(PhoneProgram, RunsManyPhones) {
    ScriptedServer server;
    Program program(Upload(server.Address().Text(), "gate", {"--phones", "2", "--frames", "1"}));
    std::string heads;
    for (int i = 0; i < 2; ++i) {
        server.Accept();
        const std::string head = server.ReadHead();
        heads += head;
        server.Read(131);
        const bool first = head.find("/yard0001 ") != std::string::npos;
        server.Send(std::string(1, first ? '\0' : '\1'));
        if (first) {
            server.ReadBlock();
            server.Grant(10);
            server.ReadFrame();
            EXPECT_TRUE(server.AtEnd());
        }
        server.Close();
    }
    EXPECT_NE(heads.find("/yard0002 "), std::string::npos);
    EXPECT_EQ(program.Finish(), 1);
    EXPECT_EQ(program.Output(), "morrowstream-phone: yard0002: denied: wrong password\n"
                                "sent 1 frames, 1 grants, 1 of 2 phones to the end\n");
}

} // namespace
} // namespace host::phone::test
