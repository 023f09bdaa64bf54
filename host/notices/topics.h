// Names of MQTT topics.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace host {

class Topics {
public:
    explicit Topics(std::string begin) : m_begin(std::move(begin)) {}

    [[nodiscard]] std::string Status() const { return m_begin + "/status"; }
    [[nodiscard]] std::string Event() const { return m_begin + "/event"; }
    [[nodiscard]] std::string OfCamera(std::string_view camera, std::string_view what) const {
        return m_begin + "/cameras/" + Escaped(camera) + "/" + std::string(what);
    }

    // A level of a topic: UTF-8 as it is, percent-encoded what would end the level or be a wildcard, and
    // control characters, which brokers refuse.
    static std::string Escaped(std::string_view name) {
        constexpr std::string_view kDigits = "0123456789ABCDEF";
        std::string escaped;
        for (const char c : name) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte >= ' ' && byte != 0x7F && std::string_view("/+#%").find(c) == std::string_view::npos) {
                escaped += c;
                continue;
            }
            escaped += '%';
            escaped += kDigits[byte >> 4U];
            escaped += kDigits[byte & 15U];
        }
        return escaped;
    }

private:
    const std::string m_begin;
};

} // namespace host
