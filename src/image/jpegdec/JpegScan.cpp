// Work memory, and the restarts of a scan (T.81 E.2.3 to E.2.5).

#include "image/format/JpegMarkers.h"
#include "image/jpegdec/JpegDecoder.h"

#include <algorithm>

namespace {

// Of entropy-coded data at a time: small enough to stay in the first-level cache, and many times the longest
// MCU.
constexpr std::int32_t kWindowBytes = 16 << 10;

} // namespace

// Runs at every start of scan whose data is to be decoded.
JpegStatus CJPEGDecoder::PrepareScan() {
    if (m_eJpegSampling == JS_OTHER)
        return JPEG_NOT_SUPPORTED;
    if (++m_nScans > (m_bProgressive ? kJpegMaxProgressiveScans : kJpegMaxSequentialScans))
        return JPEG_NOT_SUPPORTED;
    if (const JpegStatus eStatus = m_bProgressive ? PrepareProgressiveScan() : CheckTables();
        eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = ChooseConversion(m_eConversion); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = AllocateWorkMemory(); eStatus != JPEG_OK)
        return eStatus;
    if (ippiDecodeHuffmanStateInit_JPEG_8u(m_pHuffmanState.get()) != ippStsNoErr)
        return JPEG_INTERNAL_ERROR;
    m_nMarker = M_NONE;
    m_window.nSrcPos = -1;
    // Predictors start at 0 in every scan (T.81 F.2.1.3.1); this counts where a second one repaints the
    // picture.
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        m_apComponents[i]->m_nLastDc = 0;
    return JPEG_OK;
}

// A table that a selector names may never have been sent, or be one that the kernels refused.
JpegStatus CJPEGDecoder::CheckTables() {
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        if (!m_apQuant[component.m_nQuantSelector])
            return JPEG_BAD_QUANT_SEGMENT;
        const auto& pDc = m_apDcHuffman[component.m_nDcSelector];
        const auto& pAc = m_apAcHuffman[component.m_nAcSelector];
        if (!pDc || !pAc)
            return JPEG_BAD_HUFFMAN_SEGMENT;
        m_apDcLookup[i] = CJPEGDecoderLookup::Find(*pDc);
        m_apAcLookup[i] = CJPEGDecoderLookup::Find(*pAc);
        if (!m_apDcLookup[i] || !m_apAcLookup[i])
            return JPEG_BAD_HUFFMAN_SEGMENT;
        if (i == 0 || m_apAcLookup[i] != m_apAcLookup[i - 1]) {
            m_apDcLookup[i]->Prefetch();
            m_apAcLookup[i]->Prefetch();
        }
    }
    return JPEG_OK;
}

// Allocates on first need; kept across scans. No size here depends on more than one row of MCUs, which the
// limits of the frame header keep below 11 MB in all.
JpegStatus CJPEGDecoder::AllocateWorkMemory() {
    m_nBlocksPerMcu = 0;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        m_nBlocksPerMcu += component.m_nHSampling * component.m_nVSampling;
    }
    const bool bAllDirect = DirectColumns(m_nMcuRows - 1) == m_nMcuCols;
    if (const JpegStatus eStatus = AllocateRowBuffers(!bAllDirect); eStatus != JPEG_OK)
        return eStatus;
    if (m_bProgressive) {
        if (const JpegStatus eStatus = AllocateCoefficients(); eStatus != JPEG_OK)
            return eStatus;
    }
    if (!m_window.pBytes) {
        m_window.nCapacity = std::min(kWindowBytes, m_nSrcSize);
        m_window.pBytes = IppAllocate<std::uint8_t>(m_window.nCapacity + ippWindowSlack);
        if (!m_window.pBytes)
            return JPEG_INTERNAL_ERROR;
    }
    if (!m_pHuffmanState) {
        ippiDecodeHuffmanState* pState = nullptr;
        if (ippiDecodeHuffmanStateInitAlloc_JPEG_8u(&pState) != ippStsNoErr)
            return JPEG_INTERNAL_ERROR;
        m_pHuffmanState.reset(pState);
    }
    return JPEG_OK;
}

// The buffers of all components, or of those alone that are never reconstructed in the destination.
JpegStatus CJPEGDecoder::AllocateRowBuffers(bool bAll) {
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        if (!bAll && HasPlaneResolution(i))
            continue;
        if (const JpegStatus eStatus = AllocateComponentBuffers(*m_apComponents[i], !IsFullResolution(i));
            eStatus != JPEG_OK)
            return eStatus;
    }
    return JPEG_OK;
}

// Only a scan with damage has a use for it.
bool CJPEGDecoder::AllocateBlockBuffer() {
    if (!m_pBlockBuffer)
        m_pBlockBuffer = IppAllocate<std::int16_t>(std::int64_t{m_nBlocksPerMcu} * 64 * m_nMcuCols);
    return m_pBlockBuffer != nullptr;
}

JpegStatus CJPEGDecoder::AllocateComponentBuffers(CJPEGColorComponent& component, bool bChroma) {
    const std::int64_t nCols = m_nMcuCols;
    const auto isThere = [](IppBuffer<std::uint8_t>& pBuffer, std::int64_t nBytes) {
        if (!pBuffer)
            pBuffer = IppAllocate<std::uint8_t>(nBytes);
        return pBuffer != nullptr;
    };
    // Chroma of half the resolution is brought to the full one for pixels alone.
    const bool bUpsampled = bChroma && m_eConversion != Conversion::YCbCrToPlanar;
    if ((!bChroma || bUpsampled) && !isThere(component.m_pCcBuffer, nCols * m_nMcuWidth * m_nMcuHeight))
        return JPEG_INTERNAL_ERROR;
    if (!bChroma)
        return JPEG_OK;
    // Room for one spare sample on each side, and with 4:2:0 above and below: upsampling kernels read there.
    const bool bAcrossRows = m_eJpegSampling == JS_420;
    const std::int64_t nRows = bAcrossRows ? (m_nMcuHeight >> 1) + 2 : m_nMcuHeight;
    if (!isThere(component.m_pSsBuffer, nCols * ((m_nMcuWidth >> 1) + 2) * nRows) ||
        (bUpsampled && bAcrossRows && !isThere(component.m_pTopRow, SsStep())))
        return JPEG_INTERNAL_ERROR;
    return JPEG_OK;
}

// T.81 E.2.4. The number in the marker is not looked at: whatever marker comes next is taken as the restart.
// Before the first scan there is no bit reader to reset, and a restart marker there is an error.
JpegStatus CJPEGDecoder::ProcessRestart() {
    if (ippiDecodeHuffmanStateInit_JPEG_8u(m_pHuffmanState.get()) != ippStsNoErr)
        return JPEG_INTERNAL_ERROR;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        m_apComponents[i]->m_nLastDc = 0;
    if (m_nMarker == M_FILL) {
        --m_nSrcPos;
        m_nMarker = M_NONE;
    }
    // A search that finds no marker leaves the source at its end, where the next block fails.
    if (m_nMarker == M_NONE)
        static_cast<void>(NextMarker());
    m_nMarker = M_NONE;
    m_nRestartsToGo = m_nRestartInterval;
    return JPEG_OK;
}
