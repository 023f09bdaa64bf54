// What a host answers other hosts that look back into its recordings, and the form of it. Who asks has looked
// at the rights of the person.
//
// Questions are objects with `op`, and with the `camera` that this host numbers so, but for the first:
//   cameras                                [[id, name, removed, from, to], ...]
//   times     from, to, gap, all           {extent, spans, motion, files, events}
//   picture   time, step, file             a picture, or null
//   range     from, to, id, part, time, most   {pictures: [[picture, end before], ...], end}
//   file      number                       {name, size, version}, or null
//   bytes     number, version, at, most    bytes; none where it is another file by now
//   keep      from, to, keep               {files, changed}
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/peers/talk.h"
#include "host/recordings/source.h"

namespace host {

// All throw PeerDocument::exception for what is none.
[[nodiscard]] PeerDocument ToDocument(const std::vector<ListedCamera>& cameras);
[[nodiscard]] std::vector<ListedCamera> CamerasIn(const PeerDocument& document);
[[nodiscard]] PeerDocument ToDocument(const RecordedTimes& times);
[[nodiscard]] RecordedTimes TimesIn(const PeerDocument& document);
[[nodiscard]] PeerDocument ToDocument(const RecordedPicture& picture);
[[nodiscard]] RecordedPicture PictureIn(const PeerDocument& document);

// Any thread.
class RecordingAnswers {
public:
    explicit RecordingAnswers(RecordingSource& source) : m_source(source) {}

    // Throws where there is no answer.
    [[nodiscard]] PeerDocument To(const PeerDocument& question);

private:
    // Of an export that somebody at another host has asked for.
    struct OpenRange {
        explicit OpenRange(RecordedRange of) : range(std::move(of)) {}
        std::mutex mutex; // the members below
        RecordedRange range;
        std::uint64_t next = 0; // part
        PeerDocument last;      // the part before, in case it was lost
        Clock::time_point used = Clock::now();
    };
    [[nodiscard]] PeerDocument RangePart(const PeerDocument& question);
    [[nodiscard]] std::shared_ptr<OpenRange> RangeOf(const PeerDocument& question);

    RecordingSource& m_source;
    std::mutex m_mutex; // the line below
    std::map<std::string, std::shared_ptr<OpenRange>> m_ranges;
};

} // namespace host
