#include "host/cluster/bucket.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <sstream>
#include <utility>

#include "platform/files.h"

namespace host::cluster {
namespace {

// Of each key the engine keeps so many, so that one that somebody puts on top does not take the true one
// away.
constexpr std::uint8_t kHistory = 5;
constexpr std::int64_t kWatchMs = 100;
constexpr std::int64_t kMoreMs = 1;
constexpr std::chrono::seconds kCheckEvery{1};
constexpr std::size_t kMostAtOnce = 256;
constexpr std::int64_t kStepMs = 1500; // one question to the engine
constexpr std::chrono::seconds kMendEvery{1};
constexpr std::size_t kMostMended = 64;
constexpr std::chrono::seconds kSaveEvery{5};
// A header that tells of a removal.
constexpr const char* kOperation = "KV-Operation";
constexpr int kMostTries = 4;
// The name of the floor's entry, which no table uses.
constexpr std::string_view kFloorName = "\x01"
                                        "floor";
constexpr std::size_t kMostPurged = 256;
// So many changes are one writer's; of more there are several.
constexpr std::size_t kWriteTogether = 16;
constexpr std::size_t kMostWriters = 8;
// Of what is not to be believed: no value says that it follows that.
constexpr std::uint64_t kFollowsNothing = std::numeric_limits<std::uint64_t>::max();

using KvStorePtr = std::unique_ptr<kvStore, Destroyed<&kvStore_Destroy>>;
using MetaDataPtr = std::unique_ptr<jsMsgMetaData, Destroyed<&jsMsgMetaData_Destroy>>;
using ConsumerInfoPtr = std::unique_ptr<jsConsumerInfo, Destroyed<&jsConsumerInfo_Destroy>>;
using PubAckPtr = std::unique_ptr<jsPubAck, Destroyed<&jsPubAck_Destroy>>;

bool TakeNumberText(std::string_view text, std::uint64_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

std::int64_t MillisecondsUntil(std::chrono::steady_clock::time_point until) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    return std::clamp<std::int64_t>(left.count(), 1, kStepMs);
}

// As the engine's key-value buckets are made.
std::string SubjectOf(const std::string& bucket, const std::string& key) {
    return "$KV." + bucket + "." + key;
}

bool HasBucket(jsCtx* stream, const BucketOptions& options) {
    kvStore* store = nullptr;
    natsStatus status = js_KeyValue(&store, stream, options.name.c_str());
    if (status != NATS_OK) {
        kvConfig config;
        (void)kvConfig_Init(&config);
        config.Bucket = options.name.c_str();
        config.History = kHistory;
        config.Replicas = options.replicas;
        status = js_CreateKeyValue(&store, stream, &config);
    }
    const KvStorePtr opened(store);
    return status == NATS_OK;
}

// Has the engine send all that it keeps of a bucket, and what comes. (The library's own watcher of buckets
// sees by itself that its consumer is lost, on another thread, and may then use freed memory when it is let
// go of.)
SubscriptionPtr ReadBucket(natsConnection* engine, jsCtx* stream, const BucketOptions& options) {
    const std::string name = "KV_" + options.name;
    jsSubOptions reading;
    (void)jsSubOptions_Init(&reading);
    reading.Stream = name.c_str();
    reading.Config.DeliverPolicy = js_DeliverAll;
    reading.Config.AckPolicy = js_AckNone;
    reading.Config.MemoryStorage = true;
    reading.Config.Replicas = 1;
    natsSubscription* made = nullptr;
    if (js_SubscribeSync(&made, stream, SubjectOf(options.name, ">").c_str(), nullptr, &reading, nullptr) !=
        NATS_OK)
        return nullptr;
    SubscriptionPtr subscription(made, {engine});
    (void)natsSubscription_SetPendingLimits(made, -1, -1);
    return subscription;
}

// How many there are to be read at first.
std::optional<std::uint64_t> CountOf(natsSubscription* subscription) {
    jsConsumerInfo* made = nullptr;
    if (natsSubscription_GetConsumerInfo(&made, subscription, nullptr, nullptr) != NATS_OK)
        return std::nullopt;
    const ConsumerInfoPtr info(made);
    return made->NumPending + made->Delivered.Consumer;
}

} // namespace

Bucket::Bucket(Link& link, BucketOptions options, Secret nameKey)
    : m_link(link), m_options(std::move(options)),
      m_seal(link.Seals(), m_options.name, nameKey.IsEmpty() ? Secret("open names") : std::move(nameKey)) {
    jsOptions settings;
    (void)jsOptions_Init(&settings);
    settings.Wait = kStepMs;
    jsCtx* stream = nullptr;
    if (natsConnection_JetStream(&stream, link.Engine(), &settings) != NATS_OK)
        throw LinkError("the engine's library has no JetStream");
    m_stream.reset(stream);
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
        if (m_link.IsConnected() && HasBucket(m_stream.get(), m_options))
            Follow(connections);
        if (!m_stop)
            std::this_thread::sleep_for(std::chrono::milliseconds(kWatchMs));
    }
}

