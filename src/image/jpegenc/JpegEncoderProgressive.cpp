// The progressive writer (T.81 Annex G): the whole picture becomes coefficients, then each record of the
// script one scan, with Huffman tables of its own where it codes symbols.

#include "image/jpegenc/JpegEncoder.h"

#include "image/format/JpegMarkers.h"

#include <algorithm>
#include <vector>

namespace {

using Script = std::vector<JpegScan>;

JpegScan AllComponents(std::int32_t nComponents, std::int32_t nAh, std::int32_t nAl) {
    return {nComponents, {0, 1, 2, 3}, 0, 0, nAh, nAl};
}

JpegScan OneBand(std::int32_t nComponent, std::int32_t nSs, std::int32_t nSe, std::int32_t nAh,
                 std::int32_t nAl) {
    return {1, {nComponent, 0, 0, 0}, nSs, nSe, nAh, nAl};
}

// The same band of each of four components.
void AddBands(Script& script, std::int32_t nSs, std::int32_t nSe, std::int32_t nAh, std::int32_t nAl) {
    for (std::int32_t i = 0; i < 4; ++i)
        script.push_back(OneBand(i, nSs, nSe, nAh, nAl));
}

// Coarse values first, luma's low frequencies before its high ones, and the last bit at the end.
Script ScriptOf(std::int32_t nComponents) {
    switch (nComponents) {
    case 1:
        return {AllComponents(1, 0, 1),  OneBand(0, 1, 5, 0, 2), OneBand(0, 6, 63, 0, 2),
                OneBand(0, 1, 63, 2, 1), AllComponents(1, 1, 0), OneBand(0, 1, 63, 1, 0)};
    case 3:
        return {AllComponents(3, 0, 1),  OneBand(0, 1, 5, 0, 2),  OneBand(2, 1, 63, 0, 1),
                OneBand(1, 1, 63, 0, 1), OneBand(0, 6, 63, 0, 2), OneBand(0, 1, 63, 2, 1),
                AllComponents(3, 1, 0),  OneBand(2, 1, 63, 1, 0), OneBand(1, 1, 63, 1, 0),
                OneBand(0, 1, 63, 1, 0)};
    case 4: {
        Script script{AllComponents(4, 0, 1)};
        AddBands(script, 1, 5, 0, 2);
        AddBands(script, 6, 63, 0, 2);
        AddBands(script, 1, 63, 2, 1);
        script.push_back(AllComponents(4, 1, 0));
        AddBands(script, 1, 63, 1, 0);
        return script;
    }
    default:
        return {};
    }
}

std::int32_t BlocksOf(std::int32_t nSamples, std::int32_t nFactor) {
    return CeilDivide(CeilDivide(nSamples, nFactor), 8);
}

using Counters = std::uint32_t[2][256]; // by the selector of the Huffman table

} // namespace

// One walk over the blocks of a scan, which counts symbols where counters are given and else writes.
class CJPEGEncoder::ScanCoder {
public:
    ScanCoder(CJPEGEncoder& encoder, const JpegScan& scan, Counters* pCounters)
        : m_encoder(encoder), m_scan(scan), m_pCounters(pCounters) {}

    JpegStatus Run() {
        for (std::int32_t i = 0; i < m_encoder.m_nJpegComponents; ++i)
            m_encoder.m_apComponents[i]->m_nLastDc = 0;
        m_encoder.m_nRestartsToGo = m_encoder.m_nRestartInterval;
        m_encoder.m_nNextRestart = 0;
        ippiEncodeHuffmanStateInit_JPEG_8u(m_encoder.m_pHuffmanState.get());
        const JpegStatus eStatus = m_scan.nComponents > 1 ? RunInterleaved() : RunSingle();
        return eStatus != JPEG_OK ? eStatus : Flush();
    }

private:
    JpegStatus RunInterleaved() {
        const std::int16_t* pBlock = m_encoder.m_pCoefficients.get();
        const std::int64_t nMcus = std::int64_t{m_encoder.m_nMcuCols} * m_encoder.m_nMcuRows;
        for (std::int64_t nMcu = 0; nMcu < nMcus; ++nMcu) {
            if (const JpegStatus eStatus = BeginMcu(); eStatus != JPEG_OK)
                return eStatus;
            for (std::int32_t i = 0; i < m_encoder.m_nJpegComponents; ++i) {
                CJPEGColorComponent& component = *m_encoder.m_apComponents[i];
                for (std::int32_t n = 0; n < component.m_nBlocks; ++n, pBlock += 64) {
                    if (Block(component, pBlock) < 0)
                        return JPEG_INTERNAL_ERROR;
                }
            }
        }
        return JPEG_OK;
    }

