#include "host/sources/sources.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <new>

#include "image/FrameBlock.h"

namespace host {
namespace {

constexpr std::int64_t kRedrawMs = 25;

struct Colour {
    std::uint8_t y, cr, cb;
};
constexpr Colour kGround{28, 124, 136};
constexpr Colour kDigits{225, 128, 128};
constexpr Colour kThousandths{150, 110, 118};
constexpr Colour kBar{140, 200, 90};
constexpr Colour kTrack{52, 126, 132};

// The planes behind a frame block's header. Rectangles have even sides, so that a chroma sample has one
// colour.
class Canvas {
public:
    Canvas(std::uint8_t* planes, int width, int height)
        : m_planes(planes), m_width(width), m_height(height) {}

    void Fill(int left, int top, int width, int height, const Colour& colour) {
        const std::ptrdiff_t area = std::ptrdiff_t{m_width} * m_height;
        FillPlane(m_planes, m_width, left, top, width, height, colour.y);
        FillPlane(m_planes + area, m_width / 2, left / 2, top / 2, width / 2, height / 2, colour.cr);
        FillPlane(m_planes + area + area / 4, m_width / 2, left / 2, top / 2, width / 2, height / 2,
                  colour.cb);
    }

private:
    static void FillPlane(std::uint8_t* plane, std::ptrdiff_t stride, int left, int top, int width,
                          int height, std::uint8_t value) {
        for (int row = top; row < top + height; ++row)
            std::fill_n(plane + row * stride + left, width, value);
    }

    std::uint8_t* m_planes;
    int m_width;
    int m_height;
};

// Seven strokes a digit, as on a pocket calculator:
//
//    0
//   1 2      bit n of a digit's pattern: stroke n is lit
//    3
//   4 5
//    6
constexpr std::array<unsigned, 10> kStrokes{0b1110111, 0b0100100, 0b1011101, 0b1101101, 0b0101110,
                                            0b1101011, 0b1111011, 0b0100101, 0b1111111, 0b1101111};
constexpr int kStroke = 6;
constexpr int kDigitWidth = 30;
constexpr int kDigitHeight = 66; // two squares of strokes, which share the middle one
constexpr int kDigitStep = 38;
constexpr int kColonStep = 14;

void DrawDigit(Canvas& canvas, int left, int top, int digit, const Colour& colour) {
    constexpr int kSide = (kDigitHeight - kStroke) / 2;
    constexpr int kRight = kDigitWidth - kStroke;
    struct Stroke {
        int left, top, width, height;
    };
    constexpr std::array<Stroke, 7> kPlaces{{
        {0, 0, kDigitWidth, kStroke},
        {0, 0, kStroke, kSide},
        {kRight, 0, kStroke, kSide},
        {0, kSide, kDigitWidth, kStroke},
        {0, kSide, kStroke, kSide + kStroke},
        {kRight, kSide, kStroke, kSide + kStroke},
        {0, 2 * kSide, kDigitWidth, kStroke},
    }};
    for (std::size_t i = 0; i < kPlaces.size(); ++i) {
        const Stroke& place = kPlaces[i];
        if ((kStrokes[static_cast<std::size_t>(digit)] >> i & 1U) != 0)
            canvas.Fill(left + place.left, top + place.top, place.width, place.height, colour);
    }
}

void DrawTime(Canvas& canvas, int secondOfDay) {
    constexpr int kTop = 36;
    int left = (ClockSource::kWidth - 6 * kDigitStep - 2 * kColonStep) / 2 + 4;
    const std::array<int, 3> pairs{secondOfDay / 3600 % 24, secondOfDay / 60 % 60, secondOfDay % 60};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (i > 0) {
            canvas.Fill(left, kTop + 18, kStroke, kStroke, kDigits);
            canvas.Fill(left, kTop + 42, kStroke, kStroke, kDigits);
            left += kColonStep;
        }
        for (const int digit : {pairs[i] / 10, pairs[i] % 10}) {
            DrawDigit(canvas, left, kTop, digit, kDigits);
            left += kDigitStep;
        }
    }
}

void DrawThousandths(Canvas& canvas, int thousandths) {
    int left = (ClockSource::kWidth - 3 * kDigitStep) / 2 + 4;
    for (const int digit : {thousandths / 100, thousandths / 10 % 10, thousandths % 10}) {
        DrawDigit(canvas, left, 122, digit, kThousandths);
        left += kDigitStep;
    }
}

// The clock at that moment: seconds since midnight, thousandths of a second.
kit::PicturePtr DrawClock(std::uint64_t sequence, int secondOfDay, int thousandths) {
    constexpr int kWidth = ClockSource::kWidth;
    constexpr int kHeight = ClockSource::kHeight;
    constexpr int kMargin = 20;
    const kit::PlaneLayout layout{kWidth, kHeight, false};
    kit::FrameContent content = kit::AllocateFrame(layout);
    if (!content)
        throw std::bad_alloc();
    Canvas canvas(content.get() + sizeof(BITMAPINFOHEADER), kWidth, kHeight);
    canvas.Fill(0, 0, kWidth, kHeight, kGround);
    DrawTime(canvas, secondOfDay);
    DrawThousandths(canvas, thousandths);
    canvas.Fill(kMargin, 208, kWidth - 2 * kMargin, 12, kTrack);
    canvas.Fill(kMargin, 208, (kWidth - 2 * kMargin) * thousandths / 1000 & ~1, 12, kBar);
    return std::make_shared<const kit::Picture>(sequence, std::move(content), layout);
}

} // namespace

kit::PicturePtr ClockSource::Now() {
    const std::lock_guard guard(m_mutex);
    const std::int64_t now = std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::system_clock::now().time_since_epoch())
                                 .count();
    // Also when the machine's clock was put back.
    if (m_picture && now >= m_drawnAt && now - m_drawnAt < kRedrawMs)
        return m_picture;
    const std::time_t seconds = now / 1000;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    const std::uint64_t sequence = m_picture ? m_picture->Sequence() + 1 : 1;
    m_picture = DrawClock(sequence, local.tm_hour * 3600 + local.tm_min * 60 + std::min(local.tm_sec, 59),
                          static_cast<int>(now % 1000));
    m_drawnAt = now;
    return m_picture;
}

} // namespace host
