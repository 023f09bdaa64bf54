// The codec on any bytes: all four operations, into memory of exactly the size that the header promises.

#include "fuzz/Fuzz.h"
#include "image/ImageCodec.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// Larger pictures are only probed: they cost time, not new paths.
constexpr std::int64_t kMaxPixels = 512 * 512;

// Reads every byte, so that uninitialised memory would be seen, and compares two decodes of one stream.
bool SameBytes(const std::vector<std::uint8_t>& plane, const std::uint8_t* pOther) {
    return plane.empty() || std::memcmp(plane.data(), pOther, plane.size()) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nBytes) {
    if (nBytes > 1u << 20)
        return 0;
    const auto nSize = static_cast<std::int32_t>(nBytes);
    std::int32_t nWidth = 0;
    std::int32_t nHeight = 0;
    ImageKind eKind{};
    if (ProbeJpeg(pData, nSize, nWidth, nHeight, eKind) != ImageOk) {
        Require(!DecodeToFrameBlock(pData, nSize), "no frame of what cannot be probed");
        return 0;
    }
    Require(nWidth > 0 && nHeight > 0, "a picture has a size");
    const std::int64_t nPixels = std::int64_t{nWidth} * nHeight;
    if (nPixels > kMaxPixels)
        return 0;

    const auto nLuma = static_cast<std::size_t>(nPixels);
    const bool bGrey = eKind == ImageKindGrey;
    // What the pool hands out next is another picture's memory; the heap of the sanitizer fills its own.
    if (FrameBlock used = FrameBlock::Allocate(FrameLayout{eKind, nWidth, nHeight}.ImageBytes()))
        std::memset(used.get(), 0xEE, used.size());
    const FrameBlock block = DecodeToFrameBlock(pData, nSize);
    if (block)
        Require(block.size() == 40 + (bGrey ? nLuma : nLuma * 3 / 2), "the block has the size of its planes");

    std::vector<std::uint8_t> luma(nLuma);
    const std::int32_t nGrey = DecodeJpegGrey(pData, nSize, luma.data(), nWidth);
    if (bGrey) {
        Require((nGrey == ImageOk) == static_cast<bool>(block), "both ways read the same grey streams");
        if (block)
            Require(SameBytes(luma, block.Planes()), "both ways give one picture");
    }
    // Of colour it gives the luma where the other engine can; that one leaves an odd last row or column of a
    // YV12 picture as it was. Of a grey stream of its own that is what the call before has left.
    if (!bGrey)
        std::fill(luma.begin(), luma.end(), std::uint8_t{0});

    // Grey streams fill height * step / 2 bytes of each chroma plane.
    const std::int32_t nStep = nWidth / 2;
    const std::size_t nChroma = bGrey
                                    ? static_cast<std::size_t>(std::int64_t{nHeight} * nStep / 2)
                                    : static_cast<std::size_t>(nHeight / 2) * static_cast<std::size_t>(nStep);
    std::vector<std::uint8_t> cr(nChroma);
    std::vector<std::uint8_t> cb(nChroma);
    const std::int32_t nResult =
        DecodeJpegYV12(pData, nSize, luma.data(), nWidth, cr.data(), nStep, cb.data(), nStep);
    // A picture of one column has no chroma and hence strides of 0, which the other engine refuses.
    if (nResult == ImageOk || nWidth > 1)
        Require((nResult == ImageOk) == static_cast<bool>(block), "both ways decode the same streams");
    if (nResult == ImageOk) {
        Require(SameBytes(luma, block.Planes()), "both ways give one luma");
        if (!bGrey) {
            Require(SameBytes(cr, block.Planes() + nLuma), "both ways give one Cr");
            Require(SameBytes(cb, block.Planes() + nLuma + nLuma / 4), "both ways give one Cb");
        }
    }
    return 0;
}
