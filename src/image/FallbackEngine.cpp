#include "image/CodecParts.h"

#include "image/ijl/Ijl.h"
#include "image/kernels/Colour.h"
#include "image/kernels/Memory.h"

namespace {

// One stream in the engine, freed on every path.
class FallbackStream {
public:
    FallbackStream() = default;
    FallbackStream(const FallbackStream&) = delete;
    FallbackStream& operator=(const FallbackStream&) = delete;
    ~FallbackStream() { static_cast<void>(Free()); }

    // Reads the header: the fields that start with JPG.
    bool Open(const std::uint8_t* pJpeg, std::int32_t nJpegSize) {
        m_bOpen = ijlInit(&m_record) == IJL_OK;
        if (!m_bOpen)
            return false;
        m_record.JPGBytes = pJpeg;
        m_record.JPGSizeBytes = nJpegSize;
        return ijlRead(&m_record, IJL_JBUFF_READPARAMS) == IJL_OK;
    }

    // Decodes into an image of the stream's size.
    bool ReadImage(std::uint8_t* pDst, std::uint32_t nChannels, IJL_COLOR eColor, std::int32_t nPadBytes) {
        m_record.DIBBytes = pDst;
        m_record.DIBWidth = static_cast<std::uint32_t>(m_record.JPGWidth);
        m_record.DIBHeight = m_record.JPGHeight;
        m_record.DIBChannels = nChannels;
        m_record.DIBColor = eColor;
        m_record.DIBPadBytes = static_cast<std::uint32_t>(nPadBytes);
        return ijlRead(&m_record, IJL_JBUFF_READWHOLEIMAGE) == IJL_OK;
    }

    // Frees the engine; a result counts only when that succeeds.
    std::int32_t Close(std::int32_t nResult) { return Free() ? nResult : ImageUnreadable; }

    std::int32_t Width() const { return m_record.JPGWidth; }
    std::int32_t Height() const { return m_record.JPGHeight; }
    std::int32_t Components() const { return m_record.JPGChannels; }

private:
    bool Free() {
        const bool bFreed = !m_bOpen || ijlFree(&m_record) == IJL_OK;
        m_bOpen = false;
        return bFreed;
    }

    JPEG_CORE_PROPERTIES m_record;
    bool m_bOpen = false;
};

} // namespace

std::int32_t ProbeJpegFallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::int32_t& nWidth,
                               std::int32_t& nHeight, ImageKind& eKind) {
    FallbackStream stream;
    if (!stream.Open(pJpeg, nJpegSize))
        return ImageUnreadable;
    const std::int32_t nFoundWidth = stream.Width();
    const std::int32_t nFoundHeight = stream.Height();
    const std::int32_t nComponents = stream.Components();
    if ((nComponents != 1 && nComponents != 3) || stream.Close(ImageOk) != ImageOk)
        return ImageUnreadable;
    nWidth = nFoundWidth;
    nHeight = nFoundHeight;
    eKind = nComponents == 1 ? ImageKindGrey : ImageKindYV12;
    return ImageOk;
}

// A stride below the width makes a negative count of pad bytes, which the engine refuses.
std::int32_t DecodeJpegGreyFallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pDst,
                                    std::int32_t nDstStep) {
    if (nDstStep < 0)
        return ImageBadStride;
    FallbackStream stream;
    if (!stream.Open(pJpeg, nJpegSize) || !stream.ReadImage(pDst, 1, IJL_G, nDstStep - stream.Width()))
        return ImageUnreadable;
    return stream.Close(ImageOk);
}

std::int32_t DecodeJpegYV12Fallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pY,
                                    std::int32_t nYStep, std::uint8_t* pCr, std::int32_t nCrStep,
                                    std::uint8_t* pCb, std::int32_t nCbStep) {
    FallbackStream stream;
    if (!stream.Open(pJpeg, nJpegSize))
        return ImageUnreadable;
    const std::int32_t nStep = stream.Width() * 3;
    const auto pPixels = IppAllocate<std::uint8_t>(std::int64_t{nStep} * stream.Height());
    if (!pPixels)
        return stream.Close(ImageNoMemory);
    if (!stream.ReadImage(pPixels.get(), 3, IJL_BGR, 0))
        return ImageUnreadable;
    // A picture of one column has no chroma, hence strides of 0 from a frame block: the kernel refuses them,
    // and there is no frame. One of one row is taken, with the row left as it was, as any odd last one is;
    // its planes of chroma are never written, so they need not be there.
    //
    // Blue-first pixels meet coefficients made for red-first ones, so the plane with the gain of U, which the
    // kernel lists first, holds what YV12 calls V. It has always been so; changing it would change colours.
    const bool bChroma = stream.Height() > 1;
    std::uint8_t* const apPlanes[3] = {pY, bChroma ? pCr : pY, bChroma ? pCb : pY};
    const std::int32_t anSteps[3] = {nYStep, nCrStep, nCbStep};
    if (ippiRGBToYUV420_8u_C3P3R(pPixels.get(), nStep, apPlanes, anSteps, {stream.Width(), stream.Height()}) <
        0)
        return ImageUnreadable;
    return stream.Close(ImageOk);
}
