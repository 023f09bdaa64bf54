#include "host/cluster/stream.h"

#include <algorithm>
#include <utility>

namespace host::cluster {
namespace {

constexpr std::uint8_t kHistory = 5;
// The engine chooses the server that sends a reading. Of three it is the one that leads after three tries in
// the mean; after so many others it is asked again who that is.
constexpr int kMostOpened = 10;
// A header that tells of a removal.
constexpr const char* kOperation = "KV-Operation";

using KvStorePtr = std::unique_ptr<kvStore, Destroyed<&kvStore_Destroy>>;
using StreamInfoPtr = std::unique_ptr<jsStreamInfo, Destroyed<&jsStreamInfo_Destroy>>;
using MetaDataPtr = std::unique_ptr<jsMsgMetaData, Destroyed<&jsMsgMetaData_Destroy>>;
using ConsumerInfoPtr = std::unique_ptr<jsConsumerInfo, Destroyed<&jsConsumerInfo_Destroy>>;
using PubAckPtr = std::unique_ptr<jsPubAck, Destroyed<&jsPubAck_Destroy>>;

std::int64_t MillisecondsUntil(Stream::Clock::time_point until) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Stream::Clock::now());
    return std::clamp<std::int64_t>(left.count(), 1, Stream::kStep.count());
}

std::string LeaderOf(const jsClusterInfo* cluster) {
    return cluster != nullptr && cluster->Leader != nullptr ? cluster->Leader : "";
}

ConsumerInfoPtr InfoOf(natsSubscription* subscription) {
    jsConsumerInfo* made = nullptr;
    (void)natsSubscription_GetConsumerInfo(&made, subscription, nullptr, nullptr);
    return ConsumerInfoPtr(made);
}

bool IsRemoval(natsMsg* message) {
    const char* operation = nullptr;
    return natsMsgHeader_Get(message, kOperation, &operation) == NATS_OK;
}

} // namespace

Stream::Stream(Link& link, std::string bucket, int replicas)
    : m_link(link), m_bucket(std::move(bucket)), m_name("KV_" + m_bucket), m_replicas(replicas) {
    jsOptions settings;
    (void)jsOptions_Init(&settings);
    settings.Wait = kStep.count();
    jsCtx* stream = nullptr;
    if (natsConnection_JetStream(&stream, link.Engine(), &settings) != NATS_OK)
        throw LinkError("the engine's library has no JetStream");
    m_stream.reset(stream);
}

bool Stream::Make() const {
    kvStore* store = nullptr;
    natsStatus status = js_KeyValue(&store, m_stream.get(), m_bucket.c_str());
    if (status != NATS_OK) {
        kvConfig config;
        (void)kvConfig_Init(&config);
        config.Bucket = m_bucket.c_str();
        config.History = kHistory;
        config.Replicas = m_replicas;
        status = js_CreateKeyValue(&store, m_stream.get(), &config);
    }
    const KvStorePtr opened(store);
    return status == NATS_OK;
}

std::optional<Stream::Head> Stream::Ask() const {
    jsStreamInfo* made = nullptr;
    if (js_GetStreamInfo(&made, m_stream.get(), m_name.c_str(), nullptr, nullptr) != NATS_OK)
        return std::nullopt;
    const StreamInfoPtr info(made);
    Head head{LeaderOf(info->Cluster), info->State.LastSeq, info->State.NumSubjects};
    if (info->Cluster != nullptr && head.leader.empty())
        return std::nullopt; // its servers are choosing one
    return head;
}

