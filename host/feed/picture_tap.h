// Follows all that a camera sends, picture by picture: what a recorder or a motion detector is.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kit/picture/picture.h"

namespace host {

// Watchers take the newest picture whenever they come to it; a tap misses none.
class PictureTap {
public:
    PictureTap() = default;
    PictureTap(const PictureTap&) = delete;
    PictureTap& operator=(const PictureTap&) = delete;
    virtual ~PictureTap() = default;

    // On the thread that receives the phone's pictures, under the camera's lock: it returns at once, waits
    // for nothing and calls nothing of the component. One call at a time. `connection` is another number for
    // each connection of a phone; 0 for pictures that come on none of the host's.
    virtual void OnPicture(const kit::PicturePtr& picture, std::uint64_t connection) noexcept = 0;
    // Whether it makes use of what comes, as somebody who watches does: a phone that sends less while nobody
    // watches is to send all. Any thread.
    [[nodiscard]] virtual bool Watches() const noexcept { return false; }
};

class TapMaker {
public:
    TapMaker() = default;
    TapMaker(const TapMaker&) = delete;
    TapMaker& operator=(const TapMaker&) = delete;
    virtual ~TapMaker() = default;

    // For a camera that is new to the host; the tap stays with its feed, also while the camera is away. Null
    // for a camera that it does not follow. Comes with the component's server lock held: it calls nothing of
    // the component and waits for nobody.
    virtual std::shared_ptr<PictureTap> TapOf(const std::string& camera) = 0;
};

} // namespace host
