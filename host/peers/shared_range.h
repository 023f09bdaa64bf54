// The pictures of a camera in a span, of several hosts as one.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/peers/talk.h"
#include "host/recordings/source.h"

namespace host {

// Of one other host, which is asked for as many at a time as a part of an answer holds. Throws RecordingError
// when that host does not answer: what is missing then is no end.
class RangeElsewhere final : public RecordedRange::Pictures {
public:
    RangeElsewhere(const PeerAsker& asker, std::string node, std::int64_t camera, TimeSpan span);
    std::optional<RecordedPicture> NextFrom(UnixMs time) override;
    [[nodiscard]] UnixMs EndBefore() const noexcept override { return m_endBefore; }

private:
    void Ask(UnixMs time);

    const PeerAsker& m_asker;
    const std::string m_node;
    PeerDocument m_question;
    std::uint64_t m_part = 0;
    bool m_ended = false;
    std::deque<std::pair<RecordedPicture, UnixMs>> m_pictures; // that have come, with their EndBefore
    std::int64_t m_file = 0;                                   // of the newest picture that was taken
    UnixMs m_newest = 0;                                       // its time
    UnixMs m_endBefore = 0;
};

// In the order of their times; within a host in that in which they were recorded.
class SharedRange final : public RecordedRange::Pictures {
public:
    struct Part {
        RecordedRange range;
        std::int64_t mark = 0; // is added to the numbers of files
        std::optional<RecordedPicture> head{};
        UnixMs endBefore = 0;   // the head's
        bool hasLooked = false; // for the head
    };
    explicit SharedRange(std::vector<Part> parts) : m_parts(std::move(parts)) {}
    std::optional<RecordedPicture> NextFrom(UnixMs time) override;
    [[nodiscard]] UnixMs EndBefore() const noexcept override { return m_endBefore; }

private:
    static void Fill(Part& part, UnixMs time);

    std::vector<Part> m_parts;
    std::size_t m_last = 0; // the part of the newest picture
    std::int64_t m_file = 0;
    UnixMs m_newest = 0;
    UnixMs m_endBefore = 0;
};

} // namespace host