    // The component's own blocks in raster order: those that only fill up MCUs are left out, and each block
    // is an MCU for the restarts (T.81 A.2.2).
    JpegStatus RunSingle() {
        CJPEGColorComponent& component = *m_encoder.m_apComponents[m_scan.anComponent[0]];
        const std::int32_t nCols = BlocksOf(m_encoder.m_nSrcWidth, component.m_nHFactor);
        const std::int32_t nRows = BlocksOf(m_encoder.m_nSrcHeight, component.m_nVFactor);
        std::int32_t nBefore = 0; // blocks of an MCU in front of this component's
        for (std::int32_t i = 0; i < component.m_nIndex; ++i)
            nBefore += m_encoder.m_apComponents[i]->m_nBlocks;
        for (std::int32_t y = 0; y < nRows; ++y) {
            for (std::int32_t x = 0; x < nCols; ++x) {
                if (const JpegStatus eStatus = BeginMcu(); eStatus != JPEG_OK)
                    return eStatus;
                const std::int64_t nMcu = x / component.m_nHSampling +
                                          std::int64_t{y / component.m_nVSampling} * m_encoder.m_nMcuCols;
                const std::int64_t nBlock = nMcu * m_encoder.m_nBlocksPerMcu + nBefore +
                                            y % component.m_nVSampling * component.m_nHSampling +
                                            x % component.m_nHSampling;
                if (Block(component, m_encoder.m_pCoefficients.get() + 64 * nBlock) < 0)
                    return JPEG_INTERNAL_ERROR;
            }
        }
        return JPEG_OK;
    }

    JpegStatus BeginMcu() {
        if (m_encoder.m_nRestartInterval == 0)
            return JPEG_OK;
        if (m_encoder.m_nRestartsToGo == 0) {
            if (const JpegStatus eStatus = Restart(); eStatus != JPEG_OK)
                return eStatus;
        }
        --m_encoder.m_nRestartsToGo;
        return JPEG_OK;
    }

    // No room for a restart counts as no room for the data behind it.
    JpegStatus Restart() {
        if (const JpegStatus eStatus = Flush(); eStatus != JPEG_OK)
            return eStatus;
        if (!m_pCounters)
            return m_encoder.WriteRestartMarker() != JPEG_OK ? JPEG_INTERNAL_ERROR : JPEG_OK;
        m_encoder.m_nRestartsToGo = m_encoder.m_nRestartInterval;
        for (std::int32_t i = 0; i < m_encoder.m_nJpegComponents; ++i)
            m_encoder.m_apComponents[i]->m_nLastDc = 0;
        return JPEG_OK;
    }

    // Ends the data, with the pending end-of-band run of an AC scan.
    JpegStatus Flush() {
        ippiEncodeHuffmanState* const pState = m_encoder.m_pHuffmanState.get();
        if (m_scan.nSs == 0) {
            if (m_pCounters)
                return JPEG_OK;
            return ippiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(nullptr, m_encoder.m_pDst,
                                                               m_encoder.m_nDstSize, &m_encoder.m_nDstPos,
                                                               m_scan.nAl, pState, 1) < 0
                       ? JPEG_INTERNAL_ERROR
                       : JPEG_OK;
        }
        const CJPEGColorComponent& component = *m_encoder.m_apComponents[m_scan.anComponent[0]];
        return AcBlock(component, nullptr, 1) < 0 ? JPEG_INTERNAL_ERROR : JPEG_OK;
    }

    IppStatus Block(CJPEGColorComponent& component, const std::int16_t* pBlock) {
        return m_scan.nSs == 0 ? DcBlock(component, pBlock) : AcBlock(component, pBlock, 0);
    }

    IppStatus DcBlock(CJPEGColorComponent& component, const std::int16_t* pBlock) {
        CJPEGEncoder& e = m_encoder;
        if (m_scan.nAh != 0)
            return ippiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(pBlock, e.m_pDst, e.m_nDstSize, &e.m_nDstPos,
                                                               m_scan.nAl, e.m_pHuffmanState.get(), 0);
        if (m_pCounters)
            return ippiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(
                pBlock, (*m_pCounters)[component.m_nDcSelector], &component.m_nLastDc, m_scan.nAl);
        return ippiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(
            pBlock, e.m_pDst, e.m_nDstSize, &e.m_nDstPos, &component.m_nLastDc, m_scan.nAl,
            e.m_apDcHuffman[component.m_nDcSelector]->m_pSpec.get(), e.m_pHuffmanState.get(), 0);
    }

    IppStatus AcBlock(const CJPEGColorComponent& component, const std::int16_t* pBlock, std::int32_t bFlush) {
        CJPEGEncoder& e = m_encoder;
        ippiEncodeHuffmanState* const pState = e.m_pHuffmanState.get();
        if (m_pCounters) {
            const auto count = m_scan.nAh == 0 ? &ippiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1
                                               : &ippiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1;
            return count(pBlock, (*m_pCounters)[component.m_nAcSelector], m_scan.nSs, m_scan.nSe, m_scan.nAl,
                         pState, bFlush);
        }
        const auto write = m_scan.nAh == 0 ? &ippiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1
                                           : &ippiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1;
        return write(pBlock, e.m_pDst, e.m_nDstSize, &e.m_nDstPos, m_scan.nSs, m_scan.nSe, m_scan.nAl,
                     e.m_apAcHuffman[component.m_nAcSelector]->m_pSpec.get(), pState, bFlush);
    }