// Until the connection is another one, or something is missing: what changed in between is read anew.
void Bucket::Follow(std::uint64_t connections) {
    const SubscriptionPtr subscription = ReadBucket(m_link.Engine(), m_stream.get(), m_options);
    const auto count = subscription ? CountOf(subscription.get()) : std::nullopt;
    if (!count)
        return;
    {
        const std::lock_guard guard(m_mutex);
        m_newest = 0;
        m_longAway = m_heard != std::chrono::system_clock::time_point{} &&
                     std::chrono::system_clock::now() - m_heard > m_options.removalsFor / 2;
        for (auto& [key, item] : m_items)
            item.round = 0;
    }
    std::uint64_t taken = 0; // in all
    std::size_t batch = 0;
    bool first = true;
    auto nextCheck = Clock::now() + kCheckEvery;
    while (!m_stop && m_link.Connections() == connections) {
        if (first && taken >= *count) {
            first = false;
            EndRound();
            Deliver();
        }
        natsMsg* next = nullptr;
        const natsStatus status =
            natsSubscription_NextMsg(&next, subscription.get(), batch > 0 ? kMoreMs : kWatchMs);
        const MessagePtr message(next);
        if (message) {
            if (!TakeMessage(next, taken + 1, first))
                return;
            ++taken;
            if (first || ++batch < kMostAtOnce)
                continue;
        } else if (status != NATS_TIMEOUT) {
            return;
        }
        batch = 0;
        if (!first) {
            Deliver();
            MendSome();
            PurgeSome();
            Remember(false);
        }
        if (!message && Clock::now() >= nextCheck) {
            nextCheck = Clock::now() + kCheckEvery;
            if (m_link.IsConnected() && HasMissedSome())
                return;
        }
    }
}

// Whether the engine has news that it has not brought, although none are on their way: its consumers can be
// lost, or taken away. Or it has fewer keys than are known, which it does not tell of by itself.
bool Bucket::HasMissedSome() {
    jsStreamInfo* made = nullptr;
    if (js_GetStreamInfo(&made, m_stream.get(), ("KV_" + m_options.name).c_str(), nullptr, nullptr) !=
        NATS_OK)
        return false;
    const std::unique_ptr<jsStreamInfo, Destroyed<&jsStreamInfo_Destroy>> info(made);
    const std::lock_guard guard(m_mutex);
    const auto there = std::ranges::count_if(m_items, [this](const auto& item) {
        return item.second.seen.revision > 0 && !item.second.missing && !IsForgotten(item.second);
    });
    const bool behind = (made->State.Msgs > 0 && made->State.LastSeq > m_newest) ||
                        made->State.NumSubjects < static_cast<std::int64_t>(there);
    // A change may be on its way: twice in a row it is not.
    return std::exchange(m_behind, behind) && behind;
}

// False when one before it did not arrive.
bool Bucket::TakeMessage(natsMsg* message, std::uint64_t number, bool first) {
    jsMsgMetaData* made = nullptr;
    const std::string prefix = SubjectOf(m_options.name, "");
    const std::string_view subject = natsMsg_GetSubject(message);
    // Somebody else can send to where the engine does, but not with the subject of a value.
    if (!subject.starts_with(prefix) || natsMsg_GetMetaData(&made, message) != NATS_OK) {
        m_link.Refuse("in the bucket " + m_options.name + " what the engine has not sent is not obeyed");
        return false;
    }
    const MetaDataPtr about(made);
    if (about->Sequence.Consumer != number)
        return false;
    const std::string key(subject.substr(prefix.size()));
    const Revision revision = about->Sequence.Stream;
    const char* operation = nullptr;
    const bool removal = natsMsgHeader_Get(message, kOperation, &operation) == NATS_OK;
    Taken taken{.revision = revision, .put = about->Timestamp / 1'000'000};
    if (!removal)
        taken.value = m_seal.Open(key, TextOf(message), &taken.renew);
    Take(key, std::move(taken), first);
    return true;
}

