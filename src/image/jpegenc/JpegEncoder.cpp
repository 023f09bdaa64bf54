// The operations, what is checked and made before the first byte, and the sequential writer.

#include "image/jpegenc/JpegEncoder.h"

#include "image/format/JpegMarkers.h"

#include <algorithm>

CJPEGEncoder::CJPEGEncoder() = default;
CJPEGEncoder::~CJPEGEncoder() = default;

JpegStatus CJPEGEncoder::SetSource(const void* pSrc, std::int32_t nWidth, std::int32_t nHeight,
                                   std::int32_t nChannels, std::int32_t nStep, JpegColor eColor) {
    m_pSrc = pSrc;
    m_nSrcWidth = nWidth;
    m_nSrcHeight = nHeight;
    m_nSrcChannels = nChannels;
    m_nSrcStep = nStep;
    m_eSrcColor = eColor;
    m_nDstPos = 0;
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::SetParams(std::int32_t nQuality, JpegSampling eSampling, JpegColor eColor,
                                   bool bProgressive, std::int32_t nRestartInterval) {
    m_nQuality = nQuality;
    m_eAskedSampling = eSampling;
    m_eJpegColor = eColor;
    m_bProgressive = bProgressive;
    m_nRestartInterval = nRestartInterval;
    ComputeGeometry();
    return JPEG_OK;
}

namespace {

// Of a stream of unknown colour, as many as the source has channels.
std::int32_t ComponentCount(JpegColor eColor, std::int32_t nChannels) {
    switch (eColor) {
    case JC_GRAY:
        return 1;
    case JC_RGB:
    case JC_YCBCR:
        return 3;
    case JC_CMYK:
    case JC_YCCK:
        return 4;
    case JC_UNKNOWN:
        return nChannels == 1 || nChannels == 3 || nChannels == 4 ? nChannels : 0;
    default:
        return 0;
    }
}

} // namespace

void CJPEGEncoder::ComputeGeometry() {
    m_nJpegComponents = ComponentCount(m_eJpegColor, m_nSrcChannels);
    m_eJpegSampling = m_nJpegComponents == 1 ? JS_444 : m_eAskedSampling;
    CountMcus(m_eJpegSampling, m_nSrcWidth, m_nSrcHeight);
}

// What would fault, or make a stream that tells something else than the picture.
JpegStatus CJPEGEncoder::CheckSource() const {
    if (!m_pSrc || m_nSrcWidth < 1 || m_nSrcHeight < 1)
        return JPEG_INTERNAL_ERROR;
    if (std::int64_t{m_nSrcWidth} * m_nSrcChannels > m_nSrcStep)
        return JPEG_INTERNAL_ERROR;
    // What is larger our own decoder would refuse.
    if (!IsPictureSizeAllowed(m_nSrcWidth, m_nSrcHeight))
        return JPEG_NOT_SUPPORTED;
    if (m_eSrcColor != JC_YCBCR420_PLANAR)
        return JPEG_OK;
    const PlanarSource& planes = *static_cast<const PlanarSource*>(m_pSrc);
    const bool bChroma = m_nSrcWidth > 1 && m_nSrcHeight > 1;
    return !planes.pY || (bChroma && (!planes.pCb || !planes.pCr)) ? JPEG_INTERNAL_ERROR : JPEG_OK;
}

JpegStatus CJPEGEncoder::CheckParams() {
    m_eConversion = ChooseConversion();
    if (m_eConversion == Conversion::None)
        return JPEG_NOT_SUPPORTED;
    if (m_eAskedSampling != JS_444 && m_eAskedSampling != JS_422 && m_eAskedSampling != JS_420)
        return JPEG_NOT_SUPPORTED;
    if (m_nRestartInterval < 0 || m_nRestartInterval > 65535)
        return JPEG_NOT_SUPPORTED;
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::Start(std::uint8_t* pOut, const std::int32_t* pnSize, bool bProgressive) {
    if (!pOut || !pnSize)
        return JPEG_INTERNAL_ERROR;
    m_pDst = pOut;
    m_nDstSize = *pnSize;
    m_nDstPos = 0;
    m_bProgressive = bProgressive;
    ComputeGeometry(); // the source may have been set behind the parameters
    if (const JpegStatus eStatus = CheckParams(); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = CheckSource(); eStatus != JPEG_OK)
        return eStatus;
    MeasurePads(m_nSrcWidth, m_nSrcHeight);
    if (const JpegStatus eStatus = MakeComponents(); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = MakeTables(); eStatus != JPEG_OK)
        return eStatus;
    return bProgressive ? MakeScript() : JPEG_OK;
}

JpegStatus CJPEGEncoder::MakeComponents() {
    const bool bChromaTable = m_eJpegColor == JC_YCBCR || m_eJpegColor == JC_YCCK;
    m_nBlocksPerMcu = 0;
    for (std::int32_t i = 0; i < kJpegMaxComponents; ++i) {
        m_apComponents[i].reset();
        if (i >= m_nJpegComponents)
            continue;
        m_apComponents[i] = std::make_unique<CJPEGColorComponent>();
        CJPEGColorComponent& component = *m_apComponents[i];
        component.m_nId = i;
        component.m_nIndex = i;
        component.m_nHFactor = HorizontalFactor(m_eJpegSampling, i);
        component.m_nVFactor = VerticalFactor(m_eJpegSampling, i);
        component.m_nHSampling = m_nMcuWidth / 8 / component.m_nHFactor;
        component.m_nVSampling = m_nMcuHeight / 8 / component.m_nVFactor;
        component.m_nBlocks = component.m_nHSampling * component.m_nVSampling;
        component.m_nQuantSelector = IsChroma(i) && bChromaTable ? 1 : 0;
        component.m_nDcSelector = IsChroma(i) ? 1 : 0;
        component.m_nAcSelector = component.m_nDcSelector;
        m_nBlocksPerMcu += component.m_nBlocks;
        if (const JpegStatus eStatus = AllocateComponentBuffers(component); eStatus != JPEG_OK)
            return eStatus;
    }
    return JPEG_OK;
}

// One MCU row, also of a progressive picture, whose coefficients are what is kept. Pixels are converted into
// the first buffer; the second one takes what is halved, or what of a plane must be repeated at its edges.
JpegStatus CJPEGEncoder::AllocateComponentBuffers(CJPEGColorComponent& component) const {
    const std::int64_t nBytes = std::int64_t{m_nCcWidth} * m_nMcuHeight;
    const bool bPlanes = m_eConversion == Conversion::Planes;
    const bool bEdges = m_nPadX != 0 || m_nPadY != 0;
    if (!bPlanes && !(component.m_pCcBuffer = IppAllocate<std::uint8_t>(nBytes)))
        return JPEG_INTERNAL_ERROR;
    const bool bSecond = bPlanes ? bEdges : component.m_nHFactor != 1;
    if (bSecond && !(component.m_pSsBuffer = IppAllocate<std::uint8_t>(nBytes)))
        return JPEG_INTERNAL_ERROR;
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::MakeTables() {
    for (std::int32_t nId = 0; nId < 2; ++nId) {
        m_apQuant[nId] = std::make_unique<CJPEGEncoderQuantTable>();
        m_apDcHuffman[nId] = std::make_unique<CJPEGEncoderHuffmanTable>();
        m_apAcHuffman[nId] = std::make_unique<CJPEGEncoderHuffmanTable>();
        if (m_apQuant[nId]->Init(nId, m_nQuality) < 0 || m_apDcHuffman[nId]->InitStandard(nId, 0) < 0 ||
            m_apAcHuffman[nId]->InitStandard(nId, 1) < 0)
            return JPEG_INTERNAL_ERROR;
    }
    ippiEncodeHuffmanState* pState = nullptr;
    const IppStatus nStatus = ippiEncodeHuffmanStateInitAlloc_JPEG_8u(&pState);
    m_pHuffmanState.reset(pState);
    return nStatus < 0 ? JPEG_INTERNAL_ERROR : JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteImage(std::uint8_t* pOut, std::int32_t* pnSize) {
    if (const JpegStatus eStatus = Start(pOut, pnSize, false); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = WriteSequentialHeader(); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = WriteSequentialScan(); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = WriteMarker(M_EOI); eStatus != JPEG_OK)
        return eStatus;
    *pnSize = m_nDstPos;
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteSequentialHeader() {
    if (const JpegStatus eStatus = WriteStart(); eStatus != JPEG_OK)
        return eStatus;
    const std::int32_t nTables = NeedsSecondTables() ? 2 : 1;
    for (std::int32_t i = 0; i < nTables; ++i) {
        if (const JpegStatus eStatus = WriteQuantTable(i); eStatus != JPEG_OK)
            return eStatus;
    }
    if (const JpegStatus eStatus = WriteFrameHeader(M_SOF0); eStatus != JPEG_OK)
        return eStatus;
    for (const auto& apTables : {m_apDcHuffman, m_apAcHuffman}) {
        for (std::int32_t i = 0; i < nTables; ++i) {
            if (const JpegStatus eStatus = WriteHuffmanTable(*apTables[i]); eStatus != JPEG_OK)
                return eStatus;
        }
    }
    if (const JpegStatus eStatus = WriteRestartInterval(); eStatus != JPEG_OK)
        return eStatus;
    return WriteScanHeader({m_nJpegComponents, {0, 1, 2, 3}, 0, 63, 0, 0});
}

JpegStatus CJPEGEncoder::WriteSequentialScan() {
    for (std::int32_t nMcuRow = 0; nMcuRow < m_nMcuRows; ++nMcuRow) {
        if (const JpegStatus eStatus = PrepareMcuRow(nMcuRow); eStatus != JPEG_OK)
            return eStatus;
        if (const JpegStatus eStatus = WriteMcuRow(); eStatus != JPEG_OK)
            return eStatus;
    }
    return FlushBits();
}

void CJPEGEncoder::BeginMcuRow(IppScanComponent (&aScan)[kJpegMaxComponents]) const {
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        aScan[i] = {m_aRows[i].pSamples,
                    m_apQuant[component.m_nQuantSelector]->m_aFactors,
                    m_apDcHuffman[component.m_nDcSelector]->m_pSpec.get(),
                    m_apAcHuffman[component.m_nAcSelector]->m_pSpec.get(),
                    m_aRows[i].nStep,
                    component.m_nHSampling,
                    component.m_nVSampling,
                    component.m_nLastDc};
    }
}

// The row's MCUs, in one call where no restart stands between them.
JpegStatus CJPEGEncoder::WriteMcuRow() {
    IppScanComponent aScan[kJpegMaxComponents];
    BeginMcuRow(aScan);
    for (std::int32_t nLeft = m_nMcuCols; nLeft > 0;) {
        std::int32_t nRun = nLeft;
        if (m_nRestartInterval != 0) {
            if (m_nRestartsToGo == 0) {
                // No room for a restart counts as no room for the data behind it.
                if (FlushBits() != JPEG_OK || WriteRestartMarker() != JPEG_OK)
                    return JPEG_INTERNAL_ERROR;
                for (IppScanComponent& component : aScan)
                    component.nLastDc = 0;
            }
            nRun = std::min(nLeft, m_nRestartsToGo);
            m_nRestartsToGo -= nRun;
        }
        if (ippxEncodeMcus_8u1u(aScan, m_nJpegComponents, nRun, m_pDst, m_nDstSize, &m_nDstPos,
                                m_pHuffmanState.get()) < 0)
            return JPEG_INTERNAL_ERROR;
        nLeft -= nRun;
    }
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        m_apComponents[i]->m_nLastDc = aScan[i].nLastDc;
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::FlushBits() {
    return ippiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, m_pDst, m_nDstSize, &m_nDstPos, nullptr, nullptr,
                                              nullptr, m_pHuffmanState.get(), 1) < 0
               ? JPEG_INTERNAL_ERROR
               : JPEG_OK;
}
