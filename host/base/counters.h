// Counts what the web server does, for /metrics.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>

#include "host/base/wait.h"

namespace host {

enum class Refusal {
    TooManyConnections,
    TooManyFromAddress,
    NoThread,
    HandshakeFailed, // of TLS
    HeadTimeout,
    HeadInvalid,
    RecordTimeout,
    Unauthorized,
    Throttled,
    Forbidden,
    ForeignHost,
    InClear, // what goes over TLS alone
    TooManyStreams,
    UploadDenied,
    ViewDenied,
    Count
};

inline constexpr std::array<std::string_view, static_cast<std::size_t>(Refusal::Count)> kRefusalNames{
    "too_many_connections",
    "too_many_from_address",
    "no_thread",
    "handshake_failed",
    "head_timeout",
    "head_invalid",
    "record_timeout",
    "unauthorized",
    "throttled",
    "forbidden",
    "foreign_host",
    "in_clear",
    "too_many_streams",
    "upload_denied",
    "view_denied"};

// The kinds of connections that last.
enum class SessionKind {
    Upload, // a phone that is a camera
    View,   // a phone that watches
    Live,   // motion JPEG
    Tiles,  // the live page
    Page,   // one source in a browser, as a phone sees it
    Count
};

inline constexpr std::array<std::string_view, static_cast<std::size_t>(SessionKind::Count)> kSessionNames{
    "upload", "view", "live", "tiles", "page"};

struct Counters {
    using Count = std::atomic<std::uint64_t>;

    const Clock::time_point started = Clock::now();

    Count accepted{0};
    Count open{0}; // connections that the web server holds now
    Count requests{0};
    Count sent{0};    // pictures that left for a watcher
    Count skipped{0}; // pictures that a watcher did not get, because a newer one was there first
    std::array<Count, static_cast<std::size_t>(Refusal::Count)> refusals{};
    std::array<Count, static_cast<std::size_t>(SessionKind::Count)> sessions{}; // that have begun
    // Those of the web server's own kinds that are open now. The component holds uploads and viewing phones,
    // so they are not counted here.
    std::array<Count, static_cast<std::size_t>(SessionKind::Count)> watching{};

    // Seconds since the host started.
    [[nodiscard]] double Uptime() const noexcept {
        return std::chrono::duration<double>(Clock::now() - started).count();
    }
    void Refuse(Refusal reason) noexcept { ++refusals[static_cast<std::size_t>(reason)]; }
    void Begin(SessionKind kind) noexcept { ++sessions[static_cast<std::size_t>(kind)]; }
    [[nodiscard]] std::uint64_t Begun(SessionKind kind) const noexcept {
        return sessions[static_cast<std::size_t>(kind)];
    }
    [[nodiscard]] std::uint64_t Watching(SessionKind kind) const noexcept {
        return watching[static_cast<std::size_t>(kind)];
    }
    [[nodiscard]] std::uint64_t Watchers() const noexcept {
        return Watching(SessionKind::Live) + Watching(SessionKind::Tiles) + Watching(SessionKind::Page);
    }
};

// A session of the web server's own, for the length of a scope.
class WatchGuard {
public:
    WatchGuard(Counters& counters, SessionKind kind) noexcept
        : m_count(counters.watching[static_cast<std::size_t>(kind)]) {
        counters.Begin(kind);
        ++m_count;
    }
    WatchGuard(const WatchGuard&) = delete;
    WatchGuard& operator=(const WatchGuard&) = delete;
    ~WatchGuard() { --m_count; }

private:
    Counters::Count& m_count;
};

} // namespace host
