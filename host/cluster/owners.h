// Which host has which camera, and what a host has to do about it: the rules alone, without engine, threads
// or time of their own.
//
// Each camera has an entry in a bucket: the host that has it. Who lets a phone in puts the entry first; its
// revision is the epoch, and the host with the highest one has the camera. Hosts hear each other's heart
// beat.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace host::cluster {

struct Owner {
    std::string node;        // empty: nobody, since that revision
    std::uint64_t epoch = 0; // the entry's revision; 0: nobody has ever had the camera
    friend bool operator==(const Owner&, const Owner&) = default;
};

// Belongs to one thread, or stands under its user's lock.
class Ownership {
public:
    using Clock = std::chrono::steady_clock;
    // A heart that was silent for so long, while one's own was heard, beats no more.
    static constexpr std::chrono::seconds kDeadAfter{3};
    // A host that looked no more for so long slept, and the others may have taken it for dead.
    static constexpr std::chrono::seconds kSleptAfter{2};
    // How long a phone may take from the claim to its upload, before the camera is given back.
    static constexpr std::chrono::seconds kBeginsWithin{5};
    static constexpr std::chrono::seconds kClaimsEvery{1};
    // A camera whose owner changes more often is two phones with one name, or a phone that finds no rest.
    static constexpr std::size_t kMostChanges = 3;
    static constexpr std::chrono::seconds kChangesWithin{10};

    explicit Ownership(std::string self) : m_self(std::move(self)) {}

    // The engine has told: also what came of one's own claims.
    void Told(const std::string& camera, const Owner& owner, Clock::time_point now);
    // A heart beat was heard, over the engine; one's own as well.
    // True for one that was silent for so long that it may have missed what the others did.
    bool Heard(const std::string& node, Clock::time_point now);
    // Whether the engine takes entries. What cannot be claimed is not tried, and where it could not be, the
    // others are heard for a while before one of them is judged.
    void Writes(bool can, Clock::time_point now);
    // It has left.
    void Silent(const std::string& node) { m_heard.erase(node); }
    // A claim of this host is about to be put.
    void Claiming(const std::string& camera, Clock::time_point now);
    // It went through, with that epoch; or the engine could not be reached, and the phone is let
    // in without one.
    void Claimed(const std::string& camera, std::uint64_t epoch, Clock::time_point now);
    void ServesWithout(const std::string& camera);
    // A host says that it has it, by that entry, which it does at a claim and when it hears others again.
    void Says(const std::string& camera, const Owner& owner, Clock::time_point now);
    // Another host serves it without one, as it says with each beat of its heart.
    void ToldWithout(const std::string& camera, const std::string& node, Clock::time_point now);

    struct Orders {
        std::vector<std::string> end;                               // uploads of this host
        std::vector<std::string> claim;                             // for phones that are here
        std::vector<std::pair<std::string, std::uint64_t>> release; // camera and epoch: their phones are gone
    };
    // What is to be done, with the cameras whose phones are here. A few times a second.
    [[nodiscard]] Orders Look(const std::set<std::string>& receiving, Clock::time_point now);

    // The entry, as far as it is known; its epoch is what the next one follows.
    [[nodiscard]] Owner OwnerOf(const std::string& camera) const;
    // 0: this host has no claim on it.
    [[nodiscard]] std::uint64_t OwnEpoch(const std::string& camera) const;
    // The cameras that this host has, with their epochs.
    [[nodiscard]] std::map<std::string, std::uint64_t> Owned() const;
    // Whether this host has let a phone in without an entry, and has none since.
    [[nodiscard]] bool IsWithout(const std::string& camera) const;
    // The cameras that are so, and whose phones are here.
    [[nodiscard]] std::map<std::string, std::uint64_t> Without() const;
    // Whether the engine takes entries, as far as is known.
    [[nodiscard]] bool TakesEntries() const { return m_writes; }
    // The cameras that other hosts have, which live; with epoch 0 those that nobody who lives has an entry
    // for, and that a host serves without one. Of several it is the one that comes first by name, for all.
    [[nodiscard]] std::map<std::string, Owner> Elsewhere(Clock::time_point now) const;
    // Whether its owner has changed too often of late, so that the next claim is to wait.
    [[nodiscard]] bool IsRestless(const std::string& camera, Clock::time_point now) const;
    // Whether one's own heart is heard, so that the engine carries what hosts say.
    [[nodiscard]] bool IsHeard(Clock::time_point now) const { return now - m_heardSelf <= kDeadAfter; }
    [[nodiscard]] bool Lives(const std::string& node) const;

private:
    struct Camera {
        Owner owner;
        std::uint64_t own = 0; // epoch of this host's claim; 0: none
        bool without = false;  // a phone was let in here without a claim
        bool yields = false;   // and another host has said since that it has the camera
        bool here = false;     // its phone, at the last look
        std::map<std::string, Clock::time_point> others; // that serve it without, and when they said so
        Clock::time_point claimed{};
        Clock::time_point nextClaim{};
        std::vector<Clock::time_point> changes; // of late
    };
    void LookAt(const std::string& name, Camera& camera, bool receiving, Clock::time_point now,
                Orders& orders);

    const std::string m_self;
    std::map<std::string, Camera> m_cameras;
    std::map<std::string, Clock::time_point> m_heard;
    Clock::time_point m_heardSelf{};  // the epoch of the clock: never
    Clock::time_point m_judgesFrom{}; // before that, who is silent may only not have been heard yet
    bool m_writes = true;
    Clock::time_point m_looked{};
};

} // namespace host::cluster
