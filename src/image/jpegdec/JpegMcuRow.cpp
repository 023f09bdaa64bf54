// A sequential scan: row after row of MCUs, decoded, transformed and written out.
//
// Whole runs of MCUs go through the kernel that decodes and transforms in one. The MCU at which that stops is
// done block by block, by the kernel that defines what damage does, and the next run begins behind it.
//
// A row that fails shows the coefficients of the row before behind its fault. Only from the first such row on
// are they kept: that row and the one before it are then decoded a second time.
//
// Blocks that lie wholly inside the destination are transformed straight into it. Those at its edges, and
// components that are resampled, go through the component buffers.

#include "image/format/JpegMarkers.h"
#include "image/jpegdec/JpegDecoder.h"

#include <algorithm>

// Everything that the entropy decoder goes by. A row that leaves it as it was would leave it so for ever.
struct CJPEGDecoder::EntropyPosition {
    std::int32_t nSrcPos;
    std::int32_t nMarker;
    std::int32_t nRestartsToGo;
    std::uint32_t nAccumulator;
    std::int32_t nBits;
    std::int16_t anLastDc[kJpegMaxComponents];

    bool operator==(const EntropyPosition&) const = default;
};

CJPEGDecoder::EntropyPosition CJPEGDecoder::CurrentPosition() const {
    EntropyPosition position{
        m_nSrcPos, m_nMarker, m_nRestartsToGo, m_pHuffmanState->nAccumulator, m_pHuffmanState->nBits, {}};
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        position.anLastDc[i] = m_apComponents[i]->m_nLastDc;
    return position;
}

void CJPEGDecoder::GoTo(const EntropyPosition& position) {
    m_nSrcPos = position.nSrcPos;
    m_nMarker = position.nMarker;
    m_nRestartsToGo = position.nRestartsToGo;
    m_pHuffmanState->nAccumulator = position.nAccumulator;
    m_pHuffmanState->nBits = position.nBits;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        m_apComponents[i]->m_nLastDc = position.anLastDc[i];
    m_window.nSrcPos = -1;
}

// A failing row is not reported: it keeps what it got, the blocks behind the failing one those of the row
// before, and the next row goes on from where the bit reader stopped.
//
// Once a failed row has not moved the decoder at all, every further row would fail in the same way and paint
// the same samples. They are then only written out, so that a huge picture with no data costs no more than a
// copy.
JpegStatus CJPEGDecoder::DecodeSequentialScan() {
    bool bStuck = false;
    bool bWritten = m_eConversion != Conversion::None;
    EntropyPosition previous{};
    EntropyPosition start{};
    for (std::int32_t nMcuRow = 0; nMcuRow < m_nMcuRows; ++nMcuRow) {
        if (!bStuck) {
            previous = start;
            start = CurrentPosition();
            m_nDirectCols = DirectColumns(nMcuRow);
            bool bFailed = DecodeMcuRow(nMcuRow) != JPEG_OK;
            if (bFailed && !m_mcuRow.bKeep) {
                if (!AllocateBlockBuffer())
                    return JPEG_INTERNAL_ERROR;
                bFailed = RepeatKept(nMcuRow, previous, start);
            }
            bStuck = bFailed && CurrentPosition() == start;
            // What the rows from here on are written from.
            if (bStuck) {
                if (const JpegStatus eStatus = AllocateRowBuffers(true); eStatus != JPEG_OK)
                    return eStatus;
                m_nDirectCols = 0;
                LayOutMcus(nMcuRow, false);
                ReconstructLaidOut(m_pBlockBuffer.get(), 0, m_nMcuCols);
            }
            static_cast<void>(UpsampleMcuRow());
        }
        bWritten = ConvertMcuRow(nMcuRow) == JPEG_OK && bWritten;
    }
    m_bPictureWritten = m_bPictureWritten || bWritten;
    const JpegStatus eStatus = m_mcuRow.bKeep ? JPEG_OK : KeepLastRow(start);
    m_nDirectCols = 0;
    return eStatus;
}

// Begins to keep coefficients, at a row that has failed without: those of the row before it, which may be the
// mid-grey of no row at all, and its own as far as they go. True where it fails again.
bool CJPEGDecoder::RepeatKept(std::int32_t nMcuRow, const EntropyPosition& previous,
                              const EntropyPosition& start) {
    m_mcuRow.bKeep = true;
    if (nMcuRow == 0) {
        std::fill_n(m_pBlockBuffer.get(), std::int64_t{m_nBlocksPerMcu} * 64 * m_nMcuCols, std::int16_t{0});
    } else {
        GoTo(previous);
        m_nDirectCols = DirectColumns(nMcuRow - 1);
        static_cast<void>(DecodeMcuRow(nMcuRow - 1));
        m_nDirectCols = DirectColumns(nMcuRow);
    }
    GoTo(start);
    return DecodeMcuRow(nMcuRow) != JPEG_OK;
}

