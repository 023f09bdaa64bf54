// Parts of recordings on their way to somebody as files that are sent while they are made: how far they have
// come, and that they can be stopped.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/wait.h"
#include "host/http/answer.h"
#include "host/http/stream.h"
#include "host/recordings/source.h"

namespace host {

// One export. Any thread.
struct ExportState {
    enum class End { None, Whole, Empty, Failed };
    const TimeSpan span{};
    std::atomic<UnixMs> time{0}; // of the newest picture that went out
    std::atomic<bool> stopped{false};
    std::atomic<End> end{End::None};
    std::atomic<Clock::duration::rep> endedAt{0};

    explicit ExportState(TimeSpan asked) : span(asked) {}
    // Takes note of how far it has come. False when it is to stop.
    bool Reach(UnixMs picture) noexcept {
        time = picture;
        return !stopped;
    }
    // From 0 to 1.
    [[nodiscard]] double Done() const noexcept;
    void Finish(End how) noexcept;
};
using ExportPtr = std::shared_ptr<ExportState>;

// Exports by the numbers that those who asked for them gave them. Thread-safe.
class ExportTable {
public:
    // What has ended is known for so long.
    static constexpr std::chrono::seconds kKept{60};

    // Whether this may be a number: 32 hexadecimal digits, which nobody guesses.
    static bool IsNumber(std::string_view number) noexcept;
    // Null where the number is in use.
    ExportPtr Begin(std::string_view number, TimeSpan span);
    [[nodiscard]] ExportPtr Find(std::string_view number) const;

private:
    void Sweep(); // with m_mutex held

    mutable std::mutex m_mutex;
    std::map<std::string, ExportPtr, std::less<>> m_exports; // under m_mutex
};

enum class SaveForm {
    Movie,    // Matroska, the pictures as they were recorded
    Lapse,    // Matroska, so many times as fast
    Pictures, // zip, a file each
};
std::optional<SaveForm> SaveFormFrom(std::string_view word) noexcept;

struct SaveOrder {
    const RecordingSource& recordings;
    RecordedCamera camera;
    SaveForm form = SaveForm::Movie;
    double speed = 1; // of a lapse
};
// X-Recordings-Away tells what is left out, since a host does not answer: "HOST;from=MS;to=MS", with commas
// between several.
void TellAway(Answer& answer, const std::vector<AwayRecordings>& away);
// The same in lines for people; empty where nothing is left out.
[[nodiscard]] std::string MissingText(const std::vector<AwayRecordings>& away);
// Sends head and file on the connection, whose request was read, and ends it. A file that could not be sent
// whole ends with a reset, so that nobody takes it for one. One that lacks what another host may have says
// so: in its name, in a film's title, and in incomplete.txt among pictures. `stall`: how long the peer may
// take nothing.
void SendRecording(const SaveOrder& order, ExportState& state, Stream& stream, const Wakeup& stop,
                   std::chrono::milliseconds stall, bool headOnly);

} // namespace host
