// The encoder on any parameters and pixels: nothing is written behind the capacity, what it writes is decoded
// by our own decoder at the same size, and a capacity that suffices for one run suffices for the next.

#include "fuzz/Fuzz.h"
#include "image/ImageCodec.h"
#include "image/jpegenc/JpegEncoder.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace {

// The parameters, one byte or two each, from the front of the input; the pixels repeat what is behind them.
struct Input {
    std::int32_t nWidth, nHeight, nExtraStep, nQuality, nRestart, nCapacity;
    JpegColor eFrom, eTo;
    JpegSampling eSampling;
    bool bProgressive;
};

constexpr std::size_t kParameters = 12;

Input ReadInput(const std::uint8_t* p) {
    Input input;
    input.nWidth = p[0] % 80;
    input.nHeight = p[1] % 80;
    input.nExtraStep = p[2] % 8 - 1;
    input.nQuality = p[3] - 10;
    input.nRestart = p[4] % 32 == 31 ? 65536 : p[4] % 32;
    input.nCapacity = p[5] << 8 | p[6]; // up to 64 KiB, which not every picture fits
    input.eFrom = static_cast<JpegColor>(p[7] % 9);
    input.eTo = static_cast<JpegColor>(p[8] % 9);
    input.eSampling = static_cast<JpegSampling>(p[9] % 4);
    input.bProgressive = (p[10] & 1) != 0;
    return input;
}

std::int32_t ChannelsOf(const Input& input, std::uint8_t nChoice) {
    switch (input.eFrom) {
    case JC_RGB:
    case JC_BGR:
        return 3;
    case JC_CMYK:
        return 4;
    case JC_UNKNOWN:
        return nChoice % 5;
    default:
        return 1;
    }
}

struct Result {
    JpegStatus eStatus;
    std::vector<std::uint8_t> jpeg;
};

Result Run(const Input& input, std::int32_t nChannels, const std::uint8_t* pPixels,
           const PlanarSource& planes, std::int32_t nCapacity) {
    // Exactly as large as the encoder is told: the sanitizer sees a byte more.
    const std::unique_ptr<std::uint8_t[]> out(new std::uint8_t[static_cast<std::size_t>(nCapacity)]);
    CJPEGEncoder encoder;
    const void* const pSource =
        input.eFrom == JC_YCBCR420_PLANAR ? static_cast<const void*>(&planes) : pPixels;
    static_cast<void>(encoder.SetSource(pSource, input.nWidth, input.nHeight, nChannels,
                                        input.nWidth * nChannels + input.nExtraStep, input.eFrom));
    static_cast<void>(
        encoder.SetParams(input.nQuality, input.eSampling, input.eTo, input.bProgressive, input.nRestart));
    std::int32_t nSize = nCapacity;
    Result result{input.bProgressive ? encoder.WriteImageProgressive(out.get(), &nSize)
                                     : encoder.WriteImage(out.get(), &nSize),
                  {}};
    if (result.eStatus == JPEG_OK) {
        Require(nSize > 0 && nSize < nCapacity, "the length stays below the capacity");
        result.jpeg.assign(out.get(), out.get() + nSize);
    } else {
        Require(nSize == nCapacity, "a failure leaves the capacity");
    }
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nBytes) {
    if (nBytes <= kParameters)
        return 0;
    const Input input = ReadInput(pData);
    const std::int32_t nChannels = ChannelsOf(input, pData[11]);
    // Memory of exactly the source's size, without the gap behind the last row.
    const auto nStep = static_cast<std::size_t>(std::max(input.nWidth * nChannels + input.nExtraStep, 0));
    const auto nRow = static_cast<std::size_t>(input.nWidth * nChannels);
    const std::size_t nSource =
        input.nHeight == 0 ? 0 : nStep * static_cast<std::size_t>(input.nHeight - 1) + nRow;
    const auto nHalfRows = static_cast<std::size_t>(input.nHeight / 2);
    const std::size_t nChroma =
        nHalfRows == 0 ? 0 : (nStep >> 1) * (nHalfRows - 1) + static_cast<std::size_t>(input.nWidth / 2);
    const auto fill = [&](std::size_t nCount) {
        std::vector<std::uint8_t> bytes(nCount);
        for (std::size_t i = 0; i < nCount; ++i)
            bytes[i] = pData[kParameters + i % (nBytes - kParameters)];
        return bytes;
    };
    const std::vector<std::uint8_t> pixels = fill(nSource), cb = fill(nChroma), cr = fill(nChroma);
    const PlanarSource planes{pixels.data(), cb.data(), cr.data()};

    const Result small = Run(input, nChannels, pixels.data(), planes, input.nCapacity);
    const Result large = Run(input, nChannels, pixels.data(), planes, 1 << 20);
    Require(large.eStatus != JPEG_BUFFER_EXHAUSTED, "a large buffer holds every small picture");
    if (small.eStatus == JPEG_OK)
        Require(small.jpeg == large.jpeg, "the capacity changes nothing of a stream that fits");
    if (large.eStatus != JPEG_OK || (input.eTo != JC_GRAY && input.eTo != JC_YCBCR))
        return 0;
    std::int32_t nWidth = 0, nHeight = 0;
    ImageKind eKind{};
    const auto nSize = static_cast<std::int32_t>(large.jpeg.size());
    Require(ProbeJpeg(large.jpeg.data(), nSize, nWidth, nHeight, eKind) == ImageOk, "a stream is probed");
    Require(nWidth == input.nWidth && nHeight == input.nHeight, "the size comes back");
    Require(DecodeToFrameBlock(large.jpeg.data(), nSize).size() != 0, "a stream is decoded");
    return 0;
}
