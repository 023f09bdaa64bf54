#include "host/demo.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/log/console.h"
#include "host/start_error.h"
#include "host/users/password.h"

namespace host {
namespace {

constexpr std::chrono::milliseconds kWatchInterval{100};
constexpr std::chrono::seconds kRestartAfter{1};
constexpr std::chrono::milliseconds kEndWithin{1500};

// In the child, between fork and exec: calls that are safe there only.
[[noreturn]] void BecomePhone(char* const* arguments, int output, pid_t parent) {
    ::setpgid(0, 0); // Ctrl-C is for the host, which then ends its phones in order
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent)
        ::_exit(1);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    const int nothing = ::open("/dev/null", O_RDONLY);
    ::dup2(nothing, STDIN_FILENO);
    ::dup2(output, STDOUT_FILENO);
    ::execv(arguments[0], arguments);
    ::_exit(127);
}

// The number in "sent 120 frames, ..."; false when there is none.
bool ReadCount(std::string_view report, std::uint64_t* count) {
    constexpr std::string_view kBefore = "sent ";
    const auto at = report.rfind(kBefore);
    if (at == std::string_view::npos)
        return false;
    const char* begin = report.data() + at + kBefore.size();
    return std::from_chars(begin, report.data() + report.size(), *count).ec == std::errc{};
}

} // namespace

std::vector<CameraEntry> DemoCameras() {
    const std::string password(kDemoPassword);
    return {{"yard", "320x240", password}, {"gate", "160x120", password}, {"spare", "320x240", password}};
}

void AddDemoUsers(UserStore& users) {
    for (const CameraEntry& camera : DemoCameras()) {
        const auto found = users.Users().find(camera.name);
        if (found == users.Users().end())
            users.Set(camera.name, {UserKind::Phone, true, HashPassword(camera.password)});
        else if (!found->second.demo)
            throw StartError("the demo needs the login \"" + camera.name +
                             "\", which is one of your users: use another data folder for it");
    }
    users.Save();
}

bool RemoveDemoUsers(UserStore& users) {
    std::vector<std::string> demo;
    for (const auto& [login, user] : users.Users()) {
        if (user.demo)
            demo.push_back(login);
    }
    for (const std::string& login : demo)
        users.Remove(login);
    if (!demo.empty())
        users.Save();
    return !demo.empty();
}

DemoPhones::DemoPhones(std::string program, std::string pictures, std::string server)
    : m_program(std::move(program)), m_pictures(std::move(pictures)), m_server(std::move(server)) {
    if (::access(m_program.c_str(), X_OK) != 0)
        throw StartError("the demo needs " + m_program + ", which is not there");
    for (const auto& [login, fps] : {std::pair{"yard", "10"}, std::pair{"gate", "5"}}) {
        const std::string folder = m_pictures + "/" + login;
        std::error_code error;
        if (!std::filesystem::is_directory(folder, error))
            throw StartError("the demo needs the pictures in " + folder + " (--pictures DIR)");
        m_phones.push_back(Phone{{login}, fps, -1, {}, {}});
    }
    m_supervisor = std::thread([this] { Supervise(); });
}

std::vector<DemoPhoneResult> DemoPhones::Stop() {
    m_stop.Signal();
    if (m_supervisor.joinable())
        m_supervisor.join();
    std::vector<DemoPhoneResult> results;
    for (const Phone& phone : m_phones)
        results.push_back(phone.result);
    return results;
}

void DemoPhones::Supervise() {
    do {
        for (Phone& phone : m_phones) {
            if (phone.pid > 0 && Collect(phone)) {
                Console::Get().Log("demo",
                                   "the phone of " + phone.result.login + " has ended; starting it again");
                phone.startAt = Clock::now() + kRestartAfter;
            }
            if (phone.pid <= 0 && Clock::now() >= phone.startAt)
                Start(phone);
        }
    } while (WaitFor({.stop = &m_stop}, Clock::now() + kWatchInterval) != Waited::Stopped);
    EndAll();
}

void DemoPhones::Start(Phone& phone) {
    phone.startAt = Clock::now() + kRestartAfter; // in case that it cannot be started
    std::vector<std::string> texts{m_program,    "upload",
                                   "--server",   m_server,
                                   "--login",    phone.result.login,
                                   "--password", std::string(kDemoPassword),
                                   "--pictures", m_pictures + "/" + phone.result.login,
                                   "--fps",      phone.fps};
    std::vector<char*> arguments;
    for (std::string& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    Descriptor reading(ends[0]);
    const Descriptor writing(ends[1]);
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid == 0)
        BecomePhone(arguments.data(), writing.Get(), parent);
    if (pid < 0)
        return;
    phone.pid = pid;
    phone.output = std::move(reading);
}

bool DemoPhones::Collect(Phone& phone) {
    int status = 0;
    const pid_t ended = ::waitpid(phone.pid, &status, WNOHANG);
    if (ended == 0 || (ended < 0 && errno == EINTR))
        return false;
    phone.pid = -1;
    // The child is gone: what it said, a line, lies in the pipe.
    std::array<char, 4096> report{};
    const ssize_t got = ::read(phone.output.Get(), report.data(), report.size());
    std::uint64_t count = 0;
    if (got > 0 && ReadCount({report.data(), static_cast<std::size_t>(got)}, &count))
        phone.result.sent += count;
    else
        phone.result.complete = false;
    return true;
}

void DemoPhones::EndAll() {
    for (const Phone& phone : m_phones) {
        if (phone.pid > 0)
            ::kill(phone.pid, SIGTERM);
    }
    const auto deadline = Clock::now() + kEndWithin;
    bool killed = false;
    for (Phone& phone : m_phones) {
        while (phone.pid > 0 && !Collect(phone)) {
            if (!killed && Clock::now() > deadline) {
                killed = true;
                for (const Phone& late : m_phones) {
                    if (late.pid > 0)
                        ::kill(late.pid, SIGKILL);
                }
            }
            (void)WaitFor({}, Clock::now() + std::chrono::milliseconds(5));
        }
    }
}

} // namespace host
