// From coefficients to the image: which routine makes the pixels of an MCU, and the routines.
//
// All of them start from level-shifted samples as the inverse transform gives them, before any clamp: only
// what goes into the image is clamped, colours after their conversion. Chroma, or any component of fewer
// samples than the picture, is repeated over the pixels that a sample covers.

#include "image/format/JpegGeometry.h"
#include "image/ijl/IjlDecoder.h"

#include <algorithm>
#include <cstring>

bool IjlCanConvert(IJL_COLOR eJpgColor, std::int32_t nJpgChannels, IJL_COLOR eDibColor,
                   std::uint32_t nDibChannels) noexcept {
    const auto isImage = [=](IJL_COLOR eColor, std::uint32_t nChannels) {
        return eDibColor == eColor && nDibChannels == nChannels;
    };
    const bool bPixels = isImage(IJL_RGB, 3) || isImage(IJL_BGR, 3) || isImage(IJL_RGBA_FPX, 4);
    switch (eJpgColor) {
    case IJL_G:
        return nJpgChannels == 1 && (isImage(IJL_G, 1) || bPixels);
    case IJL_RGB:
        return nJpgChannels == 3 && bPixels;
    case IJL_YCBCR:
        return nJpgChannels == 3 && (isImage(IJL_G, 1) || bPixels || eDibColor == IJL_YCBCR);
    case IJL_RGBA_FPX:
    case IJL_YCBCRA_FPX:
        return nJpgChannels == 4 && isImage(IJL_RGBA_FPX, 4);
    case IJL_OTHER:
        return eDibColor == IJL_OTHER;
    case IJL_BGR: // no stream stores it
        break;
    }
    return false;
}

IJLERR IjlCheckImage(const IjlFields& fields) noexcept {
    constexpr std::int32_t kMaxSide = 65535;
    if (!fields.DIBBytes || fields.DIBWidth < 1 || fields.DIBWidth > kMaxSide ||
        fields.DIBHeight < -kMaxSide || fields.DIBHeight > kMaxSide ||
        static_cast<std::int32_t>(fields.DIBPadBytes) < 0 || fields.DIBChannels < 1 ||
        fields.DIBChannels > 255)
        return IJL_INVALID_JPEG_PROPERTIES;
    if (fields.DIBSubsampling != 0 && (fields.DIBSubsampling != 2 || fields.DIBColor != IJL_YCBCR))
        return IJL_UNSUPPORTED_SUBSAMPLING;
    return IJL_OK;
}

// Runs once the frame header is known. Image and pair of colours are checked once more: the record may hold
// what nobody has checked, and the stream may have other components than the record says.
IJLERR CIjlDecoder::ChoosePath() {
    if (const IJLERR eError = IjlCheckImage(m_props); eError != IJL_OK)
        return eError;
    m_eStreamColor = m_props.JPGChannels == 1 && m_props.JPGColor != IJL_OTHER ? IJL_G : m_props.JPGColor;
    if (!IjlCanConvert(m_eStreamColor, m_props.JPGChannels, m_props.DIBColor, m_props.DIBChannels))
        return IJL_INVALID_JPEG_PROPERTIES;

    m_bConvertColor = (m_eStreamColor == IJL_YCBCR || m_eStreamColor == IJL_YCBCRA_FPX) &&
                      m_props.DIBColor != IJL_YCBCR && m_props.DIBColor != IJL_G;
    const auto isSubsampled = [](const IjlComponent& component) {
        return component.nHSampling != 1 || component.nVSampling != 1;
    };
    m_props.cconversion_reqd = m_bConvertColor ? 1 : 0;
    m_props.upsampling_reqd =
        m_props.DIBColor != IJL_YCBCR && std::any_of(Components().begin(), Components().end(), isSubsampled)
            ? 1
            : 0;

    const std::int64_t nLineBytes =
        std::int64_t{m_props.DIBWidth} * m_props.DIBChannels + m_props.DIBPadBytes;
    const std::int32_t nHeight = std::abs(m_props.DIBHeight);
    const bool bBottomUp = m_props.DIBHeight < 0;
    m_props.DIBLineBytes = bBottomUp ? -nLineBytes : nLineBytes;
    m_pFirstRow = m_props.DIBBytes + (bBottomUp ? (nHeight - 1) * nLineBytes : 0);
    m_nOutWidth = std::min(m_props.JPGWidth, static_cast<std::int32_t>(m_props.DIBWidth));
    m_nOutHeight = std::min(m_props.JPGHeight, nHeight);

    for (std::int32_t nFactor = 1; nFactor <= 4; ++nFactor)
        for (std::int32_t nRow = 0; nRow < m_props.nMcuHeight; ++nRow)
            m_aSampleRows[nFactor - 1][nRow] =
                static_cast<std::uint8_t>(nRow * nFactor * 8 / m_props.nMcuHeight);
    ChooseChannels();
    ChooseRoutine();
    return AllocateSamples();
}

