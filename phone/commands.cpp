#include "phone/commands.h"

#include <charconv>

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

std::string NumberedLogin(std::string_view prefix, unsigned number) {
    const std::string digits = std::to_string(number);
    std::string login(prefix);
    login.append(digits.size() < 4 ? 4 - digits.size() : 0, '0');
    return login + digits;
}

} // namespace phone
