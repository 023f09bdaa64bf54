// The entropy-coded data of a scan (T.81 E.2, F.2, G.2).
//
// A scan of all components of a sequential frame is decoded MCU by MCU straight into the image. All others
// fill the coefficient store, from which the picture is made at the end. A failing block is not reported: it
// keeps what it got, and the decode goes on where the bit reader stopped.

#include "image/format/JpegMarkers.h"
#include "image/ijl/IjlDecoder.h"

#include <algorithm>

// Everything that the entropy decoder goes by.
struct CIjlDecoder::ReaderPosition {
    std::int32_t nSrcPos;
    std::int32_t nMarker;
    std::uint32_t nAccumulator;
    std::int32_t nBits;

    bool operator==(const ReaderPosition&) const = default;
};

CIjlDecoder::ReaderPosition CIjlDecoder::CurrentPosition() const {
    const ippiDecodeHuffmanState& state = *m_props.pHuffmanState;
    return {m_props.nSrcPos, m_props.nMarker, state.nAccumulator, state.nBits};
}

IJLERR CIjlDecoder::DecodeScan() {
    const bool bDirect = !m_props.bProgressive && !m_pStore && m_nScanComponents == m_props.JPGChannels;
    if (!bDirect) {
        // The coefficients of what was painted at once are gone.
        if (m_bPictureBegun && !m_pStore)
            return IJL_ERR_COMP;
        if (const IJLERR eError = AllocateStore(); eError != IJL_OK)
            return eError;
    }
    m_bPictureBegun = true;
    m_nRestartsToGo = m_props.nRestartInterval;
    ResetReader();
    if (bDirect)
        return DecodeDirect();
    return m_nScanComponents == 1 ? DecodeOneComponent() : DecodeInterleaved();
}

// Zeroed by the system, so that a picture of few blocks costs few pages.
IJLERR CIjlDecoder::AllocateStore() {
    if (m_pStore)
        return IJL_OK;
    if (m_nStoreBlocks > kMaxStore / kBlock)
        return IJL_MEMORY_ERROR;
    const auto nBytes = static_cast<std::size_t>(m_nStoreBlocks) * kBlock * sizeof(std::int16_t);
    m_pStoreMemory.reset(static_cast<std::uint8_t*>(std::calloc(nBytes + ippAlignment, 1)));
    if (!m_pStoreMemory)
        return IJL_MEMORY_ERROR;
    ippAdviseLargePages(m_pStoreMemory.get(), static_cast<std::int64_t>(nBytes));
    m_pStore = static_cast<std::int16_t*>(ippAlignPtr(m_pStoreMemory.get(), ippAlignment));
    return IJL_OK;
}

void CIjlDecoder::ResetReader() {
    ippiDecodeHuffmanStateInit_JPEG_8u(m_props.pHuffmanState.get());
    m_props.nMarker = M_NONE;
    for (std::int32_t i = 0; i < m_nScanComponents; ++i)
        ScanComponent(i).nLastDc = 0;
    m_bStuck = false;
}

// T.81 E.2.4. The number in the marker is not looked at. Another marker than a restart means that the rest of
// the scan is not there.
IJLERR CIjlDecoder::Restart() {
    std::int32_t nMarker = m_props.nMarker;
    if (nMarker == M_NONE)
        nMarker = SeekMarker(m_props.JPGBytes, m_props.nSrcSize, m_props.nSrcPos);
    if (!IsRestartMarker(nMarker))
        return IJL_BAD_RST_MARKER;
    ResetReader();
    m_nRestartsToGo = m_props.nRestartInterval;
    return IJL_OK;
}

IppStatus CIjlDecoder::DecodeBlock(IjlComponent& component, std::int16_t* pBlock) {
    const std::uint8_t* const pSrc = m_props.JPGBytes;
    const std::int32_t nSize = m_props.nSrcSize;
    std::int32_t* const pPos = &m_props.nSrcPos;
    std::int32_t* const pMarker = &m_props.nMarker;
    ippiDecodeHuffmanState* const pState = m_props.pHuffmanState.get();
    const bool bDc = m_nSs == 0;
    const ippiDecodeHuffmanSpec* const pDc =
        bDc ? m_props.aDc[component.nDcSelector & 3].pSpec.get() : nullptr;
    const ippiDecodeHuffmanSpec* const pAc =
        m_nSe != 0 ? m_props.aAc[component.nAcSelector & 3].pSpec.get() : nullptr;
    if (!m_props.bProgressive)
        return ippiDecodeHuffman8x8_JPEG_1u16s_C1(pSrc, nSize, pPos, pBlock, &component.nLastDc, pMarker, pDc,
                                                  pAc, pState);
    if (bDc && m_nAh == 0)
        return ippiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(pSrc, nSize, pPos, pBlock, &component.nLastDc,
                                                          pMarker, m_nAl, pDc, pState);
    if (bDc)
        return ippiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(pSrc, nSize, pPos, pBlock, pMarker, m_nAl, pState);
    if (m_nAh == 0)
        return ippiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(pSrc, nSize, pPos, pBlock, m_nSs, m_nSe, m_nAl,
                                                          pMarker, pAc, pState);
    return ippiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(pSrc, nSize, pPos, pBlock, m_nSs, m_nSe, m_nAl,
                                                       pMarker, pAc, pState);
}