// A channel that the stream has nothing for is opaque in an image with alpha, else it is left alone.
void CIjlDecoder::ChooseChannels() {
    const auto nChannels = static_cast<std::int32_t>(m_props.DIBChannels);
    m_nUsedComponents = m_bConvertColor ? 3 : 1;
    for (std::int32_t i = 0; i < nChannels; ++i) {
        std::int32_t nSource = m_eStreamColor == IJL_G ? 0 : m_props.DIBColor == IJL_BGR ? 2 - i : i;
        if (m_props.DIBColor == IJL_RGBA_FPX && i == 3)
            nSource = m_props.JPGChannels == 4 ? 3 : kOpaque;
        else if (nSource >= m_props.JPGChannels)
            nSource = kUntouched;
        m_anChannelSource[i] = static_cast<std::int16_t>(nSource);
        m_nUsedComponents = std::max(m_nUsedComponents, nSource + 1);
    }
}

// fast_processing tells which: 1 to 3 for 4:4:4, 4:2:2, 4:2:0 into BGR, 4 to 6 into RGB, 7 for one grey
// channel.
void CIjlDecoder::ChooseRoutine() {
    static constexpr McuKernel s_apKernels[] = {
        ippiYCbCr444ToBGRLS_MCU_16s8u_P3C3R, ippiYCbCr422ToBGRLS_MCU_16s8u_P3C3R,
        ippiYCbCr420ToBGRLS_MCU_16s8u_P3C3R, ippiYCbCr444ToRGBLS_MCU_16s8u_P3C3R,
        ippiYCbCr422ToRGBLS_MCU_16s8u_P3C3R, ippiYCbCr420ToRGBLS_MCU_16s8u_P3C3R};
    const IjlComponent& first = m_props.components[0];
    m_eRoutine = Routine::General;
    m_props.fast_processing = 0;
    if (m_bConvertColor && m_props.DIBChannels == 3) {
        std::int32_t nSampling = 0;
        if (const std::int32_t nClass = ClassifySampling(); nClass != 0)
            nSampling = nClass == 2 ? 1 : nClass == 1 ? 2 : -1;
        if (nSampling < 0)
            return;
        const std::int32_t nKernel = nSampling + (m_props.DIBColor == IJL_RGB ? 3 : 0);
        m_eRoutine = Routine::Colour;
        m_pMcuKernel = s_apKernels[nKernel];
        m_props.fast_processing = 1 + nKernel;
    } else if (m_props.DIBColor == IJL_G && (m_eStreamColor == IJL_G || m_eStreamColor == IJL_YCBCR) &&
               first.nHSampling * 8 == m_props.nMcuWidth && first.nVSampling * 8 == m_props.nMcuHeight) {
        m_eRoutine = Routine::Grey;
        m_props.fast_processing = 7;
    } else if (!m_bConvertColor && m_props.DIBChannels == 3 &&
               std::all_of(m_anChannelSource, m_anChannelSource + 3,
                           [](std::int16_t nSource) { return nSource >= 0; })) {
        m_eRoutine = Routine::Planes;
    }
}

// Zeros: a component that no scan brings is mid-grey.
IJLERR CIjlDecoder::AllocateSamples() {
    std::int64_t nSamples = 0;
    const auto blocks = [](const IjlComponent& component) {
        return component.nHSampling * component.nVSampling;
    };
    const auto used = Components().first(static_cast<std::size_t>(m_nUsedComponents));
    for (const IjlComponent& component : used)
        nSamples += blocks(component) * kBlock;
    m_pSamples = IppAllocate<std::int16_t>(nSamples);
    if (!m_pSamples)
        return IJL_MEMORY_ERROR;
    std::fill_n(m_pSamples.get(), nSamples, std::int16_t{0});
    m_apSamples.clear();
    std::int16_t* p = m_pSamples.get();
    for (const IjlComponent& component : used) {
        m_apSamples.push_back(p);
        p += blocks(component) * kBlock;
    }
    return IJL_OK;
}

