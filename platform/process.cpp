#include "platform/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "platform/status.h"

namespace platform {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A wait looks this often. Short at first, since most programs that are waited for end within milliseconds.
constexpr auto kShortStep = 1ms;
constexpr auto kLongStep = 10ms;
constexpr auto kShortSteps = 100ms;

// For so long a start is tried again when the program's file is open for writing: the writer was this
// process, and a child that another thread forked meanwhile holds its copy of the descriptor until it runs
// its own program.
constexpr auto kBusyFile = 1s;

class Attributes {
public:
    Attributes() {
        ::posix_spawnattr_init(&m_value);
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&m_value, &signals);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&m_value, &signals);
        ::posix_spawnattr_setpgroup(&m_value, 0);
        ::posix_spawnattr_setflags(&m_value,
                                   POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { ::posix_spawnattr_destroy(&m_value); }
    [[nodiscard]] const posix_spawnattr_t* Get() const noexcept { return &m_value; }

private:
    posix_spawnattr_t m_value{};
};

class FileActions {
public:
    explicit FileActions(const std::string& folder) {
        ::posix_spawn_file_actions_init(&m_value);
        m_error = ::posix_spawn_file_actions_addopen(&m_value, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        for (const int output : {STDOUT_FILENO, STDERR_FILENO})
            Note(::posix_spawn_file_actions_addopen(&m_value, output, "/dev/null", O_WRONLY, 0));
        Note(::posix_spawn_file_actions_addclosefrom_np(&m_value, STDERR_FILENO + 1));
        Note(::posix_spawn_file_actions_addchdir_np(&m_value, folder.c_str()));
    }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { ::posix_spawn_file_actions_destroy(&m_value); }
    [[nodiscard]] const posix_spawn_file_actions_t* Get() const noexcept { return &m_value; }
    [[nodiscard]] int Error() const noexcept { return m_error; }

private:
    void Note(int error) noexcept { m_error = m_error == 0 ? error : m_error; }

    posix_spawn_file_actions_t m_value{};
    int m_error = 0; // an errno, 0 for none
};

bool HoldsZero(const std::string& text) noexcept {
    return text.find('\0') != std::string::npos;
}

// An errno, or 0.
int Spawn(const std::vector<std::string>& arguments, const std::string& folder, ::pid_t& id) {
    if (arguments.empty() || HoldsZero(folder) || std::ranges::any_of(arguments, HoldsZero))
        return EINVAL;
    std::vector<char*> pointers;
    for (const std::string& argument : arguments)
        pointers.push_back(
            const_cast<char*>(argument.c_str())); // the function does not write, but says so late
    pointers.push_back(nullptr);
    const Attributes attributes;
    const FileActions actions(folder);
    if (actions.Error() != 0)
        return actions.Error();
    const auto end = Clock::now() + kBusyFile;
    for (;;) {
        const int error =
            ::posix_spawn(&id, pointers[0], actions.Get(), attributes.Get(), pointers.data(), environ);
        if (error != ETXTBSY || Clock::now() >= end)
            return error;
        std::this_thread::sleep_for(kShortStep);
    }
}

} // namespace

std::optional<Process> Process::Start(const std::vector<std::string>& arguments, const std::string& folder) {
    ::pid_t id = 0;
    if (const int error = Spawn(arguments, folder, id); error != 0) {
        SetLastError(ErrorFromErrno(error));
        return std::nullopt;
    }
    return Process(id);
}

Process::~Process() {
    if (m_id == 0)
        return;
    // Not waited for yet, so the number is still this program's.
    ::kill(-m_id, SIGKILL);
    while (::waitpid(m_id, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// Looks again and again instead of sleeping until the system tells: that would need a descriptor that not
// every system hands out, or a handler of a signal, which is the host's.
bool Process::Wait(std::uint32_t milliseconds) noexcept {
    const auto start = Clock::now();
    const auto end = start + std::chrono::milliseconds(milliseconds);
    while (m_id != 0) {
        // No such child: the host has it waited for by the system, or did so itself.
        const ::pid_t ended = ::waitpid(m_id, nullptr, WNOHANG);
        if (ended == m_id || (ended < 0 && errno != EINTR)) {
            m_id = 0;
            break;
        }
        const auto now = Clock::now();
        if (now >= end) {
            SetLastError(kErrorWaitTimeout);
            return false;
        }
        const auto step = now - start < kShortSteps ? kShortStep : kLongStep;
        std::this_thread::sleep_for(std::min<Clock::duration>(step, end - now));
    }
    return true;
}

} // namespace platform
