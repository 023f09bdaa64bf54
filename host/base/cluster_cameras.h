// The cameras of hosts that are one server: which of them has which, and pictures from one to another. A
// plug-in makes it, beside what the hosts share.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace host {

// A camera's picture as hosts hand it to each other, and what the camera's figures are.
struct CameraPicture {
    std::uint64_t number = 0; // within the owner's epoch; grows
    std::uint64_t unixMs = 0; // when it had arrived at the owner, by that one's clock
    std::uint32_t ageMs = 0;  // how long ago that was
    std::uint64_t frames = 0;
    std::uint64_t failed = 0;
    std::uint32_t milliFps = 0;
    std::string jpeg{}; // empty: there is none yet, or none any more
};

// Any thread. Calls of `then` and of `respond` come on threads of the cluster that must not be kept waiting.
class ClusterCameras {
public:
    ClusterCameras() = default;
    ClusterCameras(const ClusterCameras&) = delete;
    ClusterCameras& operator=(const ClusterCameras&) = delete;
    // Gives up what this host has. Of what was pulled something may still be told afterwards.
    virtual ~ClusterCameras() = default;

    // Puts the camera's entry for a phone that is about to be let in; waits for some seconds at most. Where
    // the others cannot be reached, the phone is served all the same.
    virtual void Claim(const std::string& camera) = 0;

    // Where a camera's phone is. Each change of the host has an epoch above the last one; 0: that host serves
    // it while the engine takes no entries, and another one may as well.
    struct Place {
        std::string node;
        std::uint64_t epoch = 0;
        friend bool operator==(const Place&, const Place&) = default;
    };
    struct Orders {
        std::vector<std::string> end;           // cameras whose uploads here end now
        std::map<std::string, Place> elsewhere; // the cameras that other hosts have
    };
    // A few times a second, with the cameras whose phones are here. Waits for nothing.
    [[nodiscard]] virtual Orders Look(const std::set<std::string>& receiving) = 0;

    // Asks the owner for its next picture after a number (0: the newest will do). `then` is told once;
    // nothing when the owner did not answer.
    using Then = std::function<void(std::optional<CameraPicture> picture)>;
    virtual void Pull(const std::string& camera, const Place& place, std::uint64_t after, Then then) = 0;
    // How long an owner may wait for a picture before it answers that there is none.
    static constexpr std::chrono::milliseconds kPictureWithin{1000};

    // What other hosts ask of this one; null: nothing is served any more.
    using Reply = std::function<void(const CameraPicture& picture)>; // once, or never
    using Respond = std::function<void(const std::string& camera, std::uint64_t after, Reply reply)>;
    virtual void Serve(Respond respond) = 0;

    // The hosts that live, this one included.
    [[nodiscard]] virtual std::vector<std::string> Nodes() const = 0;
    // Those that have not left, and do not answer.
    [[nodiscard]] virtual std::vector<std::string> Silent() const = 0;
};

} // namespace host