Standing Bucket::Judge(const Item& item, Revision revision, const BucketValue& value) const {
    if (m_floor.since != 0 && revision > m_floor.since && value.follows < m_floor.floor)
        return Standing::Old;
    return StandingOf(item.seen, {revision, value.follows});
}

// Whether its removal may be gone from the engine.
bool Bucket::IsForgotten(const Item& item) const {
    return !item.value && item.seen.revision <= m_floor.floor;
}

void Bucket::Take(const std::string& key, Taken taken, bool first) {
    const auto revision = taken.revision;
    auto& value = taken.value;
    const std::lock_guard guard(m_mutex);
    Item& item = m_items[key];
    m_highest = std::max(m_highest, revision);
    item.round = std::max(item.round, revision);
    m_newest = std::max(m_newest, revision);
    if (revision < item.seen.revision) {
        if (!first && m_trouble.empty()) {
            m_trouble = "the bucket " + m_options.name + " went back: somebody has made it anew";
            m_link.Say(m_trouble);
        }
        return; // a former one, as the reading brings them along
    }
    if (!value) {
        if (revision != item.seen.revision)
            NoteBad(item, revision, "what no host has put, or taken away,");
        return;
    }
    switch (Judge(item, revision, *value)) {
    case Standing::Next:
        break;
    case Standing::Known:
        if (item.revision == revision)
            return;
        break; // known of the file alone
    case Standing::Old:
    case Standing::Undone:
        if (revision != item.seen.revision || item.seen.follows != kFollowsNothing)
            NoteBad(item, revision, "a former value that was put again");
        return;
    }
    m_dirty = true;
    item.seen = {revision, value->follows};
    item.name = std::move(value->name);
    item.value = value->removed ? std::nullopt : std::optional(std::move(value->text));
    item.revision = revision;
    item.put = taken.put;
    item.missing = item.restore = false;
    // Those that come later are sealed by hosts that run, with the secret that is theirs to seal with.
    item.renew = taken.renew && !m_read;
    if (item.name != kFloorName)
        m_news.push_back(key);
    else if (Revision floor = 0; item.value && TakeNumberText(*item.value, floor) && floor > m_floor.floor)
        m_floor = {floor, revision};
}

// With m_mutex held.
void Bucket::NoteBad(Item& item, Revision revision, const char* what) {
    m_link.Refuse("in the bucket " + m_options.name + " " + what + " is not obeyed");
    m_dirty = true;
    item.seen = {revision, kFollowsNothing};
    item.restore = true;
}

void Bucket::EndRound() {
    const std::lock_guard guard(m_mutex);
    m_dirty = std::erase_if(m_items,
                            [this](const auto& item) {
                                return item.second.round == 0 && IsForgotten(item.second);
                            }) > 0 ||
              m_dirty;
    for (auto& [key, item] : m_items) {
        if (item.round >= item.seen.revision)
            continue;
        if (item.round == 0 && m_longAway && item.seen.revision <= m_floor.floor) {
            item.value.reset(); // somebody has removed it, and that is forgotten by now
            m_news.push_back(key);
            continue;
        }
        if (item.round > 0 && m_trouble.empty()) {
            m_trouble =
                "the bucket " + m_options.name + " is behind what was seen: somebody has made it anew";
            m_link.Say(m_trouble);
        } else if (item.round == 0 && !item.missing) {
            item.missing = item.restore = true;
            m_link.Refuse("in the bucket " + m_options.name + " a value is gone that no host has removed");
        }
    }
    if (m_read)
        return;
    m_read = true;
    m_changed.notify_all();
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
    const std::shared_ptr<const void> handle(new char, [this](const char* mark) {
        const std::lock_guard guard(m_delivering);
        m_watchers.erase(mark);
        delete mark;
    });
    if (read)
        listener(present);
    m_watchers.emplace(handle.get(), Watcher{std::move(listener), read});
    return handle;
}

