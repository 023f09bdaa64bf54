// Huffman tables ready for the MCU decoder, kept from picture to picture.
#pragma once

#include "image/jpegdec/JpegTables.h"
#include "image/kernels/Kernels.h"

#include <cstdint>
#include <memory>

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
    std::unique_ptr<ippiDecodeHuffmanSpec, CJPEGDecoderHuffmanTable::SpecDeleter> m_pSpec;
    std::unique_ptr<IppDcLookup> m_pDc;
    std::unique_ptr<IppAcLookup> m_pAc;
};
