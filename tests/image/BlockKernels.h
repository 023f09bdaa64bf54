// The kernels that read and write one block's codes, with the state that they go on from.
#pragma once

#include "image/JpegSamples.h"
#include "image/kernels/Kernels.h"

#include <gtest/gtest.h>

namespace samples {

struct HuffmanTable {
    std::uint8_t aBits[16] = {};
    Bytes values;
};

struct DecodeTable {
    explicit DecodeTable(const HuffmanTable& table) {
        Bytes values = table.values;
        values.resize(256);
        EXPECT_EQ(ippiDecodeHuffmanSpecInit_JPEG_8u(table.aBits, values.data(), &p), 0);
    }
    DecodeTable(const DecodeTable&) = delete;
    DecodeTable& operator=(const DecodeTable&) = delete;
    ~DecodeTable() { ippiDecodeHuffmanSpecFree_JPEG_8u(p); }
    ippiDecodeHuffmanSpec* p = nullptr;
};

struct BlockReader {
    IppStatus Next(const DecodeTable& dc, const DecodeTable& ac) {
        return ippiDecodeHuffman8x8_JPEG_1u16s_C1(data.empty() ? &nNone : data.data(), Size(data), &nPos,
                                                  block.data(), &nLastDc, &nMarker, dc.p, ac.p, &state);
    }
    Bytes data;
    Block block{};
    std::int32_t nPos = 0, nMarker = 0;
    std::int16_t nLastDc = 0;
    ippiDecodeHuffmanState state{};
    std::uint8_t nNone = 0;
};

struct BlockWriter {
    IppStatus Write(const std::int16_t* pBlock, const ippiEncodeHuffmanSpec* pDc,
                    const ippiEncodeHuffmanSpec* pAc, std::int16_t& nLast) {
        return ippiEncodeHuffman8x8_JPEG_16s1u_C1(pBlock, data.data(), Size(data), &nPos, &nLast, pDc, pAc,
                                                  &state, 0);
    }
    // What was written, once the bits that are held are filled up.
    Bytes Flush() {
        EXPECT_EQ(ippiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, data.data(), Size(data), &nPos, nullptr,
                                                     nullptr, nullptr, &state, 1),
                  0);
        return Part(data, 0, nPos);
    }
    Bytes data; // of the room that there is
    std::int32_t nPos = 0;
    ippiEncodeHuffmanState state{};
};

} // namespace samples
