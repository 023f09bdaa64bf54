#include "host/cluster/bucket.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <sstream>
#include <utility>

#include "host/base/workers.h"
#include "platform/files.h"

namespace host::cluster {
namespace {

constexpr std::int64_t kWatchMs = 100;
constexpr std::int64_t kMoreMs = 1;
constexpr std::chrono::seconds kCheckEvery{1};
// So many checks that are not answered, one after the other: the connection that the reading has may not be
// what it was.
constexpr int kMostUnanswered = 5;
constexpr std::size_t kMostAtOnce = 256;
constexpr std::chrono::seconds kSaveEvery{5};
constexpr int kMostTries = 4;
// So many changes are one writer's; of more there are several.
constexpr std::size_t kWriteTogether = 16;
constexpr std::size_t kMostWriters = 8;
// Of two values that were put in the same place, one of which the engine has lost, the revisions differ.
constexpr Store::Revision kMostSteps = 256;
constexpr auto kAll = std::numeric_limits<Stream::Sequence>::max();

bool TakeNumberText(std::string_view text, std::uint64_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

std::int64_t UnixMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

} // namespace

Bucket::Bucket(Link& link, BucketOptions options, Secret nameKey)
    : m_link(link), m_options(std::move(options)),
      m_seal(link.Seals(), m_options.name, nameKey.IsEmpty() ? Secret("open names") : std::move(nameKey)),
      m_stream(link, m_options.name, m_options.replicas) {
    Recall();
    m_thread = std::thread([this] { Run(); });
}

Bucket::~Bucket() {
    m_stop = true;
    m_thread.join();
    Remember(true);
}

void Bucket::Run() {
    while (!m_stop) {
        const std::uint64_t connections = m_link.Connections();
        if (m_link.IsConnected() && m_stream.Make())
            Follow(connections);
        if (!m_stop)
            std::this_thread::sleep_for(std::chrono::milliseconds(kWatchMs));
    }
}

// Until the connection is another one, or the reading does not bring all there is: what changed in between is
// read anew.
void Bucket::Follow(std::uint64_t connections) {
    const auto head = m_stream.Ask();
    auto reading = head ? m_stream.Read(*head) : std::nullopt;
    if (!reading)
        return;
    Begin();
    Round round{.reading = *std::move(reading)};
    std::size_t batch = 0;
    auto nextCheck = Clock::now() + kCheckEvery;
    while (!m_stop && m_link.Connections() == connections) {
        if (round.first && round.taken >= round.reading.count) {
            round.first = false;
            EndRound();
            Deliver();
        }
        natsMsg* next = nullptr;
        const natsStatus status =
            natsSubscription_NextMsg(&next, round.reading.subscription.get(), batch > 0 ? kMoreMs : kWatchMs);
        const MessagePtr message(next);
        if (message) {
            if (!TakeMessage(next, round))
                return;
            if (round.first || ++batch < kMostAtOnce)
                continue;
        } else if (status != NATS_TIMEOUT) {
            return;
        }
        batch = 0;
        if (!round.first) {
            Deliver();
            MendSome();
            PurgeSome();
            Remember(false);
        }
        if (Clock::now() >= nextCheck) {
            if (m_link.IsConnected() && !BringsAll(round))
                return;
            nextCheck = Clock::now() + kCheckEvery;
        }
    }
}

void Bucket::Begin() {
    const std::lock_guard guard(m_mutex);
    m_newest = m_put = 0;
    m_longAway = m_heard != std::chrono::system_clock::time_point{} &&
                 std::chrono::system_clock::now() - m_heard > m_options.removalsFor / 2;
    for (auto& [key, item] : m_items)
        item.last = item.good = item.told = 0;
}

// The engine's consumers can be lost, or taken away, and a server that does not lead any more may know less
// than the others, or something else. Or there are fewer keys than are known, which nobody tells of by
// itself. False: it is to be read anew.
bool Bucket::BringsAll(Round& round) {
    Stream::Sequence newest = 0;
    Stream::Sequence put = 0;
    std::int64_t keys = 0;
    {
        const std::lock_guard guard(m_mutex);
        newest = m_newest;
        put = m_put;
        keys = std::ranges::count_if(
            m_items, [this](const auto& item) { return item.second.last > 0 && !IsForgotten(item.second); });
    }
    const bool stands = round.taken == std::exchange(round.takenBefore, round.taken);
    const auto head = m_stream.Ask();
    if (!head) // which tells nothing, neither good nor bad
        return ++round.unanswered < kMostUnanswered;
    round.unanswered = 0;
    if (head->leader != round.reading.server)
        return false;
    // What was there at the last check has come by now.
    const Stream::Sequence due = std::exchange(round.due, head->last);
    if (stands && (round.first || newest < due)) {
        const auto progress = Stream::Ask(round.reading);
        if (!progress || progress->left > 0 || progress->sent != round.taken)
            return false;
        // Somebody has taken it away.
        round.reading.count = round.taken;
        const std::lock_guard guard(m_mutex);
        m_newest = std::max(m_newest, due);
    }
    // A server that led before it stood still may answer once more before it knows.
    const bool fewer = head->subjects < keys;
    const bool less = head->last < put;
    if (std::exchange(round.fewer, fewer) && fewer)
        return false;
    const bool lost = std::exchange(round.less, less) && less;
    const std::lock_guard guard(m_mutex);
    if (!round.first)
        FindLost(lost ? kAll : m_newest);
    return true;
}

// False when one before it did not arrive.
bool Bucket::TakeMessage(natsMsg* message, Round& round) {
    const auto opened = m_stream.Open(message);
    if (!opened) {
        m_link.Refuse("in the bucket " + m_options.name + " what the engine has not sent is not obeyed");
        return false;
    }
    if (opened->number != ++round.taken)
        return false;
    Taken taken{.sequence = opened->sequence, .put = opened->put};
    if (!opened->removal)
        taken.value = m_seal.Open(opened->key, opened->text, &taken.renew);
    Take(opened->key, std::move(taken), round.first);
    return true;
}

bool Bucket::IsBelowFloor(Stream::Sequence sequence, const BucketValue& value) const {
    return m_floor.since != 0 && sequence > m_floor.since && value.revision < m_floor.floor;
}

// Whether its removal may be gone from the engine.
bool Bucket::IsForgotten(const Item& item) const {
    return !item.value && item.revision <= m_floor.floor;
}

void Bucket::Take(const std::string& key, Taken taken, bool first) {
    const auto sequence = taken.sequence;
    const auto& value = taken.value;
    const std::lock_guard guard(m_mutex);
    Item& item = m_items[key];
    m_newest = std::max(m_newest, sequence);
    item.last = std::max(item.last, sequence);
    if (value && value->revision > item.revision && !IsBelowFloor(sequence, *value)) {
        // Those that come later are sealed by hosts that run, with the secret that is theirs to seal with.
        taken.renew = taken.renew && !m_read;
        Adopt(key, item, std::move(taken));
    } else if (value && value->revision == item.revision) {
        if (!item.known)
            return Adopt(key, item, std::move(taken));
        item.good = std::max(item.good, sequence);
        item.restore = item.restore && item.last > item.good;
        if (item.name == kFloorName)
            m_floor.since = item.good;
    } else if (!first && sequence > item.good) {
        Disobey(item, value ? "a former value that was put again" : "what no host has put, or taken away,");
    } // else a former one, as the reading brings them along, or known to be none at its end
}

// With m_mutex held.
void Bucket::Adopt(const std::string& key, Item& item, Taken taken) {
    BucketValue& value = *taken.value;
    m_dirty = true;
    m_highest = std::max(m_highest, value.revision);
    item.known = true;
    item.revision = value.revision;
    item.name = std::move(value.name);
    item.value = value.removed ? std::nullopt : std::optional(std::move(value.text));
    item.good = taken.sequence;
    item.put = taken.put;
    item.restore = false;
    item.renew = taken.renew;
    if (item.name != kFloorName)
        m_news.push_back(key);
    else if (Revision floor = 0; item.value && TakeNumberText(*item.value, floor) && floor > m_floor.floor)
        m_floor = {floor, taken.sequence};
}

// With m_mutex held.
void Bucket::Disobey(Item& item, const char* what) {
    const bool news = !item.restore || item.told != item.last;
    item.told = item.last;
    item.restore = true;
    if (news)
        m_link.Refuse("in the bucket " + m_options.name + " " + what + " is not obeyed");
}

void Bucket::EndRound() {
    const std::lock_guard guard(m_mutex);
    m_dirty = std::erase_if(m_items,
                            [this](const auto& item) {
                                return item.second.last == 0 && IsForgotten(item.second);
                            }) > 0 ||
              m_dirty;
    for (auto& [key, item] : m_items) {
        if (item.last == 0 && m_longAway && item.value && item.revision <= m_floor.floor) {
            item.value.reset(); // somebody has removed it, and that is forgotten by now
            m_news.push_back(key);
        }
    }
    FindLost(m_newest);
    if (m_read)
        return;
    m_read = true;
    m_changed.notify_all();
}

// Whose value is not what the engine has, of the messages up to one; behind that it may be on its way. With
// m_mutex held.
void Bucket::FindLost(Stream::Sequence upTo) {
    for (auto& [key, item] : m_items) {
        if (item.good > upTo || (item.good == item.last && item.good > 0) ||
            (item.last == 0 && IsForgotten(item)))
            continue;
        Disobey(item, item.last > item.good ? "what no host has put, or a former value,"
                                            : "that a value is gone, which no host has removed,");
    }
}

void Bucket::Deliver() {
    const std::lock_guard delivering(m_delivering);
    std::vector<Update> updates;
    std::vector<Update> present;
    const bool begins = std::ranges::any_of(m_watchers, [](const auto& item) { return !item.second.begun; });
    {
        const std::lock_guard guard(m_mutex);
        std::ranges::sort(m_news);
        m_news.erase(std::unique(m_news.begin(), m_news.end()), m_news.end());
        for (const std::string& key : m_news) {
            const Item& item = m_items[key];
            updates.push_back({item.name, item.value, item.revision});
        }
        m_news.clear();
        if (begins)
            present = PresentUpdates();
    }
    for (auto& [handle, watcher] : m_watchers) {
        if (!std::exchange(watcher.begun, true))
            watcher.listener(present);
        else if (!updates.empty())
            watcher.listener(updates);
    }
}

// With m_mutex held.
std::vector<Store::Update> Bucket::PresentUpdates() const {
    std::vector<Update> present;
    for (const auto& [key, item] : m_items) {
        if (item.value && item.name != kFloorName)
            present.push_back({item.name, item.value, item.revision});
    }
    return present;
}

Store::Watching Bucket::Watch(Listener listener) {
    const std::lock_guard delivering(m_delivering);
    std::vector<Update> present;
    bool read = false;
    {
        const std::lock_guard guard(m_mutex);
        read = m_read;
        if (read)
            present = PresentUpdates();
    }
    std::shared_ptr<const void> handle(new char, [this](const char* mark) {
        const std::lock_guard guard(m_delivering);
        m_watchers.erase(mark);
        delete mark;
    });
    if (read)
        listener(present);
    m_watchers.emplace(handle.get(), Watcher{std::move(listener), read});
    return handle;
}

Bucket::Published Bucket::Publish(const std::string& key, BucketValue value, Stream::Sequence last,
                                  Clock::time_point until) {
    {
        const std::lock_guard guard(m_mutex);
        value.revision = m_highest + 1 + m_random() % kMostSteps;
    }
    Stream::Put put = m_stream.Publish(key, m_seal.Seal(value), last, until);
    if (put.fate != Stream::Put::Fate::Done)
        return {put.fate, 0, std::move(put.why)};
    // Who has put it knows it from now on, whatever becomes of the engine's servers.
    const Revision revision = value.revision;
    const std::lock_guard guard(m_mutex);
    m_put = std::max(m_put, put.sequence);
    if (Item& item = m_items[key]; revision > item.revision)
        Adopt(key, item, {.sequence = put.sequence, .put = UnixMs(), .value = std::move(value)});
    return {put.fate, revision, {}};
}

Bucket::Present Bucket::Look(const std::string& key, Clock::time_point until) {
    Stream::Last last = m_stream.Find(key, until);
    if (!last.why.empty())
        return {.why = std::move(last.why)};
    std::optional<BucketValue> value;
    if (last.message && !last.removal)
        value = m_seal.Open(key, TextOf(last.message.get()));
    Present present{.last = last.sequence};
    const std::lock_guard guard(m_mutex);
    const auto found = m_items.find(key);
    const Item none;
    const Item& item = found != m_items.end() ? found->second : none;
    if (value) // what is put next is above it
        m_highest = std::max(m_highest, value->revision);
    if (value && value->revision >= item.revision && !IsBelowFloor(present.last, *value)) {
        if (!value->removed)
            present.entry = Entry{std::move(value->text), value->revision};
    } else if (item.value) { // it is about to be put back
        present.entry = Entry{*item.value, item.revision};
    }
    return present;
}

Store::Reading Bucket::Get(std::string_view key) {
    Present present = Look(m_seal.KeyOf(key), Clock::now() + kLongestWait);
    if (!present.why.empty())
        return {Result::Unreachable, std::nullopt, std::move(present.why)};
    return {Result::Done, std::move(present.entry), {}};
}

Store::Outcome Bucket::WriteOne(const Change& change, Clock::time_point until) {
    if (change.key.empty() || change.key.size() > kMaxKeyBytes)
        return {Result::Refused, 0, {}, "a key has 1 to " + std::to_string(kMaxKeyBytes) + " bytes"};
    if (change.value && change.value->size() > kMaxValueBytes)
        return {Result::Refused, 0, {}, "a value has at most " + std::to_string(kMaxValueBytes) + " bytes"};
    if (!m_link.IsConnected() || Clock::now() >= until)
        return {Result::Unreachable, 0, {}, "the cluster's engine cannot be reached"};
    const std::string key = m_seal.KeyOf(change.key);
    // What the engine has there, where that is known.
    std::optional<Stream::Sequence> last;
    {
        const std::lock_guard guard(m_mutex);
        const auto found = m_items.find(key);
        if (found == m_items.end() && change.follows == 0 && m_read)
            last = 0;
        else if (found != m_items.end() && found->second.known &&
                 change.follows == (found->second.value ? found->second.revision : 0))
            last = found->second.restore ? found->second.last : found->second.good;
    }
    for (int tries = 0; tries < kMostTries; ++tries) {
        if (!last) {
            Present present = Look(key, until);
            if (!present.why.empty())
                return {Result::Unreachable, 0, {}, present.why};
            if ((present.entry ? present.entry->revision : 0) != change.follows) {
                ++m_conflicts;
                return {Result::Conflict, 0, std::move(present.entry), {}};
            }
            last = present.last;
        }
        const Published published =
            Publish(key, {0, !change.value, change.key, change.value.value_or("")}, *last, until);
        if (published.fate == Stream::Put::Fate::Done)
            return {Result::Done, change.value ? published.revision : 0, {}, {}};
        if (published.fate == Stream::Put::Fate::Unknown)
            return {Result::Unreachable, 0, {}, published.why};
        last.reset();
    }
    return {Result::Unreachable, 0, {}, "others keep changing a value of " + m_options.name};
}

std::vector<Store::Outcome> Bucket::Write(std::span<const Change> changes) {
    const auto until = Clock::now() + kLongestWait;
    std::vector<Outcome> outcomes(changes.size());
    // The engine answers each by itself, once its servers have it on their disks: of many, some wait for that
    // at a time.
    std::atomic<std::size_t> next{0};
    const auto write = [&] {
        for (std::size_t i = next++; i < changes.size(); i = next++) {
            try {
                outcomes[i] = WriteOne(changes[i], until);
            } catch (const SealError& error) {
                outcomes[i] = {Result::Unreachable, 0, {}, error.what()};
            }
        }
    };
    Workers others;
    const std::size_t writers =
        std::min((changes.size() + kWriteTogether - 1) / kWriteTogether, kMostWriters);
    for (std::size_t i = 1; i < writers; ++i) {
        if (!others.TryStart(write))
            break;
    }
    write();
    others.End();
    return outcomes;
}

bool Bucket::IsRead() const {
    const std::lock_guard guard(m_mutex);
    return m_read;
}

bool Bucket::AwaitRead(std::chrono::milliseconds within) const {
    std::unique_lock guard(m_mutex);
    return m_changed.wait_for(guard, within, [this] { return m_read; });
}

// A line a key: its sealed form, and the revision.
void Bucket::Remember(bool last) {
    if (m_options.seen.empty())
        return;
    std::ostringstream lines;
    {
        const std::lock_guard guard(m_mutex);
        if (!m_dirty || (!last && Clock::now() < m_nextSave))
            return;
        m_nextSave = Clock::now() + kSaveEvery;
        for (const auto& [key, item] : m_items)
            lines << key << ' ' << item.revision << '\n';
        m_dirty = false;
    }
    if (FAILED(platform::ReplaceFile(m_options.seen, lines.str()))) {
        const std::lock_guard guard(m_mutex);
        m_dirty = true;
    }
}

void Bucket::Recall() {
    if (m_options.seen.empty())
        return;
    std::istringstream lines(platform::ReadWholeFile(m_options.seen).value_or(""));
    std::string key;
    Revision revision = 0;
    while (lines >> key >> revision) {
        m_items[key].revision = revision;
        m_highest = std::max(m_highest, revision);
    }
}

} // namespace host::cluster
