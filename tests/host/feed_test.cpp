// What becomes of a camera's frames: figures, encoding, and cameras that come and go.

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include <sys/socket.h>

#include "host/base/workers.h"
#include "host/feed/connection_events.h"
#include "host/feed/feed_table.h"
#include "host/feed/meters.h"
#include "host/feed/phone_session.h"
#include "host/peers/peers.h"
#include "support/Frames.h"
#include "support/Jpeg.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using platform::Bstr;
using platform::ComObject;
using support::MakeBlock;

struct SequenceTap : PictureTap {
    std::vector<std::uint64_t> seen;
    void OnPicture(const kit::PicturePtr& picture, std::uint64_t connection) noexcept override {
        EXPECT_EQ(connection, 0U);
        seen.push_back(picture->Sequence());
    }
};

TEST(CameraFeed, CountsKeepsTheNewestAndEncodesOnceAndOnlyForWatchers) {
    const auto tap = std::make_shared<SequenceTap>();
    const FeedPtr feed = ComObject<CameraFeed>::Create(7U, "yard", Pictures::PassedOn, CameraFeed::Taps{tap});
    const auto show = [&](std::string block) {
        EXPECT_EQ(feed->OnVideoFrame(ComObject<support::Frame>::Create(std::move(block)).Get()), S_OK);
    };
    EXPECT_FALSE(feed->Newest() || feed->Figures().age);
    const auto before = kit::Picture::EncodedCount();
    Wakeup wakeup;
    {
        const FeedWatch watch(feed, wakeup);
        show(MakeBlock(32, 16));
        EXPECT_EQ(WaitFor({.wakeup = &wakeup}, Clock::now()), Waited::Woken);
        wakeup.Clear();
        show("");                              // could not be decoded
        show(MakeBlock(32, 16).substr(0, 99)); // says more than it holds
        EXPECT_FALSE(wakeup.IsSet()) << "nothing new to see";
        EXPECT_EQ(feed->Newest()->Sequence(), 1U);
        show(MakeBlock(64, 48, true));
        EXPECT_TRUE(wakeup.IsSet());
    }
    wakeup.Clear();
    for (int i = 0; i < 20; ++i)
        show(MakeBlock(64, 48, true));
    EXPECT_FALSE(wakeup.IsSet()) << "nobody watches any more";
    EXPECT_EQ(kit::Picture::EncodedCount(), before) << "nobody asked for a picture";
    EXPECT_EQ(feed->Newest()->Sequence(), 22U);
    EXPECT_TRUE(tap->seen.size() == 22 && tap->seen.back() == 22) << "a tap misses none";
    {
        std::vector<std::jthread> watchers;
        watchers.reserve(8);
        for (int i = 0; i < 8; ++i)
            watchers.emplace_back([&] { EXPECT_EQ(support::DecodeJpeg(feed->Newest()->Jpeg()).width, 64); });
    }
    EXPECT_EQ(kit::Picture::EncodedCount(), before + 1);
    const CameraFigures figures = feed->Figures();
    EXPECT_TRUE(figures.frames == 22 && figures.failed == 2 && figures.width == 64 && figures.height == 48);
    EXPECT_LT(figures.age.value(), 5.0);
}

