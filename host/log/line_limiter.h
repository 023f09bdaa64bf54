// Keeps a line that comes again and again from filling the log.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace host {

// The first line of a key goes out at once. Those of the same key that follow are counted, and once a second
// the newest of them goes out with the count behind it ("... 117,000 more"), for as long as more of them
// come. No line is lost: each one is written or counted, also when there are more keys than are kept. Not
// thread-safe.
class LineLimiter {
public:
    using Clock = std::chrono::steady_clock;
    using Write = std::function<void(const std::string& channel, const std::string& text)>;

    explicit LineLimiter(Write write) : m_write(std::move(write)) {}

    void Add(const std::string& key, std::string_view channel, std::string_view text, Clock::time_point now);
    // Writes the counts that are due. To be called a few times a second, since no line may come any more.
    void Tick(Clock::time_point now);
    // Writes all counts there are.
    void Flush();

private:
    static constexpr std::chrono::seconds kInterval{1};
    static constexpr std::size_t kMostKeys = 1024;

    struct Entry {
        std::string channel;
        std::string text; // of the newest line that was not written
        std::uint64_t more = 0;
        Clock::time_point written;
    };
    void Tell(Entry& entry);

    const Write m_write;
    std::map<std::string, Entry, std::less<>> m_entries;
    Clock::time_point m_due = Clock::time_point::min(); // no count is, before
};

} // namespace host
