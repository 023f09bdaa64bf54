#include "host/events/event.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace host {
namespace {

// RFC 3339, in UTC.
std::string TextOfTime(Event::Time time) {
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                  static_cast<int>(clock.subseconds().count()));
    return text.data();
}

// Of the years that are written with four digits.
std::optional<Event::Time> TimeFrom(std::int64_t milliseconds) noexcept {
    constexpr std::int64_t kYear10000 = 253'402'300'800'000;
    if (milliseconds < 0 || milliseconds >= kYear10000)
        return std::nullopt;
    return Event::Time{std::chrono::milliseconds(milliseconds)};
}

// The number of that many digits at the front, which is then cut off; -1 where it is none.
int CutNumber(std::string_view& text, std::size_t digits) noexcept {
    int number = -1;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + std::min(digits, text.size()), number);
    if (error != std::errc{} || end != text.data() + digits || text.front() == '-')
        return -1;
    text.remove_prefix(digits);
    return number;
}
bool CutMark(std::string_view& text, std::string_view marks) noexcept {
    const bool there = !text.empty() && marks.find(text.front()) != std::string_view::npos;
    text.remove_prefix(there ? 1 : 0);
    return there;
}

// Behind the seconds, in milliseconds.
std::chrono::milliseconds CutFraction(std::string_view& text) noexcept {
    int thousandths = 0;
    int weight = 100;
    for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1), weight /= 10)
        thousandths += (text.front() - '0') * weight;
    return std::chrono::milliseconds(thousandths);
}

} // namespace

std::optional<Event::Time> EventTimeFrom(std::string_view text) noexcept {
    std::int64_t milliseconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), milliseconds);
    if (error == std::errc{} && end == text.data() + text.size())
        return TimeFrom(milliseconds);
    const int year = CutNumber(text, 4);
    const bool a = CutMark(text, "-");
    const int month = CutNumber(text, 2);
    const bool b = CutMark(text, "-");
    const int day = CutNumber(text, 2);
    const bool c = CutMark(text, "Tt ");
    const int hour = CutNumber(text, 2);
    const bool d = CutMark(text, ":");
    const int minute = CutNumber(text, 2);
    const bool e = CutMark(text, ":");
    const int second = CutNumber(text, 2);
    const std::chrono::year_month_day date(std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day)));
    const bool clock = hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second <= 60;
    if (!(a && b && c && d && e) || year < 1970 || month < 1 || day < 1 || !date.ok() || !clock)
        return std::nullopt;
    Event::Time time = std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
                       std::chrono::seconds(second);
    if (CutMark(text, "."))
        time += CutFraction(text);
    const bool west = text.starts_with('-');
    if (CutMark(text, "+- ")) {
        const int hours = CutNumber(text, 2);
        (void)CutMark(text, ":");
        const int minutes = CutNumber(text, 2);
        if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59)
            return std::nullopt;
        time -= (west ? -1 : 1) * (std::chrono::hours(hours) + std::chrono::minutes(minutes));
    } else if (!CutMark(text, "Zz")) {
        return std::nullopt;
    }
    return text.empty() ? std::optional(time) : std::nullopt;
}

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
                                {"time", TextOfTime(event.time)},
                                {"kind", WordOf(event.kind)},
                                {"camera", event.camera},
                                {"who", event.who},
                                {"text", event.text},
                                {"details", nlohmann::ordered_json::object()}};
    for (const auto& [name, value] : event.details)
        json["details"][name] = value;
    return json;
}

std::optional<Event> ReadEvent(std::string_view line) {
    const auto json = nlohmann::json::parse(line, nullptr, false);
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
    const auto time = TimeFrom(milliseconds->get<std::int64_t>());
    // Numbers go on from the largest one that was read.
    const auto value = number->get<std::uint64_t>();
    if (!time || value == 0 || value > INT64_MAX)
        return std::nullopt;
    Event event{.number = value,
                .time = *time,
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
