// Connections that were taken, until the component has them.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "capi/feeds.h"
#include "capi/morrowstream.h"
#include "capi/settings.h"
#include "capi/sources.h"
#include "kit/component/web_handler_host.h"
#include "platform/scope.h"

namespace capi {

// One thread reads what is missing of all connections, asks who may watch, and hands over.
class Intake {
public:
    struct Parts {
        kit::WebHandlerHostPtr handlers;
        const Settings& settings;
        const CameraTable& cameras;
        const Sources& sources;
        const Watchers& watchers;
        morrow_watch_callback mayWatch;
        void* watchPayload;
        std::chrono::milliseconds wait;
    };
    // The references outlive the object.
    explicit Intake(Parts parts);
    Intake(const Intake&) = delete;
    Intake& operator=(const Intake&) = delete;
    // Closes what waits, and tells so. Not on the thread of a callback.
    ~Intake();

    // Throws Failure; the descriptor stays the caller's then.
    void Take(int descriptor, std::string bytes, morrow_taken_callback taken, void* payload);

    // Of the request that the calling thread hands over just now: what GetRequestAuth asks for. Empty for an
    // upload.
    static std::optional<kit::RequestIdentity> Identity();

private:
    using Clock = std::chrono::steady_clock;
    struct Waiting;

    void Run();
    // With `m_waiting`, which is the thread's alone.
    void ReadAll();
    void EndLate(Clock::time_point now);
    // Reads what is there. True once the connection has found its owner, or its end.
    bool Advance(Waiting& waiting);
    int HandOver(Waiting& waiting);
    int HandUpload(Waiting& waiting);
    int HandViewer(Waiting& waiting);
    int Process(Waiting& waiting, const std::string& path, int outcome);

    const Parts m_parts;
    platform::Descriptor m_wake; // an eventfd
    std::mutex m_mutex;          // the next three
    std::vector<Waiting> m_new;
    std::size_t m_count = 0; // of all that wait
    bool m_stop = false;
    std::vector<Waiting> m_waiting;
    std::thread m_thread;
};

} // namespace capi
