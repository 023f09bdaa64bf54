// The facade: which engine decodes a stream, and what becomes of its result.

#include "image/ImageCodec.h"

#include "image/CodecStart.h"
#include "image/FallbackEngine.h"
#include "image/jpegdec/JpegDecoder.h"

#include <algorithm>

std::atomic<std::int32_t> g_nCodecStartState{1};

namespace {

// What the header of a stream says.
struct StreamInfo {
    std::int32_t nWidth = 0;
    std::int32_t nHeight = 0;
    std::int32_t nChannels = 0;
    JpegColor eColor = JC_UNKNOWN;
    JpegSampling eSampling = JS_444;

    bool IsGrey() const { return nChannels == 1 && eColor == JC_GRAY; }
    bool IsYCbCr() const { return nChannels == 3 && eColor == JC_YCBCR; }
};

bool OpenStream(CJPEGDecoder& decoder, const std::uint8_t* pJpeg, std::int32_t nJpegSize, StreamInfo& info) {
    return decoder.SetSource(pJpeg, nJpegSize) == JPEG_OK &&
           decoder.ReadHeader(info.nWidth, info.nHeight, info.nChannels, info.eColor, info.eSampling) ==
               JPEG_OK;
}

bool DecodeGreyPlane(CJPEGDecoder& decoder, const StreamInfo& info, std::uint8_t* pDst,
                     std::int32_t nDstStep) {
    return decoder.SetDestination(pDst, info.nWidth, nDstStep, info.nHeight, 1, JC_GRAY) == JPEG_OK &&
           decoder.ReadData() == JPEG_OK;
}

// Half the plane's bytes as its height and stride give them; a plane without rows or columns is left alone.
void FillNeutralChroma(std::uint8_t* pPlane, std::int32_t nHeight, std::int32_t nStep) {
    constexpr std::uint8_t kNeutral = 128;
    const std::int64_t nBytes = std::int64_t{nHeight} * nStep >> 1;
    if (pPlane && nBytes > 0)
        std::fill_n(pPlane, nBytes, kNeutral);
}

std::int32_t ProbePrimary(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::int32_t& nWidth,
                          std::int32_t& nHeight, ImageKind& eKind) {
    CJPEGDecoder decoder;
    if (const std::int32_t nState = StartKernels(); nState < 0)
        return nState;
    StreamInfo info;
    if (!OpenStream(decoder, pJpeg, nJpegSize, info) || (!info.IsGrey() && !info.IsYCbCr()))
        return ProbeJpegFallback(pJpeg, nJpegSize, nWidth, nHeight, eKind);
    eKind = info.IsGrey() ? ImageKindGrey : ImageKindYV12;
    nWidth = info.nWidth;
    nHeight = info.nHeight;
    return ImageOk;
}

std::int32_t DecodeGrey(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pDst,
                        std::int32_t nDstStep) {
    CJPEGDecoder decoder;
    if (const std::int32_t nState = StartKernels(); nState < 0)
        return nState;
    StreamInfo info;
    if (!OpenStream(decoder, pJpeg, nJpegSize, info) || !info.IsGrey())
        return DecodeJpegGreyFallback(pJpeg, nJpegSize, pDst, nDstStep);
    // From here on the data is the primary engine's, for better or worse.
    return DecodeGreyPlane(decoder, info, pDst, nDstStep) ? ImageOk : ImageUnreadable;
}

std::int32_t DecodeYV12(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pY,
                        std::int32_t nYStep, std::uint8_t* pCr, std::int32_t nCrStep, std::uint8_t* pCb,
                        std::int32_t nCbStep) {
    CJPEGDecoder decoder;
    if (const std::int32_t nState = StartKernels(); nState < 0)
        return nState;
    StreamInfo info;
    if (!OpenStream(decoder, pJpeg, nJpegSize, info) || (!info.IsGrey() && !info.IsYCbCr()))
        return DecodeJpegYV12Fallback(pJpeg, nJpegSize, pY, nYStep, pCr, nCrStep, pCb, nCbStep);
    if (info.IsGrey()) {
        if (!DecodeGreyPlane(decoder, info, pY, nYStep))
            return ImageUnreadable;
        FillNeutralChroma(pCr, info.nHeight, nCrStep);
        FillNeutralChroma(pCb, info.nHeight, nCbStep);
        return ImageOk;
    }
    PlanarDestination planes{pY, pCb, pCr, nYStep, nCbStep, nCrStep};
    const bool bDone = decoder.SetDestination(&planes, info.nWidth, info.nWidth, info.nHeight, 3,
                                              JC_YCBCR420_PLANAR) == JPEG_OK &&
                       decoder.ReadData() == JPEG_OK;
    return bDone ? ImageOk : ImageUnreadable;
}

// The sizes fit: the frame header refuses pictures above the limit of the decoder.
std::uint32_t ImageBytes(ImageKind eKind, std::int32_t nWidth, std::int32_t nHeight) {
    const double nPixels = static_cast<double>(nWidth) * nHeight;
    return static_cast<std::uint32_t>(eKind == ImageKindGrey ? nPixels : nPixels * 1.5);
}

BITMAPINFOHEADER DescribeFrame(ImageKind eKind, std::int32_t nWidth, std::int32_t nHeight) {
    const bool bGrey = eKind == ImageKindGrey;
    BITMAPINFOHEADER header{};
    header.biSize = sizeof header;
    header.biWidth = nWidth;
    header.biHeight = nHeight;
    header.biPlanes = bGrey ? 1 : 3;
    header.biBitCount = bGrey ? 8 : 12;
    header.biCompression = bGrey ? FrameCompressionGrey : FrameCompressionYV12;
    header.biSizeImage = ImageBytes(eKind, nWidth, nHeight);
    return header;
}

} // namespace

