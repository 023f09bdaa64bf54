// Pictures as the C interface has them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "capi/handles.h"
#include "capi/morrowstream.h"
#include "image/FrameBlock.h"
#include "interfaces/IVideoFrame.h"
#include "kit/picture/picture.h"

namespace capi {

// One picture: of a camera, whose frame it holds, or one that was decoded here. Nothing changes once it is
// made.
class Frame {
public:
    static constexpr Kind kKind = Kind::Frame;
    static constexpr const char* kName = "frame";

    // `number` counts the camera's frames from 1.
    Frame(IVideoFrame& frame, std::uint64_t number);
    // Throws Failure for bytes that are no picture, or one above the limit.
    Frame(const void* jpeg, std::size_t size);

    // Throws Failure when the file could not be decoded.
    [[nodiscard]] const kit::Picture& Picture() const;
    [[nodiscard]] bool HasPicture() const noexcept { return m_picture.has_value(); }
    [[nodiscard]] std::int64_t Monotonic() const noexcept { return m_monotonic; }
    [[nodiscard]] std::int64_t UnixTime() const noexcept { return m_unixTime; }

private:
    void Hold(kit::HeldFrame frame, std::uint64_t number);

    FrameBlock m_block; // of a picture that was decoded here, as the file
    std::vector<std::uint8_t> m_file;
    std::int64_t m_monotonic = 0; // nanoseconds, as the next
    std::int64_t m_unixTime = 0;
    std::optional<kit::Picture> m_picture; // none: it could not be decoded
};
using FramePtr = std::shared_ptr<Frame>;

// The picture of a frame that has one, and keeps the frame.
inline kit::PicturePtr PictureOf(const FramePtr& frame) {
    return {frame, &frame->Picture()};
}

// A picture of the caller's, checked, with its planes one behind the other as in a frame block. Throws
// Failure.
kit::PicturePtr CopyPicture(const morrow_picture* picture);

} // namespace capi
