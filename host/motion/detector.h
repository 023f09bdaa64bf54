// Tells whether something moves before a camera, from what its pictures look like from afar.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace host {

// A picture as the means of the cells of a grid (MeanOfCells of the codec), in 1/256 of a level of grey.
struct MotionGrid {
    int columns = 0;
    int rows = 0;
    std::span<const std::uint16_t> cells; // rows * columns

    static constexpr int kMostColumns = 80;
    static constexpr int kMostRows = 60;
};

// For each cell a background is kept, which follows slowly what is seen, and how far the cell is off from it
// as a rule: its noise, which is large where leaves sway. A picture is compared with the background in four
// steps. First what the light has done is taken off, which is alike for cells that are near each other; then
// a shift of the whole picture, for a camera that shakes. Then a cell is stirred that is still off by much
// more than its noise. And something moves where enough stirred cells hang together for longer than a moment.
// When most of the picture is stirred, the light has changed beyond what can be fitted, or the camera was
// turned: the background is learned anew.
//
// One thread at a time. Times are those of any clock that only goes on.
class MotionDetector {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr int kLeastSensitivity = 1;
    static constexpr int kMostSensitivity = 10;
    // Pictures that come sooner after the last one are passed over: five a second show a walker well enough.
    static constexpr std::chrono::milliseconds kInterval{190};
    // What is seen first is learned for so long before anything counts as movement, and after a gap again.
    static constexpr std::chrono::seconds kLearns{2};
    static constexpr std::chrono::seconds kGap{10};
    // Nothing has moved for so long: it is over.
    static constexpr std::chrono::seconds kStill{3};

    void SetSensitivity(int sensitivity) noexcept;
    // Which cells count for nothing, by their column and row; empty: none of them. Asked when it is set and
    // when the grid becomes another one.
    using Mask = std::function<bool(int column, int row, int columns, int rows)>;
    void SetMask(Mask mask);

    // Whether the picture of that time would be looked at.
    [[nodiscard]] bool Wants(Time when) const noexcept { return !m_last || when - *m_last >= kInterval; }
    // Takes a picture. Returns whether something moves.
    bool Look(const MotionGrid& grid, Time when);
    // No picture came until now: what moved may be over. Returns whether something moves.
    bool Wait(Time now) noexcept;
    // Forgets everything but its settings.
    void Reset() noexcept;

    [[nodiscard]] bool Moves() const noexcept { return m_moves; }
    // Of the largest thing that moved in the newest picture: how much of the picture it takes, 0 to 1, and
    // where its middle is, 0 to 1 from the left and from the top.
    struct Place {
        double share = 0;
        double x = 0;
        double y = 0;
    };
    [[nodiscard]] const Place& Largest() const noexcept { return m_largest; }

private:
    struct Slope {
        float right = 0;
        float down = 0;
    };

    // What cells of a window were and are, and how the one goes by the other.
    struct LightSum {
        float count = 0;
        float before = 0;
        float now = 0;
        float squares = 0;  // of before
        float products = 0; // of both

        static LightSum Of(float before, float now) noexcept;
        LightSum& operator+=(const LightSum& other) noexcept;
        LightSum& operator-=(const LightSum& other) noexcept;
        // What a cell would be now that was so.
        [[nodiscard]] float Expects(float level) const noexcept;
    };

    void Begin(const MotionGrid& grid, Time when);
    void AskMask();
    [[nodiscard]] Slope SlopeAt(std::size_t cell) const noexcept;
    // The largest step of the background beside a cell.
    [[nodiscard]] float StepAt(std::size_t cell) const noexcept;
    void TakeOffLight();
    // By how much the whole picture has moved, cells.
    [[nodiscard]] Slope FitShift();
    // Finds the stirred cells; returns how many of those that count they are, 0 to 1.
    double Stir();
    void Learn(float seconds, bool anew);
    [[nodiscard]] std::size_t LargestPiece();
    void Score(bool stirred, float seconds, Time when);

    int m_sensitivity = 5;
    Mask m_mask;
    int m_columns = 0;
    int m_rows = 0;
    std::optional<Time> m_last; // picture
    Time m_learnsUntil{};
    std::optional<Time> m_moved; // when something last did
    float m_score = 0;           // seconds of movement, as far as they follow each other
    bool m_moves = false;
    Place m_largest;
    std::size_t m_counting = 0;
    // One for each cell.
    std::vector<float> m_now;
    std::vector<float> m_background;
    std::vector<float> m_noise;
    std::vector<float> m_off;           // what is left of the difference, without its sign
    std::vector<std::uint8_t> m_counts; // it is not masked
    std::vector<std::uint8_t> m_stirred;
    // Room for what a picture needs.
    std::vector<float> m_left; // of the difference, levels
    std::vector<LightSum> m_sums;
    std::vector<std::uint32_t> m_sample;
    std::vector<float> m_differences;
    std::vector<std::uint32_t> m_pending;
};

} // namespace host
