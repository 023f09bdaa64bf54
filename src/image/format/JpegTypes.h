// The vocabulary of primary decoder and encoder: colours, statuses, records of planes, and the limits on
// passes.
#pragma once

#include <cstdint>

enum JpegColor : std::int32_t {
    JC_UNKNOWN = 0, // not recognised; as destination, plain copy of the components
    JC_GRAY = 1,
    JC_RGB = 2,
    JC_BGR = 3, // three components, blue first
    JC_YCBCR = 4,
    JC_CMYK = 5,
    JC_YCCK = 6,
    JC_YCBCR420_PLANAR = 7, // no stream's: the pointer leads to a PlanarDestination or PlanarSource
};

enum [[nodiscard]] JpegStatus : std::int32_t{
    JPEG_OK = 0,
    JPEG_NOT_SUPPORTED = -1,    // precision, frame type, sampling, scan layout, or a conversion not made here
    JPEG_INTERNAL_ERROR = -2,   // a kernel failed, or there is no memory for a work buffer
    JPEG_BUFFER_EXHAUSTED = -3, // the source ended before a marker, or inside a segment that must be whole
    JPEG_BAD_HUFFMAN_SEGMENT =
        -4,                       // more values than there is room for; a table that is missing or impossible
    JPEG_BAD_QUANT_SEGMENT = -5,  // a table identifier above 3; a table that is missing
    JPEG_BAD_SCAN_SEGMENT = -6,   // a scan without components or with more than 4
    JPEG_BAD_SEGMENT_LENGTH = -7, // a length that does not match its content
    JPEG_BAD_COMPONENT_ID = -8,   // a scan names a component that the frame does not have
    JPEG_BAD_FRAME_SEGMENT = -10, // component count, sampling factor or size out of range
};

// Where JC_YCBCR420_PLANAR goes: planes in the stream's own component order, strides in bytes.
struct PlanarDestination {
    std::uint8_t* pY;
    std::uint8_t* pCb;
    std::uint8_t* pCr;
    std::int64_t nYStep;
    std::int64_t nCbStep;
    std::int64_t nCrStep;
};

// Source planes Y, Cb, Cr of a JC_YCBCR420_PLANAR picture. The Y plane has the picture's rows at the stride
// of the source. A chroma plane has height/2 rows of width/2 samples at half that stride, all three rounded
// down; an odd last column or row of the picture repeats the one before it, and a picture of one column or
// row has no chroma at all: its planes are not read.
struct PlanarSource {
    const std::uint8_t* pY;
    const std::uint8_t* pCb;
    const std::uint8_t* pCr;
};

inline constexpr std::int32_t kJpegMaxComponents = 4;

// Passes over one sequential picture. A second one is legal, though nothing makes such streams; each repaints
// the whole picture, however short its data, so that a small stream of nothing but scan headers could keep a
// processor busy for hours.
inline constexpr std::int32_t kJpegMaxSequentialScans = 8;

// Scans of one progressive picture. Encoders write about ten; a script that sends every bit of four
// components in scans of its own, with three bands each, stays below a hundred. JpegProgressive.cpp tells
// what the limit is for.
inline constexpr std::int32_t kJpegMaxProgressiveScans = 100;

// Room for the coefficients of one progressive picture: 1 GiB. That is every 4:2:0 picture within the limit
// on pixels, and 26 megapixels of a sampling with 8x8 MCUs. Address space only: of it, 3 bytes a pixel of
// 4:2:0 and 6 of 4:4:4 are used.
inline constexpr std::int64_t kJpegMaxCoefficients = std::int64_t{1} << 29;
