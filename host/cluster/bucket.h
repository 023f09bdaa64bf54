// A store that the hosts of a cluster share: a key-value bucket of the message engine, which keeps it on its
// disks, on three servers where there are as many.
//
// Keys and values are sealed (seal.h). The engine decides which of two writes to a key came first; whether
// what it then holds is to be believed is decided here: what no host has sealed for the key, what was there
// before and has been put again, and what was taken away by anybody but a host is not obeyed but told of, and
// what had been there is put back by the hosts that know it. A host that starts looks at the last few
// revisions of each key, and remembers in a file which it has seen.
//
// A removal is a sealed value as well, and goes for good after a week. By then a floor has been put: a
// revision that nothing put later may follow one before it. Since whatever is put says that it follows the
// newest revision that its host had seen, what somebody has kept of before the floor is old for every host,
// also for one that has never heard of the key.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/base/store.h"
#include "host/cluster/link.h"
#include "host/cluster/seal.h"

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
    // Why nothing can be written any more, in a line for a person; empty while it can.
    [[nodiscard]] std::string Trouble() const;
    // Changes that somebody else's came before.
    [[nodiscard]] std::uint64_t Conflicts() const noexcept { return m_conflicts; }

private:
    using Clock = std::chrono::steady_clock;
    // What is known of a key, by its sealed form.
    struct Item {
        std::string name;
        std::optional<std::string> value{}; // nothing: removed, or never there
        Revision revision = 0;              // of the value, or of its removal; 0: neither is known
        SeenRevision seen{};
        std::int64_t put = 0; // when, by the engine's clock, milliseconds since 1970
        Revision round = 0;   // the newest that the reading in hand has brought
        bool missing = false; // the engine has nothing where something was
        bool restore = false; // what the engine has is not what is known
        bool renew = false;   // sealed with a secret that is about to go
    };
    using Items = std::map<std::string, Item, std::less<>>;
    // What stands at a key now.
    struct Present {
        std::string why{};  // not known, for this reason
        Revision last = 0;  // the engine's newest revision of the key; 0: it has none
        Revision above = 0; // what is put next follows this
        std::optional<Entry> entry{};
    };
    struct Published {
        enum class Fate { Done, Overtaken, Unknown } fate = Fate::Unknown;
        Revision revision = 0;
        std::string why{};
    };

    void Run();
    void Follow(std::uint64_t connections);
    [[nodiscard]] bool TakeMessage(natsMsg* message, std::uint64_t number, bool first);
    struct Taken {
        Revision revision = 0;
        std::int64_t put = 0;
        std::optional<BucketValue> value{}; // nothing: what is not to be believed
        bool renew = false;
    };
    void Take(const std::string& key, Taken taken, bool first);
    // With m_mutex held.
    [[nodiscard]] Standing Judge(const Item& item, Revision revision, const BucketValue& value) const;
    [[nodiscard]] bool IsForgotten(const Item& item) const;
    void PurgeSome();
    void NoteBad(Item& item, Revision revision, const char* what);
    void EndRound();
    void Deliver();
    void MendSome();
    [[nodiscard]] bool HasMissedSome();
    void Remember(bool last);
    void Recall();
    [[nodiscard]] std::vector<Update> PresentUpdates() const;
    [[nodiscard]] Present Look(const std::string& key, Clock::time_point until);
    [[nodiscard]] Published Publish(const std::string& key, BucketValue value, Revision expected,
                                    Clock::time_point until);
    [[nodiscard]] Outcome WriteOne(const Change& change, Clock::time_point until);

    Link& m_link;
    const BucketOptions m_options;
    const BucketSeal m_seal;
    JetStreamPtr m_stream;

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
    Revision m_newest = 0;  // that the reading in hand has brought
    Revision m_highest = 0; // that was ever seen
    // What is put behind `since` follows nothing before `floor`.
    struct {
        Revision floor = 0;
        Revision since = 0;
    } m_floor;
    std::chrono::system_clock::time_point m_heard{}; // of all there was
    bool m_longAway = false;                         // before the reading in hand
    Clock::time_point m_nextPurge{};
    bool m_behind = false; // at the last look
    bool m_dirty = false;  // seen revisions that are not in the file
    std::string m_trouble;
    Clock::time_point m_nextMend{};
    Clock::time_point m_nextSave{};

    std::atomic<std::uint64_t> m_conflicts{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace host::cluster
