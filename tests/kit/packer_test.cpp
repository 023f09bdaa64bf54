// The frame packer: what may be asked of it, what its pictures look like, and what a phone reads of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "kit/packer/mobile_frame_packer.h"
#include "kit/packer/planes.h"
#include "phone/connection.h"
#include "phone/packet.h"
#include "support/Frames.h"
#include "support/Jpeg.h"

namespace kit {
namespace {

using phone::Ended;
using phone::PacketReader;
using platform::Bstr;
using support::MakeBlock;

TEST(PackerParameters, AreReadCheckedAndBroughtIntoRange) {
    using P = PackerParameters;
    const std::pair<const char*, std::optional<P>> cases[] = {
        {"", P{}},
        {"width=320&height=240&fps=12.5&flimit=7&quality=80&zx=100&zy=200&zw=300&zh=400&rotate",
         P{320, 240, 12.5, 7, 80, 100, 200, 300, 400, 1}},
        {"rotate=270&&fps=0&width=1&height=99999&quality=0", P{16, 1920, 0.1, 0, 1, 0, 0, 1000, 1000, 3}},
        {"zw=0&zh=500&zx=1000&zy=700", P{176, 144, 5, 0, 50, 990, 500, 10, 500, 0}},
        {"fps=1000&flimit=99999999999&quality=101&rotate=0&other=x&x", P{176, 144, 25, 0x7FFFFFFF, 100}},
        {"width=20&width=30.9&height=.5&rotate=180", P{30, 16, 5, 0, 50, 0, 0, 1000, 1000, 2}},
        {"fps=99999999999999999999999999999999999999999999", P{176, 144, 25}},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(ParsePackerParameters(text), expected) << text;
    for (const char* bad : {"width", "width=", "width=-20", "width=+20", "width= 20", "width=0x20", "fps=1e1",
                            "fps=nan", "fps=1.2.3", "rotate=45", "rotate=", "rotate=360000000000"})
        EXPECT_FALSE(ParsePackerParameters(bad)) << bad;
    const std::string tiny = "quality=0." + std::string(5000, '0') + "1";
    EXPECT_EQ(ParsePackerParameters(tiny)->quality, 1) << "too small for a number, and not too large";
    EXPECT_EQ(ParsePackerParameters("quality=" + std::string(5000, '9'))->quality, 100);
}

// What a new sample takes of each old one along a side, in double precision: the mean over what it covers, or
// the line between two.
std::vector<double> Shares(int sample, int old, int made) {
    const double scale = static_cast<double>(old) / made;
    const double width = std::max(scale, 1.0);
    const double middle = std::clamp((sample + 0.5) * scale, width / 2, old - width / 2);
    std::vector<double> shares;
    for (int i = 0; i < old; ++i)
        shares.push_back(std::max(0.0, std::min<double>(i + 1, middle + width / 2) -
                                           std::max<double>(i, middle - width / 2)) /
                         width);
    return shares;
}

TEST(PlaneScaler, GivesTheMeanOfTheAreaTurnedOnTheWay) {
    std::minstd_rand random(5);
    PlaneScaler scaler;
    const std::array<std::size_t, 4> sizes[] = {{1, 1, 1, 1},     {7, 5, 7, 5},  {80, 60, 44, 33},
                                                {80, 60, 27, 8},  {64, 3, 9, 3}, {300, 7, 16, 16},
                                                {10, 10, 33, 47}, {1, 9, 20, 4}, {31, 2, 64, 128}};
    for (const auto& [fromWidth, fromHeight, toWidth, toHeight] : sizes) {
        std::vector<std::uint8_t> from(fromWidth * fromHeight);
        std::ranges::generate(from, [&] { return static_cast<std::uint8_t>(random()); });
        const int width = static_cast<int>(toWidth), height = static_cast<int>(toHeight);
        scaler.SetSizes(static_cast<int>(fromWidth), static_cast<int>(fromHeight), width, height);
        // Turned a quarter, so columns become rows.
        std::vector<std::uint8_t> to(toWidth * toHeight);
        scaler.Scale(from.data(), static_cast<int>(fromWidth), {to.data() + height - 1, height, -1});
        double worst = 0;
        for (int y = 0; y < height; ++y) {
            const auto down = Shares(y, static_cast<int>(fromHeight), height);
            for (int x = 0; x < width; ++x) {
                const auto across = Shares(x, static_cast<int>(fromWidth), width);
                double expected = 0;
                for (std::size_t i = 0; i < from.size(); ++i)
                    expected += down[i / fromWidth] * across[i % fromWidth] * from[i];
                worst = std::max(worst, std::abs(expected - to[x * height + height - 1 - y]));
            }
        }
        EXPECT_LT(worst, 2.6) << fromWidth << 'x' << fromHeight << " to " << toWidth << 'x' << toHeight;
        std::ranges::fill(from, std::uint8_t{255});
        scaler.Scale(from.data(), static_cast<int>(fromWidth), {to.data(), 1, width});
        EXPECT_EQ(std::ranges::count(to, 255), width * height) << "a flat picture stays as it is";
    }
}

using Form = SourcePlanes::Form;

// Four colours, one a quarter, as they lie in a picture of w*h: red green / blue white.
struct Quarters {
    int width, height;
    Form form;
    std::vector<std::uint8_t> samples;

    Quarters(int w, int h, Form f) : width(w), height(h), form(f) {
        constexpr std::uint8_t kBgr[4][3] = {{0, 0, 200}, {0, 200, 0}, {200, 0, 0}, {255, 255, 255}};
        constexpr std::uint8_t kYcc[4][3] = {
            {60, 228, 94}, {117, 44, 62}, {23, 112, 228}, {255, 128, 128}}; // Y Cr Cb
        const auto fill = [&](int columns, int rows, auto sample) {
            for (int y = 0; y < rows; ++y) {
                for (int x = 0; x < columns; ++x)
                    sample(2 * y / rows * 2 + 2 * x / columns);
            }
        };
        if (f == Form::Bgr) {
            fill(w, h, [&](int q) { samples.insert(samples.end(), kBgr[q], kBgr[q] + 3); });
            return;
        }
        for (int plane = 0; plane < (f == Form::Grey ? 1 : 3); ++plane) {
            const int step = plane == 0 ? 1 : 2;
            fill(w / step, h / step, [&](int q) { samples.push_back(kYcc[q][plane]); });
            samples.resize(w * h + plane * (w * h / 4));
        }
    }
    [[nodiscard]] SourcePlanes Planes() const { return {form, width, height, samples.data()}; }
};

char ColourAt(const support::DecodedJpeg& picture, int x, int y) {
    const unsigned char* p = picture.At(x, y);
    const int r = p[0], g = p[1], b = p[2];
    if (r + g + b < 45)
        return '.';
    if (std::max({r, g, b}) - std::min({r, g, b}) < 60)
        return r > 220 ? 'w' : 'g';
    return r > g && r > b ? 'R' : g > b ? 'G' : 'B';
}

TEST(FramePacker, CropsTurnsAndFitsEveryFormIntoTheSizeAskedFor) {
    struct Case {
        const char* parameters;
        int width, height;
        Form form;
        Rectangle content;
        std::string colours; // in the middle of the content's quarters
    };
    const Case cases[] = {
        {"width=176&height=144", 320, 240, Form::Yv12, {0, 6, 176, 132}, "RGBw"},
        {"width=176&height=144", 320, 240, Form::Bgr, {0, 6, 176, 132}, "RGBw"},
        {"width=176&height=144&rotate", 320, 240, Form::Yv12, {34, 0, 108, 144}, "BRwG"},
        {"width=100&height=100&rotate=180", 320, 240, Form::Bgr, {0, 12, 100, 76}, "wBGR"},
        {"width=175&height=143&rotate=270", 31, 41, Form::Yv12, {0, 4, 175, 132}, "GwRB"},
        {"width=64&height=64&zx=0&zy=0&zw=500&zh=500", 320, 320, Form::Yv12, {0, 0, 64, 64}, "RRRR"},
        {"width=64&height=64&zx=500&zw=500&rotate", 320, 320, Form::Yv12, {0, 16, 64, 32}, "wGwG"},
        {"width=640&height=480&zx=250&zy=250&zw=500&zh=500", 16, 12, Form::Bgr, {80, 0, 480, 480}, "RGBw"},
        {"width=64&height=48", 320, 240, Form::Grey, {0, 0, 64, 48}, "gggw"},
    };
    for (const Case& c : cases) {
        PackerCounters counters;
        FramePacker packer(*ParsePackerParameters(std::string(c.parameters) + "&quality=90"), counters);
        const Quarters source(c.width, c.height, c.form);
        const auto packed = packer.Pack(source.Planes());
        const auto picture = support::DecodeJpeg(packed.jpeg);
        ASSERT_EQ(std::pair(picture.width, picture.height),
                  std::pair(packer.Parameters().width, packer.Parameters().height))
            << c.parameters;
        const auto word = [&](std::size_t at) { return packed.header[at] | packed.header[at + 1] << 8; };
        EXPECT_EQ((Rectangle{word(28), word(30), word(32), word(34)}), c.content) << c.parameters;
        std::string colours;
        for (const int row : {1, 3}) {
            for (const int column : {1, 3})
                colours += ColourAt(picture, c.content.left + c.content.width * column / 4,
                                    c.content.top + c.content.height * row / 4);
        }
        EXPECT_EQ(colours, c.colours) << c.parameters;
        if (c.content.left > 1) {
            EXPECT_EQ(ColourAt(picture, c.content.left / 2, picture.height / 2), '.') << "black beside it";
        }
    }
}

// Sources change their size and form as they like; under the sanitizers this also shows that nothing is read
// or written beside the planes.
TEST(FramePacker, TakesSourcesOfAnySizeOneAfterTheOther) {
    PackerCounters counters;
    const int sizes[][2] = {{0, 5}, {5, 0},   {1, 1},   {1, 7},     {9, 1},    {2, 2},
                            {3, 3}, {640, 3}, {3, 640}, {65535, 2}, {161, 121}};
    for (const char* parameters :
         {"width=16&height=1920", "width=33&height=17&rotate&zx=990&zy=990&zw=10&zh=10",
          "width=177&height=1&rotate=180"}) {
        FramePacker packer(*ParsePackerParameters(parameters), counters);
        for (const auto& [width, height] : sizes) {
            for (const auto form : {Form::Yv12, Form::Grey, Form::Bgr})
                EXPECT_FALSE(packer.Pack(Quarters(width, height, form).Planes()).jpeg.empty())
                    << parameters << ' ' << width << 'x' << height;
        }
    }
    EXPECT_EQ(counters.frames, 99U);
    EXPECT_EQ(counters.open, 0U);
    EXPECT_GT(counters.cpuNanoseconds, 0U);
}

TEST(MobileFramePacker, GivesAPhoneWhatItAskedForAndNoMore) {
    const auto counters = std::make_shared<PackerCounters>();
    const auto packer = platform::ComObject<MobileFramePacker>::Create(counters);
    const std::string block = MakeBlock(32, 24);
    const auto append = [&](std::string bytes) {
        return packer->AppendFrame(reinterpret_cast<const BITMAPINFOHEADER*>(bytes.data()),
                                   reinterpret_cast<const std::uint8_t*>(bytes.data()) + 40);
    };
    SPackerParams params{};
    std::uint8_t* data = nullptr;
    std::uint32_t size = 0;
    EXPECT_EQ(append(block), E_UNEXPECTED) << "before Init";
    EXPECT_EQ(packer->GetParams(&params), E_UNEXPECTED);
    EXPECT_EQ(packer->Init(Bstr(u"width=x").Get()), E_INVALIDARG);
    EXPECT_EQ(packer->Init(nullptr), S_OK);
    ASSERT_EQ(packer->Init(Bstr(u"width=64&height=48&fps=2.5&flimit=2").Get()), S_OK);
    ASSERT_EQ(packer->GetParams(&params), S_OK);
    EXPECT_EQ(params.fFrameRate, 2.5);
    EXPECT_EQ(packer->GetPackedData(&data, &size), E_PENDING);
    const auto with = [&](std::size_t at, std::uint32_t value) {
        std::string changed = block;
        std::memcpy(&changed[at], &value, sizeof value);
        return changed;
    };
    for (const std::string& bad : {with(16, 1), with(4, 65536), with(4, 0x80000000), with(8, 70000)})
        EXPECT_EQ(append(bad), E_INVALIDARG);
    std::string stream;
    for (const std::string& frame : {block, with(8, static_cast<std::uint32_t>(-24))}) { // and upside down
        EXPECT_NE(packer->HasMoreFrames(), 0);
        ASSERT_EQ(append(frame), S_OK);
        ASSERT_EQ(packer->GetPackedData(&data, &size), S_OK);
        stream.append(reinterpret_cast<char*>(data), size);
        CoTaskMemFree(data);
        EXPECT_EQ(packer->GetPackedData(&data, &size), E_PENDING);
    }
    EXPECT_EQ(packer->HasMoreFrames(), 0);
    EXPECT_EQ(append(block), E_UNEXPECTED) << "behind the last";
    EXPECT_EQ(counters->bytes, stream.size());

    // A phone reads them, however they are cut, and nothing else.
    const auto read = [](std::string_view bytes, std::size_t chunk) {
        PacketReader reader;
        std::vector<phone::Packet> packets;
        for (std::size_t at = 0; at < bytes.size(); at += chunk) {
            reader.Feed(bytes.substr(at, chunk));
            while (auto packet = reader.Next())
                packets.push_back(*std::move(packet));
        }
        EXPECT_FALSE(reader.IsInside());
        return packets;
    };
    for (const std::size_t chunk : {std::size_t{1}, std::size_t{37}, stream.size()}) {
        const auto packets = read(stream, chunk);
        ASSERT_EQ(packets.size(), 2U);
        EXPECT_TRUE(!packets[0].last && packets[1].last);
        EXPECT_TRUE(packets[1].sequence == 2 && packets[1].width == 64);
        EXPECT_LE(packets[0].unixMs, packets[1].unixMs);
    }
    // Mark, length of the header, gap in the numbers, length of the picture, width, content, JPEG.
    for (const std::size_t at : {0, 4, 5, 16, 23, 24, 29, 36}) {
        std::string bad = stream;
        bad[at] = static_cast<char>(bad[at] ^ 0x14);
        EXPECT_THROW((void)read(bad, bad.size()), Ended) << at;
    }
    stream[4] = 40; // a header of tomorrow
    EXPECT_EQ(read(stream.insert(36, "more"), 9).at(0).sequence, 1U);
}

} // namespace
} // namespace kit
