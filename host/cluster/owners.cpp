#include "host/cluster/owners.h"

#include <algorithm>
#include <utility>

namespace host::cluster {

void Ownership::Told(const std::string& camera, const Owner& owner, Clock::time_point now) {
    Camera& known = m_cameras[camera];
    if (owner.epoch <= known.owner.epoch)
        return;
    if (!known.owner.node.empty() && !owner.node.empty() && known.owner.node != owner.node)
        known.changes.push_back(now);
    while (!known.changes.empty() &&
           (now - known.changes.front() > kChangesWithin || known.changes.size() > 2 * kMostChanges))
        known.changes.erase(known.changes.begin());
    known.owner = owner;
    // One's own claim may be heard of before its put returns.
    if (owner.node == m_self && known.own != 0)
        known.own = owner.epoch;
}

bool Ownership::Heard(const std::string& node, Clock::time_point now) {
    const auto [heard, first] = m_heard.try_emplace(node, now);
    const bool returns = first || now - std::exchange(heard->second, now) > kDeadAfter;
    if (node != m_self)
        return returns;
    // The others are heard again as well from now on, one after the other.
    if (now - m_heardSelf > std::chrono::milliseconds(kDeadAfter) / 2)
        m_judgesFrom = now + kDeadAfter;
    m_heardSelf = now;
    return returns;
}

void Ownership::Writes(bool can, Clock::time_point now) {
    if (can && !m_writes)
        m_judgesFrom = now + kDeadAfter;
    m_writes = can;
}

// Measured by one's own heart: where the engine pauses, nobody dies of it.
bool Ownership::Lives(const std::string& node) const {
    const auto heard = m_heard.find(node);
    return heard != m_heard.end() && heard->second + kDeadAfter >= m_heardSelf;
}

void Ownership::Claiming(const std::string& camera, Clock::time_point now) {
    m_cameras[camera].claimed = now;
}

void Ownership::Claimed(const std::string& camera, std::uint64_t epoch, Clock::time_point now) {
    Camera& known = m_cameras[camera];
    known.own = epoch;
    known.without = false;
    known.claimed = now;
    Told(camera, {m_self, epoch}, now);
}

void Ownership::ServesWithout(const std::string& camera) {
    Camera& known = m_cameras[camera];
    known.own = 0;
    known.without = true;
    known.yields = false;
}

void Ownership::Says(const std::string& camera, const Owner& owner, Clock::time_point now) {
    Told(camera, owner, now);
    Camera& known = m_cameras[camera];
    known.yields = known.yields || (known.own == 0 && known.without && known.owner == owner);
}

void Ownership::ToldWithout(const std::string& camera, const std::string& node, Clock::time_point now) {
    m_cameras[camera].others.insert_or_assign(node, now);
}

Ownership::Orders Ownership::Look(const std::set<std::string>& receiving, Clock::time_point now) {
    Orders orders;
    const bool slept = m_looked != Clock::time_point{} && now - m_looked > kSleptAfter;
    m_looked = now;
    for (const std::string& name : receiving)
        (void)m_cameras[name];
    for (auto& [name, camera] : m_cameras) {
        const bool here = receiving.contains(name);
        camera.here = here;
        std::erase_if(camera.others, [&](const auto& other) { return now - other.second > kDeadAfter; });
        // Other hosts may have taken over what was here; phones come again, and are claimed then.
        if (slept && here)
            orders.end.push_back(name);
        else
            LookAt(name, camera, here, now, orders);
    }
    return orders;
}

void Ownership::LookAt(const std::string& name, Camera& camera, bool receiving, Clock::time_point now,
                       Orders& orders) {
    if (!receiving) {
        if (now - camera.claimed <= kBeginsWithin)
            return;
        camera.own = 0;
        camera.without = false;
        // Of a phone that is gone, or of a former start of this host.
        if (camera.owner.node == m_self && now >= camera.nextClaim) {
            camera.nextClaim = now + kClaimsEvery;
            orders.release.emplace_back(name, camera.owner.epoch);
        }
        return;
    }
    const bool others = !camera.owner.node.empty() && camera.owner.node != m_self;
    if (camera.own != 0) {
        if (camera.owner.epoch <= camera.own)
            return;
        if (others) {
            orders.end.push_back(name);
            return;
        }
    } else if (others) {
        // Its host has an entry, and this one may not get any for as long as the engine's servers need.
        if (camera.yields && Lives(camera.owner.node)) {
            orders.end.push_back(name);
            return;
        }
        // The phone was let in while the engine was away, and nobody knows which of two came later.
        if (!IsHeard(now) || !m_writes || now < m_judgesFrom)
            return;
        if (Lives(camera.owner.node)) {
            orders.end.push_back(name);
            return;
        }
    }
    if (IsHeard(now) && m_writes && now >= camera.nextClaim) {
        camera.nextClaim = now + kClaimsEvery;
        orders.claim.push_back(name);
    }
}

Owner Ownership::OwnerOf(const std::string& camera) const {
    const auto known = m_cameras.find(camera);
    return known != m_cameras.end() ? known->second.owner : Owner{};
}

std::uint64_t Ownership::OwnEpoch(const std::string& camera) const {
    const auto known = m_cameras.find(camera);
    return known != m_cameras.end() ? known->second.own : 0;
}

bool Ownership::IsWithout(const std::string& camera) const {
    const auto known = m_cameras.find(camera);
    return known != m_cameras.end() && known->second.own == 0 && known->second.without;
}

std::map<std::string, std::uint64_t> Ownership::Without() const {
    std::map<std::string, std::uint64_t> without;
    for (const auto& [name, camera] : m_cameras) {
        if (camera.own == 0 && camera.without && camera.here)
            without.emplace(name, 0);
    }
    return without;
}

std::map<std::string, std::uint64_t> Ownership::Owned() const {
    std::map<std::string, std::uint64_t> owned;
    for (const auto& [name, camera] : m_cameras) {
        if (camera.own != 0 && camera.owner.epoch <= camera.own)
            owned.emplace(name, camera.own);
    }
    return owned;
}

std::map<std::string, Owner> Ownership::Elsewhere(Clock::time_point now) const {
    std::map<std::string, Owner> elsewhere;
    if (!IsHeard(now))
        return elsewhere;
    for (const auto& [name, camera] : m_cameras) {
        const Owner& owner = camera.owner;
        if (!owner.node.empty() && owner.node != m_self && owner.epoch > camera.own && Lives(owner.node)) {
            elsewhere.emplace(name, owner);
            continue;
        }
        if (camera.own != 0 || camera.without)
            continue;
        const auto other = std::ranges::find_if(camera.others, [&](const auto& each) {
            return now - each.second <= kDeadAfter && Lives(each.first);
        });
        if (other != camera.others.end())
            elsewhere.emplace(name, Owner{other->first, 0});
    }
    return elsewhere;
}

bool Ownership::IsRestless(const std::string& camera, Clock::time_point now) const {
    const auto known = m_cameras.find(camera);
    return known != m_cameras.end() && known->second.changes.size() > kMostChanges &&
           now - known->second.changes.back() <= kChangesWithin;
}

} // namespace host::cluster
