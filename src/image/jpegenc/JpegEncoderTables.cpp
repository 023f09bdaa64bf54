#include "image/jpegenc/JpegEncoderTables.h"

#include "image/format/JpegStandardTables.h"
#include "image/kernels/Tables.h"

#include <algorithm>

namespace {

// T.81 Tables K.1 and K.2, natural order.
constexpr std::uint8_t kSteps[2][64] = {
    {16, 11,  10,  16, 24, 40, 51, 61, 12,  12,  14,  19,  26, 58, 60, 55,  14,  13,  16,  24, 40, 57,
     69, 56,  14,  17, 22, 29, 51, 87, 80,  62,  18,  22,  37, 56, 68, 109, 103, 77,  24,  35, 55, 64,
     81, 104, 113, 92, 49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98,  112, 100, 103, 99},
    {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
     99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
     99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99},
};

} // namespace

CJPEGEncoderQuantTable::~CJPEGEncoderQuantTable() = default;

IppStatus CJPEGEncoderQuantTable::Init(std::int32_t nId, std::int32_t nQuality) {
    m_nId = nId;
    for (int i = 0; i < 64; ++i)
        m_aRaw[i] = kSteps[nId & 1][g_aZigZag[i]];
    if (const IppStatus nStatus = ippiQuantFwdRawTableInit_JPEG_8u(m_aRaw, nQuality))
        return nStatus;
    return ippiQuantFwdTableInit_JPEG_8u16u(m_aRaw, m_aFactors);
}

CJPEGEncoderHuffmanTable::~CJPEGEncoderHuffmanTable() = default;

IppStatus CJPEGEncoderHuffmanTable::InitStandard(std::int32_t nId, std::int32_t nClass) {
    m_nId = nId;
    m_nClass = nClass;
    const JpegStandardTable table = StandardHuffmanTable(nId, nClass);
    std::copy(table.bits.begin(), table.bits.end(), m_aBits);
    std::copy(table.values.begin(), table.values.end(), m_aValues);
    return Build();
}

IppStatus CJPEGEncoderHuffmanTable::InitOptimised(const std::uint32_t* pStatistics) {
    if (const IppStatus nStatus = ippiEncodeHuffmanRawTableInit_JPEG_8u(pStatistics, m_aBits, m_aValues))
        return nStatus;
    return Build();
}

IppStatus CJPEGEncoderHuffmanTable::Build() {
    ippiEncodeHuffmanSpec* pSpec = nullptr;
    const IppStatus nStatus = ippiEncodeHuffmanSpecInit_JPEG_8u(m_aBits, m_aValues, &pSpec);
    m_pSpec.reset(pSpec);
    return nStatus;
}