    CJPEGEncoder& m_encoder;
    const JpegScan& m_scan;
    Counters* m_pCounters;
};

JpegStatus CJPEGEncoder::MakeScript() {
    const Script script = ScriptOf(m_nJpegComponents);
    m_nScans = static_cast<std::int32_t>(script.size());
    m_pScans = std::make_unique<JpegScan[]>(script.size());
    std::copy(script.begin(), script.end(), m_pScans.get());
    m_pCoefficients = IppAllocate<std::int16_t>(std::int64_t{m_nMcuCols} * m_nMcuRows * m_nBlocksPerMcu * 64);
    return m_pCoefficients ? JPEG_OK : JPEG_INTERNAL_ERROR;
}

JpegStatus CJPEGEncoder::WriteImageProgressive(std::uint8_t* pOut, std::int32_t* pnSize) {
    if (const JpegStatus eStatus = Start(pOut, pnSize, true); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = WriteStart(); eStatus != JPEG_OK)
        return eStatus;
    const bool bSecondTable = NeedsSecondTables() && m_eJpegColor != JC_UNKNOWN && m_eJpegColor != JC_RGB &&
                              m_eJpegColor != JC_CMYK;
    for (std::int32_t i = 0; i < (bSecondTable ? 2 : 1); ++i) {
        if (const JpegStatus eStatus = WriteQuantTable(i); eStatus != JPEG_OK)
            return eStatus;
    }
    if (const JpegStatus eStatus = WriteFrameHeader(M_SOF2); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = TransformPicture(); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = WriteRestartInterval(); eStatus != JPEG_OK)
        return eStatus;
    for (std::int32_t i = 0; i < m_nScans; ++i) {
        if (const JpegStatus eStatus = WriteProgressiveScan(m_pScans[i]); eStatus != JPEG_OK)
            return eStatus;
    }
    if (const JpegStatus eStatus = WriteMarker(M_EOI); eStatus != JPEG_OK)
        return eStatus;
    *pnSize = m_nDstPos;
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::TransformPicture() {
    for (std::int32_t nMcuRow = 0; nMcuRow < m_nMcuRows; ++nMcuRow) {
        if (const JpegStatus eStatus = PrepareMcuRow(nMcuRow); eStatus != JPEG_OK)
            return eStatus;
        if (const JpegStatus eStatus = TransformMcuRow(nMcuRow); eStatus != JPEG_OK)
            return eStatus;
    }
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::TransformMcuRow(std::int32_t nMcuRow) {
    IppScanComponent aScan[kJpegMaxComponents];
    BeginMcuRow(aScan);
    std::int16_t* const pTo =
        m_pCoefficients.get() + std::int64_t{64} * m_nBlocksPerMcu * nMcuRow * m_nMcuCols;
    return ippxTransformMcus_8u16s(aScan, m_nJpegComponents, m_nMcuCols, pTo) < 0 ? JPEG_INTERNAL_ERROR
                                                                                  : JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteProgressiveScan(const JpegScan& scan) {
    if (const JpegStatus eStatus = OptimiseTables(scan); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = WriteScanTables(scan); eStatus != JPEG_OK)
        return eStatus;
    if (const JpegStatus eStatus = WriteScanHeader(scan); eStatus != JPEG_OK)
        return eStatus;
    return ScanCoder(*this, scan, nullptr).Run();
}

// A dry run, and the tables of the scan's components made for its symbols. The refinement of DC has none.
JpegStatus CJPEGEncoder::OptimiseTables(const JpegScan& scan) {
    if (scan.nSs == 0 && scan.nAh != 0)
        return JPEG_OK;
    Counters aCounters = {};
    if (const JpegStatus eStatus = ScanCoder(*this, scan, &aCounters).Run(); eStatus != JPEG_OK)
        return eStatus;
    for (std::int32_t i = 0; i < scan.nComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[scan.anComponent[i]];
        const std::int32_t nTable = scan.nSs == 0 ? component.m_nDcSelector : component.m_nAcSelector;
        CJPEGEncoderHuffmanTable& table = *(scan.nSs == 0 ? m_apDcHuffman : m_apAcHuffman)[nTable];
        if (table.InitOptimised(aCounters[nTable]) < 0)
            return JPEG_INTERNAL_ERROR;
    }
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteScanTables(const JpegScan& scan) {
    if (scan.nSs != 0)
        return WriteHuffmanTable(*m_apAcHuffman[m_apComponents[scan.anComponent[0]]->m_nAcSelector]);
    if (scan.nAh != 0)
        return JPEG_OK;
    if (const JpegStatus eStatus = WriteHuffmanTable(*m_apDcHuffman[0]); eStatus != JPEG_OK)
        return eStatus;
    return NeedsSecondTables() ? WriteHuffmanTable(*m_apDcHuffman[1]) : JPEG_OK;
}