void CIjlDecoder::ReconstructBlock(const std::int16_t* pBlock, const IjlComponent& component,
                                   std::int16_t* pSamples) {
    static_cast<void>(ippxInverseBlock_16s(pBlock, pSamples, component.aSteps));
}

IJLERR CIjlDecoder::WriteStoredPicture() {
    for (std::int32_t nRow = 0; nRow < m_props.nMcuRows; ++nRow) {
        for (std::int32_t nCol = 0; nCol < m_props.nMcuCols; ++nCol) {
            for (std::int32_t i = 0; i < m_nUsedComponents; ++i) {
                const IjlComponent& component = m_props.components[static_cast<std::size_t>(i)];
                const std::int32_t nH = component.nHSampling;
                const std::int32_t nV = component.nVSampling;
                for (std::int32_t n = 0; n < nH * nV && component.nScans != 0; ++n)
                    ReconstructBlock(StoreBlock(component, nCol * nH + n % nH, nRow * nV + n / nH), component,
                                     Samples(i) + n * kBlock);
            }
            if (const IJLERR eError = WriteMcu(nCol, nRow); eError != IJL_OK)
                return eError;
        }
    }
    return IJL_OK;
}

// The part of the MCU that lies in the image.
IJLERR CIjlDecoder::WriteMcu(std::int32_t nMcuCol, std::int32_t nMcuRow) {
    const std::int32_t nX = nMcuCol * m_props.nMcuWidth;
    const std::int32_t nY = nMcuRow * m_props.nMcuHeight;
    const IppiSize part{std::min(m_props.nMcuWidth, m_nOutWidth - nX),
                        std::min(m_props.nMcuHeight, m_nOutHeight - nY)};
    if (part.width < 1 || part.height < 1)
        return IJL_OK;
    switch (m_eRoutine) {
    case Routine::Colour:
        return WriteColour(nX, nY, part);
    case Routine::Grey:
        return WriteGrey(nX, nY, part);
    case Routine::Planes:
        return WritePlanes(nX, nY, part);
    case Routine::General:
        break;
    }
    WriteGeneral(nX, nY, part);
    return IJL_OK;
}

// One kernel call: into the image where all of the MCU lies in it, else by way of a copy.
IJLERR CIjlDecoder::WriteColour(std::int32_t nX, std::int32_t nY, IppiSize part) {
    constexpr std::int32_t kMaxSide = 16;
    const std::int16_t* const apSamples[3] = {Samples(0), Samples(1), Samples(2)};
    const std::int32_t nStep = KernelStep(m_props.DIBLineBytes);
    if (nStep != 0 && part.width == m_props.nMcuWidth && part.height == m_props.nMcuHeight)
        return m_pMcuKernel(apSamples, Pixel(nX, nY), nStep) < 0 ? IJL_INTERNAL_ERROR : IJL_OK;
    std::uint8_t aPixels[kMaxSide * kMaxSide * 3];
    if (m_pMcuKernel(apSamples, aPixels, kMaxSide * 3) < 0)
        return IJL_INTERNAL_ERROR;
    for (std::int32_t y = 0; y < part.height; ++y)
        std::memcpy(Pixel(nX, nY + y), aPixels + y * kMaxSide * 3, static_cast<std::size_t>(part.width) * 3);
    return IJL_OK;
}

IJLERR CIjlDecoder::WriteGrey(std::int32_t nX, std::int32_t nY, IppiSize part) {
    constexpr std::int32_t kSampleStep = 8 * sizeof(std::int16_t);
    const std::int32_t nStep = KernelStep(m_props.DIBLineBytes);
    const std::int32_t nBlockCols = m_props.nMcuWidth / 8;
    for (std::int32_t y = 0; y < part.height; y += 8) {
        for (std::int32_t x = 0; x < part.width; x += 8) {
            const std::int16_t* const pBlock = Samples(0) + (y / 8 * nBlockCols + x / 8) * kBlock;
            const IppiSize size{std::min(8, part.width - x), std::min(8, part.height - y)};
            IppStatus nStatus = ippStsNoErr;
            if (nStep != 0)
                nStatus = ippiAdd128_JPEG_16s8u_C1R(pBlock, kSampleStep, Pixel(nX + x, nY + y), nStep, size);
            // Rows that lie the other way round go one by one, with a stride that does not matter.
            for (std::int32_t i = 0; nStep == 0 && i < size.height && nStatus == ippStsNoErr; ++i)
                nStatus = ippiAdd128_JPEG_16s8u_C1R(pBlock + i * 8, kSampleStep, Pixel(nX + x, nY + y + i), 1,
                                                    {size.width, 1});
            if (nStatus < 0)
                return IJL_INTERNAL_ERROR;
        }
    }
    return IJL_OK;
}

