#include "platform/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "platform/scope.h"
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

// For the time in which a child is between its two programs: a handler of this process must not run there.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_former);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }

private:
    sigset_t m_former{};
};

bool HoldsZero(const std::string& text) noexcept {
    return text.find('\0') != std::string::npos;
}

// What the child needs, made before it starts.
struct Plan {
    char* const* arguments;
    const ProcessSetup& setup;
    ::pid_t starter;
    int report; // takes the errno of a failure; closed by a success
};

// Where the child has the pipe for its failure.
constexpr int kReport = STDERR_FILENO + 1;

// From here on the child calls the system alone: it shares this process's memory, with locks that others
// hold.
[[noreturn]] void BecomeProgram(const Plan& plan) noexcept {
    const auto failed = [](int result) { return result < 0; };
    ::setpgid(0, 0);
    const bool isOrphan = plan.setup.endsWithStarter &&
                          (::prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || ::getppid() != plan.starter);
    int report = plan.report;
    const int nothing = ::open("/dev/null", O_RDWR);
    if (!isOrphan && !failed(nothing) && !failed(::dup2(nothing, STDIN_FILENO)) &&
        !failed(::dup2(plan.setup.output < 0 ? nothing : plan.setup.output, STDOUT_FILENO)) &&
        (plan.setup.keepsErrors || !failed(::dup2(nothing, STDERR_FILENO))) &&
        (report == kReport || !failed(::dup3(report, kReport, O_CLOEXEC))) &&
        (plan.setup.folder.empty() || !failed(::chdir(plan.setup.folder.c_str())))) {
        report = kReport;
        ::closefrom(kReport + 1);
        struct sigaction usual {};
        usual.sa_handler = SIG_DFL;
        for (int signal = 1; signal < NSIG; ++signal)
            ::sigaction(signal, &usual, nullptr); // fails for those that have no other
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::execv(plan.arguments[0], plan.arguments);
    }
    const int error = errno;
    [[maybe_unused]] const auto written = ::write(report, &error, sizeof error);
    ::_exit(127);
}

// An errno, or 0.
int StartOnce(Plan plan, ::pid_t& id) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return errno;
    const Descriptor told(ends[0]);
    Descriptor report(ends[1]);
    // Not where the child puts its standard streams.
    report = Descriptor(::fcntl(report.Get(), F_DUPFD_CLOEXEC, kReport));
    if (!report)
        return errno;
    plan.report = report.Get();
    {
        const SignalsBlocked guard;
        // Without a copy of this process's memory, which a server may have much of.
        // The child keeps to what it may do. NOLINTNEXTLINE(clang-analyzer-*)
        id = ::vfork();
        if (id == 0)
            BecomeProgram(plan);
    }
    if (id < 0)
        return errno;
    report.Close();
    int error = 0;
    if (::read(told.Get(), &error, sizeof error) <= 0)
        return 0;
    while (::waitpid(id, nullptr, 0) < 0 && errno == EINTR) {
    }
    return error;
}

// An errno, or 0.
int Spawn(const std::vector<std::string>& arguments, const ProcessSetup& setup, ::pid_t& id) {
    if (arguments.empty() || HoldsZero(setup.folder) || std::ranges::any_of(arguments, HoldsZero))
        return EINVAL;
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        pointers.push_back(
            const_cast<char*>(argument.c_str())); // the function does not write, but says so late
    pointers.push_back(nullptr);
    const auto end = Clock::now() + kBusyFile;
    for (;;) {
        const int error = StartOnce({pointers.data(), setup, ::getpid(), -1}, id);
        if (error != ETXTBSY || Clock::now() >= end)
            return error;
        std::this_thread::sleep_for(kShortStep);
    }
}

} // namespace

std::optional<Process> Process::Start(const std::vector<std::string>& arguments, const ProcessSetup& setup) {
    ::pid_t id = 0;
    if (const int error = Spawn(arguments, setup, id); error != 0) {
        SetLastError(ErrorFromErrno(error));
        return std::nullopt;
    }
    return Process(id);
}

std::optional<Process> Process::Start(const std::vector<std::string>& arguments, const std::string& folder) {
    return Start(arguments, ProcessSetup{.folder = folder});
}

Process::~Process() {
    if (m_id == 0)
        return;
    // Not waited for yet, so the number is still this program's.
    ::kill(-m_id, SIGKILL);
    while (::waitpid(m_id, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void Process::AskToEnd() const noexcept {
    if (m_id != 0)
        ::kill(m_id, SIGTERM);
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
