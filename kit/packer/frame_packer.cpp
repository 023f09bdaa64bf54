#include "kit/packer/frame_packer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "image/FrameBlock.h"
#include "kit/packer/planes.h"

namespace kit {
namespace {

constexpr std::uint8_t kNeutralChroma = 128;

// A larger buffer is let go of between two pictures: most of the time a viewer waits, and there may be a
// thousand of them.
constexpr std::size_t kMostKeptBytes = std::size_t{256} * 1024;

void FreeIfLarge(std::vector<std::uint8_t>& buffer) noexcept {
    if (buffer.capacity() > kMostKeptBytes)
        std::vector<std::uint8_t>().swap(buffer);
}

// Cuts a stretch out of a side of `whole` samples; `start` and `size` are thousandths. At least two samples
// where there are two.
std::pair<int, int> CropSide(int start, int size, int whole) noexcept {
    const std::int64_t begin = std::int64_t{start} * whole / 1000;
    const std::int64_t end = (std::int64_t{start + size} * whole + 999) / 1000;
    const int from = static_cast<int>(begin) & ~1;
    const int to = std::min(whole, (static_cast<int>(end) + 1) & ~1);
    if (to - from >= 2 || whole < 2)
        return {std::min(from, whole - 1), std::max(1, to - from)};
    return {(whole - 2) & ~1, whole - ((whole - 2) & ~1)};
}

// A side of the shown picture: even, unless it fills the room.
int FitSide(double size, int room) noexcept {
    const int even = std::max(2, static_cast<int>(std::lround(size / 2)) * 2);
    return room - even < 2 ? room : even;
}

// The part of a picture that the zoom shows: left and top even, so that it begins with a chroma sample.
Rectangle CropOf(const PackerParameters& parameters, int width, int height) noexcept {
    const auto [left, cropWidth] = CropSide(parameters.zoomX, parameters.zoomWidth, width);
    const auto [top, cropHeight] = CropSide(parameters.zoomY, parameters.zoomHeight, height);
    return {left, top, cropWidth, cropHeight};
}

// The largest place for a picture of that size within a larger or smaller one, in its middle.
Rectangle FitInto(int width, int height, int roomWidth, int roomHeight) noexcept {
    const double scale =
        std::min(static_cast<double>(roomWidth) / width, static_cast<double>(roomHeight) / height);
    Rectangle place;
    place.width = FitSide(width * scale, roomWidth);
    place.height = FitSide(height * scale, roomHeight);
    place.left = (roomWidth - place.width) / 2 & ~1;
    place.top = (roomHeight - place.height) / 2 & ~1;
    return place;
}

} // namespace

SourcePlanes PlanesOf(const Picture& picture) {
    const PlaneLayout& layout = picture.Layout();
    return {layout.grey ? SourcePlanes::Form::Grey : SourcePlanes::Form::Yv12, layout.width, layout.height,
            picture.Block().data() + sizeof(BITMAPINFOHEADER)};
}

// What a packer keeps from picture to picture.
class FramePacker::Stream {
public:
    Stream(const PackerParameters& parameters, PackerCounters& counters)
        : m_parameters(parameters), m_counters(counters) {
        ++m_counters.open;
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { --m_counters.open; }

    Packed Pack(const SourcePlanes& source);
    void FreeStream() noexcept;
    [[nodiscard]] bool HasMore() const noexcept {
        return m_parameters.frameLimit == 0 || m_sequence < m_parameters.frameLimit;
    }
    [[nodiscard]] const PackerParameters& Parameters() const noexcept { return m_parameters; }
    void ContinueAt(std::uint32_t sequence) noexcept { m_sequence = sequence - 1; }

private:
    void Arrange(const SourcePlanes& source);
    void Blank();
    void Draw(const SourcePlanes& source);
    void DrawPlane(PlaneScaler& scaler, const std::uint8_t* from, std::ptrdiff_t stride, std::uint8_t* plane,
                   int planeWidth, const Rectangle& content) const;

    const PackerParameters m_parameters;
    PackerCounters& m_counters;
    std::uint32_t m_sequence = 0;

    // The tables below are made for this source.
    SourcePlanes::Form m_form = SourcePlanes::Form::Grey;
    int m_sourceWidth = -1;
    int m_sourceHeight = -1;

    Rectangle m_crop;    // of the source, left and top even
    Rectangle m_content; // of the picture, left and top even
    bool m_colour = false;
    PlaneScaler m_luma;
    PlaneScaler m_chroma;
    std::vector<std::uint8_t> m_converted; // of a source of pixels
    std::vector<std::uint8_t> m_planes;    // the picture; empty before it is drawn into
    std::vector<std::uint8_t> m_jpeg;
};

FramePacker::FramePacker(const PackerParameters& parameters, PackerCounters& counters)
    : m_stream(std::make_unique<Stream>(parameters, counters)) {}
FramePacker::~FramePacker() = default;

FramePacker::Packed FramePacker::Pack(const SourcePlanes& source) {
    return m_stream->Pack(source);
}
void FramePacker::FreeStream() noexcept {
    m_stream->FreeStream();
}
bool FramePacker::HasMore() const noexcept {
    return m_stream->HasMore();
}
const PackerParameters& FramePacker::Parameters() const noexcept {
    return m_stream->Parameters();
}
void FramePacker::ContinueAt(std::uint32_t sequence) noexcept {
    m_stream->ContinueAt(sequence);
}

FramePacker::Packed FramePacker::Stream::Pack(const SourcePlanes& source) {
    const auto began = ThreadTime();
    if (source.form != m_form || source.width != m_sourceWidth || source.height != m_sourceHeight)
        Arrange(source);
    if (m_planes.empty())
        Blank();
    if (source.width > 0 && source.height > 0)
        Draw(source);
    Packed packed;
    packed.jpeg = EncodePlanes(m_planes.data(), {m_parameters.width, m_parameters.height, !m_colour},
                               m_parameters.quality, m_jpeg);
    FreeIfLarge(m_planes);
    FreeIfLarge(m_converted);
    if (m_jpeg.capacity() > kMostKeptBytes) {
        m_jpeg.resize(packed.jpeg.size());
        m_jpeg.shrink_to_fit();
        packed.jpeg = {reinterpret_cast<const char*>(m_jpeg.data()), m_jpeg.size()};
    }
    m_counters.cpuNanoseconds += static_cast<std::uint64_t>((ThreadTime() - began).count());
    if (packed.jpeg.empty())
        return packed;
    ++m_sequence;
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    WritePackedHeader({.flags = HasMore() ? std::uint16_t{0} : kPackedLast,
                       .unixMs = static_cast<std::uint64_t>(now.count()),
                       .sequence = m_sequence,
                       .size = static_cast<std::uint32_t>(packed.jpeg.size()),
                       .width = m_parameters.width,
                       .height = m_parameters.height,
                       .content = m_content},
                      packed.header.data());
    ++m_counters.frames;
    m_counters.bytes += packed.header.size() + packed.jpeg.size();
    return packed;
}

void FramePacker::Stream::FreeStream() noexcept {
    FreeIfLarge(m_jpeg);
}

void FramePacker::Stream::Blank() {
    const auto area =
        static_cast<std::size_t>(m_parameters.width) * static_cast<std::size_t>(m_parameters.height);
    m_planes.assign(area + 2 * (area / 4), kNeutralChroma);
    std::fill_n(m_planes.begin(), area, std::uint8_t{0});
}

void FramePacker::Stream::Arrange(const SourcePlanes& source) {
    m_sourceWidth = -1; // should the memory end in the middle of this
    const int width = m_parameters.width;
    const int height = m_parameters.height;
    m_planes.clear(); // what lay beside the last picture
    m_content = {};
    m_colour = false;
    if (source.width > 0 && source.height > 0) {
        m_crop = CropOf(m_parameters, source.width, source.height);
        const bool turned = m_parameters.quarterTurns % 2 != 0;
        m_content = turned ? FitInto(m_crop.height, m_crop.width, width, height)
                           : FitInto(m_crop.width, m_crop.height, width, height);
        const int drawnWidth = turned ? m_content.height : m_content.width;
        const int drawnHeight = turned ? m_content.width : m_content.height;
        m_luma.SetSizes(m_crop.width, m_crop.height, drawnWidth, drawnHeight);
        // A picture of a single column or row has no chroma.
        m_colour = source.form != SourcePlanes::Form::Grey && m_crop.width > 1 && m_crop.height > 1;
        if (m_colour)
            m_chroma.SetSizes(m_crop.width / 2, m_crop.height / 2, drawnWidth / 2, drawnHeight / 2);
    }
    m_form = source.form;
    m_sourceWidth = source.width;
    m_sourceHeight = source.height;
}

void FramePacker::Stream::Draw(const SourcePlanes& source) {
    const std::uint8_t* y = source.samples;
    if (source.form == SourcePlanes::Form::Bgr) {
        const auto area = static_cast<std::size_t>(source.width) * static_cast<std::size_t>(source.height);
        m_converted.resize(area + 2 * (area / 4));
        ConvertBgrToPlanes(source.samples, source.width, source.height, m_converted.data());
        y = m_converted.data();
    }
    const std::ptrdiff_t stride = source.width;
    DrawPlane(m_luma, y + m_crop.top * stride + m_crop.left, stride, m_planes.data(), m_parameters.width,
              m_content);
    if (!m_colour)
        return;
    const std::ptrdiff_t area = stride * source.height;
    const std::ptrdiff_t chromaStride = stride / 2;
    const std::ptrdiff_t offset = m_crop.top / 2 * chromaStride + m_crop.left / 2;
    const std::ptrdiff_t drawnArea = std::ptrdiff_t{m_parameters.width} * m_parameters.height;
    const Rectangle content{m_content.left / 2, m_content.top / 2, m_content.width / 2, m_content.height / 2};
    for (int plane = 0; plane < 2; ++plane)
        DrawPlane(m_chroma, y + area + plane * (area / 4) + offset, chromaStride,
                  m_planes.data() + drawnArea + plane * (drawnArea / 4), m_parameters.width / 2, content);
}

void FramePacker::Stream::DrawPlane(PlaneScaler& scaler, const std::uint8_t* from, std::ptrdiff_t stride,
                                    std::uint8_t* plane, int planeWidth, const Rectangle& content) const {
    const std::ptrdiff_t row = planeWidth;
    std::uint8_t* const topLeft = plane + content.top * row + content.left;
    const std::ptrdiff_t right = content.width - 1;
    const std::ptrdiff_t bottom = (content.height - 1) * row;
    // Where the source's first sample goes, and what a step to the right and one down in the source are.
    switch (m_parameters.quarterTurns) {
    case 1:
        return scaler.Scale(from, stride, {topLeft + right, row, -1});
    case 2:
        return scaler.Scale(from, stride, {topLeft + right + bottom, -1, -row});
    case 3:
        return scaler.Scale(from, stride, {topLeft + bottom, -row, 1});
    default:
        return scaler.Scale(from, stride, {topLeft, 1, row});
    }
}

} // namespace kit
