#include "host/recordings/segment.h"

#include <algorithm>
#include <cstdlib>

#include "host/log/console.h"

namespace host {
namespace {

using namespace std::chrono_literals;

constexpr auto kFlushEvery = 1s;
constexpr auto kLongestGap = 30s;

std::int64_t Milliseconds(Clock::duration time) {
    return std::chrono::round<std::chrono::milliseconds>(time).count();
}

Shot WithoutBytes(Shot shot) {
    shot.jpeg = {};
    return shot;
}

} // namespace

Segment::Segment(Library& library, Disk& disk, const std::string& camera, const Shot& first,
                 const RecorderLimits& limits)
    : m_library(library), m_disk(disk), m_limits(limits), m_file(library.Begin(camera, first.utc)),
      m_first(WithoutBytes(first)), m_added(Clock::now()) {
    const std::string path = library.PathOf(m_file);
    try {
        m_sink.emplace(disk, path);
        m_writer.emplace(*m_sink, MovieHead{camera, first.utc, first.width, first.height});
    } catch (...) {
        if (m_sink)
            (void)disk.Remove(path);
        library.Forget(m_file.key);
        throw;
    }
}

std::int64_t Segment::TimeOf(const Shot& shot) const noexcept {
    return std::max(Milliseconds(shot.arrival - m_first.arrival), m_last + 1);
}

bool Segment::Takes(const Shot& shot) const noexcept {
    const std::int64_t time = TimeOf(shot);
    return shot.connection == m_first.connection && shot.width == m_first.width &&
           shot.height == m_first.height && shot.arrival - m_first.arrival < m_limits.fileTime &&
           m_pictureBytes + shot.jpeg.size() <= m_limits.fileBytes &&
           time - m_last <= Milliseconds(kLongestGap) &&
           std::abs(shot.utc - (m_first.utc + time)) <= kMostClockDifference;
}

void Segment::Add(const Shot& shot) {
    const std::int64_t time = TimeOf(shot);
    m_writer->Add(time, shot.jpeg);
    m_last = time;
    m_pictureBytes += shot.jpeg.size();
    m_added = Clock::now();
    if (!m_waits)
        m_waits = m_added;
    if (m_last - m_flushed >= Milliseconds(kFlushEvery))
        m_waits = Clock::time_point::min();
}

bool Segment::Flush(Clock::time_point now) {
    if (!m_waits || (*m_waits != Clock::time_point::min() && now - *m_waits < kFlushEvery))
        return false;
    m_writer->Flush();
    m_waits.reset();
    m_flushed = m_last;
    m_reached = true;
    m_file.end = m_file.begin + m_last;
    m_file.bytes = m_writer->Bytes();
    m_library.Put(m_file);
    return true;
}

bool Segment::IsIdle(Clock::time_point now) const noexcept {
    return now - m_added > kLongestGap;
}

void Segment::End() noexcept {
    m_file.state = FileState::Cut;
    try {
        m_writer->Finish();
        m_file.state = FileState::Finished;
        m_file.end = m_file.begin + std::max<std::int64_t>(m_last, 0);
        m_reached = m_reached || m_last >= 0;
    } catch (const std::exception& error) {
        Console::Get().Log("recording", error.what());
    }
    m_file.bytes = m_writer->Bytes();
    m_writer.reset();
    m_sink.reset();
    if (m_reached || !m_disk.Remove(m_library.PathOf(m_file)))
        m_library.Put(m_file);
    else
        m_library.Forget(m_file.key);
}

} // namespace host
