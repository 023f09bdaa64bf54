#include <csignal>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include <unistd.h>

#include "host/base/start_error.h"
#include "host/log/console.h"
#include "host/main/application.h"
#include "host/main/options.h"

namespace {

constexpr int kFailed = 1;
constexpr int kMisuse = 2;

void Complain(std::string_view what) {
    const std::string line = "morrowstream-host: " + host::Printable(what) + "\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

int Run(const host::Options& options) {
    switch (options.command) {
    case host::Command::Serve:
        return host::Serve(options);
    case host::Command::AddUser:
        return host::AddUser(options);
    case host::Command::AddUsers:
        return host::AddUsers(options);
    case host::Command::SetLanguage:
        return host::SetLanguage(options);
    case host::Command::Register:
    case host::Command::Unregister:
        return host::ChangeRegistration(options);
    case host::Command::Help:
        host::Console::Get().Say(host::kHelpText.substr(0, host::kHelpText.size() - 1));
        return 0;
    case host::Command::Version:
        host::Console::Get().Say("morrowstream-host " MORROWSTREAM_VERSION);
        return 0;
    }
    return kMisuse;
}

} // namespace

int main(int count, char** values) {
    // Before any thread starts, so that all have them blocked and the main thread alone takes them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    host::Options options;
    try {
        options = host::ParseOptions({values + (count > 0 ? 1 : 0), values + count});
    } catch (const host::StartError& error) {
        Complain(std::string(error.what()) + "; see morrowstream-host --help");
        return kMisuse;
    }
    try {
        return Run(options);
    } catch (const host::MisuseError& error) {
        Complain(std::string(error.what()) + "; see morrowstream-host --help");
        return kMisuse;
    } catch (const std::exception& error) {
        Complain(error.what());
        return kFailed;
    }
}
