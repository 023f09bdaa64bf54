// A store that the hosts of a cluster share: a key-value bucket of the message engine, which keeps it on its
// disks, on three servers where there are as many.
//
// Keys and values are sealed (seal.h). The engine decides which of two writes to a key came first; whether
// what it then holds is to be believed is decided here: what no host has sealed for the key, what was there
// before and has been put again, and what was taken away by anybody but a host is not obeyed but told of, and
// what had been there is put back by the hosts that know it. A host that starts looks at the last few values
// of each key, and remembers in a file which it has seen.
//
// Each value has a revision of its own, sealed with it, above all that its host had seen in the bucket. By
// that, and not by the engine's numbers, one value is newer than another: servers of NATS 2.9 that died or
// stood still may number the same messages differently from then on, or lack some that were confirmed, and
// one of them may lead next. Hosts that know of more than the engine has put it there again.
//
// A removal is a sealed value as well, and goes for good after a week. By then a floor has been put: of what
// the engine has got behind it, nothing below it is believed. What somebody has kept of before is old then
// for every host, also for one that has never heard of the key.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/base/store.h"
#include "host/cluster/link.h"
#include "host/cluster/seal.h"
#include "host/cluster/stream.h"

namespace host::cluster {

struct BucketOptions {
    std::string name;   // letters, digits, "-" and "_"
    int replicas = 1;   // of a bucket that is made
    std::string seen{}; // a file; empty: what was seen is forgotten at the end
    // How long removals are kept: a host that has not heard of the others for half as long takes what it
    // finds missing for removed.
    std::chrono::milliseconds removalsFor = std::chrono::hours(7 * 24);
};

class Bucket final : public Store {
public:
    // The link outlives it. What there is is read by a thread of it, as soon as the engine can be reached.
    // Without a name key: the names of that bucket are no secret.
    Bucket(Link& link, BucketOptions options, Secret nameKey = {});
    ~Bucket() override;

    [[nodiscard]] Reading Get(std::string_view key) override;
    [[nodiscard]] std::vector<Outcome> Write(std::span<const Change> changes) override;
    [[nodiscard]] Watching Watch(Listener listener) override;

    // Whether all that was there has been read once.
    [[nodiscard]] bool IsRead() const;
    [[nodiscard]] bool AwaitRead(std::chrono::milliseconds within) const;
    // Changes that somebody else's came before.
    [[nodiscard]] std::uint64_t Conflicts() const noexcept { return m_conflicts; }

private:
    using Clock = std::chrono::steady_clock;
    // What is known of a key, by its sealed form.
    struct Item {
        std::string name{};
        std::optional<std::string> value{}; // nothing: removed, or never there, or not known
        bool known = false;                 // else there is a revision alone, of the file
        Revision revision = 0;              // of the value, or of its removal; 0: neither was seen
        std::int64_t put = 0;               // when, by the engine's clock, milliseconds since 1970
        // By the engine's numbers, in the reading in hand; 0: nothing.
        Stream::Sequence last = 0; // the key's newest message
        Stream::Sequence good = 0; // the one that has the value
        Stream::Sequence told = 0; // the last one that was told of as not obeyed
        bool restore = false;      // what the engine has is not what is known
        bool renew = false;        // sealed with a secret that is about to go
    };
    using Items = std::map<std::string, Item, std::less<>>;
    // What stands at a key now.
    struct Present {
        std::string why{};         // not known, for this reason
        Stream::Sequence last = 0; // the engine's newest message of the key; 0: it has none
        std::optional<Entry> entry{};
    };
    struct Published {
        Stream::Put::Fate fate = Stream::Put::Fate::Unknown;
        Revision revision = 0;
        std::string why{};
    };
    // A reading of the engine's stream, as far as it has come. Of the reading thread.
    struct Round {
        Stream::Reading reading;
        std::uint64_t taken = 0; // messages
        bool first = true;       // not all that was there has been read yet
        // Of the last check:
        std::uint64_t takenBefore = 0;
        Stream::Sequence due = 0; // the engine's newest message
        int unanswered = 0;
        bool fewer = false;
        bool less = false;
    };
    // A message of the engine.
    struct Taken {
        Stream::Sequence sequence = 0;
        std::int64_t put = 0;
        std::optional<BucketValue> value{}; // nothing: no host has sealed it for its place
        bool renew = false;
    };

    void Run();
    void Follow(std::uint64_t connections);
    void Begin();
    [[nodiscard]] bool TakeMessage(natsMsg* message, Round& round);
    void Take(const std::string& key, Taken taken, bool first);
    [[nodiscard]] bool BringsAll(Round& round);
    void EndRound();
    void Deliver();
    void MendSome();
    void PurgeSome();
    // With m_mutex held.
    [[nodiscard]] bool IsBelowFloor(Stream::Sequence sequence, const BucketValue& value) const;
    [[nodiscard]] bool IsForgotten(const Item& item) const;
    void Adopt(const std::string& key, Item& item, Taken taken);
    void FindLost(Stream::Sequence upTo);
    void Disobey(Item& item, const char* what);
    void Remember(bool last);
    void Recall();
    [[nodiscard]] std::vector<Update> PresentUpdates() const;
    [[nodiscard]] Present Look(const std::string& key, Clock::time_point until);
    [[nodiscard]] Published Publish(const std::string& key, BucketValue value, Stream::Sequence last,
                                    Clock::time_point until);
    [[nodiscard]] Outcome WriteOne(const Change& change, Clock::time_point until);

    // The name of the floor's entry, which no table uses.
    static constexpr std::string_view kFloorName = "\x01"
                                                   "floor";

    Link& m_link;
    const BucketOptions m_options;
    const BucketSeal m_seal;
    const Stream m_stream;

    std::mutex m_delivering; // held while listeners are called; goes before m_mutex
    struct Watcher {
        Listener listener;
        bool begun = false; // has had the first call
    };
    std::map<const void*, Watcher> m_watchers; // under m_delivering

    mutable std::mutex m_mutex; // the members below
    mutable std::condition_variable m_changed;
    Items m_items;
    std::vector<std::string> m_news; // keys whose entries have changed, to be delivered
    bool m_read = false;
    Revision m_highest = 0;        // of all values that were ever seen
    Stream::Sequence m_newest = 0; // that the reading in hand has brought
    Stream::Sequence m_put = 0;    // from here, since that has begun
    // Of what the engine has got behind `since`, nothing below `floor` is believed.
    struct {
        Revision floor = 0;
        Stream::Sequence since = 0;
    } m_floor;
    std::minstd_rand m_random{std::random_device{}()};
    std::chrono::system_clock::time_point m_heard{}; // of all there was
    bool m_longAway = false;                         // before the reading in hand
    Clock::time_point m_nextPurge{};
    bool m_dirty = false; // seen revisions that are not in the file
    Clock::time_point m_nextMend{};
    Clock::time_point m_nextSave{};

    std::atomic<std::uint64_t> m_conflicts{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace host::cluster
