// The fallback engine on any bytes: its record first read for the parameters, then for every image that the
// stream can fill, each into memory of exactly its size.

#include "fuzz/Fuzz.h"
#include "image/ijl/Ijl.h"
#include "image/kernels/FallbackOutput.h"
#include "image/kernels/Level.h"

#include <algorithm>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

// Larger pictures are only probed: they cost time, not new paths.
constexpr std::int64_t kMaxBytes = 256 * 256 * 4;
constexpr std::uint32_t kPad = 3;

// A failed read leaves as much of the image as it wrote; what stands behind the rows stays untouched always.
IJLERR ReadImage(JPEG_CORE_PROPERTIES& record, IJL_COLOR eColor, std::uint32_t nChannels, bool bBottomUp,
                 Bytes& image) {
    const auto nWidth = static_cast<std::uint32_t>(record.JPGWidth);
    const std::size_t nStep = std::size_t{nWidth} * nChannels + kPad;
    image.assign(nStep * static_cast<std::size_t>(record.JPGHeight), 0xEE);
    record.DIBBytes = image.data();
    record.DIBWidth = nWidth;
    record.DIBHeight = bBottomUp ? -record.JPGHeight : record.JPGHeight;
    record.DIBChannels = nChannels;
    record.DIBColor = eColor;
    record.DIBPadBytes = kPad;
    record.DIBSubsampling = 0;
    const IJLERR eError = ijlRead(&record, IJL_JBUFF_READWHOLEIMAGE);
    for (std::size_t n = nStep; n <= image.size(); n += nStep) {
        for (std::size_t i = 1; i <= kPad; ++i)
            Require(image[n - i] == 0xEE, "nothing is written behind a row");
    }
    return eError;
}

struct Kind {
    IJL_COLOR eColor;
    std::uint32_t nChannels;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nBytes) {
    if (nBytes > 1u << 16)
        return 0;
    static const IppStatus s_nStarted = ippStaticInit();
    Require(s_nStarted >= ippStsNoErr, "the kernels can be started");
    JPEG_CORE_PROPERTIES record;
    Require(ijlInit(&record) == IJL_OK, "a record can be made");
    record.JPGBytes = pData;
    record.JPGSizeBytes = static_cast<std::int64_t>(nBytes);
    if (ijlRead(&record, IJL_JBUFF_READPARAMS) != IJL_OK) {
        Require(ijlFree(&record) == IJL_OK, "a record can be freed after a failure");
        return 0;
    }
    Require(record.JPGWidth > 0 && record.JPGHeight > 0 && record.JPGChannels > 0, "a picture has a size");
    const std::int64_t nLargest =
        std::int64_t{record.JPGWidth} * record.JPGHeight * std::max(record.JPGChannels, 4);
    const IJL_COLOR eJpgColor = record.JPGColor;
    const Kind aKinds[] = {{IJL_BGR, 3},   {IJL_RGB, 3},
                           {IJL_G, 1},     {IJL_RGBA_FPX, 4},
                           {IJL_YCBCR, 3}, {IJL_OTHER, static_cast<std::uint32_t>(record.JPGChannels)}};
    for (const Kind& kind : aKinds) {
        if (nLargest > kMaxBytes)
            break;
        record.JPGColor = kind.eColor == IJL_OTHER ? IJL_OTHER : eJpgColor;
        Bytes down;
        Bytes up;
        const IJLERR eDown = ReadImage(record, kind.eColor, kind.nChannels, false, down);
        Require(ReadImage(record, kind.eColor, kind.nChannels, true, up) == eDown,
                "a stream fares the same each time");
        if (eDown == IJL_OK && kind.eColor == IJL_BGR) {
            // Both ways round the same picture, by way of the kernel that turns one into the other.
            const std::int32_t nStep = record.JPGWidth * 3 + static_cast<std::int32_t>(kPad);
            Require(ippiMirror_8u_C3IR(up.data(), nStep, {record.JPGWidth, record.JPGHeight},
                                       ippAxisTopToBottom) == ippStsNoErr &&
                        up == down,
                    "rows that run upwards hold the same picture");
        }
    }
    Require(ijlFree(&record) == IJL_OK, "a record can be freed");
    return 0;
}
