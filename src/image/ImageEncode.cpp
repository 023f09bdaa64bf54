// The encoding side of the facade.

#include "image/CodecStart.h"
#include "image/ImageCodec.h"
#include "image/jpegenc/JpegEncoder.h"

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
