// Pictures, and what else the recorder's thread has to know in their order, on their way to it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "host/base/wait.h"
#include "host/preferences/preferences.h"
#include "host/recordings/recorded.h"
#include "kit/picture/picture.h"

namespace host {

// What may wait for the disk, how large a file becomes, and what is kept of the time before something moved.
struct RecorderLimits {
    std::size_t waitingPictures = 2000;
    // Decoded pictures, as they wait; of one camera a quarter at most.
    std::size_t waitingBytes = std::size_t{128} << 20;
    std::chrono::milliseconds fileTime{600'000};
    std::uint64_t fileBytes = std::uint64_t{256} << 20;
    std::chrono::milliseconds aroundMotion{5000}; // before it began, and after it ended
    std::size_t beforeBytesOfCamera = std::size_t{2} << 20;
    std::size_t beforeBytes = std::size_t{256} << 20;
    std::chrono::milliseconds retry{5000}; // after a disk that took nothing
};

// What is known of one camera on all threads.
struct RecorderChannel {
    explicit RecorderChannel(std::string name) : camera(std::move(name)) {}

    const std::string camera;
    std::atomic<RecordMode> mode{RecordMode::Off};
    std::atomic<bool> recording{false};
    std::atomic<std::uint64_t> pictures{0};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> dropped{0};
    std::size_t waitingBytes = 0; // in the queue, which guards it
};
using RecorderChannelPtr = std::shared_ptr<RecorderChannel>;

struct RecorderItem {
    enum class Kind { Picture, ModeChanged, MotionBegan, MotionEnded, EndFile };
    Kind kind = Kind::Picture;
    RecorderChannelPtr channel; // null for EndFile
    kit::PicturePtr picture;
    std::uint64_t connection = 0;
    FileKey file; // for EndFile
};

class PictureQueue {
public:
    explicit PictureQueue(const RecorderLimits& limits) : m_limits(limits) {}

    // Any thread; both return at once. False when there is no room.
    bool Push(const RecorderChannelPtr& channel, const kit::PicturePtr& picture,
              std::uint64_t connection) noexcept;
    // What must not be lost; there is little of it.
    void Tell(RecorderItem item);

    // The recorder's thread takes all that waits, and says when it is done with it. It sleeps until that
    // time, unless the queue fills up; without a time until something comes. False once the queue is closed:
    // that is the last of it.
    bool Take(std::optional<Clock::time_point> until, std::deque<RecorderItem>& items);
    void Done();

    void Close();
    // Returns when what came before is done.
    void Settle();

private:
    [[nodiscard]] bool FillsUp() const noexcept; // with m_mutex held

    const RecorderLimits m_limits;
    mutable std::mutex m_mutex; // everything below
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<RecorderItem> m_items;
    std::size_t m_bytes = 0;
    bool m_sleeps = false; // the recorder's thread has nothing to do before something comes
    bool m_closed = false;
    std::uint64_t m_asked = 0; // rounds that somebody waits for, and those that were done
    std::uint64_t m_taken = 0;
    std::uint64_t m_done = 0;
};

} // namespace host
