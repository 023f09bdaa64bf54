// The facade: which engine decodes a stream, what becomes of its result, and the encoder for what callers
// have.

#include "image/ImageCodec.h"

#include "image/CodecParts.h"
#include "image/jpegdec/JpegDecoder.h"
#include "image/jpegenc/JpegEncoder.h"
#include "image/kernels/Level.h"

#include <algorithm>

std::atomic<std::int32_t> g_nCodecStartState{1};

namespace {

// Starts the kernels with the first use of the codec; a negative value is what a start-up failure would hand
// back. Their note on the processor's vendor is of no interest here.
std::int32_t StartKernels() {
    if (g_nCodecStartState.load(std::memory_order_relaxed) > 0) {
        ippStaticInit();
        g_nCodecStartState.store(ImageOk, std::memory_order_relaxed);
    }
    return std::min(g_nCodecStartState.load(std::memory_order_relaxed), 0);
}

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

bool DecodePlanes(CJPEGDecoder& decoder, const StreamInfo& info, PlanarDestination planes) {
    return decoder.SetDestination(&planes, info.nWidth, info.nWidth, info.nHeight, 3, JC_YCBCR420_PLANAR) ==
               JPEG_OK &&
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
    return DecodePlanes(decoder, info, {pY, pCb, pCr, nYStep, nCbStep, nCrStep}) ? ImageOk : ImageUnreadable;
}

// The primary engine reads the header once, for the size of the block and for the data.
FrameBlock DecodeBlock(const std::uint8_t* pJpeg, std::int32_t nJpegSize, ImageSizeFilter pIsWanted) {
    FrameLayout layout{};
    CJPEGDecoder decoder;
    if (StartKernels() < 0)
        return {};
    StreamInfo info;
    const bool bPrimary = OpenStream(decoder, pJpeg, nJpegSize, info) && (info.IsGrey() || info.IsYCbCr());
    if (bPrimary)
        layout = {info.IsGrey() ? ImageKindGrey : ImageKindYV12, info.nWidth, info.nHeight};
    else if (ProbeJpegFallback(pJpeg, nJpegSize, layout.nWidth, layout.nHeight, layout.eKind) != ImageOk)
        return {};
    if (pIsWanted != nullptr && !pIsWanted(layout.nWidth, layout.nHeight))
        return {};
    // The primary engine writes every sample, and clearing them first takes a twentieth of the time that it
    // needs. But a colour picture with an odd side has bytes between its planes that are no sample. The sizes
    // fit: the frame header refuses pictures above the limit of the decoder.
    const bool bEven = (layout.nWidth | layout.nHeight) % 2 == 0;
    const bool bOverwrites = bPrimary && (info.IsGrey() || bEven);
    FrameBlock block = bOverwrites ? FrameBlock::AllocateUncleared(layout.ImageBytes())
                                   : FrameBlock::Allocate(layout.ImageBytes());
    if (!block)
        return {};
    std::uint8_t* const pY = block.Planes();
    const bool bGrey = layout.eKind == ImageKindGrey;
    std::uint8_t* const pCr = bGrey ? nullptr : pY + layout.LumaBytes();
    std::uint8_t* const pCb = bGrey ? nullptr : pCr + layout.ChromaBytes();
    const std::int32_t nStep = layout.nWidth;
    const std::int32_t nChromaStep = layout.ChromaStep();
    bool bDone = false;
    if (bPrimary)
        bDone = bGrey ? DecodeGreyPlane(decoder, info, pY, nStep)
                      : DecodePlanes(decoder, info, {pY, pCb, pCr, nStep, nChromaStep, nChromaStep});
    else if (bGrey)
        bDone = DecodeJpegGreyFallback(pJpeg, nJpegSize, pY, nStep) == ImageOk;
    else
        bDone = DecodeJpegYV12Fallback(pJpeg, nJpegSize, pY, nStep, pCr, nChromaStep, pCb, nChromaStep) ==
                ImageOk;
    if (!bDone)
        return {};
    // A camera must not show what another one left, whatever its stream makes the decoder leave out.
    if (bOverwrites && !decoder.HasWrittenPicture())
        block.Clear();
    block.SetHeader(layout.Header());
    return block;
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

FrameBlock DecodeToFrameBlock(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                              ImageSizeFilter pIsWanted) noexcept {
    try {
        return DecodeBlock(pJpeg, nJpegSize, pIsWanted);
    } catch (...) {
        return {};
    }
}

std::int32_t StripJpeg(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pOut,
                       std::int32_t nOutCapacity, std::int32_t* pnOutSize) noexcept {
    if (nOutCapacity < kStripJpegExtra || nJpegSize > nOutCapacity - kStripJpegExtra)
        return ImageMustBeEncoded;
    try {
        CJPEGDecoder decoder;
        if (const std::int32_t nState = StartKernels(); nState < 0)
            return nState;
        StreamInfo info;
        const bool bPrimary =
            OpenStream(decoder, pJpeg, nJpegSize, info) && (info.IsGrey() || info.IsYCbCr());
        return bPrimary && CopyPictureSegments(pJpeg, nJpegSize, pOut, pnOutSize) ? ImageOk
                                                                                  : ImageMustBeEncoded;
    } catch (...) {
        return ImageMustBeEncoded;
    }
}

namespace {

// What both operations share behind their source: quality in, baseline out, no restarts.
std::int32_t WriteStream(CJPEGEncoder& encoder, std::int32_t nQuality, JpegSampling eSampling,
                         JpegColor eColor, std::uint8_t* pOut, std::int32_t nOutCapacity,
                         std::int32_t* pnOutSize) {
    if (const std::int32_t nState = StartKernels(); nState < 0)
        return nState;
    std::int32_t nSize = nOutCapacity;
    if (!pnOutSize || encoder.SetParams(nQuality, eSampling, eColor, false, 0) != JPEG_OK ||
        encoder.WriteImage(pOut, &nSize) != JPEG_OK)
        return ImageEncodeFailed;
    *pnOutSize = nSize;
    return ImageOk;
}

} // namespace

std::int32_t EncodeJpegGrey(const std::uint8_t* pSrc, std::int32_t nWidth, std::int32_t nHeight,
                            std::int32_t nQuality, std::uint8_t* pOut, std::int32_t nOutCapacity,
                            std::int32_t* pnOutSize, std::int32_t nSrcStep) noexcept {
    try {
        CJPEGEncoder encoder;
        const std::int32_t nStep = nSrcStep == 0 ? nWidth : nSrcStep;
        if (encoder.SetSource(pSrc, nWidth, nHeight, 1, nStep, JC_GRAY) != JPEG_OK)
            return ImageEncodeFailed;
        return WriteStream(encoder, nQuality, JS_444, JC_GRAY, pOut, nOutCapacity, pnOutSize);
    } catch (...) {
        return ImageEncodeFailed;
    }
}

std::int32_t EncodeJpegYV12(const std::uint8_t* pY, const std::uint8_t* pCr, const std::uint8_t* pCb,
                            std::int32_t nWidth, std::int32_t nHeight, std::int32_t nQuality,
                            std::uint8_t* pOut, std::int32_t nOutCapacity, std::int32_t* pnOutSize,
                            std::int32_t nYStep) noexcept {
    try {
        CJPEGEncoder encoder;
        const PlanarSource planes{pY, pCb, pCr};
        const std::int32_t nStep = nYStep == 0 ? nWidth : nYStep;
        if (encoder.SetSource(&planes, nWidth, nHeight, 1, nStep, JC_YCBCR420_PLANAR) != JPEG_OK)
            return ImageEncodeFailed;
        return WriteStream(encoder, nQuality, JS_420, JC_YCBCR, pOut, nOutCapacity, pnOutSize);
    } catch (...) {
        return ImageEncodeFailed;
    }
}

std::int32_t MeanOfCells(const std::uint8_t* pY, std::int32_t nWidth, std::int32_t nHeight,
                         std::int32_t nYStep, std::int32_t nColumns, std::int32_t nRows,
                         std::uint16_t* pMeans) noexcept {
    if (const std::int32_t nState = StartKernels(); nState < 0)
        return nState;
    return CellMeans(pY, nWidth, nHeight, nYStep, nColumns, nRows, pMeans);
}
