// What happened to the server and its cameras, as people and programs are told of it.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace host {

// The words for them stand in files and in other people's programs: a new one goes to the end, and none
// changes.
enum class EventKind {
    CameraConnected,  // a phone sends pictures as this camera
    CameraLost,       // it has not been heard of for a while
    MotionBegan,      // something moves before the camera
    MotionEnded,      //
    RecordingPaused,  // nothing is kept, until it resumes by itself
    RecordingResumed, //
    RecordingTrouble, // some of what was recorded, or its index, is not as it should be
    NoticeTrouble,    // somebody could not be told of events
    SignInRefused,    // a wrong password
    SettingsChanged,  // of the component or of the host
    UsersChanged,     // users, phones and tokens
    ServerStarted,
    HostLost, // one of several hosts that are one server is gone
    HostBack, // and there again
    Count
};
inline constexpr std::array<std::string_view, static_cast<std::size_t>(EventKind::Count)> kEventWords{
    "camera-connected",  "camera-lost",       "motion-began",   "motion-ended",    "recording-paused",
    "recording-resumed", "recording-trouble", "notice-trouble", "sign-in-refused", "settings-changed",
    "users-changed",     "server-started",    "host-lost",      "host-back"};

[[nodiscard]] std::string_view WordOf(EventKind kind) noexcept;
[[nodiscard]] std::optional<EventKind> EventKindFrom(std::string_view word) noexcept;

// Whether it tells of what a camera does and sees, and nothing of who administers it or tries to sign in.
[[nodiscard]] bool IsOfPictures(EventKind kind) noexcept;

struct Event {
    using Time = std::chrono::sys_time<std::chrono::milliseconds>; // UTC
    using Details = std::map<std::string, std::string, std::less<>>;

    std::uint64_t number = 0; // from 1, in the order in which they were told, over all starts of the host
    Time time{};              // when it happened; the clock's, and so not always in the numbers' order
    EventKind kind = EventKind::ServerStarted;
    std::string camera{}; // UTF-8; empty for what is of no one camera
    std::string who{};    // the login that it was done with or tried with; empty where it was nobody's
    std::string text{};   // one line for people, in English
    Details details{};    // for programs
    std::string host{};   // that has told of it, where it is another one than this; not in the journal
};
using EventPtr = std::shared_ptr<const Event>;

// One object, the same in the journal, at /api/v1/events, and for other machines:
// {"number":7,"ms":1764144000123,"time":"2025-11-26T08:00:00.123Z","kind":"camera-lost","camera":"yard",
//  "who":"","text":"...","details":{}}, and "host":"b" with those of another host.
[[nodiscard]] nlohmann::ordered_json AsJson(const Event& event);
// Of such a line; nothing where it is none, as behind a crash, or its kind is unknown here.
[[nodiscard]] std::optional<Event> ReadEvent(std::string_view line);

// Which events somebody asks for. What is not given lets everything through.
struct EventFilter {
    std::uint64_t before = UINT64_MAX; // only numbers below
    std::optional<Event::Time> from{}; // this moment and later
    std::optional<Event::Time> to{};   // earlier than this moment
    std::vector<EventKind> kinds{};
    std::optional<std::string> camera{};
    // Whether he may see events of this camera; empty for those of none.
    std::function<bool(const Event&)> sees{};

    [[nodiscard]] bool Takes(const Event& event) const;
};

// What has happened at other hosts that are one server with this one.
class OtherEvents {
public:
    OtherEvents() = default;
    OtherEvents(const OtherEvents&) = delete;
    OtherEvents& operator=(const OtherEvents&) = delete;
    virtual ~OtherEvents() = default;

    [[nodiscard]] virtual std::string Self() const = 0; // this host's name
    // Of each that answers the newest that the filter takes, whoever may see them; with numbers below those
    // of `before` where it has the host, `most` at the most. Waits for some seconds at most. Any thread.
    [[nodiscard]] virtual std::map<std::string, std::vector<EventPtr>>
    Newest(const EventFilter& filter, const std::map<std::string, std::uint64_t>& before,
           std::size_t most) const = 0;

    // Tells of what happens there from now on, soon after it has, until what is returned is let go of. `take`
    // is called on another thread, which must not be kept waiting: once when nothing can be missed any more,
    // whether anything has happened or not, and then with all that is new, in the order of their times.
    using Take = std::function<void(const std::vector<EventPtr>& events)>;
    [[nodiscard]] virtual std::shared_ptr<const void> Follow(Take take) = 0;
};

} // namespace host
