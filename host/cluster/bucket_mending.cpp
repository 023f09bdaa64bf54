// What a bucket does for what it keeps: puts right what others have done to it, and forgets what was removed.
#include <algorithm>
#include <utility>

#include "host/cluster/bucket.h"

namespace host::cluster {
namespace {

constexpr std::chrono::seconds kMendEvery{1};
constexpr std::size_t kMostMended = 512;
constexpr std::size_t kMostPurged = 256;

} // namespace

// Puts back what others have taken away or covered, and seals anew what a former secret has sealed. All hosts
// try; the engine takes it of the first.
void Bucket::MendSome() {
    struct Mend {
        std::string key;
        BucketValue value;
        Stream::Sequence last;
    };
    std::vector<Mend> mends;
    {
        const std::lock_guard guard(m_mutex);
        if (Clock::now() < m_nextMend)
            return;
        m_nextMend = Clock::now() + kMendEvery;
        for (const auto& [key, item] : m_items) {
            if (!(item.restore || item.renew) || !item.known)
                continue;
            mends.push_back({key,
                             {0, !item.value, item.name, item.value.value_or("")},
                             item.restore ? item.last : item.good});
            if (mends.size() >= kMostMended)
                break;
        }
    }
    for (const Mend& mend : mends)
        (void)Publish(mend.key, mend.value, mend.last, Clock::now() + Stream::kStep);
}

// What may be forgotten is first below the floor for all, and the next time gone.
void Bucket::PurgeSome() {
    const auto now = std::chrono::system_clock::now();
    const auto oldest = std::chrono::duration_cast<std::chrono::milliseconds>(
                            (now - m_options.removalsFor).time_since_epoch())
                            .count();
    std::vector<std::pair<std::string, Stream::Sequence>> gone;
    Revision floor = 0;
    Revision follows = 0;
    {
        const std::lock_guard guard(m_mutex);
        if (m_link.IsConnected())
            m_heard = now;
        if (Clock::now() < m_nextPurge)
            return;
        m_nextPurge = Clock::now() + std::clamp<Clock::duration>(m_options.removalsFor / 100, kMendEvery,
                                                                 std::chrono::hours(1));
        for (const auto& [key, item] : m_items) {
            if (item.name == kFloorName)
                follows = item.value ? item.revision : 0;
            if (item.value || !item.known || item.good == 0 || item.restore || item.put > oldest)
                continue;
            if (!IsForgotten(item))
                floor = std::max(floor, item.revision);
            else if (gone.size() < kMostPurged)
                gone.emplace_back(key, item.good);
        }
    }
    for (const auto& [key, good] : gone) {
        if (!m_stream.Purge(key, good)) // not what was put behind it
            return;
        const Present left = Look(key, Clock::now() + Stream::kStep);
        if (!left.why.empty() || left.last != 0)
            continue; // another time
        const std::lock_guard guard(m_mutex);
        const auto found = m_items.find(key);
        if (found == m_items.end() || found->second.good != good)
            continue;
        m_items.erase(found);
        m_dirty = true;
    }
    // Of several hosts that put one the first is obeyed.
    if (floor > 0) {
        const Change change{std::string(kFloorName), std::to_string(floor), follows};
        (void)WriteOne(change, Clock::now() + Stream::kStep);
    }
}

} // namespace host::cluster
