// Progressive frames (T.81 Annex G): every scan adds bits to the coefficients of the whole picture, and the
// picture is made from them at the end.
//
// What a hostile stream can cost. Memory is bounded by the limits of the frame header and that of the
// coefficient store. Time is bounded by the number of scans, since a scan may pass over all blocks for a few
// bytes: as many refinements as kJpegMaxProgressiveScans takes, each with a bit for every coefficient of
// luma, cost about ten times an honest picture of that size. The picture is made once, however many scans
// come.

#include "image/format/JpegMarkers.h"
#include "image/jpegdec/JpegDecoder.h"

#include <algorithm>

namespace {

constexpr std::int64_t kBlockSize = 64;
// Room in the coefficient store for each MCU, in coefficients: 20 blocks.
constexpr std::int64_t kMcuRoom = 20 * kBlockSize;

} // namespace

bool CJPEGDecoder::IsDcScan() const {
    return m_nSs == 0 || m_nSe == 0;
}

// The order of blocks in a scan of one component is that of its own rows, without the blocks that only fill
// up MCUs (T.81 A.2.2). With one component in the frame both orders are the same, and its DC scans go the
// faster way.
bool CJPEGDecoder::IsRasterScan() const {
    return !IsDcScan() || (m_nJpegComponents > 1 && m_nScanComponents == 1u << m_nCurrentComponent);
}

bool CJPEGDecoder::IsPictureComplete() const {
    return m_bDcScanDone && m_nAcScansDone == m_nJpegComponents;
}

JpegStatus CJPEGDecoder::PrepareProgressiveScan() {
    if (const JpegStatus eStatus = CheckScanTables(); eStatus != JPEG_OK)
        return eStatus;
    std::int64_t nBlocks = 0;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        if ((m_nScanComponents >> i & 1) != 0)
            nBlocks += component.m_nHSampling * component.m_nVSampling;
    }
    nBlocks *= std::int64_t{m_nMcuCols} * m_nMcuRows;
    // Every block of a DC scan takes one bit at least. A scan that cannot hold them fails before memory is
    // spent on its picture. (A raster scan passes over some blocks: three quarters of them at most.)
    if (IsDcScan() && nBlocks / 4 > std::int64_t{Reader().BytesLeft()} * 8)
        return JPEG_INTERNAL_ERROR;
    return JPEG_OK;
}

// Only the tables that the scan at hand decodes with; the quantisers are needed when the picture is made.
JpegStatus CJPEGDecoder::CheckScanTables() {
    if (!IsDcScan()) {
        auto& pAc = m_apAcHuffman[m_apComponents[m_nCurrentComponent]->m_nAcSelector];
        return pAc && pAc->Build() ? JPEG_OK : JPEG_BAD_HUFFMAN_SEGMENT;
    }
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        if (m_nAh != 0 || (m_nScanComponents >> i & 1) == 0)
            continue;
        auto& pDc = m_apDcHuffman[m_apComponents[i]->m_nDcSelector];
        if (!pDc || !pDc->Build())
            return JPEG_BAD_HUFFMAN_SEGMENT;
    }
    return JPEG_OK;
}

// The blocks lie at the front of the store, m_nBlocksPerMcu for each MCU. Only their part is ever touched:
// the rest of the room, in a large picture, never becomes memory.
JpegStatus CJPEGDecoder::AllocateCoefficients() {
    if (m_pCoefficients)
        return JPEG_OK;
    const std::int64_t nMcus = std::int64_t{m_nMcuCols} * m_nMcuRows;
    const std::int64_t nRoom = nMcus * kMcuRoom;
    if (nRoom > kJpegMaxCoefficients)
        return JPEG_NOT_SUPPORTED;
    m_pCoefficients = IppAllocate<std::int16_t>(nRoom);
    m_pMasks = IppAllocate<std::uint64_t>(nMcus * m_nBlocksPerMcu);
    if (!m_pCoefficients || !m_pMasks)
        return JPEG_INTERNAL_ERROR;
    std::fill_n(m_pMasks.get(), nMcus * m_nBlocksPerMcu, std::uint64_t{0});
    return JPEG_OK;
}

// The store is cleared by the first scan: block by block, as it passes over them, where that is one of the DC
// coefficients of all components. That saves a large picture a way through memory. If such a scan fails, so
// does the stream, and nothing is made of the blocks that it has not come to.
bool CJPEGDecoder::ClearsStore() const {
    return !m_bStoreCleared && m_nAh == 0 && !IsRasterScan() &&
           m_nScanComponents == (1u << m_nJpegComponents) - 1;
}

