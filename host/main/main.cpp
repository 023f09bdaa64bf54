#include <csignal>

#include "host/log/console.h"
#include "host/main/options.h"

namespace {

int Run(const host::Options& options) {
    switch (options.command) {
    case host::Command::Serve:
        return host::Serve(options);
    case host::Command::Control:
        return host::RunControl(options);
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
        return platform::kExitDone;
    case host::Command::Version:
        host::Console::Get().Say("morrowstream-host " MORROWSTREAM_VERSION);
        return platform::kExitDone;
    }
    return platform::kExitMisuse;
}

} // namespace

int main(int count, char** values) {
    // Before any thread starts, so that all have them blocked and the main thread alone takes them.
    const sigset_t signals = host::HostSignals();
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    return platform::RunProgram("morrowstream-host", count, values,
                                [](auto arguments) { return Run(host::ParseOptions(arguments)); });
}
