// The table objects of the encoder: what a table segment says, in the form that the kernels take.
#pragma once

#include "image/kernels/Kernels.h"

#include <cstdint>
#include <memory>

class CJPEGEncoderQuantTable {
public:
    virtual ~CJPEGEncoderQuantTable();

    // Table nId of T.81 Annex K (0: K.1, luma; 1: K.2, chroma) scaled for a quality; a status of the kernels.
    [[nodiscard]] IppStatus Init(std::int32_t nId, std::int32_t nQuality);

    std::int32_t m_nId = 0;
    std::int32_t m_nPrecision = 0;                 // always 0: entries of eight bits
    alignas(32) std::uint8_t m_aRaw[64] = {};      // steps, zigzag order
    alignas(32) std::uint16_t m_aFactors[64] = {}; // 32768 over the step, natural order
};

class CJPEGEncoderHuffmanTable {
public:
    virtual ~CJPEGEncoderHuffmanTable();

    // A table of T.81 Annex K: class 0, identifiers 0 and 1 are K.3 and K.4; class 1, K.5 and K.6.
    [[nodiscard]] IppStatus InitStandard(std::int32_t nId, std::int32_t nClass);

    // The shortest codes for 256 counts of symbols.
    [[nodiscard]] IppStatus InitOptimised(const std::uint32_t* pStatistics);

    std::int32_t m_nId = 0;
    std::int32_t m_nClass = 0; // 0 DC, 1 AC
    std::uint8_t m_aBits[16] = {};
    std::uint8_t m_aValues[256] = {};

    IppTablePtr<ippiEncodeHuffmanSpec> m_pSpec;

private:
    [[nodiscard]] IppStatus Build();
};
