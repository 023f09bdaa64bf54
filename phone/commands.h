// Reads the arguments of the sub-commands of `morrowstream-phone`, and runs them.
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "phone/upload.h"
#include "phone/view.h"
#include "platform/options.h"

namespace phone {

// The arguments behind the sub-command.
using Arguments = std::span<const std::string_view>;

inline constexpr unsigned kMostPhones = 10000;

struct UploadCommand {
    UploadOptions upload{}; // with `phones`, `upload.login` is the prefix of the logins
    std::filesystem::path pictures{};
    std::size_t split = kUsualSplit;
    unsigned phones = 0; // 0: one phone, whose login is taken as it is
};

struct ViewCommand {
    ViewOptions view{};                 // its source is one of the following
    std::vector<std::string> sources{}; // viewer number i watches source i, going round
    unsigned viewers = 0;               // 0: one for each source
};

struct InstallCommand {
    ServerAddress server{};
    std::string resource{}; // path and query of the archive
    std::string login{};    // empty with a link, which needs none
    std::string password{};
    std::filesystem::path file{}; // where it is written
};

// Nothing when help is asked for. Each throws platform::UsageError.
std::optional<UploadCommand> ParseUpload(Arguments arguments);
std::optional<ViewCommand> ParseView(Arguments arguments);
std::optional<InstallCommand> ParseInstall(Arguments arguments);

// Reads the arguments and does what they say until it is done, it fails or `stop` is readable; prints what
// came of it. The exit status of the program. Each throws platform::UsageError.
int RunUpload(Arguments arguments, int stop);
int RunView(Arguments arguments, int stop);
// Writes the archive whole or not at all.
int RunInstall(Arguments arguments, int stop);

// For a sub-command that is asked for its help.
inline int PrintHelp(std::string_view help) {
    std::cout << help;
    return platform::kExitDone;
}

// "HOST:PORT" or "[IPv6]:PORT". Throws UsageError.
ServerAddress ParseServer(std::string_view text);
platform::TakeValue Server(ServerAddress& target);
// A login that credentials can hold.
platform::TakeValue Login(std::string& target);
// A password as it is, or for "-" a line of standard input, so that it is in no list of processes.
platform::TakeValue Password(std::string& target);
// The first line of a file.
platform::TakeValue PasswordFile(std::string& target);
// To which server and as whom, and then those of the sub-command.
std::vector<platform::Option> OptionsOf(ServerAddress& server, std::string& login, std::string& password,
                                        std::vector<platform::Option> more);
// --no-reconnect
platform::Option NoReconnect(Reconnecting& target);

// A line for the person at the terminal.
void TellLoss(const std::string& reason, Clock::duration wait);

// The login of phone `number` (from 1) of many: the prefix and the number with at least four digits.
std::string NumberedLogin(std::string_view prefix, unsigned number);

// Runs so many phones at once, each on a thread of its own, and gives their reports.
template <class OneReport>
std::vector<OneReport> RunSideBySide(std::size_t count, const std::function<OneReport(std::size_t)>& run) {
    std::vector<OneReport> reports(count);
    std::vector<std::jthread> threads;
    threads.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        try {
            threads.emplace_back([&report = reports[i], &run, i] { report = run(i); });
        } catch (const std::system_error& error) {
            reports[i].reason = std::string("no thread for this phone: ") + error.what();
        }
    }
    threads.clear(); // joins
    return reports;
}

// How many phones did not come to a good end. The first few are named with their reasons: a server that is
// away fails all of them alike.
template <class OneReport>
std::size_t CountBad(const std::vector<OneReport>& reports,
                     const std::function<std::string(std::size_t)>& who) {
    constexpr std::size_t kMostReasons = 5;
    std::size_t bad = 0;
    for (std::size_t i = 0; i < reports.size(); ++i) {
        if (!reports[i].IsGood() && ++bad <= kMostReasons)
            std::cerr << "morrowstream-phone: " << who(i) << reports[i].reason << std::endl;
    }
    return bad;
}

// Ends the line that sums up a command, for several phones with how many came to a good end; returns the exit
// code.
inline int EndLine(std::size_t bad, std::size_t all, std::string_view whom) {
    if (!whom.empty())
        std::cout << ", " << all - bad << " of " << all << ' ' << whom << " to the end";
    std::cout << std::endl;
    return bad == 0 ? platform::kExitDone : platform::kExitFailed;
}

} // namespace phone
