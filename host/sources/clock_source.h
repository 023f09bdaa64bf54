// A drawn clock as a source: something to watch without any camera, and a picture that shows by itself how
// late it is.
#pragma once

#include <chrono>
#include <mutex>

#include "host/content/source.h"

namespace host {

// Draws the time of day of this machine: hours, minutes and seconds in the upper row, thousandths in the
// lower one, and below a bar that grows with the second. A picture is made for each fortieth of a second in
// which somebody asks, and shared by all who do.
class ClockSource : public Source {
public:
    static constexpr int kWidth = 320;
    static constexpr int kHeight = 240;

    PicturePtr Now() override;

private:
    std::mutex m_mutex;
    PicturePtr m_picture;
    std::int64_t m_drawnAt = -1; // Unix milliseconds
};

// The clock at that moment: seconds since midnight, thousandths of a second.
PicturePtr DrawClock(std::uint64_t sequence, int secondOfDay, int thousandths);

} // namespace host
