#include "host/picture/encode.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "image/ImageCodec.h"

namespace host {

std::string_view EncodePlanes(const std::uint8_t* planes, const PlaneLayout& layout, int quality,
                              std::vector<std::uint8_t>& buffer) {
    const std::int64_t area = std::int64_t{layout.width} * layout.height;
    const std::uint8_t* cr = planes + area;
    // The first room holds any picture that a camera sends, and noise of a usual quality besides; the second
    // one the worst that samples can be made to give, 27 bits for each of the 3/2 samples of a pixel, and
    // every byte of them stuffed.
    for (const std::int64_t bytes : {area + area / 2, area * 11}) {
        const auto room = static_cast<std::int32_t>(
            std::min<std::int64_t>(bytes + 4096, std::numeric_limits<std::int32_t>::max()));
        if (buffer.size() < static_cast<std::size_t>(room))
            buffer.resize(static_cast<std::size_t>(room));
        std::int32_t size = 0;
        const std::int32_t result =
            layout.grey
                ? EncodeJpegGrey(planes, layout.width, layout.height, quality, buffer.data(), room, &size, 0)
                : EncodeJpegYV12(planes, cr, cr + area / 4, layout.width, layout.height, quality,
                                 buffer.data(), room, &size, 0);
        if (result == ImageOk)
            return {reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(size)};
    }
    return {};
}

} // namespace host
