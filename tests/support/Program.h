// A program under test: one end of a socket is its standard input, output and error.
#pragma once

#include <csignal>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "support/TcpPair.h"

namespace support {

class Program {
public:
    // The first word is the program's path. `input` is all that it can read.
    explicit Program(std::vector<std::string> words, const std::string& input = "") {
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        int ends[2];
        Must(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
        m_process = ::fork();
        if (m_process == 0) {
            for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
                ::dup2(ends[1], standard);
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(ends[1]);
        m_peer = Peer(ends[0]);
        m_peer.Send(input);
        m_peer.FinishSending();
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        if (m_process > 0) {
            Signal(SIGKILL);
            ::waitpid(m_process, nullptr, 0);
        }
    }

    // Reads until `text` has come; false at the end of the output.
    bool Await(const std::string& text) {
        output += m_peer.ReceiveUntil(text, 30000);
        return output.ends_with(text);
    }
    void Signal(int signal) const { ::kill(m_process, signal); }
    // Its exit status, or -1 for a program that a signal ended.
    int Wait() {
        output += m_peer.Receive(~std::size_t{0}, 30000);
        int status = 0;
        ::waitpid(std::exchange(m_process, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // All that it printed so far, both streams.
    std::string output;

private:
    pid_t m_process = 0;
    Peer m_peer;
};

} // namespace support
