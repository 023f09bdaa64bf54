// The table objects of the decoder: what a table segment says, and the forms that the kernels take.
#pragma once

#include "image/kernels/Kernels.h"

#include <cstdint>
#include <memory>

class CJPEGDecoderQuantTable final {
public:
    virtual ~CJPEGDecoderQuantTable() = default;

    // Fills the steps from m_aRaw; a status of the kernels.
    [[nodiscard]] IppStatus Init();

    std::int32_t m_nId = 0;                      // low four bits of the Pq/Tq byte
    std::int32_t m_nPrecision = 0;               // always 0: entries are kept in eight bits
    alignas(32) std::uint8_t m_aRaw[64] = {};    // as read, zigzag order
    alignas(32) std::uint16_t m_aSteps[64] = {}; // quantiser steps, natural order
};

class CJPEGDecoderHuffmanTable final {
public:
    virtual ~CJPEGDecoderHuffmanTable() = default;

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

// Huffman tables in the form of the MCU decoder, kept from picture to picture. Building one takes several
// microseconds, and nearly all cameras send the same ones with each picture.
//
// Equal tables are shared by all threads: each exists once in a library that carries the codec, in one of a
// fixed number of places that are filled for good by whoever needs them first. Four places are reserved for
// the tables of T.81 Annex K, so that no stream can take them away. A table for which no place is left is the
// thread's own: streams with ever new tables cost their own thread what they cost it without sharing, and
// others nothing. Nobody waits for another thread.
//
// A table of codes with its look-up: never changes once it is shared.
class CJPEGDecoderLookup {
public:
    // That of a table, by what its segment says. Null for a table that cannot decode. May throw
    // std::bad_alloc.
    [[nodiscard]] static std::shared_ptr<const CJPEGDecoderLookup>
    Find(const CJPEGDecoderHuffmanTable& table);

    // Empty, for Find alone.
    constexpr CJPEGDecoderLookup() noexcept {}

    // Fills an empty one; false for a table that cannot decode.
    [[nodiscard]] bool Build(const CJPEGDecoderHuffmanTable& table);
    [[nodiscard]] bool IsOf(const CJPEGDecoderHuffmanTable& table) const;

    // Asks for what the MCU decoder will look at. Between two pictures an idle processor, or a thousand other
    // cameras, push it out of the caches, and a decoder by itself waits for one line after the other.
    void Prefetch() const noexcept;

    [[nodiscard]] const ippiDecodeHuffmanSpec& Spec() const { return m_spec; }
    [[nodiscard]] const IppDcLookup* Dc() const { return m_nClass == 0 ? &m_dc : nullptr; }
    [[nodiscard]] const IppAcLookup* Ac() const { return m_nClass == 0 ? nullptr : &m_ac; }

private:
    // What every picture touches comes first.
    union {
        alignas(64) IppDcLookup m_dc{}; // class 0
        IppAcLookup m_ac;
    };
    std::int32_t m_nClass = 0;
    std::uint8_t m_aBits[16] = {};
    std::uint8_t m_aValues[256] = {};
    ippiDecodeHuffmanSpec m_spec{}; // for what leaves the fast way
};