void CJPEGDecoder::ClearStore() {
    const std::int64_t nMcus = std::int64_t{m_nMcuCols} * m_nMcuRows;
    std::fill_n(m_pCoefficients.get(), nMcus * m_nBlocksPerMcu * kBlockSize, std::int16_t{0});
    m_bStoreCleared = true;
}

// The first block of a row of MCUs; in each MCU the components' blocks follow each other, row after row of
// each.
std::int16_t* CJPEGDecoder::McuRowCoefficients(std::int32_t nMcuRow) const {
    return m_pCoefficients.get() + kBlockSize * m_nBlocksPerMcu * m_nMcuCols * nMcuRow;
}

// Unlike damage to a sequential scan, damage here is fatal: it would spread over the whole picture.
JpegStatus CJPEGDecoder::DecodeProgressiveScan() {
    if (!m_bStoreCleared && !ClearsStore())
        ClearStore();
    const JpegStatus eStatus = IsRasterScan() ? DecodeRasterScan() : DecodeInterleavedScan();
    if (eStatus != JPEG_OK)
        return eStatus;
    m_bStoreCleared = true;
    m_bPicturePending = true;
    for (auto& pKept : m_apKeptQuant)
        pKept.reset();
    if (m_nAl != 0)
        return JPEG_OK;
    if (IsDcScan()) {
        m_nDcDone |= m_nScanComponents;
        m_bDcScanDone = m_nDcDone == (1u << m_nJpegComponents) - 1;
    } else {
        m_apComponents[m_nCurrentComponent]->m_bAcScanDone = true;
    }
    m_nAcScansDone = 0;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        m_nAcScansDone += m_apComponents[i]->m_bAcScanDone ? 1 : 0;
    return JPEG_OK;
}

JpegStatus CJPEGDecoder::DecodeRasterScan() {
    CJPEGColorComponent& component = *m_apComponents[m_nCurrentComponent];
    const std::int32_t nH = component.m_nHSampling;
    const std::int32_t nV = component.m_nVSampling;
    std::int64_t nFirstBlock = 0;
    for (std::int32_t i = 0; i < m_nCurrentComponent; ++i)
        nFirstBlock += m_apComponents[i]->m_nHSampling * m_apComponents[i]->m_nVSampling;
    // Rows and columns of blocks; those at or beyond the picture's edge are not coded. Chroma at half the
    // resolution has none there.
    const std::int32_t nRows = std::min(m_nMcuRows * nV, (m_nJpegHeight + 7) / 8);
    const std::int32_t nCols = std::min(m_nMcuCols * nH, (m_nJpegWidth + 7) / 8);
    IppProgressiveRow row{m_nSs, m_nSe, m_nAl, m_nAh != 0, nullptr, nullptr, nullptr, nH, m_nBlocksPerMcu};
    if (!IsDcScan())
        row.pTable = m_apAcHuffman[component.m_nAcSelector]->m_pSpec.get();
    for (std::int32_t y = 0; y < nRows; ++y) {
        const std::int64_t nFirst =
            std::int64_t{y / nV} * m_nMcuCols * m_nBlocksPerMcu + nFirstBlock + y % nV * nH;
        row.pBlocks = m_pCoefficients.get() + kBlockSize * nFirst;
        row.pMasks = m_pMasks.get() + nFirst;
        if (const JpegStatus eStatus = DecodeRasterRow(component, row, nCols); eStatus != JPEG_OK)
            return eStatus;
    }
    return JPEG_OK;
}

// As many blocks at once as the fast way takes up to the next restart, then one in the way that takes all.
JpegStatus CJPEGDecoder::DecodeRasterRow(CJPEGColorComponent& component, const IppProgressiveRow& row,
                                         std::int32_t nCols) {
    for (std::int32_t x = 0; x < nCols;) {
        if (const JpegStatus eStatus = RestartWhereDue(); eStatus != JPEG_OK)
            return eStatus;
        if (!IsDcScan()) {
            const std::int32_t nRun =
                m_nRestartInterval != 0 ? std::min(nCols - x, m_nRestartsToGo) : nCols - x;
            std::int32_t nDone = 0;
            if (ippxDecodeProgressiveRow_1u16s(m_pSrc, m_nSrcSize, &m_nSrcPos, &m_nMarker,
                                               m_pHuffmanState.get(), &m_window, &row, x, nRun, &nDone) < 0)
                return JPEG_INTERNAL_ERROR;
            x += nDone;
            m_nRestartsToGo -= nDone;
            if (nDone == nRun)
                continue;
        }
        const std::ptrdiff_t nBlock = std::ptrdiff_t{x / row.nTogether} * row.nMcuBlocks + x % row.nTogether;
        std::int16_t* const pBlock = row.pBlocks + kBlockSize * nBlock;
        if (const JpegStatus eStatus = DecodeScanBlock(component, pBlock); eStatus != JPEG_OK)
            return eStatus;
        if (!IsDcScan())
            row.pMasks[nBlock] = ippProgressiveMask(pBlock);
        ++x;
        --m_nRestartsToGo;
    }
    return JPEG_OK;
}

