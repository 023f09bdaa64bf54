// What the recorder's thread does: which pictures go into which file, and what happens when they cannot.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "host/recordings/library.h"
#include "host/recordings/picture_queue.h"
#include "host/recordings/segment.h"

namespace host {

class RecorderWriter {
public:
    RecorderWriter(Library& library, Disk& disk, TellRecordingNews tell, const RecorderLimits& limits)
        : m_library(library), m_disk(disk), m_tell(std::move(tell)), m_limits(limits), m_wait(limits.retry) {}
    RecorderWriter(const RecorderWriter&) = delete;
    RecorderWriter& operator=(const RecorderWriter&) = delete;

    // Returns once the queue is closed, with all files ended.
    void Run(PictureQueue& queue);

    // Any thread. Empty: it is not.
    [[nodiscard]] std::string PausedBecause() const;

private:
    // A picture from before something moved.
    struct Kept {
        Shot shot; // without its bytes
        std::string jpeg;
    };
    struct Stream {
        RecorderChannelPtr channel;
        std::unique_ptr<Segment> segment;
        std::deque<Kept> before;
        std::size_t beforeBytes = 0;
        bool moves = false;
        Clock::time_point moveUntil{}; // pictures until then are recorded as well
        Clock::time_point arrival{};   // of the newest picture
        std::uint64_t dropped = 0;     // that were told
        std::optional<Clock::time_point> droppedTold;
    };

    Stream& StreamOf(const RecorderChannelPtr& channel);
    void Handle(const RecorderItem& item);
    void FollowClock(const Shot& shot);
    void Record(Stream& stream, const Shot& shot);
    void Keep(Stream& stream, const Shot& shot);
    void Write(Stream& stream, const Shot& shot);
    void BeginMotion(Stream& stream);
    void EndMotion(Stream& stream);
    void ForgetBefore(Stream& stream);
    void EndFile(Stream& stream);
    void Flush(Clock::time_point now);
    void TellDropped(Stream& stream, Clock::time_point now);
    void Pause(const std::string& reason);
    void Resume();
    // There is something that time alone brings on.
    [[nodiscard]] bool IsBusy() const noexcept;

    Library& m_library;
    Disk& m_disk;
    const TellRecordingNews m_tell;
    const RecorderLimits m_limits;

    std::map<RecorderChannel*, Stream> m_streams;
    std::size_t m_beforeBytes = 0; // of all
    // How much the wall clock was ahead of the monotonic one at the newest picture, and when that came.
    std::optional<UnixMs> m_clockAhead;
    Clock::time_point m_clockAt{};
    // While it is paused, a picture is tried now and then; it goes on once that has reached the disk.
    Clock::time_point m_tryAt{};
    Clock::time_point m_resumed{};
    Clock::duration m_wait;

    mutable std::mutex m_mutex;
    std::string m_paused; // why; empty: it is not. This thread alone writes it
};

} // namespace host
