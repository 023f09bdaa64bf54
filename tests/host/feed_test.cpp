// What becomes of a camera's frames: layout checks, figures, encoding, and cameras that come and go.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <turbojpeg.h>

#include "host/feed/feed_table.h"
#include "host/feed/rate_meter.h"
#include "host/frames.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using platform::Bstr;
using platform::ComObject;
using test::MakeBlock;

const std::uint8_t* Bytes(const std::string& block) {
    return reinterpret_cast<const std::uint8_t*>(block.data());
}

struct Decoded {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgb;
};
// With the other program's decoder; an empty size when it finds a fault.
Decoded Decode(const std::string& jpeg) {
    const std::unique_ptr<void, int (*)(tjhandle)> decoder(tjInitDecompress(), &tjDestroy);
    auto* const bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    Decoded decoded;
    int subsampling = 0;
    int space = 0;
    if (tjDecompressHeader3(decoder.get(), bytes, jpeg.size(), &decoded.width, &decoded.height, &subsampling,
                            &space) != 0)
        return {};
    decoded.rgb.resize(static_cast<std::size_t>(decoded.width) * static_cast<std::size_t>(decoded.height) *
                       3);
    if (tjDecompress2(decoder.get(), bytes, jpeg.size(), decoded.rgb.data(), decoded.width, 0, decoded.height,
                      TJPF_RGB, TJFLAG_STOPONWARNING) != 0)
        return {};
    return decoded;
}

