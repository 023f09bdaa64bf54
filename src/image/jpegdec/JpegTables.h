// The table objects of the decoder: what a table segment says, in the form that the kernels take.
#pragma once

#include "image/kernels/Kernels.h"

#include <cstdint>
#include <memory>

class CJPEGDecoderQuantTable {
public:
    virtual ~CJPEGDecoderQuantTable();

    // Fills the steps from m_aRaw; a status of the kernels.
    [[nodiscard]] IppStatus Init();

    std::int32_t m_nId = 0;                      // low four bits of the Pq/Tq byte
    std::int32_t m_nPrecision = 0;               // always 0: entries are kept in eight bits
    alignas(32) std::uint8_t m_aRaw[64] = {};    // as read, zigzag order
    alignas(32) std::uint16_t m_aSteps[64] = {}; // quantiser steps, natural order
};

class CJPEGDecoderHuffmanTable {
public:
    virtual ~CJPEGDecoderHuffmanTable();

    // True when m_pSpec can decode. Builds it from the counts and values on the first call, so that a table
    // which no scan names (as in every stream that is only probed) costs no more than its bytes. Lengths that
    // over-fill the code space are no error by themselves; the table is then unusable, and a scan that names
    // it is refused.
    [[nodiscard]] bool Build();

    std::int32_t m_nId = 0;
    std::int32_t m_nClass = 0;     // 0 DC, else AC
    std::uint8_t m_aBits[16] = {}; // codes of length 1 to 16
    std::uint8_t m_aValues[256] = {};

    IppTablePtr<ippiDecodeHuffmanSpec> m_pSpec;

private:
    bool m_bBuilt = false;
    bool m_bUsable = false;
};
