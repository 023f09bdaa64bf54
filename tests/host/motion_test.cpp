// What counts as movement and what does not, in scenes that are drawn here.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "host/motion/detector.h"
#include "host/motion/watch.h"
#include "image/ImageCodec.h"

namespace host {
namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;

// A yard: a wall with windows, a lawn, and a grain that each sample keeps.
class Yard {
public:
    Yard() {
        std::mt19937 random(7);
        std::normal_distribution<float> grain(0, 6);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                float level = y < 130 ? 150 - static_cast<float>(y) / 4 : 70 + static_cast<float>(x) / 8;
                if (y > 30 && y < 90 && x % 80 > 20 && x % 80 < 50)
                    level = 60;
                m_levels.push_back(level + grain(random));
            }
        }
        std::normal_distribution<float> noise(0, 1);
        for (float& each : m_noise)
            each = noise(random);
    }
    [[nodiscard]] float At(int x, int y) const {
        return m_levels[static_cast<std::size_t>(std::clamp(y, 0, kHeight - 1) * kWidth +
                                                 std::clamp(x, 0, kWidth - 1))];
    }
    [[nodiscard]] float Noise(std::size_t n) const { return m_noise[n % m_noise.size()]; }

private:
    std::vector<float> m_levels;
    std::array<float, 9973> m_noise{};
};

struct Span {
    double from = 0;
    double to = 0;
};

// Something that goes from left to right at a speed, samples a second, from a moment on.
struct Mover {
    double from = 1e9;
    double speed = 40;
    int width = 16;
    int height = 48;
    float contrast = 30;
    double stopsAt = 1e9; // and stays there

    [[nodiscard]] bool Covers(double t, int x, int y) const {
        if (t < from)
            return false;
        const int left = static_cast<int>((std::min(t, stopsAt) - from) * speed) - width;
        return x >= left && x < left + width && y >= 200 - height && y < 200;
    }
};

struct Scene {
    const char* name;
    double seconds;
    float noise;
    Mover mover;
    // Level of a place at a time, without the mover; nothing: the yard as it is.
    float (*draw)(const Yard& yard, double t, int x, int y);
    // When movement has to be told of, begin to end; it has to begin within a second and a half.
    std::vector<Span> moves;
    int mostOthers; // begins of movement besides
};

float Plain(const Yard& yard, double /*t*/, int x, int y) {
    return yard.At(x, y);
}
float Night(const Yard& yard, double /*t*/, int x, int y) {
    return 12 + yard.At(x, y) / 6;
}
float Dusk(const Yard& yard, double t, int x, int y) {
    return yard.At(x, y) * static_cast<float>(1 - 0.75 * std::min(t / 40, 1.0));
}
float Lamp(const Yard& yard, double t, int x, int y) {
    const bool on = t > 10 && t < 20;
    // Brighter where it stands.
    return yard.At(x, y) * (on ? 0.5F + static_cast<float>(x) / 640 : 0.4F);
}
float Exposure(const Yard& yard, double t, int x, int y) {
    const double swing = t > 8 ? std::sin((t - 8) * 2) * 0.25 : 0;
    return yard.At(x, y) * static_cast<float>(1 + swing);
}
float Cloud(const Yard& yard, double t, int x, int y) {
    // A shadow with a soft edge, a third of the picture wide, comes and goes.
    const double edge =
        std::clamp((t - 8) * 40 - x, 0.0, 110.0) / 110 - std::clamp((t - 22) * 40 - x, 0.0, 110.0) / 110;
    return yard.At(x, y) * static_cast<float>(1 - 0.35 * edge);
}
float Tree(const Yard& yard, double t, int x, int y) {
    if (x < 200 || x > 290 || y < 20 || y > 130)
        return yard.At(x, y);
    // Leaves of different sizes that sway.
    const double sway = 4 * std::sin(t * 2.4 + y * 0.05) + 2 * std::sin(t * 5.3);
    const double leaf = std::sin((x + sway) * 0.45) * std::sin((y + sway / 2) * 0.35);
    return static_cast<float>(90 + 45 * leaf);
}
float Shake(const Yard& yard, double t, int x, int y) {
    const double gust = std::fmod(t, 12) > 8 ? 1 : 0;
    const int dx = static_cast<int>(std::lround(gust * 2.4 * std::sin(t * 17)));
    const int dy = static_cast<int>(std::lround(gust * 1.6 * std::sin(t * 23)));
    return yard.At(x + dx, y + dy);
}
float Turned(const Yard& yard, double t, int x, int y) {
    return yard.At(t < 15 ? x : kWidth - 1 - x, t < 15 ? y : (y + 70) % kHeight);
}

