// Frame header and scan header (T.81 B.2.2, B.2.3), and what follows from them: geometry, sampling, colour.

#include "image/format/JpegGeometry.h"
#include "image/ijl/IjlDecoder.h"

#include <algorithm>

// Refused besides what the statuses name: a second frame header, since all geometry is that of the first, and
// a picture above the limits of the codec.
IJLERR CIjlDecoder::ReadFrameHeader(bool bProgressive, std::int32_t nContent) {
    if (nContent < 6)
        return IJL_ERR_SOF;
    if (Reader().Byte() != 8 || m_props.bFrameFound)
        return IJL_UNSUPPORTED_FRAME;
    const std::int32_t nHeight = Reader().Word();
    const std::int32_t nWidth = Reader().Word();
    const std::int32_t nComponents = Reader().Byte();
    if (nWidth == 0 || nHeight == 0)
        return IJL_ERR_DNL;
    if (!IsPictureSizeAllowed(nWidth, nHeight))
        return IJL_UNSUPPORTED_FRAME;
    if (nComponents < 1)
        return IJL_ERR_COMP;
    if (nContent != 6 + 3 * nComponents)
        return IJL_ERR_SOF;
    if (m_props.components.size() < static_cast<std::size_t>(nComponents))
        m_props.components.resize(static_cast<std::size_t>(nComponents));
    m_props.JPGWidth = nWidth;
    m_props.JPGHeight = nHeight;
    m_props.JPGChannels = nComponents;
    m_props.bProgressive = bProgressive;
    if (const IJLERR eError = ReadFrameComponents(); eError != IJL_OK)
        return eError;
    m_props.bFrameFound = true;
    ComputeGeometry();
    m_props.JPGSubsampling = ClassifySampling();
    return m_props.iotype == IJL_JBUFF_READWHOLEIMAGE ? ChoosePath() : IJL_OK;
}

// Identifiers may repeat: a scan then names the first that fits. A selector without a slot is kept, and shows
// as a table that has not come.
IJLERR CIjlDecoder::ReadFrameComponents() {
    for (IjlComponent& component : Components()) {
        component = IjlComponent{};
        const JpegFrameEntry entry(Reader());
        component.nId = entry.nId;
        component.nHSampling = entry.nHSampling;
        component.nVSampling = entry.nVSampling;
        component.nQuantSelector = entry.nQuantSelector;
        // Factors end at 4 (T.81 B.2.2); a larger one would only make MCUs of absurd size.
        if (component.nHSampling < 1 || component.nVSampling < 1 || component.nHSampling > 4 ||
            component.nVSampling > 4)
            return IJL_ERR_SOF;
    }
    // One component's scan is not interleaved, and its factors say nothing (T.81 A.2.2).
    if (m_props.JPGChannels == 1)
        m_props.components[0].nHSampling = m_props.components[0].nVSampling = 1;
    return IJL_OK;
}

// T.81 A.1.1 and A.2. Sizes stay below 2^31: at most 65500 samples and 4 blocks an MCU.
void CIjlDecoder::ComputeGeometry() {
    std::int32_t nMaxH = 1;
    std::int32_t nMaxV = 1;
    for (const IjlComponent& component : Components()) {
        nMaxH = std::max(nMaxH, component.nHSampling);
        nMaxV = std::max(nMaxV, component.nVSampling);
    }
    m_props.nMcuWidth = 8 * nMaxH;
    m_props.nMcuHeight = 8 * nMaxV;
    m_props.nMcuCols = CeilDivide(m_props.JPGWidth, m_props.nMcuWidth);
    m_props.nMcuRows = CeilDivide(m_props.JPGHeight, m_props.nMcuHeight);
    std::int64_t nBlocks = 0;
    for (IjlComponent& component : Components()) {
        component.nCols = CeilDivide(CeilDivide(m_props.JPGWidth * component.nHSampling, nMaxH), 8);
        component.nRows = CeilDivide(CeilDivide(m_props.JPGHeight * component.nVSampling, nMaxV), 8);
        component.nFirstBlock = nBlocks;
        nBlocks += std::int64_t{StoreCols(component)} * m_props.nMcuRows * component.nVSampling;
    }
    m_nStoreBlocks = nBlocks;
}

std::int32_t CIjlDecoder::ClassifySampling() const {
    const std::int32_t nCount = m_props.JPGChannels;
    const auto eSampling = SamplingOf(nCount, [this](std::int32_t i, std::int32_t nH, std::int32_t nV) {
        const IjlComponent& component = m_props.components[static_cast<std::size_t>(i)];
        return component.nHSampling == nH && component.nVSampling == nV;
    });
    if (eSampling == JS_444)
        return 0;
    if (eSampling == JS_OTHER || nCount < 3 || nCount > 4)
        return 255;
    return (eSampling == JS_420 ? 1 : 2) + (nCount == 4 ? 2 : 0);
}

IJLERR CIjlDecoder::ReadScanHeader(std::int32_t nContent) {
    const std::int32_t nCount = Reader().Byte();
    if (nCount < 1 || nCount > 4 || nCount > m_props.JPGChannels)
        return IJL_ERR_COMP;
    if (nContent != 4 + 2 * nCount)
        return IJL_ERR_DATA;
    if (const IJLERR eError = ReadScanComponents(nCount); eError != IJL_OK)
        return eError;
    ReadScanBand(Reader(), m_nSs, m_nSe, m_nAh, m_nAl);
    return CheckScan();
}