// (The library's own watcher of buckets sees by itself that its consumer is lost, on another thread, and may
// then use freed memory when it is let go of.)
std::optional<Stream::Reading> Stream::Read(const Head& head) const {
    jsSubOptions reading;
    (void)jsSubOptions_Init(&reading);
    reading.Stream = m_name.c_str();
    reading.Config.DeliverPolicy = js_DeliverAll;
    reading.Config.AckPolicy = js_AckNone;
    reading.Config.MemoryStorage = true;
    reading.Config.Replicas = 1;
    for (int tries = 0; tries < kMostOpened; ++tries) {
        natsSubscription* made = nullptr;
        if (js_SubscribeSync(&made, m_stream.get(), SubjectOf(">").c_str(), nullptr, &reading, nullptr) !=
            NATS_OK)
            return std::nullopt;
        SubscriptionPtr subscription(made, {m_link.Engine()});
        (void)natsSubscription_SetPendingLimits(made, -1, -1);
        const ConsumerInfoPtr info = InfoOf(made);
        if (!info)
            return std::nullopt;
        if (LeaderOf(info->Cluster) == head.leader)
            return Reading{std::move(subscription), head.leader, info->NumPending + info->Delivered.Consumer};
    }
    return std::nullopt;
}

std::optional<Stream::Progress> Stream::Ask(const Reading& reading) {
    const ConsumerInfoPtr info = InfoOf(reading.subscription.get());
    return info ? std::optional(Progress{info->Delivered.Consumer, info->NumPending}) : std::nullopt;
}

std::optional<Stream::Message> Stream::Open(natsMsg* message) const {
    const std::string prefix = SubjectOf("");
    const std::string_view subject = natsMsg_GetSubject(message);
    jsMsgMetaData* made = nullptr;
    if (!subject.starts_with(prefix) || natsMsg_GetMetaData(&made, message) != NATS_OK)
        return std::nullopt;
    const MetaDataPtr about(made);
    return Message{.key = std::string(subject.substr(prefix.size())),
                   .text = TextOf(message),
                   .sequence = about->Sequence.Stream,
                   .number = about->Sequence.Consumer,
                   .put = about->Timestamp / 1'000'000,
                   .removal = IsRemoval(message)};
}

Stream::Put Stream::Publish(const std::string& key, std::string_view text, Sequence last,
                            Clock::time_point until) const {
    jsPubOptions options;
    (void)jsPubOptions_Init(&options);
    options.MaxWait = MillisecondsUntil(until);
    options.ExpectLastSubjectSeq = last;
    options.ExpectNoMessage = last == 0;
    jsPubAck* made = nullptr;
    jsErrCode error{};
    const natsStatus status = js_Publish(&made, m_stream.get(), SubjectOf(key).c_str(), text.data(),
                                         static_cast<int>(text.size()), &options, &error);
    const PubAckPtr acknowledged(made);
    if (status == NATS_OK)
        return {Put::Fate::Done, made->Sequence, {}};
    if (error == JSStreamWrongLastSequenceErr)
        return {Put::Fate::Overtaken, 0, {}};
    return {Put::Fate::Unknown, 0,
            "the cluster's engine did not take a change of " + m_bucket + ": " + natsStatus_GetText(status)};
}

Stream::Last Stream::Find(const std::string& key, Clock::time_point until) const {
    jsOptions options;
    (void)jsOptions_Init(&options);
    options.Wait = MillisecondsUntil(until);
    natsMsg* made = nullptr;
    jsErrCode error{};
    const natsStatus status =
        js_GetLastMsg(&made, m_stream.get(), m_name.c_str(), SubjectOf(key).c_str(), &options, &error);
    Last last{.message = MessagePtr(made)};
    if (status != NATS_OK && error != JSNoMessageFoundErr)
        last.why = "the cluster's engine does not tell of " + m_bucket + ": " + natsStatus_GetText(status);
    if (last.message) {
        last.sequence = natsMsg_GetSequence(made);
        last.removal = IsRemoval(made);
    }
    return last;
}

bool Stream::Purge(const std::string& key, Sequence last) const {
    const std::string subject = SubjectOf(key);
    jsOptions options;
    (void)jsOptions_Init(&options);
    options.Wait = kStep.count();
    options.Stream.Purge.Subject = subject.c_str();
    options.Stream.Purge.Sequence = last + 1;
    return js_PurgeStream(m_stream.get(), m_name.c_str(), &options, nullptr) == NATS_OK;
}

} // namespace host::cluster
