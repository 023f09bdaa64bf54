#include "host/feed/picture.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <vector>

#include <turbojpeg.h>

#include "image/FrameBlock.h"
#include "platform/com.h"

namespace host {
namespace {

constexpr int kQuality = 80;
std::atomic<std::uint64_t> g_encoded{0};

struct DestroyCompressor {
    void operator()(void* handle) const noexcept { tjDestroy(handle); }
};

// Each thread that encodes keeps its compressor.
tjhandle Compressor() {
    thread_local const std::unique_ptr<void, DestroyCompressor> compressor(tjInitCompress());
    return compressor.get();
}

struct Planes {
    std::array<const unsigned char*, 3> data{};
    std::array<int, 3> strides{};
};

std::string Compress(const Planes& planes, int width, int height, int subsampling) {
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    const tjhandle compressor = Compressor();
    std::string result;
    if (compressor != nullptr &&
        tjCompressFromYUVPlanes(compressor, const_cast<const unsigned char**>(planes.data.data()), width,
                                planes.strides.data(), height, subsampling, &jpeg, &size, kQuality, 0) == 0)
        result.assign(reinterpret_cast<const char*>(jpeg), size);
    tjFree(jpeg);
    return result;
}

// A plane with more columns and rows, which repeat the last ones; one of nothing but 128, no colour, for an
// empty one.
std::vector<unsigned char> Pad(const unsigned char* plane, int columns, int rows, int wantedColumns,
                               int wantedRows) {
    std::vector<unsigned char> padded(
        static_cast<std::size_t>(wantedColumns) * static_cast<std::size_t>(wantedRows), 128);
    if (columns == 0 || rows == 0)
        return padded;
    for (int y = 0; y < wantedRows; ++y) {
        const auto* from = plane + std::ptrdiff_t{std::min(y, rows - 1)} * columns;
        auto* to = padded.data() + std::ptrdiff_t{y} * wantedColumns;
        std::copy_n(from, columns, to);
        std::fill(to + columns, to + wantedColumns, from[columns - 1]);
    }
    return padded;
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
    const unsigned char* y = block + sizeof(BITMAPINFOHEADER);
    const int width = layout.width;
    const int height = layout.height;
    if (layout.grey)
        return Compress({{y, nullptr, nullptr}, {width, 0, 0}}, width, height, TJSAMP_GRAY);
    const std::ptrdiff_t area = std::ptrdiff_t{width} * height;
    const unsigned char* cr = y + area;
    const unsigned char* cb = cr + area / 4;
    const int columns = width / 2;
    const int rows = height / 2;
    if (width % 2 == 0 && height % 2 == 0)
        return Compress({{y, cb, cr}, {width, columns, columns}}, width, height, TJSAMP_420);
    // With odd sizes the encoder reads (w+1)/2 columns and (h+1)/2 rows of chroma, and twice that of luma.
    const int wantedColumns = (width + 1) / 2;
    const int wantedRows = (height + 1) / 2;
    const auto paddedY = Pad(y, width, height, wantedColumns * 2, wantedRows * 2);
    const auto paddedCb = Pad(cb, columns, rows, wantedColumns, wantedRows);
    const auto paddedCr = Pad(cr, columns, rows, wantedColumns, wantedRows);
    return Compress({{paddedY.data(), paddedCb.data(), paddedCr.data()},
                     {wantedColumns * 2, wantedColumns, wantedColumns}},
                    width, height, TJSAMP_420);
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
    return Compress({{grey.data(), nullptr, nullptr}, {width, 0, 0}}, width, height, TJSAMP_GRAY);
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
