// What becomes of a camera's frames: layout checks, figures, encoding, and cameras that come and go.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "host/feed/feed_table.h"
#include "host/feed/meters.h"
#include "host/frames.h"
#include "support/Jpeg.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using platform::Bstr;
using platform::ComObject;
using test::MakeBlock;

const std::uint8_t* Bytes(const std::string& block) {
    return reinterpret_cast<const std::uint8_t*>(block.data());
}

TEST(Picture, OfAnySizeDecodesToThatSizeAndItsColour) {
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 2},   {1, 9},     {9, 1},
                                         {3, 5}, {17, 16}, {159, 121}, {320, 240}};
    for (const auto& [width, height] : sizes) {
        for (const bool grey : {false, true}) {
            const std::string block = MakeBlock(width, height, grey, 120, 200, 60);
            PlaneLayout layout;
            ASSERT_TRUE(ReadLayout(Bytes(block), block.size(), &layout));
            const support::DecodedJpeg decoded = support::DecodeJpeg(EncodeJpeg(Bytes(block), layout));
            ASSERT_EQ(std::pair(decoded.width, decoded.height), std::pair(width, height)) << grey;
            // ITU-T T.871: R = Y + 1.402 (Cr - 128), B = Y + 1.772 (Cb - 128). A picture of less than two
            // columns or rows has no chroma of its own.
            const bool colour = !grey && width > 1 && height > 1;
            for (std::size_t i = 0; i < decoded.rgb.size(); i += 3) {
                ASSERT_NEAR(decoded.rgb[i], colour ? 221 : 120, 4) << width << 'x' << height << ' ' << i;
                ASSERT_NEAR(decoded.rgb[i + 2], colour ? 0 : 120, 4) << width << 'x' << height << ' ' << i;
            }
        }
    }
    for (const auto& [width, height] : {std::pair{320, 240}, {0, -5}, {1, 100000}}) {
        const support::DecodedJpeg placeholder = support::DecodeJpeg(DrawPlaceholder(width, height));
        EXPECT_EQ(placeholder.width, std::clamp(width, 16, 4096));
        EXPECT_EQ(placeholder.height, std::clamp(height, 16, 4096));
    }
}

TEST(Picture, LayoutOfAHostileBlockIsRefused) {
    const std::string good = MakeBlock(6, 4);
    const auto with = [](std::string block, std::size_t at, std::uint32_t value, std::size_t size = 4) {
        std::memcpy(&block[at], &value, size);
        return block;
    };
    const std::pair<const char*, std::string> cases[] = {
        {"a good one", good},
        {"good, and more bytes than needed", good + "x"},
        {"a byte is missing", good.substr(0, good.size() - 1)},
        {"half a header", good.substr(0, 39)},
        {"no width", with(good, 4, 0)},
        {"a negative height", with(good, 8, 0xFFFFFFFC)},
        {"a huge width", with(good, 4, 0x7FFFFFFF)},
        {"sizes whose product is small in 32 bits", with(with(good, 4, 0x10000), 8, 0x10000)},
        {"grey with the bits of colour", with(good, 16, 0)},
        {"colour with the bits of grey", with(good, 14, 8, 2)},
        {"another compression", with(good, 16, 0x30323449)},
    };
    for (const auto& [what, block] : cases) {
        // A copy of just that size, so that reading behind it is noticed.
        const std::vector<std::uint8_t> exact(block.begin(), block.end());
        PlaneLayout layout;
        EXPECT_EQ(ReadLayout(exact.data(), exact.size(), &layout), block.starts_with(good)) << what;
    }
}