// A further scan whose first row fails shows the last row of this one, whose tables may be gone by then.
JpegStatus CJPEGDecoder::KeepLastRow(const EntropyPosition& start) {
    std::int32_t nBehind = m_nSrcPos;
    const std::int32_t nNext = m_nMarker != M_NONE ? m_nMarker : SeekMarker(m_pSrc, m_nSrcSize, nBehind);
    if (nNext == M_EOI || nNext == M_NONE)
        return JPEG_OK;
    if (!AllocateBlockBuffer())
        return JPEG_INTERNAL_ERROR;
    const EntropyPosition end = CurrentPosition();
    m_mcuRow.bKeep = true;
    GoTo(start);
    static_cast<void>(DecodeMcuRow(m_nMcuRows - 1));
    GoTo(end);
    return JPEG_OK;
}

// A row that fails while no coefficients are kept is left where it is: it will be repeated.
JpegStatus CJPEGDecoder::DecodeMcuRow(std::int32_t nMcuRow) {
    alignas(ippAlignment) std::int16_t aMcu[64 * ippMaxMcuBlocks];
    const auto coefficientsOf = [&](std::int32_t nMcuCol) {
        return m_mcuRow.bKeep ? m_pBlockBuffer.get() + std::ptrdiff_t{nMcuCol} * m_nBlocksPerMcu * 64 : aMcu;
    };
    JpegStatus eStatus = JPEG_OK;
    for (std::int32_t nMcuCol = 0; nMcuCol < m_nMcuCols;) {
        if (nMcuCol == 0 || nMcuCol == m_nDirectCols)
            LayOutMcus(nMcuRow, nMcuCol < m_nDirectCols);
        const std::int32_t nEnd = nMcuCol < m_nDirectCols ? m_nDirectCols : m_nMcuCols;
        if (eStatus == JPEG_OK && m_nRestartInterval != 0 && m_nRestartsToGo == 0)
            eStatus = ProcessRestart();
        if (eStatus != JPEG_OK && !m_mcuRow.bKeep)
            break;
        if (eStatus != JPEG_OK) {
            ReconstructLaidOut(coefficientsOf(nMcuCol), nMcuCol, nEnd);
            nMcuCol = nEnd;
            continue;
        }
        std::int32_t nRun = nEnd - nMcuCol;
        if (m_nRestartInterval != 0)
            nRun = std::clamp(m_nRestartsToGo, 1, nRun);
        const std::int32_t nDone = DecodeRun(nMcuCol, nRun);
        nMcuCol += nDone;
        m_nRestartsToGo -= nDone;
        if (nDone == nRun)
            continue;
        std::int16_t* const pMcu = coefficientsOf(nMcuCol);
        eStatus = DecodeMcu(pMcu);
        if (eStatus == JPEG_OK) {
            --m_nRestartsToGo;
            ReconstructLaidOut(pMcu, nMcuCol, nMcuCol + 1);
            ++nMcuCol;
        }
    }
    return eStatus;
}

// As many MCUs as the fast way takes.
std::int32_t CJPEGDecoder::DecodeRun(std::int32_t nFirst, std::int32_t nMcus) {
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        m_mcuRow.anLastDc[i] = m_apComponents[i]->m_nLastDc;
    std::int32_t nDone = 0;
    const IppStatus nStatus =
        ippxDecodeMcus_1u8u(m_pSrc, m_nSrcSize, &m_nSrcPos, &m_nMarker, m_pHuffmanState.get(), &m_window,
                            &m_mcuRow, nFirst, nMcus, &nDone);
    if (nStatus < 0)
        return 0;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        m_apComponents[i]->m_nLastDc = m_mcuRow.anLastDc[i];
    return nDone;
}

// One MCU block by block.
JpegStatus CJPEGDecoder::DecodeMcu(std::int16_t* pBlock) {
    for (std::int32_t i = 0; i < m_mcuRow.nBlocks; ++i, pBlock += 64) {
        const IppMcuBlock& block = m_mcuRow.aBlocks[i];
        const IppStatus nStatus = ippiDecodeHuffman8x8_JPEG_1u16s_C1(
            m_pSrc, m_nSrcSize, &m_nSrcPos, pBlock, &m_apComponents[block.nComponent]->m_nLastDc, &m_nMarker,
            block.pDcTable, block.pAcTable, m_pHuffmanState.get());
        if (nStatus < 0)
            return JPEG_INTERNAL_ERROR;
    }
    return JPEG_OK;
}

