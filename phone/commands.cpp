#include "phone/commands.h"

#include <charconv>
#include <fstream>

#include "platform/terminal.h"

namespace phone {

ServerAddress ParseServer(std::string_view text) {
    const auto fail = [&] { return platform::WrongValue("--server", "HOST:PORT", text); };
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) {
        throw fail();
    }
    std::string_view host = text.substr(0, colon);
    const std::string_view port = text.substr(colon + 1);
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string_view::npos) {
        throw fail(); // where an IPv6 address without brackets ends is anyone's guess
    }
    unsigned number = 0;
    const auto result = std::from_chars(port.data(), port.data() + port.size(), number);
    if (host.empty() || result.ec != std::errc() || result.ptr != port.data() + port.size() || number < 1 ||
        number > 65535) {
        throw fail();
    }
    return {.host = std::string(host), .port = std::to_string(number)};
}

platform::TakeValue Server(ServerAddress& target) {
    return [&target](std::string_view, std::string_view value) { target = ParseServer(value); };
}

platform::TakeValue Login(std::string& target) {
    return [&target](std::string_view, std::string_view value) {
        if (value.find(':') != std::string_view::npos)
            throw platform::UsageError(
                "a login cannot hold a colon"); // it ends the login in the credentials (RFC 7617)
        target = value;
    };
}

platform::TakeValue Password(std::string& target) {
    return [&target](std::string_view name, std::string_view value) {
        if (value != "-") {
            target = value;
            return;
        }
        const auto line = platform::ReadSecretLine("Password: ");
        if (!line)
            throw platform::UsageError(std::string(name) + " - finds no password on standard input");
        target = *line;
    };
}

platform::TakeValue PasswordFile(std::string& target) {
    return [&target](std::string_view name, std::string_view value) {
        std::ifstream file{std::string(value)};
        if (!std::getline(file, target))
            throw platform::UsageError(std::string(name) + " finds no password in " + std::string(value));
        if (target.ends_with('\r'))
            target.pop_back();
    };
}

std::vector<platform::Option> OptionsOf(ServerAddress& server, std::string& login, std::string& password,
                                        std::vector<platform::Option> more) {
    more.push_back({"--server", Server(server)});
    more.push_back({"--login", Login(login)});
    more.push_back({"--password", Password(password)});
    more.push_back({"--password-file", PasswordFile(password)});
    return more;
}

platform::Option NoReconnect(Reconnecting& target) {
    return {"--no-reconnect", [&target](std::string_view, std::string_view) { target.enabled = false; },
            true};
}

void TellLoss(const std::string& reason, Clock::duration wait) {
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(wait).count();
    std::cerr << "morrowstream-phone: " << reason
              << (seconds == 0 ? "; connecting again"
                               : "; connecting again in " + std::to_string(seconds) + " s")
              << std::endl;
}

std::string NumberedLogin(std::string_view prefix, unsigned number) {
    const std::string digits = std::to_string(number);
    std::string login(prefix);
    login.append(digits.size() < 4 ? 4 - digits.size() : 0, '0');
    return login + digits;
}

} // namespace phone
