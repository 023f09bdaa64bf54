// Makes the pictures that a viewer asked for out of those that a source has.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "kit/export.h"
#include "kit/packer/framing.h"
#include "kit/picture/picture.h"

namespace kit {

// The parameters of a viewer's request, which the packer heeds.
//
// The text is what stands behind a source's key in a phone's request: "width=176&height=144&fps=5&rotate",
// pairs of a name and a number joined by "&", in any order. A number is a decimal one, digits with at most
// one point; the last of two equal names counts. A number outside its range is brought to the end of the
// range: a phone that asks for too much gets the most there is. A name that is not in the table is passed
// over, so that a newer phone can talk to an older host. A number that is none, and one where none belongs,
// is refused.
//
//   name     range       default   meaning
//   width    16..1920    176       size of the pictures in pixels, whole numbers
//   height   16..1920    144
//   fps      0.1..25     5         pictures a second
//   flimit   0..2^31-1   0         the stream ends after so many pictures; 0: never
//   quality  1..100      50        of JPEG
//   zx, zy   0..1000     0         left and top of the part of the source's picture that is shown, in
//                                  thousandths of its width and height
//   zw, zh   10..1000    1000      width and height of that part. One that would reach over the right or
//                                  lower edge is moved inwards.
//   rotate   0..270      0         a clockwise turn in degrees, a multiple of 90. Without "=" and number: 90.
struct PackerParameters {
    int width = 176;
    int height = 144;
    double fps = 5;
    std::uint32_t frameLimit = 0;
    int quality = 50;
    int zoomX = 0;
    int zoomY = 0;
    int zoomWidth = 1000;
    int zoomHeight = 1000;
    int quarterTurns = 0; // clockwise, 0 to 3

    friend bool operator==(const PackerParameters&, const PackerParameters&) = default;
};

// Nothing for a text that is refused. Never throws, and takes any bytes.
MORROW_KIT_API std::optional<PackerParameters> ParsePackerParameters(std::string_view text) noexcept;

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
class MORROW_KIT_API FramePacker {
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
    [[nodiscard]] bool HasMore() const noexcept;
    [[nodiscard]] const PackerParameters& Parameters() const noexcept;
    // The number that the next picture gets, for a stream that goes on with a new packer; the limit counts
    // on, too.
    void ContinueAt(std::uint32_t sequence) noexcept;

private:
    class Stream;
    const std::unique_ptr<Stream> m_stream;
};

// The planes of a picture, which stay the picture's.
MORROW_KIT_API SourcePlanes PlanesOf(const Picture& picture);

} // namespace kit