// The columns of MCUs that lie wholly inside the destination, if it takes samples as they are and its rows
// do not overlap.
std::int32_t CJPEGDecoder::DirectColumns(std::int32_t nMcuRow) const {
    if (nMcuRow == m_nMcuRows - 1 && m_nPadY != 0)
        return 0;
    const auto isPlane = [](const std::uint8_t* pPlane, std::int64_t nStep, std::int32_t nWidth) {
        return pPlane && nStep >= nWidth && nStep <= INT32_MAX;
    };
    bool bDirect = false;
    if (m_eConversion == Conversion::GrayToGray) {
        bDirect = isPlane(static_cast<const std::uint8_t*>(m_pDst), m_nDstStep, m_nDstWidth);
    } else if (m_eConversion == Conversion::YCbCrToPlanar) {
        const PlanarDestination& planes = *static_cast<const PlanarDestination*>(m_pDst);
        bDirect = isPlane(planes.pY, planes.nYStep, m_nDstWidth) &&
                  isPlane(planes.pCb, planes.nCbStep, m_nDstWidth >> 1) &&
                  isPlane(planes.pCr, planes.nCrStep, m_nDstWidth >> 1);
    }
    return bDirect ? m_nDstWidth / m_nMcuWidth : 0;
}

// Where the samples of a component go: its first one in an MCU row, and the stride.
CJPEGDecoder::SampleRows CJPEGDecoder::RowsOf(std::int32_t nComponent, std::int32_t nMcuRow,
                                              bool bDirect) const {
    if (!bDirect || !HasPlaneResolution(nComponent))
        return BufferRows(nComponent);
    std::uint8_t* pPlane = static_cast<std::uint8_t*>(m_pDst);
    std::int64_t nStep = m_nDstStep;
    if (m_eConversion == Conversion::YCbCrToPlanar) {
        const PlanarDestination& planes = *static_cast<const PlanarDestination*>(m_pDst);
        pPlane = nComponent == 0 ? planes.pY : nComponent == 1 ? planes.pCb : planes.pCr;
        nStep = nComponent == 0 ? planes.nYStep : nComponent == 1 ? planes.nCbStep : planes.nCrStep;
    }
    const std::int64_t nRow = std::int64_t{nMcuRow} * (nComponent == 0 ? m_nMcuHeight : m_nMcuHeight >> 1);
    return {pPlane + nRow * nStep, static_cast<std::int32_t>(nStep)};
}

// What each block of an MCU is decoded by and where it goes. A progressive frame has decoded its blocks
// before.
void CJPEGDecoder::LayOutMcus(std::int32_t nMcuRow, bool bDirect) {
    m_mcuRow.nBlocks = 0;
    m_mcuRow.pCoefficients = m_pBlockBuffer.get();
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        const CJPEGDecoderLookup* const pDc = m_apDcLookup[i].get();
        const CJPEGDecoderLookup* const pAc = m_apAcLookup[i].get();
        const SampleRows rows = RowsOf(i, nMcuRow, bDirect);
        IppMcuBlock block = {
            i,
            pDc ? &pDc->Spec() : nullptr,
            pAc ? &pAc->Spec() : nullptr,
            pDc ? pDc->Dc() : nullptr,
            pAc ? pAc->Ac() : nullptr,
            QuantTable(i)->m_aSteps,
            nullptr,
            rows.nStep,
            8 * component.m_nHSampling,
            bDirect && HasPlaneResolution(i) ? std::int64_t{8} * component.m_nVSampling * rows.nStep : 0,
        };
        for (std::int32_t y = 0; y < component.m_nVSampling; ++y) {
            for (std::int32_t x = 0; x < component.m_nHSampling; ++x) {
                block.pDst = rows.pFirst + std::ptrdiff_t{8} * y * rows.nStep + std::ptrdiff_t{8} * x;
                m_mcuRow.aBlocks[m_mcuRow.nBlocks++] = block;
            }
        }
    }
}

// The samples of MCUs nFirst to nEnd, whose coefficients begin at pBlock. No kernel status is looked at:
// pointers and strides are those that DecodeRun passes.
void CJPEGDecoder::ReconstructLaidOut(const std::int16_t* pBlock, std::int32_t nFirst, std::int32_t nEnd) {
    for (std::int32_t nMcuCol = nFirst; nMcuCol < nEnd; ++nMcuCol) {
        for (std::int32_t i = 0; i < m_mcuRow.nBlocks; ++i, pBlock += 64) {
            const IppMcuBlock& block = m_mcuRow.aBlocks[i];
            static_cast<void>(ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(
                pBlock, block.pDst + std::ptrdiff_t{nMcuCol} * block.nDstAdvance, block.nDstStep,
                block.pSteps));
        }
    }
}
