#include "kit/picture/picture.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>

#include "image/FrameBlock.h"
#include "image/ImageCodec.h"
#include "platform/com.h"

namespace kit {
namespace {

constexpr int kQuality = 80;
constexpr std::size_t kMostKeptJpegBytes = std::size_t{512} * 1024;
std::atomic<std::uint64_t> g_encoded{0};
std::atomic<std::uint64_t> g_passedOn{0};

std::uint64_t UnixMsNow() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

// Empty when the picture must be encoded.
std::string PassOn(std::span<const std::uint8_t> file) {
    // Of a file, whose size is that of two 16-bit counts, far below the limit.
    const auto size = static_cast<std::int32_t>(file.size());
    std::string passed(file.size() + 2, '\0');
    std::int32_t passedSize = 0;
    if (StripJpeg(file.data(), size, reinterpret_cast<std::uint8_t*>(passed.data()), size + 2, &passedSize) !=
        ImageOk)
        return {};
    passed.resize(static_cast<std::size_t>(passedSize));
    return passed;
}

} // namespace

std::chrono::nanoseconds ThreadTime() noexcept {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

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
    if (size < FrameBytes({header.biWidth, header.biHeight, grey}))
        return false;
    *layout = {header.biWidth, header.biHeight, grey};
    return true;
}

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

std::string EncodeJpeg(const std::uint8_t* block, const PlaneLayout& layout) {
    // Each thread that encodes keeps its own, unless it is large: there may be a thousand.
    thread_local std::vector<std::uint8_t> buffer;
    std::string jpeg(EncodePlanes(block + sizeof(BITMAPINFOHEADER), layout, kQuality, buffer));
    if (buffer.capacity() > kMostKeptJpegBytes)
        std::vector<std::uint8_t>().swap(buffer);
    return jpeg;
}

std::size_t FrameBytes(const PlaneLayout& layout) noexcept {
    const auto area = static_cast<std::size_t>(layout.width) * static_cast<std::size_t>(layout.height);
    return sizeof(BITMAPINFOHEADER) + (layout.grey ? area : area * 3 / 2);
}

FrameContent AllocateFrame(const PlaneLayout& layout) noexcept {
    const std::size_t size = FrameBytes(layout);
    FrameContent content(static_cast<std::uint8_t*>(CoTaskMemAlloc(size)));
    if (!content)
        return nullptr;
    const BITMAPINFOHEADER header =
        FrameLayout{layout.grey ? ImageKindGrey : ImageKindYV12, layout.width, layout.height}.Header();
    std::memcpy(content.get(), &header, sizeof header);
    std::memset(content.get() + sizeof header, 0, size - sizeof header);
    return content;
}

HeldFrame HeldFrame::Of(IVideoFrame& frame) {
    HeldFrame held;
    const std::uint8_t* bytes = nullptr;
    std::uint32_t size = 0;
    std::int64_t monotonic = 0;
    std::int64_t utc = 0;
    (void)frame.QueryInterface(IReceivedPicture::iid, held.frame.ReceiveVoid());
    if (held.frame && SUCCEEDED(held.frame->GetArrival(&monotonic, &utc))) {
        held.arrival = Clock::time_point(std::chrono::nanoseconds(monotonic));
        held.arrivalUnixMs = static_cast<std::uint64_t>(utc / 1'000'000);
        if (SUCCEEDED(held.frame->GetFrameBlock(&bytes, &size)))
            held.block = {bytes, size};
        if (SUCCEEDED(held.frame->GetFile(&bytes, &size)))
            held.file = {bytes, size};
        return held;
    }
    // A component that does not lend gives copies.
    held.frame = nullptr;
    held.arrivalUnixMs = UnixMsNow();
    std::uint8_t* copy = nullptr;
    if (SUCCEEDED(frame.GetFrameContent(&copy, &size))) {
        held.copy.reset(copy);
        held.block = {copy, size};
    }
    return held;
}

HeldFrame HeldFrame::Of(FrameContent content, const PlaneLayout& layout) {
    HeldFrame held;
    held.copy = std::move(content);
    held.block = {held.copy.get(), FrameBytes(layout)};
    held.arrivalUnixMs = UnixMsNow();
    return held;
}

Source::~Source() = default;

PicturePtr MakePlaceholder(int width, int height) {
    const PlaneLayout layout{std::clamp(width, 16, 4096), std::clamp(height, 16, 4096), true};
    FrameContent content = AllocateFrame(layout);
    if (!content)
        throw std::bad_alloc();
    std::uint8_t* sample = content.get() + sizeof(BITMAPINFOHEADER);
    for (int y = 0; y < layout.height; ++y) {
        for (int x = 0; x < layout.width; ++x)
            *sample++ = (x + y) / 12 % 2 == 0 ? 96 : 112;
    }
    return std::make_shared<const Picture>(0, std::move(content), layout);
}

std::string DrawPlaceholder(int width, int height) {
    const PicturePtr picture = MakePlaceholder(width, height);
    return EncodeJpeg(picture->Block().data(), picture->Layout());
}

std::string Picture::Encode() const {
    const auto began = ThreadTime();
    std::string jpeg = EncodeJpeg(Block().data(), m_layout);
    if (m_encoded)
        m_encoded(ThreadTime() - began);
    g_encoded.fetch_add(1, std::memory_order_relaxed);
    return jpeg;
}

const std::string& Picture::Jpeg() const {
    std::call_once(m_once, [this] {
        if (!m_frame.file.empty())
            m_jpeg = PassOn(m_frame.file);
        if (m_jpeg.empty())
            m_jpeg = Encode();
        else
            g_passedOn.fetch_add(1, std::memory_order_relaxed);
    });
    return m_jpeg;
}

std::uint64_t Picture::EncodedCount() noexcept {
    return g_encoded.load(std::memory_order_relaxed);
}

std::uint64_t Picture::PassedOnCount() noexcept {
    return g_passedOn.load(std::memory_order_relaxed);
}

} // namespace kit
