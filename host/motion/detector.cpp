#include "host/motion/detector.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace host {
namespace {

// Levels of grey.
constexpr float kFirstNoise = 2;
constexpr float kLeastNoise = 0.25F;
constexpr float kMostNoise = 40;

// How long a cell takes to take something for the background, seconds.
constexpr float kAdoptsStill = 6;
constexpr float kAdoptsStirred = 60;
constexpr float kAdoptsAnew = 0.4F;
// And how long to learn that it is restless, and that it is calm. What stays where it has come to, a car that
// was parked, stirs a cell until its noise is a fifth of the step, some seconds, and is adopted then.
constexpr float kLearnsNoise = 25;
constexpr float kForgetsNoise = 40;
constexpr float kLearnsNoiseAnew = 1;

// Movement counts from so many seconds on.
constexpr float kLeastScore = 0.25F;
constexpr float kMostScore = 0.6F;
// A larger part of the picture does not move at once: the light has changed, or the camera was turned.
constexpr double kMostStirred = 0.5;
// Light changes alike within so many cells.
constexpr std::size_t kLightReach = 7;
constexpr std::size_t kLeastLightReach = 2;
// What is black is a little lighter than nothing, levels.
constexpr float kLeastLight = 3;
// Of levels, so that their squares stay small.
constexpr float kMiddle = 128;
// A window whose levels differ by less is all alike: the square of a level.
constexpr float kAlike = 100;
// A shift below that is none, cells.
constexpr float kLeastShift = 0.05F;
// A shift beyond that is none of a camera that shakes, cells.
constexpr float kMostShift = 1.5F;

struct Threshold {
    float noises; // so many times its noise,
    float levels; // and at least so many levels, a cell has to be off
    int cells;    // that have to hang together, of a grid of 80 x 60
};
constexpr std::array<Threshold, MotionDetector::kMostSensitivity> kThresholds{{{6.5F, 12, 48},
                                                                               {6.2F, 10, 32},
                                                                               {5.9F, 8, 20},
                                                                               {5.6F, 6.5F, 14},
                                                                               {5.3F, 5, 9},
                                                                               {5.0F, 4.2F, 8},
                                                                               {4.7F, 3.6F, 7},
                                                                               {4.4F, 3, 6},
                                                                               {4.1F, 2.5F, 5},
                                                                               {3.8F, 2, 4}}};

const Threshold& ThresholdOf(int sensitivity) noexcept {
    return kThresholds[static_cast<std::size_t>(sensitivity - MotionDetector::kLeastSensitivity)];
}

// The part of the way that something with that time constant goes in `seconds`.
float WayIn(float seconds, float constant) noexcept {
    return 1 - std::exp(-seconds / constant);
}

float MedianOf(std::vector<float>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

MotionDetector::LightSum MotionDetector::LightSum::Of(float before, float now) noexcept {
    return {1, before, now, before * before, before * now};
}

MotionDetector::LightSum& MotionDetector::LightSum::operator+=(const LightSum& other) noexcept {
    count += other.count;
    before += other.before;
    now += other.now;
    squares += other.squares;
    products += other.products;
    return *this;
}

MotionDetector::LightSum& MotionDetector::LightSum::operator-=(const LightSum& other) noexcept {
    count -= other.count;
    before -= other.before;
    now -= other.now;
    squares -= other.squares;
    products -= other.products;
    return *this;
}

float MotionDetector::LightSum::Expects(float level) const noexcept {
    const float meanBefore = before / count;
    const float meanNow = now / count;
    const float variance = std::max(squares / count - meanBefore * meanBefore, 0.0F);
    const float covariance = products / count - meanBefore * meanNow;
    const float factor = (meanNow + kMiddle + kLeastLight) / (meanBefore + kMiddle + kLeastLight);
    const float steep = std::clamp((covariance + kAlike * factor) / (variance + kAlike), 0.0F, 8.0F);
    return meanNow + steep * (level - meanBefore);
}

void MotionDetector::SetSensitivity(int sensitivity) noexcept {
    m_sensitivity = std::clamp(sensitivity, kLeastSensitivity, kMostSensitivity);
}

void MotionDetector::SetMask(Mask mask) {
    m_mask = std::move(mask);
    AskMask();
}

void MotionDetector::AskMask() {
    m_counts.assign(m_now.size(), 1);
    for (std::size_t cell = 0; m_mask && cell < m_counts.size(); ++cell) {
        const auto columns = static_cast<std::size_t>(m_columns);
        if (m_mask(static_cast<int>(cell % columns), static_cast<int>(cell / columns), m_columns, m_rows))
            m_counts[cell] = m_stirred[cell] = 0;
    }
    m_counting = static_cast<std::size_t>(std::ranges::count(m_counts, 1));
    // The fit goes by a quarter of the cells, which is enough for four unknowns.
    m_sample.clear();
    for (std::size_t cell = 0; cell < m_counts.size(); ++cell) {
        const auto columns = static_cast<std::size_t>(m_columns);
        if (m_counts[cell] != 0 && cell % columns % 2 == 0 && cell / columns % 2 == 0)
            m_sample.push_back(static_cast<std::uint32_t>(cell));
    }
}

void MotionDetector::Reset() noexcept {
    m_last.reset();
    m_moved.reset();
    m_score = 0;
    m_moves = false;
    m_largest = {};
}

void MotionDetector::Begin(const MotionGrid& grid, Time when) {
    const bool other = grid.columns != m_columns || grid.rows != m_rows;
    m_columns = grid.columns;
    m_rows = grid.rows;
    m_background = m_now;
    m_noise.assign(m_now.size(), kFirstNoise);
    m_off.assign(m_now.size(), 0);
    m_left.assign(m_now.size(), 0);
    m_stirred.assign(m_now.size(), 0);
    if (other || m_counts.size() != m_now.size())
        AskMask();
    m_learnsUntil = when + kLearns;
    m_score = 0;
}

bool MotionDetector::Look(const MotionGrid& grid, Time when) {
    m_now.resize(grid.cells.size());
    std::ranges::transform(grid.cells, m_now.begin(),
                           [](std::uint16_t mean) { return static_cast<float>(mean) / 256; });
    const bool goesOn = m_last && when - *m_last < kGap && grid.columns == m_columns && grid.rows == m_rows;
    const float seconds = m_last ? std::chrono::duration<float>(when - *m_last).count() : 0;
    m_last = when;
    if (!goesOn) {
        Begin(grid, when);
        return Wait(when);
    }
    if (m_counting == 0)
        return Wait(when);
    const double stirred = Stir();
    if (stirred > kMostStirred && when >= m_learnsUntil) {
        m_learnsUntil = when + kLearns;
        m_background = m_now;
        std::ranges::fill(m_off, 0.0F);
    }
    const bool anew = when < m_learnsUntil;
    const auto piece = anew ? 0 : LargestPiece();
    Learn(seconds, anew);
    const double least = ThresholdOf(m_sensitivity).cells * static_cast<double>(m_now.size()) /
                         (MotionGrid::kMostColumns * MotionGrid::kMostRows);
    Score(piece > 0 && static_cast<double>(piece) >= least, seconds, when);
    return Wait(when);
}

bool MotionDetector::Wait(Time now) noexcept {
    if (m_moves && (!m_moved || now - *m_moved >= kStill)) {
        m_moves = false;
        m_score = 0;
    }
    return m_moves;
}

MotionDetector::Slope MotionDetector::SlopeAt(std::size_t cell) const noexcept {
    const auto columns = static_cast<std::size_t>(m_columns);
    const std::size_t column = cell % columns;
    const std::size_t row = cell / columns;
    Slope slope;
    if (column > 0 && column + 1 < columns)
        slope.right = (m_background[cell + 1] - m_background[cell - 1]) / 2;
    if (row > 0 && row + 1 < static_cast<std::size_t>(m_rows))
        slope.down = (m_background[cell + columns] - m_background[cell - columns]) / 2;
    return slope;
}

// What the light has done to the cells around is the line that fits what they were and what they are best. Of
// a window that is all alike, which has no such line, the light is more or less by a factor.
void MotionDetector::TakeOffLight() {
    const auto columns = static_cast<std::size_t>(m_columns);
    const auto rows = static_cast<std::size_t>(m_rows);
    const std::size_t wide = columns + 1;
    // By the sums of all that lies to the left and above.
    m_sums.assign(wide * (rows + 1), {});
    for (std::size_t row = 0; row < rows; ++row) {
        LightSum line;
        for (std::size_t column = 0; column < columns; ++column) {
            const std::size_t cell = row * columns + column;
            if (m_counts[cell] != 0)
                line += LightSum::Of(m_background[cell] - kMiddle, m_now[cell] - kMiddle);
            LightSum& sum = m_sums[(row + 1) * wide + column + 1];
            sum = m_sums[row * wide + column + 1];
            sum += line;
        }
    }
    // As far to one side as to the other, or light that falls off would look like less of it at the border.
    const auto reach = [](std::size_t at, std::size_t count) {
        return std::max(std::min({at, count - 1 - at, kLightReach}), kLeastLightReach);
    };
    for (std::size_t row = 0; row < rows; ++row) {
        const std::size_t down = reach(row, rows);
        const std::size_t top = (row < down ? 0 : row - down) * wide;
        const std::size_t bottom = std::min(row + down + 1, rows) * wide;
        for (std::size_t column = 0; column < columns; ++column) {
            const std::size_t cell = row * columns + column;
            const std::size_t aside = reach(column, columns);
            const std::size_t left = column < aside ? 0 : column - aside;
            const std::size_t right = std::min(column + aside + 1, columns);
            LightSum sum = m_sums[bottom + right];
            sum -= m_sums[top + right];
            sum -= m_sums[bottom + left];
            sum += m_sums[top + left];
            m_left[cell] =
                m_counts[cell] == 0 ? 0 : m_now[cell] - kMiddle - sum.Expects(m_background[cell] - kMiddle);
        }
    }
}

// Of what is left after the light, by least squares. Twice: what is far from the rest, because something
// moves there, must not pull at the result.
MotionDetector::Slope MotionDetector::FitShift() {
    Slope shift;
    for (int round = 0; round < 2 && !m_sample.empty(); ++round) {
        m_differences.clear();
        const auto remains = [&](std::uint32_t cell, const Slope& slope) {
            return m_left[cell] + shift.right * slope.right + shift.down * slope.down;
        };
        for (const std::uint32_t cell : m_sample)
            m_differences.push_back(std::abs(remains(cell, SlopeAt(cell))));
        const float near = 1 + 3 * MedianOf(m_differences);
        double xx = 1, xy = 0, yy = 1, xd = 0, yd = 0; // a little weight for no shift
        for (const std::uint32_t cell : m_sample) {
            const Slope slope = SlopeAt(cell);
            // Where there are edges a shift is seen, and only there.
            if (std::abs(remains(cell, slope)) > near + std::abs(slope.right) + std::abs(slope.down))
                continue;
            xx += static_cast<double>(slope.right * slope.right);
            xy += static_cast<double>(slope.right * slope.down);
            yy += static_cast<double>(slope.down * slope.down);
            xd -= static_cast<double>(slope.right * m_left[cell]);
            yd -= static_cast<double>(slope.down * m_left[cell]);
        }
        const double determinant = xx * yy - xy * xy;
        if (determinant < 1e-3 * xx * yy)
            return {};
        shift = {static_cast<float>((xd * yy - yd * xy) / determinant),
                 static_cast<float>((yd * xx - xd * xy) / determinant)};
        if (std::abs(shift.right) > kMostShift || std::abs(shift.down) > kMostShift)
            return {};
    }
    return shift;
}

double MotionDetector::Stir() {
    TakeOffLight();
    const Slope shift = FitShift();
    const float far = std::abs(shift.right) + std::abs(shift.down);
    const Threshold& threshold = ThresholdOf(m_sensitivity);
    std::size_t stirred = 0;
    for (std::size_t cell = 0; cell < m_now.size(); ++cell) {
        if (m_counts[cell] == 0)
            continue;
        float limit = std::max(threshold.levels, threshold.noises * m_noise[cell]);
        // Edges within a cell are not where its slope says.
        if (far > kLeastShift) {
            const Slope slope = SlopeAt(cell);
            m_left[cell] += shift.right * slope.right + shift.down * slope.down;
            limit += std::min(far, 1.0F) * (StepAt(cell) + 3);
        }
        m_off[cell] = std::abs(m_left[cell]);
        m_stirred[cell] = m_off[cell] > limit ? 1 : 0;
        stirred += m_stirred[cell];
    }
    return static_cast<double>(stirred) / static_cast<double>(m_counting);
}

float MotionDetector::StepAt(std::size_t cell) const noexcept {
    const auto columns = static_cast<std::size_t>(m_columns);
    float step = 0;
    const auto look = [&](std::size_t other) {
        step = std::max(step, std::abs(m_background[other] - m_background[cell]));
    };
    if (cell % columns > 0)
        look(cell - 1);
    if (cell % columns + 1 < columns)
        look(cell + 1);
    if (cell >= columns)
        look(cell - columns);
    if (cell + columns < m_background.size())
        look(cell + columns);
    return step;
}

void MotionDetector::Learn(float seconds, bool anew) {
    const float still = WayIn(seconds, anew ? kAdoptsAnew : kAdoptsStill);
    const float stirred = WayIn(seconds, anew ? kAdoptsAnew : kAdoptsStirred);
    const float more = WayIn(seconds, anew ? kLearnsNoiseAnew : kLearnsNoise);
    const float less = WayIn(seconds, anew ? kLearnsNoiseAnew : kForgetsNoise);
    for (std::size_t cell = 0; cell < m_now.size(); ++cell) {
        m_background[cell] += (m_stirred[cell] != 0 ? stirred : still) * (m_now[cell] - m_background[cell]);
        float& noise = m_noise[cell];
        noise += (m_off[cell] > noise ? more : less) * (m_off[cell] - noise);
        noise = std::clamp(noise, kLeastNoise, kMostNoise);
    }
}

// Cells hang together that touch, also at a corner.
std::size_t MotionDetector::LargestPiece() {
    m_largest = {};
    std::size_t largest = 0;
    for (std::size_t first = 0; first < m_stirred.size(); ++first) {
        if (m_stirred[first] != 1)
            continue;
        std::size_t count = 0;
        double columns = 0;
        double rows = 0;
        m_pending.assign(1, static_cast<std::uint32_t>(first));
        m_stirred[first] = 2; // seen; stirred all the same
        while (!m_pending.empty()) {
            const int column = static_cast<int>(m_pending.back()) % m_columns;
            const int row = static_cast<int>(m_pending.back()) / m_columns;
            m_pending.pop_back();
            ++count;
            columns += column;
            rows += row;
            for (int y = std::max(row - 1, 0); y <= std::min(row + 1, m_rows - 1); ++y) {
                for (int x = std::max(column - 1, 0); x <= std::min(column + 1, m_columns - 1); ++x) {
                    const auto at = static_cast<std::uint32_t>(y * m_columns + x);
                    std::uint8_t& other = m_stirred[at];
                    if (std::exchange(other, other == 1 ? std::uint8_t{2} : other) == 1)
                        m_pending.push_back(at);
                }
            }
        }
        if (count > largest) {
            largest = count;
            const auto cells = static_cast<double>(count);
            m_largest = {cells / static_cast<double>(m_now.size()), (columns / cells + 0.5) / m_columns,
                         (rows / cells + 0.5) / m_rows};
        }
    }
    return largest;
}

void MotionDetector::Score(bool stirred, float seconds, Time when) {
    // A pause between two pictures is no time in which something was seen to move.
    const float counted = std::min(seconds, 0.2F);
    m_score = std::clamp(m_score + (stirred ? counted : -counted), 0.0F, kMostScore);
    if (m_score < kLeastScore)
        return;
    if (stirred)
        m_moved = when;
    m_moves = m_moves || stirred;
}

} // namespace host