// One MCU: takes the restart that is due, then decodes each block that forEachBlock hands to its argument.
//
// A block that fails is not reported in a sequential frame: it keeps what it got. A progressive one fails as
// a whole, since what later scans add to blocks that lack bits is no picture.
//
// An MCU all of whose blocks fail without moving the reader shows that every further one would do the same.
// The blocks up to the next restart are then not asked for, so that a huge picture with no data costs little.
// Those of the store are zero already, unless another scan of the same component has coded them.
template <typename ForEachBlock>
IJLERR CIjlDecoder::DecodeMcu(ForEachBlock&& forEachBlock) {
    if (m_props.nRestartInterval != 0 && m_nRestartsToGo-- == 0) {
        if (const IJLERR eError = Restart(); eError != IJL_OK)
            return eError;
        --m_nRestartsToGo;
    }
    const bool bSkip = m_bStuck;
    const ReaderPosition before = CurrentPosition();
    bool bAllFailed = true;
    bool bAnyFailed = false;
    forEachBlock([&](IjlComponent& component, std::int16_t* pBlock) {
        if (bSkip) {
            if (!m_pStore || component.nScans > 1)
                std::fill_n(pBlock, kBlock, std::int16_t{0});
            return;
        }
        const bool bFailed = DecodeBlock(component, pBlock) < 0;
        bAllFailed = bAllFailed && bFailed;
        bAnyFailed = bAnyFailed || bFailed;
    });
    if (bAnyFailed && m_props.bProgressive)
        return IJL_ERR_DATA;
    m_bStuck = bAllFailed && CurrentPosition() == before;
    return IJL_OK;
}

// Each block becomes samples at once. Its coefficients need not last longer than that.
IJLERR CIjlDecoder::DecodeDirect() {
    alignas(ippAlignment) std::int16_t aBlock[kBlock];
    for (std::int32_t nRow = 0; nRow < m_props.nMcuRows; ++nRow) {
        for (std::int32_t nCol = 0; nCol < m_props.nMcuCols; ++nCol) {
            const IJLERR eError = DecodeMcu([&](auto&& decode) {
                for (std::int32_t i = 0; i < m_nScanComponents; ++i) {
                    IjlComponent& component = ScanComponent(i);
                    const bool bUsed = m_anScan[i] < m_nUsedComponents;
                    std::int16_t* pSamples = bUsed ? Samples(m_anScan[i]) : nullptr;
                    for (std::int32_t n = component.nHSampling * component.nVSampling; n > 0; --n) {
                        decode(component, aBlock);
                        if (bUsed)
                            ReconstructBlock(aBlock, component, pSamples);
                        pSamples += bUsed ? kBlock : 0;
                    }
                }
            });
            if (eError != IJL_OK)
                return eError;
            if (const IJLERR eWritten = WriteMcu(nCol, nRow); eWritten != IJL_OK)
                return eWritten;
        }
    }
    return IJL_OK;
}

// A scan of some components, or the DC coefficients of several: MCUs of the frame (T.81 A.2.3).
IJLERR CIjlDecoder::DecodeInterleaved() {
    for (std::int32_t nRow = 0; nRow < m_props.nMcuRows; ++nRow) {
        for (std::int32_t nCol = 0; nCol < m_props.nMcuCols; ++nCol) {
            const IJLERR eError = DecodeMcu([&](auto&& decode) {
                for (std::int32_t i = 0; i < m_nScanComponents; ++i) {
                    IjlComponent& component = ScanComponent(i);
                    const std::int32_t nH = component.nHSampling;
                    const std::int32_t nV = component.nVSampling;
                    for (std::int32_t n = 0; n < nH * nV; ++n)
                        decode(component, StoreBlock(component, nCol * nH + n % nH, nRow * nV + n / nH));
                }
            });
            if (eError != IJL_OK)
                return eError;
        }
    }
    return IJL_OK;
}

// One component: its own blocks in raster order, an MCU each (T.81 A.2.2).
IJLERR CIjlDecoder::DecodeOneComponent() {
    IjlComponent& component = ScanComponent(0);
    for (std::int32_t nRow = 0; nRow < component.nRows; ++nRow) {
        for (std::int32_t nCol = 0; nCol < component.nCols; ++nCol) {
            const IJLERR eError =
                DecodeMcu([&](auto&& decode) { decode(component, StoreBlock(component, nCol, nRow)); });
            if (eError != IJL_OK)
                return eError;
        }
    }
    return IJL_OK;
}