// Paint that dries, a wall that the sun warms.
float Patch(const Yard& yard, double t, int x, int y) {
    const bool inside = x > 120 && x < 148 && y > 160 && y < 188;
    return yard.At(x, y) + (inside ? static_cast<float>(t / 60 * 30) : 0);
}
// A box stands there from a moment on, and once it belongs to the background something moves before it.
float Box(const Yard& yard, double t, int x, int y) {
    if (t < 10 || x < 150 || x >= 190 || y < 100 || y >= 150)
        return yard.At(x, y);
    const double left = 150 + (t - 40) * 8;
    return yard.At(x, y) + (t >= 40 && t < 43 && x >= left && x < left + 20 ? -40.0F : 60.0F);
}
// Something close to the lens, in one picture.
float Glimpse(const Yard& yard, double t, int x, int y) {
    const bool inside = std::abs(t - 10) < 0.05 && x > 120 && x < 170 && y > 150 && y < 200;
    return yard.At(x, y) + (inside ? 60 : 0);
}

const Scene kScenes[] = {
    {"empty", 30, 3, {}, Plain, {}, 0},
    {"a walker", 25, 3, {.from = 10}, Plain, {{10, 18}}, 0},
    {"somebody far away",
     25,
     3,
     {.from = 10, .speed = 20, .width = 6, .height = 18, .contrast = 40},
     Plain,
     {{10, 25}},
     0},
    {"a car that stays",
     40,
     3,
     {.from = 10, .speed = 60, .width = 60, .height = 30, .stopsAt = 13},
     Plain,
     {{10, 14}},
     0},
    {"night", 30, 9, {}, Night, {}, 0},
    {"a walker at night", 25, 9, {.from = 10, .contrast = 20}, Night, {{10, 18}}, 0},
    {"dusk", 45, 3, {}, Dusk, {}, 0},
    {"a walker at dusk", 45, 3, {.from = 25, .contrast = 15}, Dusk, {{25, 33}}, 0},
    {"a lamp", 30, 3, {}, Lamp, {}, 0},
    {"exposure that hunts", 30, 3, {}, Exposure, {}, 0},
    {"a cloud", 35, 3, {}, Cloud, {}, 0},
    {"a tree that sways", 60, 3, {.from = 45}, Tree, {{45, 53}}, 0},
    {"a camera that shakes", 60, 3, {.from = 41}, Shake, {{41, 49}}, 0},
    {"a camera that is turned", 30, 3, {}, Turned, {}, 0},
    {"a box that is put down", 50, 3, {}, Box, {{10, 11}, {40, 43}}, 0},
    {"a patch that gets lighter", 60, 3, {}, Patch, {}, 0},
    {"one picture", 15, 3, {}, Glimpse, {}, 0},
};

constexpr double kRate = 5; // pictures a second
// How long behind the end of movement it may be told of, seconds.
constexpr double kLatestEnd = 10;

// Draws picture n of a scene.
void Draw(const Yard& yard, const Scene& scene, int n, std::uint8_t* picture) {
    std::mt19937 random(static_cast<unsigned>(n));
    const double t = n / kRate;
    for (int y = 0; y < kHeight; ++y) {
        std::size_t noise = random();
        for (int x = 0; x < kWidth; ++x) {
            float level = scene.draw(yard, t, x, y) + scene.noise * yard.Noise(noise++);
            if (scene.mover.Covers(t, x, y))
                level += scene.mover.contrast;
            *picture++ = static_cast<std::uint8_t>(std::clamp(level, 0.0F, 255.0F));
        }
    }
}

MotionDetector::Time MomentOf(int n) {
    using Duration = MotionDetector::Time::duration;
    return MotionDetector::Time(
        std::chrono::duration_cast<Duration>(std::chrono::duration<double>(100 + n / kRate)));
}

std::vector<Span> MovesOf(const Yard& yard, const Scene& scene, int sensitivity) {
    MotionDetector detector;
    detector.SetSensitivity(sensitivity);
    std::vector<Span> moves;
    std::vector<std::uint8_t> picture(std::size_t{kWidth} * kHeight);
    std::array<std::uint16_t, 4800> cells{};
    for (int n = 0; n < static_cast<int>(scene.seconds * kRate); ++n) {
        Draw(yard, scene, n, picture.data());
        EXPECT_EQ(MeanOfCells(picture.data(), kWidth, kHeight, kWidth, 80, 60, cells.data()), ImageOk);
        const bool was = detector.Moves();
        const bool is = detector.Look({80, 60, cells}, MomentOf(n));
        if (is && !was)
            moves.push_back({n / kRate, scene.seconds});
        else if (was && !is)
            moves.back().to = n / kRate;
    }
    return moves;
}

