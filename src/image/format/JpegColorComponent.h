// One colour component of a frame: what the headers say of it, and its buffers.
#pragma once

#include "image/kernels/Memory.h"

#include <cstdint>

class CJPEGColorComponent {
public:
    virtual ~CJPEGColorComponent() = default;

    std::int32_t m_nId = 0;        // the frame header's identifier
    std::int32_t m_nIndex = 0;     // position in the frame, set for progressive frames
    std::int32_t m_nHSampling = 0; // the frame header's factors
    std::int32_t m_nVSampling = 0;
    std::int32_t m_nHFactor = 0; // upsampling: 2 for chroma of half the resolution, else 1
    std::int32_t m_nVFactor = 0;
    std::int32_t m_nBlocks = 0; // encoder only
    std::int32_t m_nQuantSelector = 0;
    std::int32_t m_nDcSelector = 0;
    std::int32_t m_nAcSelector = 0;
    bool m_bAcScanDone = false;
    std::int16_t m_nLastDc = 0; // DC predictor

    IppBuffer<std::uint8_t> m_pCcBuffer; // samples at full resolution
    IppBuffer<std::uint8_t> m_pSsBuffer; // samples at the coded resolution, with room around them
    IppBuffer<std::uint8_t> m_pTopRow;   // last chroma row of the MCU row before
};
