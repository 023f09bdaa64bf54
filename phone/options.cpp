#include "phone/options.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace phone {
namespace {

// The whole of `text` as a number from `least` to `most`.
template <typename Number>
Number ParseNumber(std::string_view option, std::string_view text, Number least, Number most) {
    Number value{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    // Written so that a NaN fails, too.
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() ||
        !(value >= least && value <= most)) {
        throw UsageError(std::string(option) + " takes a number, not \"" + std::string(text) + "\"");
    }
    return value;
}

std::uint64_t ParseCount(std::string_view option, std::string_view text) {
    return ParseNumber<std::uint64_t>(option, text, 1, UINT64_MAX);
}

using Value = std::string_view;

} // namespace

void CheckLogin(std::string_view login) {
    if (login.find(':') != std::string_view::npos) {
        throw UsageError("a login cannot hold a colon"); // it ends the login in the credentials (RFC 7617)
    }
}

bool ReadOptions(std::span<const std::string_view> arguments, const OptionTable& options) {
    for (std::size_t at = 0; at < arguments.size(); at += 2) {
        if (arguments[at] == "--help") {
            return false;
        }
        const auto option = options.find(arguments[at]);
        if (option == options.end()) {
            throw UsageError("unknown argument \"" + std::string(arguments[at]) + "\"");
        }
        if (at + 1 == arguments.size()) {
            throw UsageError(std::string(arguments[at]) + " needs a value");
        }
        option->second(arguments[at + 1]);
    }
    return true;
}

ServerAddress ParseServer(std::string_view text) {
    const auto fail = [&]() -> UsageError {
        return UsageError("--server takes HOST:PORT, not \"" + std::string(text) + "\"");
    };
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

UploadCommand ParseUpload(std::span<const std::string_view> arguments) {
    UploadCommand command;
    UploadOptions& upload = command.upload;
    command.help = !ReadOptions(
        arguments,
        {
            {"--server", [&](Value value) { upload.server = ParseServer(value); }},
            {"--login", [&](Value value) { upload.login = value; }},
            {"--password", [&](Value value) { upload.password = value; }},
            {"--pictures", [&](Value value) { command.pictures = value; }},
            {"--fps",
             [&](Value value) { upload.framesPerSecond = ParseNumber("--fps", value, 0.01, 1000.0); }},
            {"--frames", [&](Value value) { upload.frames = ParseCount("--frames", value); }},
            {"--split",
             [&](Value value) {
                 command.split = ParseNumber<std::size_t>("--split", value, 0, kLargestPart);
             }},
            {"--phones",
             [&](Value value) { command.phones = ParseNumber("--phones", value, 1U, kMostPhones); }},
        });
    if (command.help) {
        return command;
    }
    if (upload.server.host.empty() || upload.login.empty() || command.pictures.empty()) {
        throw UsageError("--server, --login and --pictures are needed");
    }
    CheckLogin(upload.login);
    if (upload.password.size() > kLongestPassword) {
        throw UsageError("a password has at most " + std::to_string(kLongestPassword) + " bytes");
    }
    return command;
}

ViewCommand ParseView(std::span<const std::string_view> arguments) {
    ViewCommand command;
    ViewOptions& view = command.view;
    command.help = !ReadOptions(
        arguments,
        {
            {"--server", [&](Value value) { view.server = ParseServer(value); }},
            {"--login", [&](Value value) { view.login = value; }},
            {"--password", [&](Value value) { view.password = value; }},
            {"--source", [&](Value value) { command.sources.emplace_back(value); }},
            {"--params", [&](Value value) { view.parameters = value; }},
            {"--frames", [&](Value value) { view.frames = ParseCount("--frames", value); }},
            {"--out", [&](Value value) { view.folder = value; }},
            {"--viewers",
             [&](Value value) { command.viewers = ParseNumber("--viewers", value, 1U, kMostPhones); }},
        });
    if (command.help) {
        return command;
    }
    if (view.server.host.empty() || view.login.empty() || command.sources.empty()) {
        throw UsageError("--server, --login and --source are needed");
    }
    CheckLogin(view.login);
    // They go into the head of a request as they are.
    const auto plain = [](unsigned char c) { return c > 0x20 && c < 0x7F && c != '#'; };
    if (!std::ranges::all_of(view.parameters, plain)) {
        throw UsageError("--params takes a text like \"width=176&height=144&fps=5\", without blanks");
    }
    if (!view.folder.empty() && (command.viewers != 0 || command.sources.size() > 1)) {
        throw UsageError("--out takes the pictures of one viewer");
    }
    return command;
}

std::string NumberedLogin(std::string_view prefix, unsigned number) {
    const std::string digits = std::to_string(number);
    std::string login(prefix);
    login.append(digits.size() < 4 ? 4 - digits.size() : 0, '0');
    return login + digits;
}

} // namespace phone
