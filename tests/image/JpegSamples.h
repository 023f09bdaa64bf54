// Streams for the codec's tests by another program's encoder, and what its decoder makes of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace samples {

using Bytes = std::vector<std::uint8_t>;
using Block = std::array<std::int16_t, 64>;

enum class Marking { Jfif, Adobe, JfifAndAdobe, None };

// One scan of a progressive script: components by index, band and successive approximation (T.81 G.1.1).
struct Scan {
    std::vector<int> components;
    int nSs, nSe, nAh, nAl;
};

struct Recipe {
    int nWidth = 32;
    int nHeight = 32;
    int nComponents = 3; // 1 grey, 3 YCbCr, 4 CMYK
    int nH = 2;          // factors of the first component and of K
    int nV = 2;
    int nOtherH = 1; // and of all others
    int nOtherV = 1;
    int nQuality = 85;
    int nRestartInterval = 0; // in MCUs
    bool bOptimised = false;  // Huffman tables of the picture's own, with codes of all lengths
    bool bProgressive = false;
    bool bSeparateScans = false;
    std::vector<Scan> script = {}; // when not empty, in place of the library's own progressive script
    bool bRgb = false;             // stored as RGB, with an Adobe marker of transform 0
    Marking eMarking = Marking::Jfif;
    unsigned nSeed = 1;
    const std::uint8_t* pPixels = nullptr; // interleaved, in place of the picture below

    std::string Name() const; // what a test's output shows
};

// A kind of picture that a test's parameter names.
struct Kind {
    Recipe Sized(int nWidth, int nHeight, int nRestartInterval = 0) const {
        Recipe sized = recipe;
        sized.nWidth = nWidth;
        sized.nHeight = nHeight;
        sized.nRestartInterval = nRestartInterval;
        return sized;
    }
    const char* szName;
    Recipe recipe;
};
inline std::string KindName(const auto& kind) {
    return kind.param.szName;
}

// A picture of gradients, edges and noise in the encoder's own component order.
Bytes Encode(const Recipe& recipe);

struct Plane {
    int nWidth = 0; // padded to whole blocks
    int nHeight = 0;
    std::vector<std::uint8_t> aSamples;

    int At(int x, int y) const { return aSamples[y * nWidth + x]; }
};

// The components as they are coded: no upsampling, no colour conversion; slow integer transform.
std::vector<Plane> DecodeRaw(const Bytes& jpeg);

// The quantised coefficients of each component's blocks, row after row, in natural order.
std::vector<std::vector<Block>> ReadCoefficients(const Bytes& jpeg);

// Offset of the 0xFF of the first marker of this kind that stands before the entropy-coded data.
std::size_t FindMarker(const Bytes& jpeg, std::uint8_t nMarker);

// The segment with its marker, whole.
Bytes Segment(std::uint8_t nMarker, const Bytes& content);

// A segment with an AC table of one code, 0, for an end-of-band run of 16384 blocks.
Bytes EndOfBandTable();

// All segments of this marker in front of the entropy-coded data, whole; or the first of them.
std::vector<Bytes> SegmentsOf(const Bytes& jpeg, std::uint8_t nMarker);
Bytes SegmentOf(const Bytes& jpeg, std::uint8_t nMarker);

// Takes those segments out.
void Remove(Bytes& jpeg, std::uint8_t nMarker);

// What stands behind the first scan's header.
Bytes DataOf(const Bytes& jpeg);

// Bytes nFrom to nTo, the latter excluded.
Bytes Part(const Bytes& bytes, std::size_t nFrom, std::size_t nTo = SIZE_MAX);

void Insert(Bytes& bytes, std::size_t nAt, const Bytes& piece);
inline void Append(Bytes& bytes, const Bytes& piece) {
    bytes.insert(bytes.end(), piece.begin(), piece.end());
}

Bytes Random(std::size_t n, unsigned nSeed);

// As the codec counts.
inline std::int32_t Size(const Bytes& bytes) {
    return static_cast<std::int32_t>(bytes.size());
}

} // namespace samples