// As the primary decoder has it: an identifier is that of the first component that has it, and a scan of as
// many as the frame has holds the data of them all in the frame's order. A scan of fewer may so name one
// twice: its blocks then come twice in each MCU, and the last ones stay.
IJLERR CIjlDecoder::ReadScanComponents(std::int32_t nCount) {
    m_nScanComponents = nCount;
    for (std::int32_t i = 0; i < nCount; ++i) {
        const JpegScanEntry entry(Reader());
        const auto components = Components();
        const auto found = std::find_if(components.begin(), components.end(),
                                        [&entry](const IjlComponent& one) { return one.nId == entry.nId; });
        const auto nIndex = static_cast<std::int32_t>(found - components.begin());
        if (found == components.end())
            return IJL_ERR_COMP;
        m_anScan[i] = nCount == m_props.JPGChannels ? i : nIndex;
        found->nDcSelector = entry.nDcSelector;
        found->nAcSelector = entry.nAcSelector;
    }
    return IJL_OK;
}

// In a sequential frame a component comes in one scan (T.81 B.2.3), or in one for each component that has its
// identifier. That also bounds the work that a stream of nothing but scan headers can ask for.
IJLERR CIjlDecoder::CheckScan() {
    if (m_props.bProgressive) {
        if (const IJLERR eError = CheckProgression(); eError != IJL_OK)
            return eError;
    } else {
        // Whatever a sequential scan says of bands and bits, it means all of them.
        m_nSs = m_nAh = m_nAl = 0;
        m_nSe = 63;
    }
    for (std::int32_t i = 0; i < m_nScanComponents; ++i) {
        IjlComponent& component = ScanComponent(i);
        const auto isNamesake = [&](const IjlComponent& other) { return other.nId == component.nId; };
        const auto components = Components();
        if (component.nScans >= (m_props.bProgressive
                                     ? kMaxProgressiveScans
                                     : std::count_if(components.begin(), components.end(), isNamesake)))
            return IJL_ERR_COMP;
        if (const IJLERR eError = CheckTables(component); eError != IJL_OK)
            return eError;
        ++component.nScans;
    }
    return m_props.bProgressive ? CheckPasses() : IJL_OK;
}

IJLERR CIjlDecoder::CheckPasses() {
    for (std::int32_t i = 0; i < m_nScanComponents; ++i) {
        const IjlComponent& component = ScanComponent(i);
        m_nPasses += std::int64_t{StoreCols(component)} * m_props.nMcuRows * component.nVSampling;
    }
    const std::int64_t nAllowed =
        kMaxPasses * m_nStoreBlocks + kPassesPerByte * m_props.nSrcSize + kFreePasses;
    return m_nPasses <= nAllowed ? IJL_OK : IJL_ERR_COMP;
}

// T.81 G.1.1.1: DC alone or AC alone, and AC of one component. The order of the scans is the stream's affair:
// a wrong one gives a wrong picture and nothing worse.
IJLERR CIjlDecoder::CheckProgression() const {
    const bool bDc = m_nSs == 0 && m_nSe == 0;
    const bool bAc = m_nSs >= 1 && m_nSs <= m_nSe && m_nSe <= 63 && m_nScanComponents == 1;
    return (bDc || bAc) && m_nAl <= 13 && m_nAh <= 13 ? IJL_OK : IJL_ERR_DATA;
}

// Only the tables that this scan decodes with. A quantiser is kept with the component from its first scan on:
// a later segment may put another one into the slot before the picture is made.
IJLERR CIjlDecoder::CheckTables(IjlComponent& component) {
    const auto isMissing = [](const IjlHuffmanTable(&aTables)[4], std::int32_t nSelector) {
        return nSelector > 3 || !aTables[nSelector].pSpec;
    };
    if (m_nSs == 0 && m_nAh == 0 && isMissing(m_props.aDc, component.nDcSelector))
        return IJL_ERR_NO_HUF;
    if (m_nSe != 0 && isMissing(m_props.aAc, component.nAcSelector))
        return IJL_ERR_NO_HUF;
    if (component.nQuantSelector > 3 || !m_props.aQuant[component.nQuantSelector].bPresent)
        return IJL_ERR_NO_QUAN;
    if (component.nScans == 0)
        std::copy_n(m_props.aQuant[component.nQuantSelector].aSteps, 64, component.aSteps);
    return IJL_OK;
}

// A read of the parameters says what the stream holds. A read of the image leaves the colour as the caller
// has set it, but that one component is grey unless it was to be copied as it is.
void CIjlDecoder::DecideStreamColor() {
    const bool bParams = m_props.iotype == IJL_JBUFF_READPARAMS;
    const bool bTransformed = m_props.m_nAdobeTransform != 0;
    if (m_props.JPGChannels == 1) {
        m_props.JPGColor = bParams ? IJL_G : m_eStreamColor;
    } else if (bParams && m_props.JPGChannels == 3) {
        m_props.JPGColor = m_props.m_bAdobeFound && !bTransformed ? IJL_RGB : IJL_YCBCR;
    } else if (bParams && m_props.JPGChannels == 4 && m_props.m_bAdobeFound) {
        m_props.JPGColor = bTransformed ? IJL_YCBCRA_FPX : IJL_RGBA_FPX;
        m_props.DIBChannels = 4;
        m_props.DIBColor = IJL_RGBA_FPX;
    } else if (bParams) {
        m_props.JPGColor = IJL_OTHER; // no colour model has two components, or four that nobody tells of
    }
    if (m_props.JPGColor == IJL_YCBCR && m_props.DIBColor == IJL_YCBCR)
        m_props.DIBSubsampling = 2;
}
