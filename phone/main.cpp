// morrowstream-phone: a phone on the command line.

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <map>
#include <span>
#include <string_view>
#include <vector>

#include <sys/signalfd.h>

#include "phone/install.h"
#include "phone/options.h"
#include "phone/uploadcommand.h"
#include "phone/viewcommand.h"

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

int Run(std::span<const std::string_view> arguments) {
    if (arguments.empty()) {
        throw UsageError("no command");
    }
    if (arguments[0] == "--help") {
        std::cout << kHelp;
        return kExitDone;
    }
    using Command = int (*)(std::span<const std::string_view>, int);
    static const std::map<std::string_view, Command> kCommands = {
        {"upload", RunUpload}, {"view", RunView}, {"install", RunInstall}};
    const auto command = kCommands.find(arguments[0]);
    if (command == kCommands.end()) {
        throw UsageError("unknown command \"" + std::string(arguments[0]) + "\"");
    }
    const int stop = OpenStop();
    if (stop < 0) {
        throw std::runtime_error(std::string("cannot watch for signals: ") + std::strerror(errno));
    }
    return command->second(arguments.subspan(1), stop);
}

} // namespace

int main(int count, char** values) {
    try {
        const std::vector<std::string_view> arguments(values + (count > 0 ? 1 : 0), values + count);
        return Run(arguments);
    } catch (const UsageError& error) {
        std::cerr << "morrowstream-phone: " << error.what() << "; see morrowstream-phone --help" << std::endl;
        return kExitMisuse;
    } catch (const std::exception& error) {
        std::cerr << "morrowstream-phone: " << error.what() << std::endl;
        return kExitFailed;
    }
}
