#include "image/FallbackEngine.h"

std::int32_t ProbeJpegFallback(const std::uint8_t* /*pJpeg*/, std::int32_t /*nJpegSize*/,
                               std::int32_t& /*nWidth*/, std::int32_t& /*nHeight*/, ImageKind& /*eKind*/) {
    return ImageUnreadable;
}

std::int32_t DecodeJpegGreyFallback(const std::uint8_t* /*pJpeg*/, std::int32_t /*nJpegSize*/,
                                    std::uint8_t* /*pDst*/, std::int32_t nDstStep) {
    return nDstStep < 0 ? ImageBadStride : ImageUnreadable;
}

std::int32_t DecodeJpegYV12Fallback(const std::uint8_t* /*pJpeg*/, std::int32_t /*nJpegSize*/,
                                    std::uint8_t* /*pY*/, std::int32_t /*nYStep*/, std::uint8_t* /*pCr*/,
                                    std::int32_t /*nCrStep*/, std::uint8_t* /*pCb*/,
                                    std::int32_t /*nCbStep*/) {
    return ImageUnreadable;
}
