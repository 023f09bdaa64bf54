// Something that can be watched.
#pragma once

#include <memory>

#include "host/picture/picture.h"

namespace host {

// Any thread, several at a time: all who watch a source share it.
class Source {
public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    // The picture to show now. While there is nothing to see this is a placeholder that says so, never a
    // picture of the past. Null when the source is gone for good.
    virtual PicturePtr Now() = 0;
    // Whether the pictures come to the host as JPEG files, so that their planes are the dearer form.
    [[nodiscard]] virtual bool IsJpeg() const noexcept { return false; }
};
using SourcePtr = std::shared_ptr<Source>;

} // namespace host
