// What a browser that is a camera tells of itself.
#pragma once

#include <optional>

namespace host {

struct PhoneState {
    enum class Run { Running, Paused, Stopped };
    Run run = Run::Stopped;
    bool front = false; // the camera on the side of the screen
    // What it really sends.
    int width = 0;
    int height = 0;
    int rate = 0; // pictures a second
    // Whether its light is on; nothing where it has none.
    std::optional<bool> torch{};

    friend bool operator==(const PhoneState&, const PhoneState&) = default;
};

} // namespace host