TEST(MotionDetector, TellsWhatMovesFromWhatOnlyChanges) {
    const Yard yard;
    for (const Scene& scene : kScenes) {
        std::string told;
        int others = 0;
        std::vector<bool> found(scene.moves.size());
        for (const Span& span : MovesOf(yard, scene, 5)) {
            told += " " + std::to_string(span.from) + "-" + std::to_string(span.to);
            bool known = false;
            for (std::size_t i = 0; i < found.size(); ++i) {
                if (span.from >= scene.moves[i].from && span.from < scene.moves[i].to) {
                    known = true;
                    if (span.from <= scene.moves[i].from + 1.5 &&
                        span.to >= std::min(scene.moves[i].to, scene.seconds) - 1 &&
                        span.to <= scene.moves[i].to + kLatestEnd)
                        found[i] = true;
                }
            }
            others += known ? 0 : 1;
        }
        EXPECT_EQ(std::ranges::count(found, false), 0) << scene.name << ":" << told;
        EXPECT_LE(others, scene.mostOthers) << scene.name << ":" << told;
    }
    const Scene far{"far", 15, 3, {.from = 5, .speed = 20, .width = 6, .height = 18, .contrast = 40},
                    Plain, {}, 0};
    EXPECT_TRUE(MovesOf(yard, far, 1).empty()) << "too small for the least sensitivity";
    EXPECT_EQ(MovesOf(yard, far, 10).size(), 1U);
}

TEST(MotionWatch, TellsOfCamerasThatAreLookedAtAlone) {
    const Yard yard;
    const Scene scene{"a walker", 14, 3, {.from = 6}, Plain, {}, 0};
    std::vector<std::string> told;
    MotionWatch watch(
        [&told](const MotionNews& news) { told.push_back(news.camera + (news.begins ? "+" : "-")); });
    const auto yardTap = watch.TapOf("yard");
    EXPECT_EQ(watch.TapOf("yard"), yardTap) << "a camera that comes back goes on";
    const auto gateTap = watch.TapOf("gate");
    int shown = 0; // pictures, over all scenes: time goes on
    const auto show = [&](int from, int to) {
        for (int n = from; n < to; ++n) {
            const kit::PlaneLayout layout{kWidth, kHeight, true};
            kit::FrameContent content = kit::AllocateFrame(layout);
            Draw(yard, scene, n, content.get() + kit::FrameBytes(layout) - std::size_t{kWidth} * kHeight);
            kit::HeldFrame held = kit::HeldFrame::Of(std::move(content), layout);
            held.arrival = MomentOf(++shown);
            const auto picture = std::make_shared<const kit::Picture>(1, std::move(held), layout);
            yardTap->OnPicture(picture, 1);
            gateTap->OnPicture(picture, 1);
        }
    };
    const auto taken = [&told] { return std::exchange(told, {}); };
    const int whole = static_cast<int>(scene.seconds * kRate);
    show(0, 45);
    EXPECT_EQ(taken(), (std::vector<std::string>{})) << "nobody asked for it";
    watch.SetCameras({{"yard", {.on = true}}});
    show(0, 45);
    EXPECT_EQ(taken(), (std::vector<std::string>{"yard+"}));
    // The phone is gone: it ends when it has been still for long enough.
    watch.Tick(MomentOf(shown));
    EXPECT_EQ(taken(), (std::vector<std::string>{}));
    watch.Tick(MomentOf(shown) + MotionDetector::kStill);
    EXPECT_EQ(taken(), (std::vector<std::string>{"yard-"}));
    // He walks where nothing counts.
    shown += 100;
    watch.SetCameras(
        {{"yard", {.on = true, .mask = [](int, int row, int, int rows) { return row >= rows / 2; }}}});
    show(0, whole);
    EXPECT_EQ(taken(), (std::vector<std::string>{}));
    shown += 100;
    watch.SetCameras({{"yard", {.on = true}}, {"gate", {.on = true}}});
    show(0, 45);
    EXPECT_EQ(taken(), (std::vector<std::string>{"yard+", "gate+"}));
    watch.SetCameras({{"gate", {.on = true, .sensitivity = 1}}});
    EXPECT_EQ(taken(), (std::vector<std::string>{"yard-"})) << "it is looked at no longer";
}

} // namespace
} // namespace host
