// The values of the preferences, with their places in the document and their text there.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/preferences/preferences.h"

namespace host {

// Calls visit(path, value) for each value that is no camera's. `preferences` may be const.
template <class AnyPreferences, class Visit>
void VisitGeneral(AnyPreferences& preferences, Visit visit) {
    auto& recording = preferences.recording;
    visit(u"recording/days", recording.days);
    visit(u"recording/megabytes", recording.megabytes);
    visit(u"recording/freePercent", recording.freePercent);
    visit(u"recording/freeMegabytes", recording.freeMegabytes);
    visit(u"viewing/phonesWatchAll", preferences.phonesWatchAll);
    auto& notices = preferences.notices;
    visit(u"notices/kinds", notices.kinds);
    visit(u"notices/webhook/address", notices.webhook.address);
    visit(u"notices/webhook/secret", notices.webhook.secret);
    visit(u"notices/mqtt/server", notices.mqtt.server);
    visit(u"notices/mqtt/port", notices.mqtt.port);
    visit(u"notices/mqtt/tls", notices.mqtt.tls);
    visit(u"notices/mqtt/user", notices.mqtt.user);
    visit(u"notices/mqtt/password", notices.mqtt.password);
    visit(u"notices/mqtt/topic", notices.mqtt.topic);
    visit(u"notices/mqtt/snapshots", notices.mqtt.snapshots);
    visit(u"notices/mqtt/discovery", notices.mqtt.discovery);
    visit(u"notices/mqtt/discoveryTopic", notices.mqtt.discoveryTopic);
}

// The same for each value of a camera but its name; paths are from its item.
template <class AnyCamera, class Visit>
void VisitCamera(AnyCamera& camera, Visit visit) {
    visit(u"record", camera.record);
    visit(u"days", camera.days);
    visit(u"megabytes", camera.megabytes);
    visit(u"motion", camera.motion);
    visit(u"sensitivity", camera.sensitivity);
    visit(u"mask", camera.mask);
}

// --- Their text, UTF-8 ---

std::string TextOfValue(int value);
std::string TextOfValue(std::uint64_t value);
std::string TextOfValue(bool value); // "yes" or "no"
std::string TextOfValue(RecordMode value);
std::string TextOfValue(const std::string& value);
std::string TextOfValue(const WordSet& value);
std::string TextOfValue(const CellMask& value);

// False, and the value as it was, for a text that means none.
bool ValueFromText(std::string_view text, int& value);
bool ValueFromText(std::string_view text, std::uint64_t& value);
bool ValueFromText(std::string_view text, bool& value);
bool ValueFromText(std::string_view text, RecordMode& value);
bool ValueFromText(std::string_view text, std::string& value);
bool ValueFromText(std::string_view text, WordSet& value);
bool ValueFromText(std::string_view text, CellMask& value);

} // namespace host