// Puts back what others have taken away or covered, and seals anew what a former secret has sealed. All hosts
// try; the engine takes it of the first.
void Bucket::MendSome() {
    struct Mend {
        std::string key;
        BucketValue value;
        Revision expected;
    };
    std::vector<Mend> mends;
    {
        const std::lock_guard guard(m_mutex);
        if (Clock::now() < m_nextMend || !m_trouble.empty())
            return;
        m_nextMend = Clock::now() + kMendEvery;
        for (const auto& [key, item] : m_items) {
            if (!(item.restore || item.renew) || item.revision == 0)
                continue;
            mends.push_back({key,
                             {item.seen.revision, !item.value, item.name, item.value.value_or("")},
                             item.missing ? 0 : item.seen.revision});
            if (mends.size() >= kMostMended)
                break;
        }
    }
    for (const Mend& mend : mends)
        (void)Publish(mend.key, mend.value, mend.expected, Clock::now() + std::chrono::milliseconds(kStepMs));
}

// What may be forgotten is first below the floor for all, and the next time gone.
void Bucket::PurgeSome() {
    const auto now = std::chrono::system_clock::now();
    const auto oldest = std::chrono::duration_cast<std::chrono::milliseconds>(
                            (now - m_options.removalsFor).time_since_epoch())
                            .count();
    std::vector<std::pair<std::string, Revision>> gone;
    Revision floor = 0;
    Revision follows = 0;
    {
        const std::lock_guard guard(m_mutex);
        if (m_link.IsConnected())
            m_heard = now;
        if (Clock::now() < m_nextPurge || !m_trouble.empty())
            return;
        m_nextPurge = Clock::now() + std::clamp<Clock::duration>(m_options.removalsFor / 100, kMendEvery,
                                                                 std::chrono::hours(1));
        for (const auto& [key, item] : m_items) {
            if (item.name == kFloorName)
                follows = item.value ? item.revision : 0;
            if (item.value || item.revision == 0 || item.revision != item.seen.revision || item.missing ||
                item.restore || item.put > oldest)
                continue;
            if (!IsForgotten(item))
                floor = std::max(floor, item.seen.revision);
            else if (gone.size() < kMostPurged)
                gone.emplace_back(key, item.seen.revision);
        }
    }
    for (const auto& [key, revision] : gone) {
        const std::string subject = SubjectOf(m_options.name, key);
        jsOptions options;
        (void)jsOptions_Init(&options);
        options.Wait = kStepMs;
        options.Stream.Purge.Subject = subject.c_str();
        options.Stream.Purge.Sequence = revision + 1; // not what was put behind it
        if (js_PurgeStream(m_stream.get(), ("KV_" + m_options.name).c_str(), &options, nullptr) != NATS_OK)
            return;
        const Present left = Look(key, Clock::now() + std::chrono::milliseconds(kStepMs));
        if (!left.why.empty() || left.last != 0)
            continue; // another time
        const std::lock_guard guard(m_mutex);
        const auto found = m_items.find(key);
        if (found == m_items.end() || found->second.seen.revision != revision)
            continue;
        m_items.erase(found);
        m_dirty = true;
    }
    // Of several hosts that put one the first is obeyed.
    if (floor > 0) {
        const Change change{std::string(kFloorName), std::to_string(floor), follows};
        (void)WriteOne(change, Clock::now() + std::chrono::milliseconds(kStepMs));
    }
}

Bucket::Published Bucket::Publish(const std::string& key, BucketValue value, Revision expected,
                                  Clock::time_point until) {
    {
        const std::lock_guard guard(m_mutex);
        value.follows = std::max(value.follows, m_highest);
    }
    const std::string sealed = m_seal.Seal(value);
    jsPubOptions options;
    (void)jsPubOptions_Init(&options);
    options.MaxWait = MillisecondsUntil(until);
    options.ExpectLastSubjectSeq = expected;
    options.ExpectNoMessage = expected == 0;
    jsPubAck* made = nullptr;
    jsErrCode error{};
    const natsStatus status = js_Publish(&made, m_stream.get(), SubjectOf(m_options.name, key).c_str(),
                                         sealed.data(), static_cast<int>(sealed.size()), &options, &error);
    const PubAckPtr acknowledged(made);
    if (status == NATS_OK)
        return {Published::Fate::Done, made->Sequence, {}};
    if (error == JSStreamWrongLastSequenceErr)
        return {Published::Fate::Overtaken, 0, {}};
    return {Published::Fate::Unknown, 0,
            "the cluster's engine did not take a change of " + m_options.name + ": " +
                natsStatus_GetText(status)};
}