// What a DC scan of several components does with each MCU, for the fast way.
IppProgressiveMcus CJPEGDecoder::LayOutDcScan() const {
    IppProgressiveMcus mcus{};
    mcus.nAl = m_nAl;
    mcus.bRefine = m_nAh != 0;
    mcus.bClear = ClearsStore();
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        const bool bNamed = (m_nScanComponents >> i & 1) != 0;
        for (std::int32_t n = component.m_nHSampling * component.m_nVSampling; n > 0; --n) {
            mcus.abNamed[mcus.nBlocks] = bNamed;
            mcus.anComponents[mcus.nBlocks] = i;
            if (bNamed && !mcus.bRefine)
                mcus.apTables[mcus.nBlocks] = m_apDcHuffman[component.m_nDcSelector]->m_pSpec.get();
            mcus.nNamed += bNamed ? 1 : 0;
            ++mcus.nBlocks;
        }
    }
    return mcus;
}

// As many MCUs at once as the fast way takes up to the next restart, then one in the way that takes all.
JpegStatus CJPEGDecoder::DecodeInterleavedScan() {
    constexpr std::int32_t kMostAtOnce = 1 << 20;
    IppProgressiveMcus mcus = LayOutDcScan();
    mcus.pBlocks = m_pCoefficients.get();
    for (std::int64_t nLeft = std::int64_t{m_nMcuCols} * m_nMcuRows; nLeft > 0;) {
        if (const JpegStatus eStatus = RestartWhereDue(); eStatus != JPEG_OK)
            return eStatus;
        auto nRun = static_cast<std::int32_t>(std::min<std::int64_t>(nLeft, kMostAtOnce));
        if (m_nRestartInterval != 0)
            nRun = std::min(nRun, m_nRestartsToGo);
        for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
            mcus.anLastDc[i] = m_apComponents[i]->m_nLastDc;
        std::int32_t nDone = 0;
        if (ippxDecodeProgressiveMcus_1u16s(m_pSrc, m_nSrcSize, &m_nSrcPos, &m_nMarker, m_pHuffmanState.get(),
                                            &m_window, &mcus, nRun, &nDone) < 0)
            return JPEG_INTERNAL_ERROR;
        for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
            m_apComponents[i]->m_nLastDc = mcus.anLastDc[i];
        mcus.pBlocks += kBlockSize * mcus.nBlocks * nDone;
        if (nDone < nRun) {
            if (mcus.bClear)
                std::fill_n(mcus.pBlocks, kBlockSize * mcus.nBlocks, std::int16_t{0});
            if (const JpegStatus eStatus = DecodeInterleavedMcu(mcus.pBlocks); eStatus != JPEG_OK)
                return eStatus;
            mcus.pBlocks += kBlockSize * mcus.nBlocks;
            ++nDone;
        }
        nLeft -= nDone;
        m_nRestartsToGo -= nDone;
    }
    return JPEG_OK;
}

JpegStatus CJPEGDecoder::DecodeInterleavedMcu(std::int16_t* pBlock) {
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        CJPEGColorComponent& component = *m_apComponents[i];
        const bool bNamed = (m_nScanComponents >> i & 1) != 0;
        for (std::int32_t n = component.m_nHSampling * component.m_nVSampling; n > 0;
             --n, pBlock += kBlockSize) {
            if (!bNamed)
                continue;
            if (const JpegStatus eStatus = DecodeScanBlock(component, pBlock); eStatus != JPEG_OK)
                return eStatus;
        }
    }
    return JPEG_OK;
}

JpegStatus CJPEGDecoder::RestartWhereDue() {
    return m_nRestartInterval != 0 && m_nRestartsToGo == 0 ? ProcessRestart() : JPEG_OK;
}

