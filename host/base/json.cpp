#include "host/base/json.h"

#include <array>
#include <cstdio>

#include "platform/text.h"

namespace host {

std::string JsonString(std::string_view text) {
    std::string json = "\"";
    for (const char c : platform::ToUtf8(platform::FromUtf8(text))) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            json += '\\';
            json += c;
        } else if (byte < 32 || byte == 127) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(byte));
            json += escape.data();
        } else {
            json += c;
        }
    }
    return json + "\"";
}

} // namespace host
