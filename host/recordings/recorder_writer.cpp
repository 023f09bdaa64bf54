#include "host/recordings/recorder_writer.h"

#include <algorithm>
#include <utility>

#include "host/log/console.h"

namespace host {
namespace {

using namespace std::chrono_literals;

// Pictures are taken together, ten times a second: nobody waits for them.
constexpr auto kTakeEvery = 100ms;
// What fails again soon after it went on is tried later and later, so that nobody is told each moment.
constexpr Clock::duration kLongestWait = 60s;
constexpr auto kToldEvery = 60s;

} // namespace

void RecorderWriter::Run(PictureQueue& queue) {
    std::deque<RecorderItem> items;
    for (bool open = true; open;) {
        open = queue.Take(IsBusy() ? std::optional(Clock::now() + kTakeEvery) : std::nullopt, items);
        for (; !items.empty(); items.pop_front())
            Handle(items.front());
        Flush(Clock::now());
        if (!open) {
            for (auto& [channel, stream] : m_streams) {
                EndMotion(stream);
                EndFile(stream);
            }
        }
        queue.Done();
    }
}

std::string RecorderWriter::PausedBecause() const {
    const std::lock_guard guard(m_mutex);
    return m_paused;
}

RecorderWriter::Stream& RecorderWriter::StreamOf(const RecorderChannelPtr& channel) {
    Stream& stream = m_streams[channel.get()];
    stream.channel = channel;
    return stream;
}

void RecorderWriter::Handle(const RecorderItem& item) {
    if (item.kind == RecorderItem::Kind::EndFile) {
        for (auto& [channel, stream] : m_streams) {
            if (stream.segment && stream.segment->Key() == item.file)
                EndFile(stream);
        }
        return;
    }
    Stream& stream = StreamOf(item.channel);
    switch (item.kind) {
    case RecorderItem::Kind::Picture: {
        const kit::Picture& picture = *item.picture;
        const std::string& jpeg = picture.Jpeg();
        if (jpeg.empty()) // watchers cannot get it either
            return;
        Record(stream, {.arrival = picture.Arrival(),
                        .utc = static_cast<UnixMs>(picture.ArrivalUnixMs()),
                        .connection = item.connection,
                        .width = picture.Layout().width,
                        .height = picture.Layout().height,
                        .jpeg = jpeg});
        break;
    }
    case RecorderItem::Kind::ModeChanged:
        if (stream.channel->mode == RecordMode::Off)
            EndFile(stream);
        if (stream.channel->mode != RecordMode::OnMotion)
            ForgetBefore(stream);
        break;
    case RecorderItem::Kind::MotionBegan:
        BeginMotion(stream);
        break;
    case RecorderItem::Kind::MotionEnded:
        EndMotion(stream);
        break;
    case RecorderItem::Kind::EndFile:
        break;
    }
}

// Told once, whatever number of cameras it is. A clock that is set forward leaves a gap that everybody sees.
void RecorderWriter::FollowClock(const Shot& shot) {
    if (shot.arrival < m_clockAt)
        return; // it was on its way when another camera's came
    const UnixMs ahead =
        shot.utc - std::chrono::floor<std::chrono::milliseconds>(shot.arrival.time_since_epoch()).count();
    const UnixMs back = m_clockAhead.value_or(ahead) - ahead;
    m_clockAhead = ahead;
    m_clockAt = shot.arrival;
    if (back > kMostClockDifference)
        m_tell({RecordingNews::Kind::ClockSetBack,
                {},
                "the clock was set back by " + std::to_string((back + 500) / 1000) +
                    " s: that time is recorded twice"});
}

void RecorderWriter::Record(Stream& stream, const Shot& shot) {
    FollowClock(shot);
    stream.arrival = shot.arrival;
    switch (stream.channel->mode.load()) {
    case RecordMode::Off:
        break;
    case RecordMode::Always:
        Write(stream, shot);
        break;
    case RecordMode::OnMotion:
        if (stream.moves || shot.arrival <= stream.moveUntil) {
            Write(stream, shot);
        } else {
            EndFile(stream);
            Keep(stream, shot);
        }
        break;
    }
}

void RecorderWriter::Keep(Stream& stream, const Shot& shot) {
    if (shot.jpeg.size() > m_limits.beforeBytesOfCamera)
        return;
    stream.before.push_back({shot, std::string(shot.jpeg)});
    stream.before.back().shot.jpeg = {};
    stream.beforeBytes += shot.jpeg.size();
    m_beforeBytes += shot.jpeg.size();
    while (shot.arrival - stream.before.front().shot.arrival > m_limits.aroundMotion ||
           stream.beforeBytes > m_limits.beforeBytesOfCamera || m_beforeBytes > m_limits.beforeBytes) {
        const std::size_t bytes = stream.before.front().jpeg.size();
        stream.before.pop_front();
        stream.beforeBytes -= bytes;
        m_beforeBytes -= bytes;
        if (stream.before.empty())
            break;
    }
}

void RecorderWriter::ForgetBefore(Stream& stream) {
    m_beforeBytes -= std::exchange(stream.beforeBytes, 0);
    stream.before.clear();
}

void RecorderWriter::Write(Stream& stream, const Shot& shot) {
    if (!m_paused.empty() && Clock::now() < m_tryAt)
        return;
    if (const auto full = m_library.Full()) {
        Pause(*full);
        return;
    }
    try {
        if (stream.segment && !stream.segment->Takes(shot))
            EndFile(stream);
        if (!stream.segment) {
            stream.segment =
                std::make_unique<Segment>(m_library, m_disk, stream.channel->camera, shot, m_limits);
            stream.channel->recording = true;
        }
        stream.segment->Add(shot);
        ++stream.channel->pictures;
        stream.channel->bytes += shot.jpeg.size();
        if (stream.segment->Flush(Clock::now()))
            Resume();
    } catch (const RecordingError& error) {
        Pause(error.what());
    }
}

void RecorderWriter::BeginMotion(Stream& stream) {
    if (std::exchange(stream.moves, true))
        return;
    if (stream.channel->mode != RecordMode::OnMotion)
        return;
    for (const Kept& kept : std::exchange(stream.before, {})) {
        Shot shot = kept.shot;
        shot.jpeg = kept.jpeg;
        Write(stream, shot);
    }
    ForgetBefore(stream);
}

void RecorderWriter::EndMotion(Stream& stream) {
    if (!std::exchange(stream.moves, false))
        return;
    stream.moveUntil = stream.arrival + m_limits.aroundMotion;
}

void RecorderWriter::EndFile(Stream& stream) {
    if (!stream.segment)
        return;
    stream.segment->End();
    stream.segment.reset();
    stream.channel->recording = false;
}

void RecorderWriter::Flush(Clock::time_point now) {
    for (auto& [channel, stream] : m_streams) {
        TellDropped(stream, now);
        if (!stream.segment)
            continue;
        try {
            if (stream.segment->Flush(now))
                Resume();
            if (stream.segment->IsIdle(now))
                EndFile(stream);
        } catch (const RecordingError& error) {
            Pause(error.what());
        }
    }
}

void RecorderWriter::TellDropped(Stream& stream, Clock::time_point now) {
    const std::uint64_t dropped = stream.channel->dropped;
    if (dropped == stream.dropped || (stream.droppedTold && now - *stream.droppedTold < kToldEvery))
        return;
    m_tell({RecordingNews::Kind::Dropped, stream.channel->camera,
            "the disk is too slow: " + std::to_string(dropped - stream.dropped) +
                " pictures were not recorded"});
    stream.dropped = dropped;
    stream.droppedTold = now;
}

void RecorderWriter::Pause(const std::string& reason) {
    const auto now = Clock::now();
    const bool paused = !m_paused.empty();
    // Files that are begun in vain would only fill what is left of the disk.
    for (auto& [channel, stream] : m_streams)
        EndFile(stream);
    if (!paused)
        m_wait = now - m_resumed < kLongestWait ? std::min(m_wait * 2, kLongestWait) : m_limits.retry;
    m_tryAt = now + m_wait;
    if (m_paused != reason) {
        const std::lock_guard guard(m_mutex);
        m_paused = reason;
    }
    if (!paused)
        m_tell({RecordingNews::Kind::Paused, {}, reason});
}

void RecorderWriter::Resume() {
    if (m_paused.empty())
        return;
    {
        const std::lock_guard guard(m_mutex);
        m_paused.clear();
    }
    m_resumed = Clock::now();
    m_tell({RecordingNews::Kind::Resumed, {}, "recording goes on"});
}

bool RecorderWriter::IsBusy() const noexcept {
    return std::ranges::any_of(m_streams, [](const auto& entry) {
        return entry.second.segment != nullptr || entry.second.dropped != entry.second.channel->dropped;
    });
}

} // namespace host
