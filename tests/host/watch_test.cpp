// Those who watch: the multiplexed stream of the page, and motion JPEG. And a stop while they do.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>
#include <tuple>

#include "host/rig.h"

namespace host::test {
namespace {

using support::Eventually;
using testing::HasSubstr;

std::uint64_t LittleEndian(const std::string& bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
    return value;
}

std::uint64_t IdOf(const std::string& picture) {
    return LittleEndian(picture, 4, 4);
}

std::string Ack(const std::string& picture) {
    return "ack " + std::to_string(IdOf(picture)) + " " + std::to_string(LittleEndian(picture, 8, 4));
}

std::string Live(const std::string& name) {
    return "GET /live/" + name + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

// A picture that the encoder cannot make small.
std::string MakeNoise(int width, int height) {
    std::string block = MakeBlock(width, height);
    for (std::size_t i = sizeof(BITMAPINFOHEADER); i < block.size(); ++i)
        block[i] = static_cast<char>(i * 2654435761U >> 13);
    return block;
}

TEST(Tiles, TellWhatTheVisitorMayDo) {
    const Rig rig(LongLimits(), false);
    const Rig demo(LongLimits());
    const std::tuple<const Rig&, std::string_view, std::string_view> cases[] = {
        {rig, Rig::kAdmin, R"("may":["settings","links"],)"},
        {rig, Rig::kViewer, R"("may":[],)"},
        {demo, "", R"("may":["settings","links"],)"},
    };
    for (const auto& [host, user, may] : cases) {
        Page page(host.Port(), std::string(user));
        EXPECT_THAT(page.Read().data, HasSubstr(may)) << user;
    }
}

TEST(Tiles, StateComesFirstAndPicturesCarryTheirHeader) {
    Rig rig(LongLimits());
    const CamPtr yard = rig.AddCamera("yard");
    yard->Show(MakeBlock(64, 48));
    yard->Show(MakeBlock(32, 16));
    Page page(rig.Port(), "Origin: http://localhost\r\n");
    EXPECT_EQ(page.reply.status, 101U);
    EXPECT_EQ(page.reply.Header("Sec-WebSocket-Accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
    const Page::Message state = page.Read();
    ASSERT_EQ(state.kind, 1);
    EXPECT_THAT(state.data, testing::StartsWith(R"({"type":"state",)"));
    const auto id = rig.feeds->Find("yard")->Id();
    EXPECT_THAT(state.data, HasSubstr("{\"id\":" + std::to_string(id) +
                                      R"(,"name":"yard","type":"320x240","connected":false,"frames":2,)"
                                      R"("failed":0,"fps":)"));
    const auto picture = page.ReadNext(2).value();
    EXPECT_EQ(picture.substr(0, 4), std::string("\1\0\0\0", 4));
    EXPECT_EQ(IdOf(picture), id);
    EXPECT_EQ(LittleEndian(picture, 8, 4), 2U) << "the newest one";
    EXPECT_EQ(LittleEndian(picture, 12, 8), rig.feeds->Find("yard")->Newest()->ArrivalUnixMs());
    EXPECT_EQ(picture.substr(20), rig.feeds->Find("yard")->Newest()->Jpeg());

    // A camera that comes is told at once; its number is its own.
    const CamPtr late = rig.AddCamera("late");
    late->Show(MakeBlock(16, 16));
    const auto other = page.ReadNext(2).value();
    EXPECT_EQ(IdOf(other), rig.feeds->Find("late")->Id());
    rig.feeds->OnCamRemoved(platform::Bstr(u"yard").Get());
    EXPECT_TRUE(page.Say(Ack(picture))) << "of a camera that left meanwhile";
    EXPECT_TRUE(page.Say(Ack(other)));
    late->Show(MakeBlock(16, 16));
    EXPECT_EQ(LittleEndian(page.ReadNext(2).value(), 8, 4), 2U);
    EXPECT_EQ(rig.counters.Watchers(), 1U);
    page.peer.Close();
    EXPECT_TRUE(Eventually([&] { return rig.counters.Watchers() == 0; }));
}

TEST(Tiles, OnePictureOfAShownCameraIsInFlightAndTheNextIsTheNewest) {
    Rig rig(LongLimits());
    const CamPtr yard = rig.AddCamera("yard");
    const CamPtr gate = rig.AddCamera("gate");
    Page page(rig.Port());
    Page second(rig.Port());
    yard->Show(MakeBlock(32, 16));
    const auto first = page.ReadNext(2).value();
    EXPECT_TRUE(second.ReadNext(2) == first);
    auto encoded = kit::Picture::EncodedCount();
    for (int i = 0; i < 9; ++i)
        yard->Show(MakeBlock(32, 16));
    EXPECT_FALSE(page.PictureWithin(3)) << "not before the acknowledgement";
    EXPECT_TRUE(page.Say("ack " + std::to_string(IdOf(first)) + " 7"));
    EXPECT_FALSE(page.PictureWithin(3)) << "of a picture that is not in flight";
    gate->Show(MakeBlock(32, 16));
    const auto other = page.ReadNext(2).value();
    EXPECT_EQ(IdOf(other), rig.feeds->Find("gate")->Id()) << "another camera is not held up";
    EXPECT_TRUE(page.Say(Ack(first)));
    const auto newest = page.ReadNext(2).value();
    EXPECT_EQ(LittleEndian(newest, 8, 4), 10U);
    EXPECT_GE(rig.counters.skipped, 8U);
    // The other page takes the same pictures, and nothing is encoded again for it.
    EXPECT_TRUE(second.ReadNext(2) == other);
    EXPECT_TRUE(second.Say(Ack(first)));
    EXPECT_TRUE(second.ReadNext(2) == newest);
    EXPECT_EQ(kit::Picture::EncodedCount(), encoded + 2);

    // What no page shows is neither sent nor encoded.
    EXPECT_TRUE(page.Say(Ack(other)) && page.Say(Ack(newest)));
    ASSERT_TRUE(page.SayAndBeHeard("show"));
    second.peer.Close();
    ASSERT_TRUE(Eventually([&] { return rig.counters.Watchers() == 1; }));
    encoded = kit::Picture::EncodedCount();
    yard->Show(MakeBlock(32, 16));
    gate->Show(MakeBlock(32, 16));
    EXPECT_FALSE(page.PictureWithin(3));
    EXPECT_EQ(kit::Picture::EncodedCount(), encoded);
    EXPECT_TRUE(page.Say("show " + std::to_string(IdOf(first)) + " 4000000"));
    const auto shown = page.ReadNext(2).value();
    EXPECT_EQ(IdOf(shown), IdOf(first));
    EXPECT_TRUE(page.Say(Ack(shown)));
    gate->Show(MakeBlock(32, 16));
    EXPECT_FALSE(page.PictureWithin(3));
}

TEST(Tiles, MessagesThatNoPageSendsCloseTheStream) {
    Rig rig;
    const CamPtr yard = rig.AddCamera("yard");
    std::vector<std::string> frames{
        std::string("\x82\x87\0\0\0\0ack 1 1", 13),            // binary
        std::string("\x81\xFF\x40\0\0\0\0\0\0\0\0\0\0\0", 14), // a length of 2^62 is not waited for
        "\x81\x04show"};                                       // not masked
    for (const char* bad : {"", "ack 1 ", "ack 1 1 1", "ack 1  1", "ack -1 1", "ack 4294967296 1", "show 1,2",
                            "show 1  2", "showing", "show 1 2 ", "ACK 1 1"})
        frames.push_back(Page::Masked(bad));
    for (const std::string& bad : frames) {
        Page page(rig.Port());
        ASSERT_TRUE(page.Read().kind == 1 && page.peer.Send(bad));
        EXPECT_TRUE(page.IsClosed()) << bad;
    }
    Page polite(rig.Port());
    ASSERT_TRUE(polite.Read().kind == 1 && polite.Say("", 8));
    EXPECT_TRUE(polite.ReadNext(8)) << "a close is answered";
    EXPECT_TRUE(polite.IsClosed());

    // One that acknowledges nothing stays as long as nothing is in flight.
    Page page(rig.Port());
    EXPECT_FALSE(page.PictureWithin(8));
    yard->Show(MakeBlock(32, 16));
    ASSERT_TRUE(page.ReadNext(2));
    const auto begin = Clock::now();
    EXPECT_TRUE(page.IsClosed());
    EXPECT_TRUE(Clock::now() - begin >= 400ms && Clock::now() - begin < 3s);
}

const std::string kOpening = "--morrowstream-picture\r\nContent-Type: image/jpeg\r\n\r\n";

// One part up to the boundary behind it.
std::string ReadPart(Client& client) {
    const std::string part = client.peer.ReceiveUntil("\r\n" + kOpening, 5000);
    return part.ends_with(kOpening) ? part.substr(0, part.size() - 2 - kOpening.size()) : "";
}

TEST(Live, NextPartsHeadFollowsEachPictureAndSilenceIsShown) {
    Limits limits = ShortLimits();
    limits.staleAfter = 1000ms;
    Rig rig(limits);
    const CamPtr cam = rig.AddCamera("front door");
    cam->Show(MakeBlock(64, 48));
    const auto watch = [&] {
        Client client(rig.Port());
        client.peer.Send(Live("front%20door"));
        const Reply head = client.ReadReply(true);
        EXPECT_EQ(head.Header("Content-Type"), "multipart/x-mixed-replace; boundary=morrowstream-picture");
        EXPECT_EQ(head.Header("Cache-Control"), "no-store");
        EXPECT_EQ(head.Header("Content-Length"), "");
        EXPECT_EQ(client.peer.Receive(kOpening.size()), kOpening);
        return client;
    };
    Client client = watch();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ReadPart(client), rig.feeds->Find("front door")->Newest()->Jpeg()) << i;
        cam->Show(MakeBlock(64, 48, false, 50 + i));
    }
    EXPECT_EQ(ReadPart(client), rig.feeds->Find("front door")->Newest()->Jpeg());
    // The camera falls silent: one placeholder of its size, and the picture again when it comes back.
    const auto silent = Clock::now();
    EXPECT_EQ(ReadPart(client), kit::DrawPlaceholder(64, 48));
    EXPECT_GE(Clock::now() - silent, 800ms);
    EXPECT_EQ(client.peer.Receive(1, 1500), "") << "one is enough";
    // A watcher who comes now sees the placeholder at once, not an old picture.
    Client late = watch();
    EXPECT_EQ(ReadPart(late), kit::DrawPlaceholder(64, 48));
    cam->Show(MakeBlock(64, 48));
    EXPECT_EQ(ReadPart(client), ReadPart(late));
    EXPECT_EQ(rig.Ask("HEAD /live/front%20door HTTP/1.1\r\nHost: localhost\r\n\r\n", true).status, 200U);
}

TEST(Live, ReaderThatReadsNothingIsSkippedThenDropped) {
    Limits limits = ShortLimits();
    limits.staleAfter = 30s;
    // From the first picture on; and after so many that it has read at once, for which it is trusted for half
    // a second: 25 small pictures.
    for (const auto& [quick, picture, most] :
         {std::tuple(0, MakeNoise(64, 48), 10U), std::tuple(12, MakeBlock(64, 48), 30U),
          std::tuple(0, MakeNoise(640, 480), 1U)}) { // which stays half sent
        Rig rig(limits);
        const CamPtr cam = rig.AddCamera("yard");
        Client stuck(rig.Port(), 4096);
        stuck.peer.Send(Live("yard"));
        ASSERT_TRUE(Eventually([&] { return rig.counters.Watchers() == 1; }));
        for (int i = 0; i < quick; ++i) {
            cam->Show(picture);
            if (i == 0)
                stuck.ReadReply(true), stuck.peer.Receive(kOpening.size());
            EXPECT_NE(ReadPart(stuck), "") << i;
        }
        const std::uint64_t before = rig.counters.sent;
        const auto begin = Clock::now();
        for (; rig.counters.Watchers() == 1 && Clock::now() - begin < 15s; std::this_thread::sleep_for(20ms))
            cam->Show(picture);
        EXPECT_EQ(rig.counters.Watchers(), 0U);
        EXPECT_GE(Clock::now() - begin, 1s);
        EXPECT_LE(rig.counters.sent - before, most) << "what is in the queue is all that waits";
    }
}

TEST(Live, SlowReaderGetsItsPictureWholeAndThenTheNewest) {
    Rig rig(LongLimits());
    const CamPtr cam = rig.AddCamera("yard");
    cam->Show(MakeNoise(640, 480)); // more than the socket takes
    const FeedPtr feed = rig.feeds->Find("yard");
    const std::string first = feed->Newest()->Jpeg();
    Client slow(rig.Port(), 4096);
    slow.peer.Send(Live("yard"));
    ASSERT_TRUE(Eventually([&] { return rig.counters.sent == 1U; }));
    for (const int luma : {60, 90})
        cam->Show(MakeBlock(64, 48, false, luma));
    slow.ReadReply(true), slow.peer.Receive(kOpening.size());
    EXPECT_TRUE(ReadPart(slow) == first) << "of a picture that is gone elsewhere";
    EXPECT_EQ(ReadPart(slow), feed->Newest()->Jpeg());
    EXPECT_EQ(rig.counters.skipped, 1U);
    slow.peer.Close();
    EXPECT_TRUE(Eventually([&] { return rig.counters.Watchers() == 0; })) << "no picture is needed for that";
}

std::ptrdiff_t Threads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(Stop, EndsEveryConnectionLongBeforeItsDeadline) {
    Rig rig(LongLimits());
    const CamPtr yard = rig.AddCamera("yard");
    const std::string noise = MakeNoise(640, 480);
    yard->Show(noise);
    const auto before = Threads();
    std::vector<Client> clients;
    for (int i = 0; i < 6; ++i) {
        for (const std::string& said :
             {std::string(), std::string("GET / HTTP/1.1\r\nHo"), Live("yard"), // which reads nothing
              "POST /mobile/video HTTP/1.1\r\n" + std::string(Rig::kPhone) + "\r\nhalf a record"})
            clients.emplace_back(rig.Port(), 4096).peer.Send(said);
        clients.push_back(Page(rig.Port())); // acknowledges nothing
    }
    ASSERT_TRUE(Eventually([&] { return rig.counters.Watchers() == 12; }));
    EXPECT_TRUE(Eventually([&] { return Threads() <= before + 18; })) << "a watcher has none of its own";
    EXPECT_EQ(rig.counters.open, 30U) << "but a place";
    std::atomic<bool> more{true};
    std::jthread camera([&] {
        for (int i = 0; more; ++i) {
            yard->Show(noise);
            yard->SetPhone(i % 2 != 0);
            rig.feeds->PollConnections();
            std::this_thread::sleep_for(1ms);
        }
    });
    std::jthread visitors([&, port = rig.Port()] { // come while the server stops, too
        while (more) {
            try {
                Client client(port);
                client.peer.Send("GET /health HTTP/1.1\r\nHost: localhost\r\n\r\n");
                client.peer.Receive(50, 20);
            } catch (const std::runtime_error&) {
                return;
            }
        }
    });
    std::this_thread::sleep_for(200ms);
    rig.stop.Signal();
    EXPECT_LT(rig.Stop(), 10s);
    more = false;
    EXPECT_EQ(rig.counters.open, 0U);
    EXPECT_EQ(rig.counters.Watchers(), 0U);
    for (Client& client : clients)
        EXPECT_TRUE(client.peer.IsClosed(5000));
}

} // namespace
} // namespace host::test
