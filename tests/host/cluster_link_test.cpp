// Hosts over a real server of the message engine, and somebody else who uses it as well.

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/cluster/bucket.h"
#include "host/cluster/cameras.h"
#include "host/cluster/link.h"
#include "platform/files.h"
#include "support/temp_folder.h"

namespace host::cluster {
namespace {

using namespace std::chrono_literals;

// Wide: a sanitized program on a loaded machine.
constexpr auto kPatience = 30s;

template <class Condition>
bool Eventually(const Condition& condition) {
    const auto until = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

std::uint16_t FreePort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
    ::close(socket);
    return ntohs(address.sin_port);
}

// nats-server with JetStream, and another client of it that has not got the secret.
class ClusterLink : public testing::Test {
protected:
    ClusterLink() { Start(); }
    ~ClusterLink() override {
        m_rogue.reset();
        Kill();
    }

    void Start() {
        m_server = ::fork();
        if (m_server == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that crashes leaves no server behind
            const int quiet = ::open("/dev/null", O_RDWR);
            ::dup2(quiet, 1);
            ::dup2(quiet, 2);
            ::execlp("nats-server", "nats-server", "-a", "127.0.0.1", "-p", m_port.c_str(), "-js", "-sd",
                     m_folder.Path().c_str(), nullptr);
            ::_exit(127);
        }
    }
    void Kill() const {
        ::kill(m_server, SIGKILL);
        ::waitpid(m_server, nullptr, 0);
    }

    std::unique_ptr<Link> LinkOf(const std::string& node, const std::string& secrets = kSecret) {
        auto link = std::make_unique<Link>(LinkOptions{{"nats://127.0.0.1:1", m_url}},
                                           std::make_shared<const Sealer>(Secrets::Of(secrets), node),
                                           [](const std::string&) {});
        EXPECT_TRUE(Eventually([&] { return link->IsConnected(); }));
        return link;
    }
    std::unique_ptr<Bucket> BucketOf(Link& link, const std::string& seen = {}) const {
        auto bucket = std::make_unique<Bucket>(link, BucketOptions{"users", 1, seen}, Secret("name key"));
        EXPECT_TRUE(bucket->AwaitRead(kPatience));
        return bucket;
    }

    natsConnection* Rogue() {
        natsConnection* made = nullptr;
        if (!m_rogue) {
            EXPECT_TRUE(
                Eventually([&] { return natsConnection_ConnectTo(&made, m_url.c_str()) == NATS_OK; }));
        }
        if (made != nullptr)
            m_rogue.reset(made);
        return m_rogue.get();
    }
    JetStreamPtr RogueStream() {
        jsCtx* stream = nullptr;
        EXPECT_EQ(natsConnection_JetStream(&stream, Rogue(), nullptr), NATS_OK);
        return JetStreamPtr(stream);
    }
    // All that the engine holds of the users: subject, and bytes.
    std::vector<std::pair<std::string, std::string>> Stored() {
        const JetStreamPtr stream = RogueStream();
        std::vector<std::pair<std::string, std::string>> stored;
        jsStreamInfo* info = nullptr;
        EXPECT_EQ(js_GetStreamInfo(&info, stream.get(), "KV_users", nullptr, nullptr), NATS_OK);
        const std::uint64_t last = info->State.LastSeq;
        jsStreamInfo_Destroy(info);
        for (std::uint64_t sequence = 1; sequence <= last; ++sequence) {
            natsMsg* message = nullptr;
            if (js_GetMsg(&message, stream.get(), "KV_users", sequence, nullptr, nullptr) != NATS_OK)
                continue;
            stored.emplace_back(natsMsg_GetSubject(message), TextOf(message));
            natsMsg_Destroy(message);
        }
        return stored;
    }

