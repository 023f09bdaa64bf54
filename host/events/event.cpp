#include "host/events/event.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "host/base/moment.h"

namespace host {

bool IsOfPictures(EventKind kind) noexcept {
    switch (kind) {
    case EventKind::CameraConnected:
    case EventKind::CameraLost:
    case EventKind::MotionBegan:
    case EventKind::MotionEnded:
    case EventKind::RecordingPaused:
    case EventKind::RecordingResumed:
    case EventKind::RecordingTrouble:
        return true;
    default:
        return false;
    }
}

std::string_view WordOf(EventKind kind) noexcept {
    const auto index = static_cast<std::size_t>(kind);
    return index < kEventWords.size() ? kEventWords[index] : std::string_view{};
}

std::optional<EventKind> EventKindFrom(std::string_view word) noexcept {
    const auto found = std::ranges::find(kEventWords, word);
    return found != kEventWords.end() ? std::optional(static_cast<EventKind>(found - kEventWords.begin()))
                                      : std::nullopt;
}

nlohmann::ordered_json AsJson(const Event& event) {
    nlohmann::ordered_json json{{"number", event.number},
                                {"ms", event.time.time_since_epoch().count()},
                                {"time", MomentText(event.time.time_since_epoch().count())},
                                {"kind", WordOf(event.kind)},
                                {"camera", event.camera},
                                {"who", event.who},
                                {"text", event.text},
                                {"details", nlohmann::ordered_json::object()}};
    for (const auto& [name, value] : event.details)
        json["details"][name] = value;
    if (!event.host.empty())
        json["host"] = event.host;
    return json;
}

std::optional<Event> ReadEvent(std::string_view line) {
    const auto json = nlohmann::ordered_json::parse(line, nullptr, false);
    if (!json.is_object())
        return std::nullopt;
    const auto text = [&](const char* name) {
        const auto found = json.find(name);
        return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    const auto number = json.find("number");
    const auto milliseconds = json.find("ms");
    const auto kind = EventKindFrom(text("kind"));
    if (number == json.end() || !number->is_number_unsigned() || milliseconds == json.end() ||
        !milliseconds->is_number_integer() || !kind)
        return std::nullopt;
    const auto time = milliseconds->get<UnixMs>();
    // Numbers go on from the largest one that was read.
    const auto value = number->get<std::uint64_t>();
    if (time < 0 || time >= kYear10000 || value == 0 || value > INT64_MAX)
        return std::nullopt;
    Event event{.number = value,
                .time = Event::Time(std::chrono::milliseconds(time)),
                .kind = *kind,
                .camera = text("camera"),
                .who = text("who"),
                .text = text("text")};
    if (const auto details = json.find("details"); details != json.end() && details->is_object()) {
        for (const auto& [name, each] : details->items()) {
            if (each.is_string())
                event.details.emplace(name, each.get<std::string>());
        }
    }
    return event;
}

bool EventFilter::Takes(const Event& event) const {
    return event.number < before && (!from || event.time >= *from) && (!to || event.time < *to) &&
           (kinds.empty() || std::ranges::find(kinds, event.kind) != kinds.end()) &&
           (!camera || event.camera == *camera) && (!sees || sees(event));
}

} // namespace host
