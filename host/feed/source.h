// What a camera's feed has to do with other hosts, where several are one server. A host by itself has none of
// it.
//
// Each host has every camera in its settings, so each has a feed for it, and all that shows something of a
// camera looks at that feed, wherever the phone is: pictures of a phone at another host are put into it while
// somebody looks.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/wait.h"

namespace host {

// Which host has a camera.
class CameraOwners {
public:
    // A host that slept for so long may have been given up by the others.
    static constexpr std::chrono::seconds kSleptTooLong{2};

    CameraOwners() = default;
    CameraOwners(const CameraOwners&) = delete;
    CameraOwners& operator=(const CameraOwners&) = delete;
    virtual ~CameraOwners() = default;

    // For a phone that has shown the camera's password and is about to be let in: the camera is this host's
    // from then on, and the upload that another one has for it ends. Any thread; waits for some seconds at
    // most.
    virtual void Claim(const std::string& camera) = 0;

    // Whether the others count on this host. One that slept takes nothing from its phones until it has looked
    // whose they are.
    [[nodiscard]] bool Slept(Clock::time_point now) const noexcept {
        return now - Clock::time_point(Clock::duration(m_awake.load(std::memory_order_relaxed))) >
               kSleptTooLong;
    }

protected:
    void SetAwake(Clock::time_point now) noexcept { m_awake = now.time_since_epoch().count(); }

private:
    std::atomic<Clock::rep> m_awake{Clock::now().time_since_epoch().count()};
};

// The hosts that are one server, as this one hears them; nothing where it is one by itself.
struct LiveHosts {
    std::string self;
    std::vector<std::string> live;   // this one included, in the order of their names
    std::vector<std::string> silent; // that have not left, and are not heard

    [[nodiscard]] bool Lives(const std::string& node) const {
        return std::ranges::find(live, node) != live.end();
    }
    // Tells of what is nobody's, or was that of a host that is gone.
    [[nodiscard]] bool IsFirst() const { return !live.empty() && live.front() == self; }
};

// A camera whose phone another host has, as that host tells.
struct Elsewhere {
    std::string node;
    // Of the picture that was shown last, while somebody looks.
    std::uint64_t frames = 0;
    std::uint64_t failed = 0;
    double fps = 0;
    friend bool operator==(const Elsewhere&, const Elsewhere&) = default;
};

} // namespace host
