// morrowstream-phone: a phone on the command line.

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <map>
#include <stdexcept>

#include <sys/signalfd.h>

#include "phone/commands.h"

namespace {

using namespace phone;

constexpr std::string_view kHelp = R"(morrowstream-phone: a phone on the command line.

  morrowstream-phone upload   sends pictures to a camera of a server
  morrowstream-phone view     watches a camera or another source of a server
  morrowstream-phone install  fetches the archive that a real phone installs

"morrowstream-phone upload --help" and so on list the arguments.
)";

// A descriptor that is readable once the process was asked to end. The signals are taken off their usual way
// before any thread starts, so none interrupts a thread in the middle of a frame.
int OpenStop() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) {
        return -1;
    }
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

int Run(Arguments arguments) {
    if (arguments.empty())
        throw platform::UsageError("no command");
    if (arguments[0] == "--help") {
        std::cout << kHelp;
        return platform::kExitDone;
    }
    static const std::map<std::string_view, int (*)(Arguments, int)> kCommands = {
        {"upload", RunUpload}, {"view", RunView}, {"install", RunInstall}};
    const auto command = kCommands.find(arguments[0]);
    if (command == kCommands.end())
        throw platform::UsageError("unknown command \"" + std::string(arguments[0]) + "\"");
    const int stop = OpenStop();
    if (stop < 0)
        throw std::runtime_error(std::string("cannot watch for signals: ") + std::strerror(errno));
    return command->second(arguments.subspan(1), stop);
}

} // namespace

int main(int count, char** values) {
    return platform::RunProgram("morrowstream-phone", count, values, Run);
}
