// The files that events are kept in, one for each day.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/events/event.h"

namespace host {

// FOLDER/2026-01-31.jsonl holds the events of that day in UTC, a line of JSON each, in the order of their
// numbers. Files are only ever added to, so a crash costs no more than the last line, which is then passed
// over. Where the clock was set back, the numbers of two files overlap.
//
// One thread appends and sweeps; any thread reads meanwhile.
class EventJournal {
public:
    // More of one day is not kept, so that somebody who makes events by the thousand does not fill the disk.
    static constexpr std::uintmax_t kMostOfDay = std::uintmax_t{16} << 20; // bytes

    // Looks which files are there. An empty folder: nothing is kept.
    explicit EventJournal(std::string folder);

    // The largest number in the files; 0 without one.
    [[nodiscard]] std::uint64_t LastNumber() const;

    enum class Written {
        All,
        DayFull, // some stand on no file for good
        Failed   // errno says why; none of what was not written stands on a file
    };
    // Events in the order of their numbers, each larger than those before. `*count` gets how many are done
    // with; after a failure the rest may be tried again.
    Written Append(std::span<const EventPtr> events, std::size_t* count);
    // Removes the days before this one, but for the file with the largest number: numbers go on from there.
    void Sweep(std::chrono::sys_days oldest);

    // Those that the filter takes, newest first, `most` at the most.
    [[nodiscard]] std::vector<EventPtr> Newest(const EventFilter& filter, std::size_t most) const;
    // Those with numbers above that one, oldest first, `most` at the most.
    [[nodiscard]] std::vector<EventPtr> After(std::uint64_t number, std::size_t most) const;

private:
    struct Range {
        std::uint64_t first = 0;
        std::uint64_t last = 0;
    };
    using Days = std::map<std::chrono::sys_days, Range>;

    [[nodiscard]] std::string PathOf(std::chrono::sys_days day) const;
    [[nodiscard]] Days Known() const;
    Written AppendTo(std::chrono::sys_days day, const std::string& lines) const;
    // In the order in which they stand; nothing of a file that cannot be read.
    [[nodiscard]] std::vector<EventPtr> ReadDay(std::chrono::sys_days day,
                                                const std::function<bool(const Event&)>& takes) const;

    const std::string m_folder;
    mutable std::mutex m_mutex;
    Days m_days; // under m_mutex
};

} // namespace host