TEST(Picture, OfAnySizeDecodesToThatSizeAndItsColour) {
    for (const auto& [width, height] : {std::pair{1, 1},
                                        {2, 2},
                                        {1, 9},
                                        {9, 1},
                                        {3, 5},
                                        {16, 17},
                                        {17, 16},
                                        {159, 121},
                                        {160, 120},
                                        {320, 240}}) {
        for (const bool grey : {false, true}) {
            const std::string block = MakeBlock(width, height, grey, 120, 200, 60);
            PlaneLayout layout;
            ASSERT_TRUE(ReadLayout(Bytes(block), block.size(), &layout));
            const Decoded decoded = Decode(EncodeJpeg(Bytes(block), layout));
            ASSERT_EQ(decoded.width, width) << height << grey;
            ASSERT_EQ(decoded.height, height) << width << grey;
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
        const Decoded placeholder = Decode(DrawPlaceholder(width, height));
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
    struct Case {
        const char* what;
        std::string block;
        bool good;
    };
    const Case cases[] = {
        {"a good one", good, true},
        {"more bytes than needed", good + "x", true},
        {"a byte is missing", good.substr(0, good.size() - 1), false},
        {"half a header", good.substr(0, 39), false},
        {"only a header", good.substr(0, 40), false},
        {"no width", with(good, 4, 0), false},
        {"a negative width", with(good, 4, 0xFFFFFFFA), false},
        {"a negative height", with(good, 8, 0xFFFFFFFC), false},
        {"a huge width", with(good, 4, 0x7FFFFFFF), false},
        {"sizes whose product is small in 32 bits", with(with(good, 4, 0x10000), 8, 0x10000), false},
        {"the largest sizes", with(with(good, 4, 65535), 8, 65535), false},
        {"grey with the bits of colour", with(good, 16, 0), false},
        {"colour with the bits of grey", with(good, 14, 8, 2), false},
        {"another compression", with(good, 16, 0x30323449), false},
    };
    for (const Case& c : cases) {
        // A copy of just that size, so that reading behind it is noticed.
        const std::vector<std::uint8_t> exact(c.block.begin(), c.block.end());
        PlaneLayout layout;
        EXPECT_EQ(ReadLayout(exact.data(), exact.size(), &layout), c.good) << c.what;
    }
    PlaneLayout layout;
    EXPECT_FALSE(ReadLayout(nullptr, 100, &layout));
}

TEST(CameraFeed, CountsKeepsTheNewestAndEncodesOnceAndOnlyForWatchers) {
    const FeedPtr feed = ComObject<CameraFeed>::Create(7U, "yard");
    const auto show = [&](std::string block) {
        return feed->OnVideoFrame(ComObject<test::Frame>::Create(std::move(block)).Get());
    };
    EXPECT_FALSE(feed->Newest());
    EXPECT_FALSE(feed->Figures().age);
    const auto before = Picture::EncodedCount();
    Wakeup wakeup;
    {
        const FeedWatch watch(feed, wakeup);
        EXPECT_EQ(show(MakeBlock(32, 16)), S_OK);
        EXPECT_TRUE(wakeup.IsSet());
        EXPECT_EQ(WaitFor({.wakeup = &wakeup}, Clock::now()), Waited::Woken);
        wakeup.Clear();
        EXPECT_EQ(show(""), S_OK);                              // could not be decoded
        EXPECT_EQ(show(MakeBlock(32, 16).substr(0, 99)), S_OK); // says more than it holds
        EXPECT_FALSE(wakeup.IsSet()) << "nothing new to see";
        EXPECT_EQ(feed->Newest()->Sequence(), 1U);
        EXPECT_EQ(show(MakeBlock(64, 48, true)), S_OK);
        EXPECT_TRUE(wakeup.IsSet());
    }
    wakeup.Clear();
    for (int i = 0; i < 20; ++i)
        show(MakeBlock(64, 48, true));
    EXPECT_FALSE(wakeup.IsSet()) << "nobody watches any more";
    EXPECT_EQ(Picture::EncodedCount(), before) << "nobody asked for a picture";

    const PicturePtr picture = feed->Newest();
    EXPECT_EQ(picture->Sequence(), 22U);
    std::vector<std::thread> watchers;
    for (int i = 0; i < 8; ++i)
        watchers.emplace_back([&] { EXPECT_EQ(Decode(feed->Newest()->Jpeg()).width, 64); });
    for (std::thread& watcher : watchers)
        watcher.join();
    EXPECT_EQ(Picture::EncodedCount(), before + 1);

    const CameraFigures figures = feed->Figures();
    EXPECT_EQ(figures.frames, 22U);
    EXPECT_EQ(figures.failed, 2U);
    EXPECT_EQ(figures.width, 64);
    EXPECT_EQ(figures.height, 48);
    EXPECT_LT(figures.age.value(), 5.0);
}

TEST(RateMeter, FollowsTheRateAndFallsWhenPicturesStop) {
    RateMeter meter;
    const Clock::time_point t = Clock::now();
    EXPECT_EQ(meter.PerSecond(t), 0);
    meter.Add(t);
    EXPECT_EQ(meter.PerSecond(t), 0) << "one picture is no rate";
    for (int i = 1; i <= 100; ++i)
        meter.Add(t + i * 100ms);
    EXPECT_NEAR(meter.PerSecond(t + 10s), 10.0, 0.01);
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
    EXPECT_EQ(table->OnCamAdded(Bstr(u"yard").Get()), E_FAIL) << "before there is a source";
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
    EXPECT_EQ(table->OnCamAdded(Bstr(u"nobody").Get()), E_FAIL);
    EXPECT_FALSE(told());
    EXPECT_EQ(table->OnCamAdded(Bstr(u"yard").Get()), S_OK);
    EXPECT_TRUE(told());
    EXPECT_EQ(table->OnCamAdded(Bstr(u"gäte").Get()), S_OK);
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
    EXPECT_TRUE(table->Find("yard")->Figures().connected);
    EXPECT_FALSE(table->Find("gäte")->Figures().connected);

    EXPECT_EQ(table->OnCamRemoved(Bstr(u"yard").Get()), S_OK);
    EXPECT_TRUE(told());
    EXPECT_FALSE(yard->HasSink());
    EXPECT_FALSE(table->Find("yard"));
    EXPECT_EQ(table->OnCamRemoved(Bstr(u"yard").Get()), S_FALSE);
    EXPECT_EQ(table->OnCamRemoved(Bstr(u"nobody").Get()), S_FALSE);
    const test::CamPtr again = source->Put("yard");
    EXPECT_EQ(table->OnCamAdded(Bstr(u"yard").Get()), S_OK);
    EXPECT_EQ(table->Find("yard")->Id(), id);
    EXPECT_EQ(table->Find("yard")->Figures().frames, 1U);
    EXPECT_FALSE(table->Find("yard")->Figures().connected);

    wakeup.Clear();
    table->RemoveWatcher(wakeup);
    table->OnCamRemoved(Bstr(u"yard").Get());
    table->OnCamRemoved(Bstr(u"gäte").Get());
    EXPECT_FALSE(wakeup.IsSet());
    EXPECT_FALSE(again->HasSink() || gate->HasSink());
}

} // namespace
} // namespace host