namespace {

constexpr std::int32_t kMaxMcuWidth = 32;
constexpr std::int32_t kMaxMcuHeight = 32;

// The sum of two products in 32 bits that wraps, as that of the MCU kernels: the samples of a damaged stream
// may be anything.
std::int32_t Products(std::int32_t nFactor, std::int32_t nSample, std::int32_t nOther = 0,
                      std::int32_t nOtherSample = 0) {
    const auto product = [](std::int32_t n, std::int32_t m) {
        return static_cast<std::uint32_t>(n) * static_cast<std::uint32_t>(m);
    };
    return static_cast<std::int32_t>(product(nFactor, nSample) + product(nOther, nOtherSample));
}

// Samples of red, green and blue in place of those of Y, Cb and Cr, level-shifted as they are, with the
// arithmetic of the MCU kernels.
void ConvertRow(std::int32_t (&aRows)[3][kMaxMcuWidth], std::int32_t nCols) {
    for (std::int32_t x = 0; x < nCols; ++x) {
        const std::int32_t nY = aRows[0][x];
        const std::int32_t nCb = aRows[1][x];
        const std::int32_t nCr = aRows[2][x];
        aRows[0][x] = nY + (Products(91881, nCr) >> 16);
        aRows[1][x] = nY + (Products(-22554, nCb, -46802, nCr) >> 16);
        aRows[2][x] = nY + (Products(116130, nCb) >> 16);
    }
}

// Samples into one channel of a row of pixels.
template <class Sample>
void StoreRow(const Sample* pRow, std::int32_t nCols, std::uint8_t* p, std::ptrdiff_t nPixelStep) {
    for (std::int32_t x = 0; x < nCols; ++x, p += nPixelStep)
        *p = static_cast<std::uint8_t>(std::clamp(pRow[x] + 128, 0, 255));
}

// The same for a row of a block, in a shape that compilers make vectors of.
void StoreEight(const std::int16_t* pRow, std::uint8_t* p) {
    constexpr std::int16_t kLeast = -128;
    constexpr std::int16_t kMost = 127;
    for (std::int32_t x = 0; x < 8; ++x)
        p[x] = static_cast<std::uint8_t>(std::clamp(pRow[x], kLeast, kMost) + 128);
}

} // namespace

// Three channels that are components as they are: a plane of bytes for each, and one kernel call for the
// pixels.
IJLERR CIjlDecoder::WritePlanes(std::int32_t nX, std::int32_t nY, IppiSize part) {
    std::uint8_t aPlanes[3][kMaxMcuWidth * kMaxMcuHeight];
    for (std::int32_t c = 0; c < 3; ++c)
        FillPlane(m_anChannelSource[c], part, aPlanes[c]);
    const std::int32_t nStep = KernelStep(m_props.DIBLineBytes);
    const std::uint8_t* apRows[3] = {aPlanes[0], aPlanes[1], aPlanes[2]};
    if (nStep != 0)
        return ippiCopy_8u_P3C3R(apRows, kMaxMcuWidth, Pixel(nX, nY), nStep, part) < 0 ? IJL_INTERNAL_ERROR
                                                                                       : IJL_OK;
    // Rows that lie the other way round go one by one, with a stride that does not matter.
    for (std::int32_t y = 0; y < part.height; ++y) {
        if (ippiCopy_8u_P3C3R(apRows, kMaxMcuWidth, Pixel(nX, nY + y), part.width * 3, {part.width, 1}) < 0)
            return IJL_INTERNAL_ERROR;
        for (const std::uint8_t*& pRow : apRows)
            pRow += kMaxMcuWidth;
    }
    return IJL_OK;
}

