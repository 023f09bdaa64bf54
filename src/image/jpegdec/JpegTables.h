// The table objects of the decoder: what a table segment says, in the form that the kernels take, and those
// ready for the MCU decoder, kept from picture to picture.
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

// A table of codes with its look-up. Never changes once made, so that it may be shared.
class CJPEGDecoderLookup {
public:
    // That of a table, by what its segment says. Building one takes several microseconds, and a camera sends
    // the same tables with each picture: each thread keeps the last few that it used, without a lock. Null
    // for a table that cannot decode. May throw std::bad_alloc.
    [[nodiscard]] static std::shared_ptr<const CJPEGDecoderLookup>
    Find(const CJPEGDecoderHuffmanTable& table);

    // Empty, for Find alone.
    CJPEGDecoderLookup() = default;

    [[nodiscard]] const ippiDecodeHuffmanSpec& Spec() const { return *m_pSpec; }
    [[nodiscard]] const IppDcLookup* Dc() const { return m_pDc.get(); } // null for an AC table
    [[nodiscard]] const IppAcLookup* Ac() const { return m_pAc.get(); } // null for a DC table

private:
    bool Build(const CJPEGDecoderHuffmanTable& table);
    bool IsOf(const CJPEGDecoderHuffmanTable& table) const;

    std::int32_t m_nClass = 0;
    std::uint8_t m_aBits[16] = {};
    std::uint8_t m_aValues[256] = {};
    IppTablePtr<ippiDecodeHuffmanSpec> m_pSpec;
    std::unique_ptr<IppDcLookup> m_pDc;
    std::unique_ptr<IppAcLookup> m_pAc;
};