// Of a phone's file goes on what may, once for all; what may not, and everything where it is wished, is
// encoded.
TEST(CameraFeed, PassesThePhonesOwnPictureOn) {
    const std::string clean = support::MakeJpeg(64, 48);
    std::string file = clean;
    file.insert(2, std::string("\xFF\xE1\0\x0E"
                               "Exif\0\0hidden",
                               16))
        .append("behind the end");
    std::string odd = clean;
    odd.insert(odd.size() - 2, std::string("\xFF\xFE\0\2", 4)); // a comment behind the scan
    const auto show = [&](CameraFeed& feed, const std::string& sent) {
        EXPECT_EQ(feed.OnVideoFrame(ComObject<support::LentFrame>::Create(
                                        MakeBlock(64, 48), sent, 5'000'000'000, 1'700'000'000'123'456'789)
                                        .Get()),
                  S_OK);
        return feed.Newest();
    };
    const FeedPtr feed = ComObject<CameraFeed>::Create(7U, "yard");
    auto encoded = kit::Picture::EncodedCount();
    const auto passedOn = kit::Picture::PassedOnCount();
    {
        const kit::PicturePtr picture = show(*feed, file);
        EXPECT_EQ(picture->Arrival(), Clock::time_point(5s));
        EXPECT_EQ(picture->ArrivalUnixMs(), 1'700'000'000'123U);
        EXPECT_EQ(std::string(picture->Block().begin(), picture->Block().end()), MakeBlock(64, 48));
        std::vector<std::jthread> watchers;
        watchers.reserve(4);
        for (int i = 0; i < 4; ++i)
            watchers.emplace_back([&] { EXPECT_EQ(picture->Jpeg(), clean); });
    }
    EXPECT_EQ(kit::Picture::PassedOnCount(), passedOn + 1);
    EXPECT_EQ(kit::Picture::EncodedCount(), encoded);
    const FeedPtr again = ComObject<CameraFeed>::Create(8U, "gate", Pictures::Encoded);
    for (const kit::PicturePtr& picture :
         {show(*feed, odd), show(*feed, "no file"), show(*feed, ""), show(*again, clean)}) {
        EXPECT_EQ(support::DecodeJpeg(picture->Jpeg()).width, 64);
        EXPECT_NE(picture->Jpeg(), clean);
        EXPECT_EQ(kit::Picture::EncodedCount(), ++encoded);
    }
    EXPECT_EQ(feed->OnVideoFrame(ComObject<support::LentFrame>::Create("", clean, 1, 1).Get()), S_OK);
    EXPECT_EQ(feed->Figures().failed, 1U);
    EXPECT_EQ(support::LentFrame::s_alive, 2) << "the newest of each";
    feed->LetGo();
    EXPECT_TRUE(!feed->Newest() && support::LentFrame::s_alive == 1);
}

// Hosts of a cluster within this process: each has a camera "yard".
struct Joined {
    class Host final : public ClusterCameras {
    public:
        Host(Joined& all, std::string node) : m_all(all), m_node(std::move(node)) {}
        void Claim(const std::string& camera) override {
            const std::lock_guard guard(m_all.mutex);
            m_all.owners[camera] = {m_node, ++m_all.epoch};
        }
        Orders Look(const std::set<std::string>& receiving) override {
            const std::lock_guard guard(m_all.mutex);
            Orders orders;
            for (const auto& [camera, place] : m_all.owners) {
                if (place.node == m_node)
                    continue;
                orders.elsewhere.emplace(camera, place);
                if (receiving.contains(camera))
                    orders.end.push_back(camera);
            }
            return orders;
        }
        void Pull(const std::string& camera, const Place& place, std::uint64_t after, Then then) override {
            ++pulls;
            Host& owner = *m_all.hosts.at(place.node);
            if (owner.denies)
                return then(CameraPicture{});
            owner.m_respond(camera, after,
                            [then = std::move(then)](const CameraPicture& picture) { then(picture); });
        }
        void Serve(Respond respond) override {
            if (respond) // questions may still come while a host ends
                m_respond = std::move(respond);
        }
        std::vector<std::string> Nodes() const override { return {}; }
        std::vector<std::string> Silent() const override { return {}; }
        std::atomic<int> pulls{0};
        std::atomic<bool> denies{false}; // says at once that the camera is not its own

    private:
        Joined& m_all;
        const std::string m_node;
        Respond m_respond;
    };
    std::mutex mutex;
    std::map<std::string, ClusterCameras::Place> owners;
    std::uint64_t epoch = 0;
    std::map<std::string, Host*> hosts;
};

struct JoinedHost {
    JoinedHost(Joined& all, const std::string& node)
        : cameras(new Joined::Host(all, node)), peers(*table, std::unique_ptr<ClusterCameras>(cameras)) {
        all.hosts[node] = cameras;
        table->SetSource(source);
        EXPECT_EQ(table->OnCamAdded(Bstr(u"yard").Get()), S_OK);
        feed = table->Find("yard");
        peers.Begin();
    }
    // What its own phone sends.
    void Receive(const std::string& file, std::uint64_t unixMs) const {
        const auto now = std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
        EXPECT_EQ(feed->OnVideoFrame(
                      ComObject<support::LentFrame>::Create(MakeBlock(64, 48), file, now,
                                                            static_cast<std::int64_t>(unixMs) * 1'000'000)
                          .Get()),
                  S_OK);
    }
    // Until it is there for those who look.
    [[nodiscard]] bool Shows(std::uint64_t unixMs) const {
        for (int tries = 0; tries < 3000; ++tries, std::this_thread::sleep_for(10ms)) {
            if (const kit::PicturePtr newest = feed->Newest(); newest && newest->ArrivalUnixMs() == unixMs)
                return true;
        }
        return false;
    }

    const support::VideoSourcePtr source = ComObject<support::VideoSource>::Create();
    const support::CamPtr cam = source->Put("yard");
    const FeedTablePtr table = ComObject<FeedTable>::Create();
    Joined::Host* const cameras;
    Peers peers;
    FeedPtr feed;
};

TEST(Peers, ACameraOfAnotherHostIsSeenWhileSomebodyLooks) {
    Joined all;
    JoinedHost a(all, "a");
    JoinedHost b(all, "b");
    const std::string clean = support::MakeJpeg(64, 48);
    std::string file = clean;
    file.insert(2, std::string("\xFF\xE1\0\x0E"
                               "Exif\0\0hidden",
                               16));
    a.peers.Claim("yard");
    a.cam->SetPhone(true);
    a.table->PollConnections();
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor phone(ends[1]);
    const auto upload = std::make_shared<PhoneSession>("yard", platform::AdoptSocket(ends[0]));
    a.feed->SessionBegan(Clock::now(), "phone", upload);
    a.Receive(file, 1000);
    for (int tries = 0; tries < 3000 && !b.feed->Figures().connected; ++tries)
        std::this_thread::sleep_for(10ms);
    EXPECT_EQ(b.feed->Figures().host, "a");
    EXPECT_TRUE(a.feed->Figures().host.empty());
    EXPECT_FALSE(b.feed->HasPicture());
    EXPECT_EQ(b.cameras->pulls, 0) << "nobody looks";

    ASSERT_TRUE(b.Shows(1000));
    EXPECT_EQ(b.feed->Newest()->Jpeg(), clean) << "byte for byte";
    EXPECT_EQ(b.feed->Newest()->Layout(), (kit::PlaneLayout{64, 48, false}));
    EXPECT_EQ(b.feed->Figures().frames, 1U);
    a.Receive(file, 1001);
    ASSERT_TRUE(b.Shows(1001));
    EXPECT_EQ(b.feed->Newest()->Sequence(), 2U);

    // The phone comes to b: its upload at a ends, and a shows what b gets, but never what b had of a.
    a.Receive(file, 1002);
    b.peers.Claim("yard");
    char byte = 0;
    EXPECT_EQ(::recv(phone.Get(), &byte, 1, 0), 0) << "the end of the upload";
    for (int tries = 0; tries < 3000 && !b.feed->Figures().host.empty(); ++tries)
        std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(b.feed->Figures().host.empty());
    a.cam->SetPhone(false);
    a.table->PollConnections();
    EXPECT_TRUE(a.Shows(1002));
    for (int tries = 0; tries < 3000 && a.cameras->pulls < 2; ++tries)
        EXPECT_TRUE(a.Shows(1002));
    b.Receive(file, 2000);
    EXPECT_TRUE(a.Shows(2000));
    EXPECT_GT(b.feed->Newest()->Sequence(), 2U);
    EXPECT_EQ(a.feed->Figures().host, "b");
    // One that has lost the camera, before the others hear of it, is asked some times a second.
    b.cameras->denies = true;
    const auto asks = [&](int times) {
        for (const int before = a.cameras->pulls; a.cameras->pulls < before + times;)
            EXPECT_TRUE(a.Shows(2000));
    };
    asks(1); // behind one that waits for a picture
    const auto since = Clock::now();
    asks(4);
    EXPECT_GT(Clock::now() - since, 800ms);
    {
        const std::lock_guard guard(all.mutex);
        all.owners.clear();
    }
    for (int tries = 0; tries < 3000 && !a.feed->Figures().host.empty(); ++tries)
        std::this_thread::sleep_for(10ms);
    // A host that slept takes no picture before it has looked whose the camera is.
    struct Asleep : CameraOwners {
        Asleep() { SetAwake(Clock::now() - 3s); }
        void Claim(const std::string&) override {}
    } asleep;
    const FeedPtr feed =
        ComObject<CameraFeed>::Create(9U, "gate", Pictures::PassedOn, CameraFeed::Taps{}, &asleep);
    EXPECT_EQ(feed->OnVideoFrame(ComObject<support::Frame>::Create(MakeBlock(32, 16)).Get()), S_OK);
    EXPECT_FALSE(feed->HasPicture());
}

TEST(RateMeter, FollowsTheRateAndFallsWhenPicturesStop) {
    const Clock::time_point t = Clock::now();
    struct Case {
        int pictures;
        Clock::duration apart, asked;
        double rate;
    };
    for (const Case& c : {Case{1, 0ms, 0ms, 0}, // one picture is no rate
                          {3, 0ms, 0ms, 0},     // nor are some at one moment
                          {101, 100ms, 10150ms, 10},
                          {101, 100ms, 16s, 0},
                          {2000, 2ms, 3998ms, 500}}) { // more in the window than are remembered
        RateMeter meter;
        for (int i = 0; i < c.pictures; ++i)
            meter.Add(t + i * c.apart);
        EXPECT_NEAR(meter.PerSecond(t + c.asked), c.rate, c.rate / 500) << c.pictures;
    }
}

TEST(ConnectionEvents, TheFirstHostThatLivesTellsOfOneThatDied) {
    const auto source = ComObject<support::VideoSource>::Create();
    const FeedTablePtr table = ComObject<FeedTable>::Create();
    const support::CamPtr cams[] = {source->Put("gate"), source->Put("yard"), source->Put("zoo")};
    table->SetSource(platform::ComPtr<IVideoSource>(source.Get()));
    for (const char16_t* name : {u"yard", u"zoo"})
        ASSERT_EQ(table->OnCamAdded(Bstr(name).Get()), S_OK);
    const auto setElsewhere = [&](const std::optional<Elsewhere>& elsewhere) {
        for (const char* name : {"yard", "zoo"})
            table->SetElsewhere(*table->Find(name), elsewhere);
    };
    // What each host has told within a minute of the death of b, or of the phone's leave.
    const auto tells = [&](const char* self, bool dies) {
        EventLog log("");
        ConnectionEvents events(log);
        Clock::time_point now{1h};
        EXPECT_EQ(table->OnCamAdded(Bstr(u"gate").Get()), S_OK);
        setElsewhere(Elsewhere{.node = "b"});
        events.Look(*table, {self, {"a", "b", "c"}, {}}, now);
        setElsewhere(std::nullopt);
        const LiveHosts after =
            dies ? LiveHosts{self, {"a", "c"}, {"b"}} : LiveHosts{self, {"a", "b", "c"}, {}};
        for (int second = 0; second < 60; ++second) {
            if (second == 1) { // while the others' losses are not told of yet
                EXPECT_EQ(table->OnCamRemoved(Bstr(u"gate").Get()), S_OK);
            }
            events.Look(*table, after, now += 1s);
        }
        events.Look(*table, {self, {"a", "b", "c"}, {}}, now += 1s);
        std::string told;
        for (const EventPtr& event : log.After(0, 99)) {
            auto details = event->details;
            told += std::string(WordOf(event->kind)) + " " + event->camera + details["host"] + " ";
        }
        return told;
    };
    EXPECT_EQ(tells("a", true), "host-lost b camera-lost yard camera-lost zoo host-back b ");
    EXPECT_EQ(tells("c", true), "");
    EXPECT_EQ(tells("a", false), "") << "b tells";
}

// Whose second thread is not to be had.
struct Unmade {
    explicit Unmade(std::atomic<bool>& ended) {
        workers.Start([this, &ended] {
            ends.get_future().wait();
            ended = true;
        });
        throw std::runtime_error("no thread");
    }
    std::promise<void> ends;
    Workers workers{[this] { ends.set_value(); }};
};

TEST(Workers, EndWithAnObjectThatCouldNotBeMade) {
    std::atomic<bool> ended = false;
    EXPECT_THROW(Unmade{ended}, std::runtime_error);
    EXPECT_TRUE(ended);
}

TEST(FeedTable, CamerasComeBackUnderTheirNumberAndWatchersAreTold) {
    const auto source = ComObject<support::VideoSource>::Create();
    const FeedTablePtr table = ComObject<FeedTable>::Create();
    const support::CamPtr yard = source->Put("yard");
    const support::CamPtr gate = source->Put("gäte");
    const auto add = [&](const char16_t* name) { return table->OnCamAdded(Bstr(name).Get()); };
    const auto remove = [&](const char16_t* name) { return table->OnCamRemoved(Bstr(name).Get()); };
    EXPECT_EQ(add(u"yard"), E_FAIL) << "before there is a source";
    table->SetSource(platform::ComPtr<IVideoSource>(source.Get()));
    Wakeup wakeup;
    table->AddWatcher(wakeup);
    const auto told = [&] {
        const bool set = wakeup.IsSet();
        wakeup.Clear();
        return set;
    };
    table->SetType("yard", "320x240");
    EXPECT_FALSE(table->Find("yard")) << "a type alone is no camera";
    EXPECT_EQ(add(u"nobody"), E_FAIL);
    EXPECT_FALSE(told());
    EXPECT_EQ(add(u"yard"), S_OK);
    EXPECT_TRUE(told());
    EXPECT_EQ(add(u"gäte"), S_OK);
    ASSERT_EQ(table->Figures().size(), 2U);
    EXPECT_EQ(table->Figures()[0].name, "gäte");
    EXPECT_EQ(table->Figures()[1].type, "320x240");
    yard->Show(MakeBlock(32, 16));
    const std::uint32_t id = table->Find("yard")->Id();
    told();
    table->PollConnections();
    EXPECT_FALSE(told()) << "nothing changed";
    yard->SetPhone(true);
    table->PollConnections();
    EXPECT_TRUE(told());
    EXPECT_TRUE(table->Find("yard")->Figures().connected && !table->Find("gäte")->Figures().connected);

    EXPECT_EQ(remove(u"yard"), S_OK);
    EXPECT_TRUE(told());
    EXPECT_FALSE(yard->HasSink() || table->Find("yard"));
    EXPECT_EQ(remove(u"yard"), S_FALSE);
    const support::CamPtr again = source->Put("yard");
    EXPECT_EQ(add(u"yard"), S_OK);
    EXPECT_EQ(table->Find("yard")->Id(), id);
    EXPECT_EQ(table->Find("yard")->Figures().frames, 1U);
    EXPECT_FALSE(table->Find("yard")->Figures().connected || table->Find("yard")->HasPicture());

    // A change of the settings takes every camera away and gives back those that stay.
    gate->Show(MakeBlock(32, 16));
    const FeedPtr gone = table->Find("gäte");
    const auto pictures = [&] { return table->Find("yard")->Figures().frames; };
    {
        const FeedTable::Change change(*table);
        EXPECT_EQ(remove(u"yard"), S_OK);
        EXPECT_EQ(remove(u"gäte"), S_OK);
        again->Show(MakeBlock(32, 16));
        EXPECT_EQ(pictures(), 2U) << "nothing is missed in between";
        EXPECT_EQ(add(u"yard"), S_OK);
    }
    EXPECT_FALSE(table->Find("gäte") || gate->HasSink() || gone->HasPicture());
    again->Show(MakeBlock(32, 16));
    EXPECT_EQ(pictures(), 3U);
    {
        const FeedTable::Change change(*table);
        remove(u"yard");
        const support::CamPtr other = source->Put("yard"); // another camera of the same name
        add(u"yard");
        EXPECT_TRUE(other->HasSink() && !again->HasSink());
    }
    wakeup.Clear();
    table->RemoveWatcher(wakeup);
    remove(u"yard");
    remove(u"gäte");
    EXPECT_FALSE(wakeup.IsSet() || again->HasSink() || gate->HasSink());

    // Of cameras that are gone only the last ones are remembered, and those that somebody watches.
    add(u"gäte");
    const std::uint32_t watched = table->Find("gäte")->Id();
    const FeedWatch watch(table->Find("gäte"), wakeup);
    remove(u"gäte");
    std::uint32_t last = 0;
    for (int i = 0; i < 1100; ++i) {
        source->Put("passing");
        add(u"passing");
        last = table->Find("passing")->Id();
        remove(u"passing");
    }
    add(u"yard");
    add(u"gäte");
    add(u"passing");
    EXPECT_NE(table->Find("yard")->Id(), id);
    EXPECT_EQ(table->Find("gäte")->Id(), watched);
    EXPECT_EQ(table->Find("passing")->Id(), last);
}

} // namespace
} // namespace host