JpegStatus CJPEGDecoder::DecodeScanBlock(CJPEGColorComponent& component, std::int16_t* pBlock) {
    ippiDecodeHuffmanState* const pState = m_pHuffmanState.get();
    IppStatus nStatus = ippStsNoErr;
    if (IsDcScan()) {
        nStatus = m_nAh != 0 ? ippiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(m_pSrc, m_nSrcSize, &m_nSrcPos,
                                                                           pBlock, &m_nMarker, m_nAl, pState)
                             : ippiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(
                                   m_pSrc, m_nSrcSize, &m_nSrcPos, pBlock, &component.m_nLastDc, &m_nMarker,
                                   m_nAl, m_apDcHuffman[component.m_nDcSelector]->m_pSpec.get(), pState);
    } else {
        const auto decode = m_nAh != 0 ? &ippiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1
                                       : &ippiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1;
        nStatus = decode(m_pSrc, m_nSrcSize, &m_nSrcPos, pBlock, m_nSs, m_nSe, m_nAl, &m_nMarker,
                         m_apAcHuffman[component.m_nAcSelector]->m_pSpec.get(), pState);
    }
    return nStatus < 0 ? JPEG_INTERNAL_ERROR : JPEG_OK;
}

// The picture is made once, at the end, though each scan that completes it or adds to it shows in the
// destination: the last one covers the others, and a stream of few bytes could ask for any number of them.
// What it is made with are the tables of the last scan, so they are kept where a segment behind it is about
// to replace them.
JpegStatus CJPEGDecoder::KeepQuantTables() {
    if (!m_bPicturePending || !IsPictureComplete())
        return JPEG_OK;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        if (!QuantTable(i))
            return JPEG_BAD_QUANT_SEGMENT;
        const std::int32_t nSlot = m_apComponents[i]->m_nQuantSelector;
        if (!m_apKeptQuant[nSlot])
            m_apKeptQuant[nSlot] = m_apQuant[nSlot];
    }
    return JPEG_OK;
}

// Null for a table that never came.
const CJPEGDecoderQuantTable* CJPEGDecoder::QuantTable(std::int32_t nComponent) const {
    const std::int32_t nSlot = m_apComponents[nComponent]->m_nQuantSelector;
    const auto& pTable = m_apKeptQuant[nSlot] ? m_apKeptQuant[nSlot] : m_apQuant[nSlot];
    return pTable ? &*pTable : nullptr;
}

// A stream that ends in order shows what its scans gave, also when it leaves some out (T.81 does not demand
// them all). One that does not, shows a picture only if that was complete.
JpegStatus CJPEGDecoder::FinishProgressive(JpegStatus eParsed) {
    if (!m_bPicturePending || (eParsed != JPEG_OK && !IsPictureComplete()))
        return eParsed;
    const JpegStatus ePainted = PaintPicture();
    return eParsed != JPEG_OK ? eParsed : ePainted;
}

// A row of MCUs at a time through the row buffers and conversions of the sequential path: the same samples
// as in one pass over the whole picture, without copies of it in between.
JpegStatus CJPEGDecoder::PaintPicture() {
    m_bPicturePending = false;
    if (m_eConversion == Conversion::None)
        return JPEG_OK;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        if (!QuantTable(i))
            return JPEG_BAD_QUANT_SEGMENT;
    }
    for (std::int32_t nMcuRow = 0; nMcuRow < m_nMcuRows; ++nMcuRow) {
        m_nDirectCols = DirectColumns(nMcuRow);
        PaintMcus(nMcuRow, 0, m_nDirectCols);
        PaintMcus(nMcuRow, m_nDirectCols, m_nMcuCols);
        if (const JpegStatus eStatus = UpsampleMcuRow(); eStatus != JPEG_OK)
            return eStatus;
        if (const JpegStatus eStatus = ConvertMcuRow(nMcuRow); eStatus != JPEG_OK)
            return eStatus;
    }
    m_bPictureWritten = true;
    return JPEG_OK;
}

// The samples of MCUs nFirst to nEnd of a row. No kernel status is looked at: the pointers are our own.
void CJPEGDecoder::PaintMcus(std::int32_t nMcuRow, std::int32_t nFirst, std::int32_t nEnd) {
    if (nFirst == nEnd)
        return;
    LayOutMcus(nMcuRow, nFirst < m_nDirectCols);
    m_mcuRow.pCoefficients = McuRowCoefficients(nMcuRow);
    const std::uint64_t* const pMasks =
        m_pMasks.get() + std::ptrdiff_t{m_nBlocksPerMcu} * m_nMcuCols * nMcuRow;
    static_cast<void>(ippxInverseMcus_16s8u(&m_mcuRow, pMasks, nFirst, nEnd - nFirst));
}
