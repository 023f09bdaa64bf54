// What the web server counts, for /metrics.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>

namespace host {

enum class Refusal {
    TooManyConnections,
    TooManyFromAddress,
    NoThread,
    HeadTimeout,
    HeadInvalid,
    RecordTimeout,
    Unauthorized,
    Throttled,
    Forbidden,
    ForeignHost,
    UploadDenied,
    ViewDenied,
    Count
};

inline constexpr std::array<std::string_view, static_cast<std::size_t>(Refusal::Count)> kRefusalNames{
    "too_many_connections",
    "too_many_from_address",
    "no_thread",
    "head_timeout",
    "head_invalid",
    "record_timeout",
    "unauthorized",
    "throttled",
    "forbidden",
    "foreign_host",
    "upload_denied",
    "view_denied"};

struct Counters {
    using Count = std::atomic<std::uint64_t>;

    Count accepted{0};
    Count open{0}; // connections that the web server holds now
    Count requests{0};
    Count uploads{0};  // connections handed over to the component
    Count views{0};    // the same, of viewing phones
    Count watchers{0}; // motion JPEG and multiplexed streams that are open now
    Count sent{0};     // pictures that left for a watcher
    Count skipped{0};  // pictures that a watcher did not get, because a newer one was there first
    std::array<Count, static_cast<std::size_t>(Refusal::Count)> refusals{};

    void Refuse(Refusal reason) noexcept { ++refusals[static_cast<std::size_t>(reason)]; }
};

// One more in a count for the length of a scope.
class CountGuard {
public:
    explicit CountGuard(Counters::Count& count) noexcept : m_count(count) { ++m_count; }
    CountGuard(const CountGuard&) = delete;
    CountGuard& operator=(const CountGuard&) = delete;
    ~CountGuard() { --m_count; }

private:
    Counters::Count& m_count;
};

} // namespace host
