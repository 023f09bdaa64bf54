#include "platform/base64.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace platform {

std::string Base64(std::string_view bytes) {
    static constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    while (!bytes.empty()) {
        // Three bytes are four digits of six bits; fewer bytes are one digit more than bytes, and padding.
        const std::size_t count = std::min<std::size_t>(bytes.size(), 3);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            bits = bits << 8U | (i < count ? static_cast<std::uint8_t>(bytes[i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= count ? kAlphabet[bits >> (18 - 6 * i) & 63U] : '=';
        bytes.remove_prefix(count);
    }
    return text;
}

} // namespace platform
