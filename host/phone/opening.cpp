#include "host/phone/opening.h"

#include <cstdint>

namespace host::phone {

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

std::string Base64(std::string_view bytes) {
    static constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string encoded;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t count = bytes.size() - at < 3 ? bytes.size() - at : 3;
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            group = group << 8U | (i < count ? static_cast<std::uint8_t>(bytes[at + i]) : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            encoded += i <= count ? kDigits[group >> (18 - 6 * i) & 63U] : '=';
        }
    }
    return encoded;
}

std::string OpeningHead(std::string_view method, const ServerAddress& server, std::string_view name,
                        std::string_view login, std::string_view password) {
    std::string credentials(login);
    credentials += ':';
    credentials += password;

    std::string head(method);
    head += ' ';
    head += kVideoResource;
    head += '/';
    head += PercentEncode(name);
    head += " HTTP/1.1\r\nHost: " + server.Text() + "\r\nAuthorization: Basic " + Base64(credentials) +
            "\r\n\r\n";
    return head;
}

} // namespace host::phone