Bucket::Present Bucket::Look(const std::string& key, Clock::time_point until) {
    jsOptions options;
    (void)jsOptions_Init(&options);
    options.Wait = MillisecondsUntil(until);
    natsMsg* made = nullptr;
    jsErrCode error{};
    const natsStatus status = js_GetLastMsg(&made, m_stream.get(), ("KV_" + m_options.name).c_str(),
                                            SubjectOf(m_options.name, key).c_str(), &options, &error);
    const MessagePtr message(made);
    if (status != NATS_OK && error != JSNoMessageFoundErr)
        return {.why = "the cluster's engine does not tell of " + m_options.name + ": " +
                       natsStatus_GetText(status)};
    Present present;
    std::optional<BucketValue> value;
    if (message) {
        present.last = natsMsg_GetSequence(made);
        const char* operation = nullptr;
        if (natsMsgHeader_Get(made, kOperation, &operation) != NATS_OK)
            value = m_seal.Open(key, TextOf(made));
    }
    const std::lock_guard guard(m_mutex);
    if (!m_trouble.empty())
        return {.why = m_trouble};
    const auto found = m_items.find(key);
    const Item none;
    const Item& item = found != m_items.end() ? found->second : none;
    present.above = std::max(present.last, item.seen.revision);
    if (present.last > 0 && present.last < item.seen.revision)
        return {.why = "the bucket " + m_options.name + " is behind what was seen"};
    if (value) {
        const Standing standing = Judge(item, present.last, *value);
        if (standing == Standing::Next || standing == Standing::Known) {
            if (!value->removed)
                present.entry = Entry{std::move(value->text), present.last};
            return present;
        }
    }
    if (item.value) // it is about to be put back
        present.entry = Entry{*item.value, item.revision};
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
    Present present{.last = change.follows, .above = change.follows};
    {
        const std::lock_guard guard(m_mutex);
        if (!m_trouble.empty())
            return {Result::Unreachable, 0, {}, m_trouble};
        // Where nothing is, the engine may have a removal; and where something is, what is to be mended.
        if (const auto found = m_items.find(key); found != m_items.end()) {
            const Item& item = found->second;
            if (change.follows == (item.value ? item.revision : 0)) {
                present.last = item.missing ? 0 : item.seen.revision;
                present.above = item.seen.revision;
            }
        }
    }
    for (int tries = 0; tries < kMostTries; ++tries) {
        const Published published = Publish(
            key, {present.above, !change.value, change.key, change.value.value_or("")}, present.last, until);
        if (published.fate == Published::Fate::Done)
            return {Result::Done, change.value ? published.revision : 0, {}, {}};
        if (published.fate == Published::Fate::Unknown)
            return {Result::Unreachable, 0, {}, published.why};
        present = Look(key, until);
        if (!present.why.empty())
            return {Result::Unreachable, 0, {}, present.why};
        if ((present.entry ? present.entry->revision : 0) != change.follows) {
            ++m_conflicts;
            return {Result::Conflict, 0, std::move(present.entry), {}};
        }
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
    std::vector<std::jthread> others;
    for (std::size_t many = kWriteTogether; many < changes.size() && others.size() + 1 < kMostWriters;
         many += kWriteTogether)
        others.emplace_back(write);
    write();
    others.clear(); // waits for them
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

std::string Bucket::Trouble() const {
    const std::lock_guard guard(m_mutex);
    return m_trouble;
}

// A line a key: its sealed form, the revision, and what that follows.
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
            lines << key << ' ' << item.seen.revision << ' ' << item.seen.follows << '\n';
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
    SeenRevision seen;
    while (lines >> key >> seen.revision >> seen.follows)
        m_items[key].seen = seen;
}

} // namespace host::cluster