// The part's samples of one component, a byte for each pixel, kMaxMcuWidth a row.
void CIjlDecoder::FillPlane(std::int32_t nComponent, IppiSize part, std::uint8_t* pPlane) const {
    const IjlComponent& component = m_props.components[static_cast<std::size_t>(nComponent)];
    const std::uint8_t* const pSampleRows = m_aSampleRows[component.nVSampling - 1];
    const bool bHalfWidth = component.nHSampling * 16 == m_props.nMcuWidth;
    for (std::int32_t y = 0; y < part.height; ++y, pPlane += kMaxMcuWidth) {
        if (y > 0 && pSampleRows[y] == pSampleRows[y - 1]) {
            std::memcpy(pPlane, pPlane - kMaxMcuWidth, kMaxMcuWidth);
            continue;
        }
        const std::int16_t* pFrom = SampleRow(nComponent, y);
        if (IsOfFullWidth(nComponent)) {
            for (std::int32_t x = 0; x < m_props.nMcuWidth; x += 8, pFrom += kBlock)
                StoreEight(pFrom, pPlane + x);
        } else if (bHalfWidth) {
            for (std::int32_t x = 0; x < m_props.nMcuWidth; x += 16, pFrom += kBlock) {
                std::uint8_t aBytes[8];
                StoreEight(pFrom, aBytes);
                for (std::int32_t i = 0; i < 16; ++i)
                    pPlane[x + i] = aBytes[i / 2];
            }
        } else {
            std::int32_t aPlain[kMaxMcuWidth];
            ExpandRow(nComponent, y, part.width, aPlain);
            StoreRow(aPlain, part.width, pPlane, 1);
        }
    }
}

// Row by row and channel by channel.
void CIjlDecoder::WriteGeneral(std::int32_t nX, std::int32_t nY, IppiSize part) {
    std::int32_t aColours[3][kMaxMcuWidth];
    std::int32_t aPlain[kMaxMcuWidth];
    const std::ptrdiff_t nPixelStep = m_props.DIBChannels;
    for (std::int32_t y = 0; y < part.height; ++y) {
        if (m_bConvertColor) {
            for (std::int32_t i = 0; i < 3; ++i)
                ExpandRow(i, y, part.width, aColours[i]);
            ConvertRow(aColours, part.width);
        }
        for (std::uint32_t c = 0; c < m_props.DIBChannels; ++c) {
            const std::int32_t nSource = m_anChannelSource[c];
            if (nSource == kUntouched)
                continue;
            std::uint8_t* p = Pixel(nX, nY + y) + c;
            if (nSource == kOpaque) {
                std::fill_n(aPlain, part.width, 127);
                StoreRow(aPlain, part.width, p, nPixelStep);
            } else if (m_bConvertColor && nSource < 3) {
                StoreRow(aColours[nSource], part.width, p, nPixelStep);
            } else if (IsOfFullWidth(nSource)) {
                const std::int16_t* pBlock = SampleRow(nSource, y);
                for (std::int32_t x = 0; x < part.width; x += 8, pBlock += kBlock, p += 8 * nPixelStep)
                    StoreRow(pBlock, std::min(8, part.width - x), p, nPixelStep);
            } else {
                ExpandRow(nSource, y, part.width, aPlain);
                StoreRow(aPlain, part.width, p, nPixelStep);
            }
        }
    }
}

// A sample for each pixel of a row.
bool CIjlDecoder::IsOfFullWidth(std::int32_t nComponent) const {
    return m_props.components[static_cast<std::size_t>(nComponent)].nHSampling == m_props.nMcuWidth / 8;
}

// Row nRow of the MCU from one component's samples, each repeated over the pixels that it covers. Where the
// factors do not divide, a pixel takes the sample that its left edge lies in. pRow has room for a whole MCU.
void CIjlDecoder::ExpandRow(std::int32_t nComponent, std::int32_t nRow, std::int32_t nCols,
                            std::int32_t* pRow) const {
    const std::int16_t* const pFrom = SampleRow(nComponent, nRow);
    const std::int32_t nAll = m_props.nMcuWidth / 8; // of nHSampling/nAll a pixel moves on
    if (IsOfFullWidth(nComponent)) {
        for (std::int32_t n = 0; n < nAll; ++n)
            std::copy_n(pFrom + n * kBlock, 8, pRow + n * 8);
        return;
    }
    const std::int32_t nHSampling = m_props.components[static_cast<std::size_t>(nComponent)].nHSampling;
    std::int32_t nSample = 0;
    std::int32_t nPart = 0;
    for (std::int32_t x = 0; x < nCols; ++x) {
        pRow[x] = pFrom[nSample / 8 * kBlock + nSample % 8];
        nPart += nHSampling;
        if (nPart >= nAll) {
            nPart -= nAll;
            ++nSample;
        }
    }
}
