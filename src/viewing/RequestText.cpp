#include "viewing/RequestText.h"

#include <algorithm>
#include <cstddef>

namespace {

void AppendBase64(std::u16string& text, std::span<const std::uint8_t> bytes) {
    static constexpr char16_t kAlphabet[] =
        u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    while (!bytes.empty()) {
        // Three bytes are four digits of six bits; fewer bytes are one digit more than bytes, and padding.
        const std::size_t nBytes = std::min<std::size_t>(bytes.size(), 3);
        std::uint32_t nBits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            nBits = nBits << 8 | (i < nBytes ? bytes[i] : 0U);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= nBytes ? kAlphabet[nBits >> (18 - 6 * i) & 63] : u'=';
        bytes = bytes.subspan(nBytes);
    }
}

} // namespace

std::u16string MakeRequestText(std::span<const std::uint8_t> credentials) {
    std::u16string text = u"GET video?original HTTP/1.1\n"
                          u"peer-info: 127.0.0.1:0\n"
                          u"User-Agent: Morrowstream\n"
                          u"QV-Auth: ";
    AppendBase64(text, credentials);
    return text += u"\n\n";
}
