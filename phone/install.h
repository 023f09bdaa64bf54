// `morrowstream-phone install`: fetches the archive that a phone would install.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "phone/connection.h"

namespace phone {

struct InstallCommand {
    ServerAddress server;
    std::string resource; // path and query of the archive
    std::string login;    // empty with a link, which needs none
    std::string password;
    std::filesystem::path file; // where it is written
    bool help = false;
};

// `arguments` stand behind the sub-command. Throws UsageError.
InstallCommand ParseInstall(std::span<const std::string_view> arguments);

// Reads the arguments, fetches the archive and writes it whole or not at all. The process's exit status.
// Throws UsageError.
int RunInstall(std::span<const std::string_view> arguments, int stop);

} // namespace phone
