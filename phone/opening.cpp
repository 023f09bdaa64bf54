#include "phone/opening.h"

#include <algorithm>
#include <cstdint>

#include "platform/base64.h"

namespace phone {

std::string PercentEncode(std::string_view text) {
    static constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    static constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        if (kPlain.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<std::uint8_t>(c);
            encoded += {'%', kHex[byte >> 4U], kHex[byte & 15U]};
        }
    }
    return encoded;
}

std::string OpeningHead(std::string_view method, const ServerAddress& server, std::string_view name,
                        std::string_view login, std::string_view password, std::string_view parameters) {
    std::string credentials(login);
    credentials += ':';
    credentials += password;

    std::string head(method);
    head += ' ';
    head += kVideoResource;
    head += '/';
    head += PercentEncode(name);
    if (!parameters.empty()) {
        head += '?';
        head += parameters;
    }
    head += " HTTP/1.1\r\nHost: " + server.Text() + "\r\nAuthorization: Basic " +
            platform::Base64(credentials) + "\r\n\r\n";
    return head;
}

std::string HttpRefusal(std::string statusLine) {
    statusLine.resize(std::min(statusLine.find_first_of("\r\n"), statusLine.size()));
    // It goes to a terminal.
    std::ranges::replace_if(
        statusLine, [](unsigned char c) { return c < 0x20 || c > 0x7E; }, '?');
    const bool unauthorised =
        statusLine.starts_with("HTTP/1.1 401") || statusLine.starts_with("HTTP/1.0 401");
    return (unauthorised ? "denied: wrong login or password (" : "denied: the web server answered (") +
           statusLine + ")";
}

} // namespace phone
