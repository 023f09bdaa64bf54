// Makes the pictures that a viewer asked for out of those that a source has.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "host/packer/framing.h"
#include "host/packer/parameters.h"
#include "host/packer/planes.h"
#include "host/picture/picture.h"

namespace host {

// Counts what the packers of a host have done.
struct PackerCounters {
    std::atomic<std::uint64_t> open{0}; // packers at work now
    std::atomic<std::uint64_t> frames{0};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> cpuNanoseconds{0}; // of the threads that packed, while they did
};

// A picture of a source. Rows lie top row first, without padding.
struct SourcePlanes {
    enum class Form {
        Grey, // one plane
        Yv12, // Y, Cr, Cb; chroma with w/2 columns and h/2 rows, w*h/4 bytes a plane, rounded down
        Bgr,  // pixels of three bytes
    };
    Form form = Form::Grey;
    int width = 0; // 0 to 65535, as the height; with a 0 there is nothing to see, and nothing is read
    int height = 0;
    const std::uint8_t* samples = nullptr;
};

// One viewer's packer. A picture keeps its proportions: it is shown as large as it fits, in the middle, and
// what is left of the size asked for is black. Sizes of the source may change from picture to picture; as
// long as they do not, a small picture costs no memory that was not there before, but for what the encoder
// takes while it works. Large buffers are there only while a picture is made. One thread.
class FramePacker {
public:
    FramePacker(const PackerParameters& parameters, PackerCounters& counters);
    FramePacker(const FramePacker&) = delete;
    FramePacker& operator=(const FramePacker&) = delete;
    ~FramePacker();

    struct Packed {
        std::array<std::uint8_t, kPackedHeaderBytes> header{};
        std::string_view jpeg; // valid until the next call; empty when the picture cannot be encoded
    };
    // The next picture of the stream.
    Packed Pack(const SourcePlanes& source);
    // The stream that was packed last has gone out.
    void FreeStream() noexcept;
    // False behind the last picture.
    [[nodiscard]] bool HasMore() const noexcept {
        return m_parameters.frameLimit == 0 || m_sequence < m_parameters.frameLimit;
    }
    [[nodiscard]] const PackerParameters& Parameters() const noexcept { return m_parameters; }
    // The number that the next picture gets, for a stream that goes on with a new packer; the limit counts
    // on, too.
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

// The planes of a picture, which stay the picture's.
SourcePlanes PlanesOf(const Picture& picture);

// The part of a picture that the zoom shows: left and top even, so that it begins with a chroma sample.
Rectangle CropOf(const PackerParameters& parameters, int width, int height) noexcept;
// The largest place for a picture of that size within a larger or smaller one, in its middle.
Rectangle FitInto(int width, int height, int roomWidth, int roomHeight) noexcept;

} // namespace host
