#include "host/events/journal.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "host/base/moment.h"
#include "platform/files.h"
#include "platform/scope.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using std::chrono::sys_days;

constexpr std::string_view kJournalSuffix = ".jsonl";

// The day of "2026-01-31.jsonl"; nothing for other names.
std::optional<sys_days> DayOfName(std::string_view name) {
    if (name.size() != 10 + kJournalSuffix.size() || !name.ends_with(kJournalSuffix) || name[4] != '-' ||
        name[7] != '-')
        return std::nullopt;
    const auto number = [name](std::size_t at, std::size_t digits) {
        int value = -1;
        const char* const begin = name.data() + at;
        const auto [end, error] = std::from_chars(begin, begin + digits, value);
        return error == std::errc{} && end == begin + digits ? value : -1;
    };
    const std::chrono::year_month_day date(std::chrono::year(number(0, 4)),
                                           std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                           std::chrono::day(static_cast<unsigned>(number(8, 2))));
    return date.ok() ? std::optional(sys_days(date)) : std::nullopt;
}

std::string JournalLine(const Event& event) {
    return AsJson(event).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

// Calls `use` with each whole line; the last one has its end only where nothing was cut off.
template <class Use>
void ForEachLine(std::string_view content, Use use) {
    for (std::size_t end = content.find('\n'); end != std::string_view::npos; end = content.find('\n')) {
        use(content.substr(0, end));
        content.remove_prefix(end + 1);
    }
}

// Behind a line that was cut off a new one begins.
bool EndsInLine(int file, off_t size) {
    char last = '\n';
    return size == 0 || ::pread(file, &last, 1, size - 1) != 1 || last == '\n';
}

bool WriteAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written > 0)
            bytes.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return false;
    }
    return true;
}

} // namespace

EventJournal::EventJournal(std::string folder) : m_folder(std::move(folder)) {
    if (m_folder.empty())
        return;
    std::error_code error;
    for (fs::directory_iterator at(m_folder, error), end; !error && at != end; at.increment(error)) {
        const auto day = DayOfName(at->path().filename().string());
        if (!day)
            continue;
        Range range;
        (void)ReadDay(*day, [&](const Event& event) {
            range.first = range.first == 0 ? event.number : std::min(range.first, event.number);
            range.last = std::max(range.last, event.number);
            return false;
        });
        m_days.emplace(*day, range);
    }
}

std::uint64_t EventJournal::LastNumber() const {
    std::uint64_t last = 0;
    for (const auto& [day, range] : Known())
        last = std::max(last, range.last);
    return last;
}

EventJournal::Written EventJournal::Append(std::span<const EventPtr> events, std::size_t* count) {
    *count = m_folder.empty() ? events.size() : 0;
    Written result = Written::All;
    while (*count < events.size()) {
        // Those of one day in a row are written at once.
        const sys_days day = std::chrono::floor<std::chrono::days>(events[*count]->time);
        Range range{events[*count]->number, 0};
        std::string lines;
        std::size_t next = *count;
        for (; next < events.size() && std::chrono::floor<std::chrono::days>(events[next]->time) == day;
             ++next) {
            lines += JournalLine(*events[next]);
            range.last = events[next]->number;
        }
        const Written written = AppendTo(day, lines);
        if (written == Written::Failed)
            return written;
        if (written == Written::DayFull)
            result = written;
        *count = next;
        const std::lock_guard guard(m_mutex);
        Range& known = m_days[day];
        known.first = known.first == 0 ? range.first : known.first;
        known.last = range.last;
    }
    return result;
}

EventJournal::Written EventJournal::AppendTo(sys_days day, const std::string& lines) const {
    const std::string path = PathOf(day);
    const auto open = [&path] {
        return platform::Descriptor(
            ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600));
    };
    platform::Descriptor file = open();
    if (!file && errno == ENOENT && SUCCEEDED(platform::CreateFolder(m_folder)))
        file = open();
    struct stat status {};
    if (!file || ::fstat(file.Get(), &status) != 0)
        return Written::Failed;
    if (static_cast<std::uintmax_t>(status.st_size) + lines.size() > kMostOfDay)
        return Written::DayFull;
    const std::string begin = EndsInLine(file.Get(), status.st_size) ? "" : "\n";
    if (WriteAll(file.Get(), begin + lines) && ::fdatasync(file.Get()) == 0)
        return Written::All;
    // What was written of it would stand there twice after the next try.
    const int reason = errno;
    (void)::ftruncate(file.Get(), status.st_size);
    errno = reason;
    return Written::Failed;
}

void EventJournal::Sweep(sys_days oldest) {
    const std::uint64_t newest = LastNumber();
    for (const auto& [day, range] : Known()) {
        if (day >= oldest || range.last == newest ||
            (FAILED(platform::RemoveFile(PathOf(day))) && errno != ENOENT))
            continue;
        const std::lock_guard guard(m_mutex);
        m_days.erase(day);
    }
}

std::vector<EventPtr> EventJournal::Newest(const EventFilter& filter, std::size_t most) const {
    const Days known = Known();
    std::vector<std::pair<sys_days, Range>> days(known.begin(), known.end());
    std::ranges::sort(days, std::ranges::greater{}, [](const auto& day) { return day.second.last; });
    std::vector<EventPtr> found; // newest first
    for (const auto& [day, range] : days) {
        // No file from here on has a newer event than the last of these.
        if (found.size() == most && (most == 0 || found.back()->number > range.last))
            break;
        const bool outside = (filter.from && day + std::chrono::days(1) <= *filter.from) ||
                             (filter.to && day >= *filter.to) || range.first >= filter.before;
        if (outside)
            continue;
        const auto more = ReadDay(day, [&filter](const Event& event) { return filter.Takes(event); });
        found.insert(found.end(), more.rbegin(), more.rend());
        std::ranges::sort(found, std::ranges::greater{}, &Event::number);
        found.resize(std::min(found.size(), most));
    }
    return found;
}

std::vector<EventPtr> EventJournal::After(std::uint64_t number, std::size_t most) const {
    const Days known = Known();
    std::vector<std::pair<sys_days, Range>> days(known.begin(), known.end());
    std::ranges::sort(days, {}, [](const auto& day) { return day.second.first; });
    std::vector<EventPtr> found; // oldest first
    for (const auto& [day, range] : days) {
        if (range.last <= number)
            continue;
        if (found.size() == most && (most == 0 || found.back()->number < range.first))
            break;
        const auto more = ReadDay(day, [number](const Event& event) { return event.number > number; });
        found.insert(found.end(), more.begin(), more.end());
        std::ranges::sort(found, {}, &Event::number);
        found.resize(std::min(found.size(), most));
    }
    return found;
}

std::string EventJournal::PathOf(sys_days day) const {
    return m_folder + '/' + DayText(Event::Time(day).time_since_epoch().count()) +
           std::string(kJournalSuffix);
}

EventJournal::Days EventJournal::Known() const {
    const std::lock_guard guard(m_mutex);
    return m_days;
}

std::vector<EventPtr> EventJournal::ReadDay(sys_days day,
                                            const std::function<bool(const Event&)>& takes) const {
    std::vector<EventPtr> events;
    // A file that somebody has added to is larger than ours become.
    const auto content = platform::ReadWholeFile(PathOf(day), 2 * kMostOfDay);
    ForEachLine(content ? std::string_view(*content) : std::string_view(), [&](std::string_view line) {
        auto event = ReadEvent(line);
        if (event && takes(*event))
            events.push_back(std::make_shared<const Event>(std::move(*event)));
    });
    return events;
}

} // namespace host