    static inline const std::string kSecret = std::string(32, 's');
    const TempFolder m_folder;
    const std::string m_port = std::to_string(FreePort());
    const std::string m_url = "nats://127.0.0.1:" + m_port;
    pid_t m_server = -1;
    std::unique_ptr<natsConnection, Destroyed<&natsConnection_Destroy>> m_rogue;
};

TEST_F(ClusterLink, AnAnnouncementIsOfAHostAndForItsSubject) {
    const auto a = LinkOf("a");
    const auto b = LinkOf("b");
    std::atomic<int> heard = 0;
    const Link::Service service(*b, "morrowstream.test", [&](const Opened& said) {
        EXPECT_EQ(said.node + said.text, "ahere");
        ++heard;
    });
    const Link::Service other(*b, "morrowstream.other",
                              [](const Opened& said) { ADD_FAILURE() << said.text; });
    natsSubscription* made = nullptr;
    ASSERT_EQ(natsConnection_SubscribeSync(&made, Rogue(), "morrowstream.test"), NATS_OK);
    const SubscriptionPtr overheard(made, {Rogue()});
    ASSERT_EQ(natsConnection_Flush(Rogue()), NATS_OK);
    ASSERT_TRUE(Eventually([&] {
        a->Announce("morrowstream.test", "here");
        return heard > 0;
    }));
    EXPECT_EQ(b->Now().refused, 0U);
    natsMsg* said = nullptr;
    ASSERT_EQ(natsSubscription_NextMsg(&said, made, 5000), NATS_OK);
    const MessagePtr message(said);
    ASSERT_EQ(natsConnection_Publish(Rogue(), "morrowstream.other", natsMsg_GetData(said),
                                     natsMsg_GetDataLength(said)),
              NATS_OK);
    ASSERT_EQ(natsConnection_PublishString(Rogue(), "morrowstream.test", "here"), NATS_OK);
    EXPECT_TRUE(Eventually([&] { return b->Now().refused == 2; }));
}

TEST_F(ClusterLink, AnAnswerIsForItsQuestionAlone) {
    const auto a = LinkOf("a");
    const auto b = LinkOf("b");
    const Link::Service service(*b, "morrowstream.test.b",
                                [](const Opened& question, const Link::Service::Reply& reply) {
                                    if (question.text != "silence")
                                        reply(question.node + " asked " + question.text, 7);
                                });
    // Whoever listens to all that is said, and answers each question with what was answered before.
    struct Overheard {
        std::mutex mutex;
        std::vector<std::string> said;
        std::string answer;
    } overheard;
    natsSubscription* made = nullptr;
    ASSERT_EQ(natsConnection_Subscribe(
                  &made, Rogue(), ">",
                  [](natsConnection* engine, natsSubscription*, natsMsg* message, void* closure) {
                      auto& heard = *static_cast<Overheard*>(closure);
                      const std::lock_guard guard(heard.mutex);
                      heard.said.emplace_back(TextOf(message));
                      const std::string& wrong = heard.answer.empty() ? heard.said.back() : heard.answer;
                      if (const char* const reply = natsMsg_GetReply(message))
                          (void)natsConnection_Publish(engine, reply, wrong.data(),
                                                       static_cast<int>(wrong.size()));
                      else if (heard.answer.empty())
                          heard.answer = heard.said.back();
                      natsMsg_Destroy(message);
                  },
                  &overheard),
              NATS_OK);
    const SubscriptionPtr listening(made, {Rogue()});
    ASSERT_EQ(natsConnection_Flush(Rogue()), NATS_OK);
    const auto ask = [&](const std::string& text, std::uint64_t epoch, std::chrono::milliseconds within,
                         const std::string& node = "b") {
        std::promise<std::string> told;
        a->Ask("morrowstream.test." + node, text, epoch, within, [&](const std::optional<Opened>& answer) {
            told.set_value(answer ? answer->node + ": " + answer->text : "-");
        });
        return told.get_future().get();
    };
    EXPECT_EQ(ask("one", 7, kPatience), "b: a asked one");
    EXPECT_EQ(ask("two", 7, kPatience), "b: a asked two");
    EXPECT_EQ(ask("three", 6, 300ms), "-") << "an answer of another epoch";
    EXPECT_EQ(ask("silence", 7, 100ms), "-");
    EXPECT_EQ(ask("anybody?", 7, 300ms, "c"), "-");
    EXPECT_GE(a->Now().refused, 4U);
    const std::string forged = "one";
    (void)natsConnection_Publish(Rogue(), "morrowstream.test.b", forged.data(),
                                 static_cast<int>(forged.size()));
    EXPECT_TRUE(Eventually([&] { return b->Now().refused > 0; }));
    const std::lock_guard guard(overheard.mutex);
    for (const std::string& text : overheard.said)
        EXPECT_EQ(text.find("asked"), std::string::npos);
}

// What a listener was told, "NAME=VALUE " each, "-NAME " of what is gone; a "|" for each call.
struct Told {
    Store::Listener Listener() {
        return [this](std::span<const Store::Update> updates) {
            const std::lock_guard guard(mutex);
            text += "|";
            for (const auto& update : updates)
                text += update.value ? update.key + "=" + *update.value + " " : "-" + update.key + " ";
        };
    }
    bool Ends(std::string_view with) {
        return Eventually([&] {
            const std::lock_guard guard(mutex);
            return text.ends_with(with);
        });
    }
    std::mutex mutex;
    std::string text;
};

TEST_F(ClusterLink, ABucketIsOneStoreForAll) {
    using Result = Store::Result;
    const auto linkA = LinkOf("a");
    const auto linkB = LinkOf("b");
    Told early;
    Bucket a(*linkA, {"users", 1, ""}, Secret("name key"));
    const auto watchA = a.Watch(early.Listener());
    EXPECT_TRUE(early.Ends("|")) << early.text;
    const std::string strange("a name / \0 with anything", 24);
    const auto put = a.Put(strange, "one", 0);
    ASSERT_EQ(put.result, Result::Done) << put.why;
    EXPECT_TRUE(early.Ends("|" + strange + "=one "));
    const auto b = BucketOf(*linkB);
    Told late;
    const auto watchB = b->Watch(late.Listener());
    EXPECT_TRUE(late.Ends("|" + strange + "=one "));

    const auto again = b->Put(strange, "two", 0);
    EXPECT_EQ(again.result, Result::Conflict);
    EXPECT_EQ(again.present, (Store::Entry{"one", put.revision}));
    const auto second = b->Put(strange, "two", put.revision);
    ASSERT_EQ(second.result, Result::Done);
    EXPECT_GT(second.revision, put.revision);
    EXPECT_EQ(a.Put(strange, "three", put.revision).present, (Store::Entry{"two", second.revision}));
    EXPECT_EQ(a.Get(strange).entry, (Store::Entry{"two", second.revision}));
    EXPECT_EQ(a.Remove(strange, put.revision).result, Result::Conflict);
    EXPECT_EQ(a.Remove(strange, second.revision).result, Result::Done);
    EXPECT_FALSE(b->Get(strange).entry);
    EXPECT_EQ(b->Put(strange, "three", second.revision).result, Result::Conflict);
    EXPECT_TRUE(late.Ends("|-" + strange + " ")) << late.text;
    // Both at once: one is first.
    const auto three = b->Put(strange, "three", 0);
    ASSERT_EQ(three.result, Result::Done);
    EXPECT_EQ(a.Put(strange, "four", 0).present, (Store::Entry{"three", three.revision}));
    EXPECT_TRUE(early.Ends("|" + strange + "=three "));
    // All limits of a store, and none of the engine's.
    const std::string large(Store::kMaxValueBytes, 'x');
    EXPECT_EQ(a.Put(std::string(Store::kMaxKeyBytes, 'k'), large, 0).result, Result::Done);
    EXPECT_EQ(b->Get(std::string(Store::kMaxKeyBytes, 'k')).entry->value, large);
    for (const auto& [key, value] : std::map<std::string, std::string>{
             {"", "x"}, {std::string(Store::kMaxKeyBytes + 1, 'k'), "x"}, {"k", large + "x"}})
        EXPECT_EQ(a.Put(key, value, 0).result, Result::Refused);

    // A server that dies, and comes back with what it had.
    Kill();
    EXPECT_TRUE(Eventually([&] { return !linkA->IsConnected(); }));
    EXPECT_EQ(a.Put("more", "x", 0).result, Result::Unreachable);
    EXPECT_EQ(a.Get("more").result, Result::Unreachable);
    Start();
    EXPECT_TRUE(Eventually([&] { return a.Put("more", "x", 0).result == Result::Done; }));
    EXPECT_TRUE(late.Ends("|more=x ")) << "the watch goes on";
    EXPECT_EQ(linkA->Now().server, "127.0.0.1:" + m_port);
    EXPECT_GE(linkA->Now().connections, 1U);
    // Who has a new secret, and the former one as the second, seals anew what is there.
    const auto linkC = LinkOf("c", std::string(32, 't') + "\n" + kSecret);
    const auto linkD = LinkOf("d", std::string(32, 't'));
    const auto c = BucketOf(*linkC);
    const auto d = BucketOf(*linkD);
    EXPECT_TRUE(Eventually([&] {
        return d->Get("more").entry.value_or(Store::Entry{}).value == "x" &&
               d->Get(strange).entry.has_value();
    }));
}

TEST_F(ClusterLink, WhoHasNotTheSecretReadsNothingAndBringsNothingBack) {
    const std::string seen = m_folder.File("seen");
    const auto linkA = LinkOf("a");
    const auto linkB = LinkOf("b");
    auto a = BucketOf(*linkA);
    auto b = BucketOf(*linkB);
    const auto one = a->Put("admin", "a former password", 0);
    ASSERT_EQ(one.result, Store::Result::Done);
    ASSERT_EQ(a->Put("admin", "the password", one.revision).result, Store::Result::Done);
    const auto gone = a->Put("guard", "was thrown out", 0);
    ASSERT_EQ(a->Remove("guard", gone.revision).result, Store::Result::Done);
    const auto stored = Stored();
    ASSERT_EQ(stored.size(), 4U);
    for (const auto& [subject, bytes] : stored) {
        for (const char* const secret : {"admin", "guard", "passw", "thrown", "name key"})
            EXPECT_EQ((subject + bytes).find(secret), std::string::npos) << secret;
    }
    const JetStreamPtr stream = RogueStream();
    const std::string& admin = stored[0].first;
    const std::string& former = stored[0].second;
    const std::string& guard = stored[2].first;
    const std::string& thrownOut = stored[2].second;
    const auto put = [&](const std::string& subject, const std::string& bytes) {
        EXPECT_EQ(js_Publish(nullptr, stream.get(), subject.c_str(), bytes.data(),
                             static_cast<int>(bytes.size()), nullptr, nullptr),
                  NATS_OK);
    };
    const auto purge = [&](const std::string& subject) {
        jsOptions options;
        (void)jsOptions_Init(&options);
        options.Stream.Purge.Subject = subject.c_str();
        EXPECT_EQ(js_PurgeStream(stream.get(), "KV_users", &options, nullptr), NATS_OK);
    };
    const auto marker = [&](const std::string& subject) {
        kvStore* store = nullptr;
        ASSERT_EQ(js_KeyValue(&store, stream.get(), "users"), NATS_OK);
        EXPECT_EQ(kvStore_Delete(store, subject.substr(subject.rfind('.') + 1).c_str()), NATS_OK);
        kvStore_Destroy(store);
    };
    Told told;
    auto watch = b->Watch(told.Listener());
    const std::pair<const char*, std::function<void()>> deeds[] = {
        {"nonsense", [&] { put(admin, "nonsense"); }},
        {"a former value", [&] { put(admin, former); }},
        {"another's value", [&] { put(admin, thrownOut); }},
        {"one that was removed", [&] { put(guard, thrownOut); }},
        {"a bare removal", [&] { marker(admin); }},
        {"a removal that leaves nothing", [&] { purge(admin); }},
        {"nothing of what was removed, and that again",
         [&] {
             purge(guard);
             put(guard, thrownOut);
         }},
    };
    for (const auto& [what, deed] : deeds) {
        const std::uint64_t before = linkB->Now().refused;
        deed();
        if (std::string_view(what).find("leaves nothing") == std::string_view::npos) {
            EXPECT_TRUE(Eventually([&] { return linkB->Now().refused > before; })) << what;
        }
        EXPECT_EQ(a->Get("admin").entry.value_or(Store::Entry{}).value, "the password") << what;
        EXPECT_FALSE(a->Get("guard").entry) << what;
    }
    // It is put right for those as well who come only now.
    EXPECT_TRUE(Eventually([&] {
        const auto linkC = LinkOf("c");
        const auto c = BucketOf(*linkC);
        return c->Get("admin").entry.value_or(Store::Entry{}).value == "the password" &&
               !c->Get("guard").entry;
    }));
    {
        const std::lock_guard holding(told.mutex);
        EXPECT_EQ(told.text.find("former"), std::string::npos);
        EXPECT_EQ(told.text.find("thrown"), std::string::npos);
        EXPECT_EQ(told.text.find("-admin"), std::string::npos);
    }
    // No host is there, and the former value covers all that the engine keeps: who has seen the newest once
    // is not taken in all the same.
    a = BucketOf(*linkA, seen);
    a.reset();
    watch.reset();
    b.reset();
    for (int times = 0; times < 6; ++times)
        put(admin, former);
    a = BucketOf(*linkA, seen);
    EXPECT_FALSE(a->Get("admin").entry);
    EXPECT_EQ(a->Put("admin", "a new password", 0).result, Store::Result::Done);
    EXPECT_EQ(BucketOf(*linkB)->Get("admin").entry.value_or(Store::Entry{}).value, "a new password");
    // A bucket that is taken away as a whole, and made anew with a former value: hosts that know more put
    // that there, also what has been put since, and whoever comes only now is told so.
    ASSERT_EQ(js_DeleteStream(stream.get(), "KV_users", nullptr, nullptr), NATS_OK);
    EXPECT_TRUE(Eventually([&] {
        return js_Publish(nullptr, stream.get(), admin.c_str(), former.data(),
                          static_cast<int>(former.size()), nullptr, nullptr) == NATS_OK;
    }));
    EXPECT_TRUE(Eventually([&] {
        return BucketOf(*linkB)->Get("admin").entry.value_or(Store::Entry{}).value == "a new password";
    }));
    EXPECT_EQ(a->Get("admin").entry.value_or(Store::Entry{}).value, "a new password");
}

// As servers of the engine do that die or stand still: what was confirmed is not there any more, or stands
// under other numbers, and what comes next has numbers that were there before.
TEST_F(ClusterLink, WhatTheEngineLosesIsPutBack) {
    namespace fs = std::filesystem;
    const std::string seen = m_folder.File("seen");
    const fs::path disk = m_folder.File("jetstream");
    const fs::path former = m_folder.File("former");
    const auto linkA = LinkOf("a");
    const auto linkB = LinkOf("b");
    auto a = BucketOf(*linkA, seen);
    const auto puts = [](Bucket& bucket, const char* key, const char* value, Store::Revision follows) {
        Store::Outcome outcome;
        EXPECT_TRUE(Eventually([&] {
            outcome = bucket.Put(key, value, follows);
            return outcome.result == Store::Result::Done;
        })) << key;
        return outcome.revision;
    };
    const auto reads = [](Bucket& bucket, const std::string& key) {
        return bucket.Get(key).entry.value_or(Store::Entry{}).value;
    };
    const auto one = puts(*a, "yard", "one", 0);
    (void)puts(*a, "gate", "here", 0);
    Kill();
    fs::copy(disk, former, fs::copy_options::recursive);
    Start();
    const auto two = puts(*a, "yard", "two", one);
    for (const char* const key : {"tor", "door", "porch"})
        (void)puts(*a, key, "new", 0);
    Kill();
    fs::remove_all(disk);
    fs::rename(former, disk);
    Start();
    // Somebody who has heard of nothing of that has the numbers again, and is believed.
    {
        const auto b = BucketOf(*linkB);
        (void)puts(*b, "lamp", "b's", 0);
        Told told;
        const auto watch = a->Watch(told.Listener());
        for (const std::string entry : {"yard=two ", "gate=here ", "tor=new ", "porch=new ", "lamp=b's "}) {
            const std::string key = entry.substr(0, entry.find('='));
            for (Bucket* const host : {a.get(), b.get()})
                EXPECT_TRUE(Eventually([&] { return key + "=" + reads(*host, key) + " " == entry; })) << key;
            EXPECT_TRUE(Eventually([&] {
                const std::lock_guard guard(told.mutex);
                return told.text.find(entry) != std::string::npos;
            })) << key;
        }
    }
    const auto entry = a->Get("yard").entry;
    ASSERT_TRUE(entry);
    EXPECT_GT(entry->revision, two);

    // Other numbers, and the same values: nothing is wrong with them, and each has its revision.
    a.reset();
    const JetStreamPtr stream = RogueStream();
    const auto stored = Stored();
    ASSERT_TRUE(
        Eventually([&] { return js_PurgeStream(stream.get(), "KV_users", nullptr, nullptr) == NATS_OK; }));
    for (const auto& [subject, bytes] : stored)
        ASSERT_EQ(js_Publish(nullptr, stream.get(), subject.c_str(), bytes.data(),
                             static_cast<int>(bytes.size()), nullptr, nullptr),
                  NATS_OK);
    const std::uint64_t refused = linkA->Now().refused;
    a = BucketOf(*linkA, seen);
    EXPECT_EQ(a->Get("yard").entry, entry);
    EXPECT_EQ(linkA->Now().refused, refused);
    EXPECT_GT(puts(*a, "yard", "three", entry->revision), entry->revision);
}

TEST_F(ClusterLink, ARemovalIsForgottenAndNotWhatItRemoved) {
    const auto linkA = LinkOf("a");
    const auto linkB = LinkOf("b");
    const BucketOptions soon{.name = "users", .replicas = 1, .seen = "", .removalsFor = 1ms};
    Bucket a(*linkA, soon, Secret("name key"));
    const auto b = BucketOf(*linkB);
    ASSERT_TRUE(a.AwaitRead(kPatience));
    const auto stays = a.Put("stays", "here", 0);
    const auto gone = a.Put("guard", "was thrown out", 0);
    const auto recorded = Stored();
    ASSERT_EQ(recorded.size(), 2U);
    const auto& [subject, bytes] = recorded[1];
    ASSERT_EQ(a.Remove("guard", gone.revision).result, Store::Result::Done);
    const auto holds = [&, &subject = subject] {
        const auto stored = Stored();
        return std::ranges::count(stored, subject, [](const auto& one) { return one.first; });
    };
    EXPECT_TRUE(Eventually([&] { return holds() == 0; }));
    // Somebody has kept the value, and a host comes that has never heard of it; the others know as well.
    const JetStreamPtr stream = RogueStream();
    ASSERT_EQ(js_Publish(nullptr, stream.get(), subject.c_str(), bytes.data(), static_cast<int>(bytes.size()),
                         nullptr, nullptr),
              NATS_OK);
    const auto linkC = LinkOf("c");
    const auto c = BucketOf(*linkC);
    for (Bucket* const host : {&a, b.get(), c.get()}) {
        EXPECT_FALSE(host->Get("guard").entry);
        EXPECT_EQ(host->Get("stays").entry, (Store::Entry{"here", stays.revision}));
    }
    // It may come back in order; and what was there all the time may change.
    const auto back = c->Put("guard", "is back", 0);
    ASSERT_EQ(back.result, Store::Result::Done) << back.why;
    EXPECT_EQ(b->Put("stays", "still", stays.revision).result, Store::Result::Done);
    for (Bucket* const host : {&a, b.get(), c.get()}) {
        EXPECT_EQ(host->Get("guard").entry.value_or(Store::Entry{}).value, "is back");
        EXPECT_EQ(host->Get("stays").entry.value_or(Store::Entry{}).value, "still");
    }
    Told told;
    const auto watch = c->Watch(told.Listener());
    EXPECT_EQ(told.text.find("floor"), std::string::npos);
}

TEST_F(ClusterLink, ACameraIsAtOneHostAndSeenFromAll) {
    const auto linkA = LinkOf("a");
    const auto linkB = LinkOf("b");
    const auto camerasOf = [](Link& link) {
        std::vector<std::shared_ptr<Store>> stores;
        for (const char* const name : {"nodes", "owners"}) {
            auto bucket = std::make_shared<Bucket>(link, BucketOptions{name, 1, ""}, Secret("name key"));
            EXPECT_TRUE(bucket->AwaitRead(kPatience));
            stores.push_back(std::move(bucket));
        }
        return std::make_unique<Cameras>(link, stores[0], stores[1]);
    };
    auto a = camerasOf(*linkA);
    const auto b = camerasOf(*linkB);
    EXPECT_THROW((void)camerasOf(*LinkOf("a")), LinkError) << "a name that is in use";
    std::string jpeg = "a picture ";
    for (int i = 0; i < 20'000; ++i)
        jpeg += static_cast<char>(i);
    a->Serve([&](const std::string& camera, std::uint64_t after, const ClusterCameras::Reply& reply) {
        reply({.number = after + 1,
               .unixMs = 3,
               .ageMs = 4,
               .frames = 5,
               .failed = 6,
               .milliFps = 7,
               .jpeg = camera + jpeg});
    });
    a->Claim("yard");
    ClusterCameras::Place place;
    ASSERT_TRUE(Eventually([&] {
        const auto orders = b->Look({});
        const auto found = orders.elsewhere.find("yard");
        if (found != orders.elsewhere.end())
            place = found->second;
        return !place.node.empty();
    }));
    EXPECT_EQ(place.node, "a");
    EXPECT_TRUE(a->Look({"yard"}).elsewhere.empty());
    const auto pull = [&](const ClusterCameras::Place& from, std::uint64_t after) {
        std::promise<std::optional<CameraPicture>> told;
        b->Pull("yard", from, after,
                [&](std::optional<CameraPicture> picture) { told.set_value(std::move(picture)); });
        return told.get_future().get();
    };
    const auto picture = pull(place, 41);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->number, 42U);
    EXPECT_EQ(picture->unixMs + picture->ageMs + picture->frames + picture->failed + picture->milliFps, 25U);
    EXPECT_EQ(picture->jpeg, "yard" + jpeg) << "byte for byte";
    EXPECT_EQ(pull({"a", place.epoch + 1}, 0).value_or(CameraPicture{.number = 1}).jpeg, "")
        << "of another epoch";
    EXPECT_FALSE(pull({"c", place.epoch}, 0)) << "of a host that is not there";

    // The phone comes to the other host: the upload at the first one ends.
    b->Claim("yard");
    ClusterCameras::Orders orders;
    EXPECT_TRUE(Eventually([&] {
        orders = a->Look({"yard"});
        return orders.elsewhere.contains("yard") && orders.elsewhere["yard"].epoch > place.epoch;
    }));
    EXPECT_EQ(orders.end, std::vector<std::string>{"yard"});
    EXPECT_EQ(orders.elsewhere["yard"].node, "b");
    EXPECT_EQ(b->Nodes(), (std::vector<std::string>{"a", "b"}));
    a.reset();
    EXPECT_TRUE(Eventually([&] { return b->Nodes() == std::vector<std::string>{"b"}; }));
}

// Owners whose entries cannot be put, as while the engine's servers choose who leads.
struct NoOwners final : Store {
    Reading Get(std::string_view) override { return {Result::Unreachable, std::nullopt, {}}; }
    std::vector<Outcome> Write(std::span<const Change> changes) override {
        return std::vector<Outcome>(changes.size(), Outcome{.result = Result::Unreachable});
    }
    Watching Watch(Listener listener) override {
        listener({});
        return std::make_shared<const int>();
    }
};

TEST_F(ClusterLink, ACameraWithoutAnEntryIsSeenFromAll) {
    const auto linkA = LinkOf("a");
    const auto linkB = LinkOf("b");
    const auto camerasOf = [](Link& link) {
        auto nodes = std::make_shared<Bucket>(link, BucketOptions{"nodes", 1, ""}, Secret("name key"));
        EXPECT_TRUE(nodes->AwaitRead(kPatience));
        return std::make_unique<Cameras>(link, nodes, std::make_shared<NoOwners>());
    };
    const auto a = camerasOf(*linkA);
    const auto b = camerasOf(*linkB);
    a->Serve([](const std::string& camera, std::uint64_t after, const ClusterCameras::Reply& reply) {
        reply({.number = after + 1, .jpeg = camera});
    });
    a->Claim("yard");
    ASSERT_TRUE(Eventually([&] {
        (void)a->Look({"yard"});
        return b->Look({}).elsewhere.contains("yard");
    }));
    const auto pull = [&](const std::string& camera) {
        std::promise<std::optional<CameraPicture>> told;
        b->Pull(camera, b->Look({}).elsewhere["yard"], 0,
                [&](std::optional<CameraPicture> picture) { told.set_value(std::move(picture)); });
        return told.get_future().get().value_or(CameraPicture{.jpeg = "no answer"}).jpeg;
    };
    EXPECT_EQ(pull("yard"), "yard");
    EXPECT_EQ(pull("gate"), "") << "whose phone is not here";
    // The phone goes, and nobody says that it is there.
    EXPECT_TRUE(Eventually([&] {
        (void)a->Look({});
        return b->Look({}).elsewhere.empty();
    }));
}

} // namespace
} // namespace host::cluster
