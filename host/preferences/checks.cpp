#include "host/preferences/document.h"

#include <algorithm>

namespace host {
namespace {

bool IsPlainText(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c > ' ' && c < '\x7f'; });
}

// Of the web, with a host, and without a sign-in in it: that would be shown to whoever sees the settings.
bool IsWebAddress(std::string_view address) {
    const std::string_view scheme = address.starts_with("https://") ? "https://" : "http://";
    if (!address.starts_with(scheme) || !IsPlainText(address))
        return false;
    address.remove_prefix(scheme.size());
    const std::string_view authority = address.substr(0, address.find_first_of("/?#"));
    return !authority.empty() && authority.front() != ':' &&
           authority.find_first_of("@\\") == std::string_view::npos;
}

// A name, or an address without the brackets of a URL.
bool IsServerName(std::string_view name) {
    return std::ranges::all_of(name, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == '_' || c == ':';
    });
}

// Of a topic of MQTT 3.1.1, section 4.7; those that begin with "$" are the broker's own.
bool IsTopic(std::string_view topic) {
    return !topic.empty() && topic.front() != '$' && topic.front() != '/' && topic.back() != '/' &&
           topic.find_first_of("+#") == std::string_view::npos;
}

} // namespace

void FindUnfit(const Preferences& preferences, const Preferences& former, bool passwordEntered,
               const std::string& root, std::vector<SettingsProblem>& problems) {
    const auto& [kinds, webhook, mqtt] = preferences.notices;
    const MqttPreferences& before = former.notices.mqtt;
    const auto add = [&](const char* path, const char* key, const char* text) {
        problems.push_back({root + path, key, text});
    };
    if (!webhook.address.empty() && !IsWebAddress(webhook.address))
        add("/notices/webhook/address", "notAWebAddress",
            "this begins with https:// or http://, and has no sign-in in it");
    if (!IsServerName(mqtt.server))
        add("/notices/mqtt/server", "notAServer", "this is a name or an address, without a port");
    if (!IsTopic(mqtt.topic))
        add("/notices/mqtt/topic", "notATopic", "this is the begin of a topic, without + and #");
    if (!IsTopic(mqtt.discoveryTopic))
        add("/notices/mqtt/discoveryTopic", "notATopic", "this is the begin of a topic, without + and #");
    // A password that nobody enters anew is for the server that it was entered for: else whoever may change
    // the settings, and not read it, would have it sent to a server of his own.
    const bool elsewhere = mqtt.server != before.server || mqtt.port != before.port || mqtt.tls != before.tls;
    if (elsewhere && !passwordEntered && !mqtt.server.empty() && !mqtt.password.empty())
        add("/notices/mqtt/password", "enterAgain", "another server takes the password to be entered anew");
}

} // namespace host
