#include "host/feed/picture.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <vector>

#include "image/FrameBlock.h"
#include "image/ImageCodec.h"
#include "platform/com.h"

namespace host {
namespace {

constexpr int kQuality = 80;
std::atomic<std::uint64_t> g_encoded{0};

// Runs an encoding operation of the codec, called with room and its size, and gives what it wrote.
//
// Each thread that encodes keeps its buffer. The first room holds any picture that a camera sends and noise
// of this quality besides; the second one the worst that samples can be made to give, 27 bits for each of the
// 3/2 samples of a pixel, and every byte of them stuffed.
template <class Operation>
std::string Compress(const PlaneLayout& layout, Operation operation) {
    thread_local std::vector<std::uint8_t> buffer;
    const std::int64_t area = std::int64_t{layout.width} * layout.height;
    for (const std::int64_t bytes : {area + area / 2, area * 11}) {
        const std::int64_t room =
            std::min<std::int64_t>(bytes + 4096, std::numeric_limits<std::int32_t>::max());
        if (static_cast<std::int64_t>(buffer.size()) < room)
            buffer.resize(static_cast<std::size_t>(room));
        std::int32_t size = 0;
        if (operation(buffer.data(), static_cast<std::int32_t>(room), &size) == ImageOk)
            return {reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(size)};
    }
    return {};
}

std::string CompressGrey(const std::uint8_t* plane, const PlaneLayout& layout) {
    return Compress(layout, [&](std::uint8_t* out, std::int32_t room, std::int32_t* size) {
        return EncodeJpegGrey(plane, layout.width, layout.height, kQuality, out, room, size, 0);
    });
}

} // namespace

void FreeFrameContent::operator()(std::uint8_t* block) const noexcept {
    CoTaskMemFree(block);
}

bool ReadLayout(const std::uint8_t* block, std::size_t size, PlaneLayout* layout) {
    BITMAPINFOHEADER header;
    if (block == nullptr || size < sizeof header)
        return false;
    std::memcpy(&header, block, sizeof header);
    const bool grey = header.biCompression == FrameCompressionGrey && header.biBitCount == 8;
    const bool yv12 = header.biCompression == FrameCompressionYV12 && header.biBitCount == 12;
    if (header.biWidth <= 0 || header.biHeight <= 0 || header.biWidth > 65535 || header.biHeight > 65535 ||
        !(grey || yv12))
        return false;
    const auto area =
        static_cast<std::uint64_t>(header.biWidth) * static_cast<std::uint64_t>(header.biHeight);
    const std::uint64_t needed = grey ? area : area + 2 * (area / 4);
    if (size - sizeof header < needed)
        return false;
    *layout = {header.biWidth, header.biHeight, grey};
    return true;
}

std::string EncodeJpeg(const std::uint8_t* block, const PlaneLayout& layout) {
    const std::uint8_t* y = block + sizeof(BITMAPINFOHEADER);
    if (layout.grey)
        return CompressGrey(y, layout);
    const std::ptrdiff_t area = std::ptrdiff_t{layout.width} * layout.height;
    const std::uint8_t* cr = y + area;
    const std::uint8_t* cb = cr + area / 4;
    return Compress(layout, [&](std::uint8_t* out, std::int32_t room, std::int32_t* size) {
        return EncodeJpegYV12(y, cr, cb, layout.width, layout.height, kQuality, out, room, size, 0);
    });
}

std::string DrawPlaceholder(int width, int height) {
    width = std::clamp(width, 16, 4096);
    height = std::clamp(height, 16, 4096);
    std::vector<unsigned char> grey(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            grey[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                 static_cast<std::size_t>(x)] = (x + y) / 12 % 2 == 0 ? 96 : 112;
    }
    return CompressGrey(grey.data(), {width, height, true});
}

const std::string& Picture::Jpeg() const {
    std::call_once(m_once, [this] {
        m_jpeg = EncodeJpeg(m_content.get(), m_layout);
        g_encoded.fetch_add(1, std::memory_order_relaxed);
    });
    return m_jpeg;
}

std::uint64_t Picture::EncodedCount() noexcept {
    return g_encoded.load(std::memory_order_relaxed);
}

} // namespace host