TEST(CameraFeed, CountsKeepsTheNewestAndEncodesOnceAndOnlyForWatchers) {
    const FeedPtr feed = ComObject<CameraFeed>::Create(7U, "yard");
    const auto show = [&](std::string block) {
        EXPECT_EQ(feed->OnVideoFrame(ComObject<test::Frame>::Create(std::move(block)).Get()), S_OK);
    };
    EXPECT_FALSE(feed->Newest() || feed->Figures().age);
    const auto before = Picture::EncodedCount();
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
    EXPECT_EQ(Picture::EncodedCount(), before) << "nobody asked for a picture";
    EXPECT_EQ(feed->Newest()->Sequence(), 22U);
    {
        std::vector<std::jthread> watchers;
        for (int i = 0; i < 8; ++i)
            watchers.emplace_back([&] { EXPECT_EQ(support::DecodeJpeg(feed->Newest()->Jpeg()).width, 64); });
    }
    EXPECT_EQ(Picture::EncodedCount(), before + 1);
    const CameraFigures figures = feed->Figures();
    EXPECT_TRUE(figures.frames == 22 && figures.failed == 2 && figures.width == 64 && figures.height == 48);
    EXPECT_LT(figures.age.value(), 5.0);
}

TEST(RateMeter, FollowsTheRateAndFallsWhenPicturesStop) {
    RateMeter meter;
    const Clock::time_point t = Clock::now();
    meter.Add(t);
    EXPECT_EQ(meter.PerSecond(t), 0) << "one picture is no rate";
    for (int i = 1; i <= 100; ++i)
        meter.Add(t + i * 100ms);
    EXPECT_NEAR(meter.PerSecond(t + 10150ms), 10.0, 0.01) << "between two pictures";
    EXPECT_LT(meter.PerSecond(t + 12s), 8.0);
    EXPECT_EQ(meter.PerSecond(t + 16s), 0);
    RateMeter fast; // more pictures in the window than are remembered
    for (int i = 0; i < 2000; ++i)
        fast.Add(t + i * 2ms);
    EXPECT_NEAR(fast.PerSecond(t + 3998ms), 500.0, 1.0);
    RateMeter burst; // all at one moment
    for (int i = 0; i < 3; ++i)
        burst.Add(t);
    EXPECT_EQ(burst.PerSecond(t), 0);
}

TEST(FeedTable, CamerasComeBackUnderTheirNumberAndWatchersAreTold) {
    const auto source = ComObject<test::VideoSource>::Create();
    const FeedTablePtr table = ComObject<FeedTable>::Create();
    const test::CamPtr yard = source->Put("yard");
    const test::CamPtr gate = source->Put("gäte");
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
    const test::CamPtr again = source->Put("yard");
    EXPECT_EQ(add(u"yard"), S_OK);
    EXPECT_EQ(table->Find("yard")->Id(), id);
    EXPECT_EQ(table->Find("yard")->Figures().frames, 1U);
    EXPECT_FALSE(table->Find("yard")->Figures().connected);

    // A change of the settings takes every camera away and gives back those that stay.
    const auto pictures = [&] { return table->Find("yard")->Figures().frames; };
    {
        const FeedTable::Change change(*table);
        EXPECT_EQ(remove(u"yard"), S_OK);
        EXPECT_EQ(remove(u"gäte"), S_OK);
        again->Show(MakeBlock(32, 16));
        EXPECT_EQ(pictures(), 2U) << "nothing is missed in between";
        EXPECT_EQ(add(u"yard"), S_OK);
    }
    EXPECT_FALSE(table->Find("gäte") || gate->HasSink());
    again->Show(MakeBlock(32, 16));
    EXPECT_EQ(pictures(), 3U);
    {
        const FeedTable::Change change(*table);
        remove(u"yard");
        const test::CamPtr other = source->Put("yard"); // another camera of the same name
        add(u"yard");
        EXPECT_TRUE(other->HasSink() && !again->HasSink());
    }
    wakeup.Clear();
    table->RemoveWatcher(wakeup);
    remove(u"yard");
    remove(u"gäte");
    EXPECT_FALSE(wakeup.IsSet() || again->HasSink() || gate->HasSink());
}

} // namespace
} // namespace host