std::int32_t ProbeJpeg(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::int32_t& nWidth,
                       std::int32_t& nHeight, ImageKind& eKind) noexcept {
    try {
        return ProbePrimary(pJpeg, nJpegSize, nWidth, nHeight, eKind);
    } catch (...) {
        return ImageUnreadable;
    }
}

std::int32_t DecodeJpegGrey(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pDst,
                            std::int32_t nDstStep) noexcept {
    try {
        return DecodeGrey(pJpeg, nJpegSize, pDst, nDstStep);
    } catch (...) {
        return ImageUnreadable;
    }
}

std::int32_t DecodeJpegYV12(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pY,
                            std::int32_t nYStep, std::uint8_t* pCr, std::int32_t nCrStep, std::uint8_t* pCb,
                            std::int32_t nCbStep) noexcept {
    try {
        return DecodeYV12(pJpeg, nJpegSize, pY, nYStep, pCr, nCrStep, pCb, nCbStep);
    } catch (...) {
        return ImageUnreadable;
    }
}

FrameBlock DecodeToFrameBlock(const std::uint8_t* pJpeg, std::int32_t nJpegSize) noexcept {
    std::int32_t nWidth = 0;
    std::int32_t nHeight = 0;
    ImageKind eKind{};
    if (ProbeJpeg(pJpeg, nJpegSize, nWidth, nHeight, eKind) != ImageOk)
        return {};
    if (eKind != ImageKindGrey && eKind != ImageKindYV12)
        return {};
    FrameBlock block = FrameBlock::Allocate(ImageBytes(eKind, nWidth, nHeight));
    if (!block)
        return {};
    std::uint8_t* const pPlanes = block.Planes();
    std::int32_t nResult = ImageUnreadable;
    if (eKind == ImageKindGrey) {
        nResult = DecodeJpegGrey(pJpeg, nJpegSize, pPlanes, nWidth);
    } else {
        const std::int64_t nPixels = std::int64_t{nWidth} * nHeight;
        std::uint8_t* const pCr = pPlanes + nPixels;
        nResult =
            DecodeJpegYV12(pJpeg, nJpegSize, pPlanes, nWidth, pCr, nWidth / 2, pCr + nPixels / 4, nWidth / 2);
    }
    if (nResult != ImageOk)
        return {};
    block.SetHeader(DescribeFrame(eKind, nWidth, nHeight));
    return block;
}
