// What is reached before a target opens its instruction set: the families' headers, those of the C++ library
// that bodies and vectors use, and constants. No function of the library may be compiled inside a region: the
// linker keeps one copy of those, which then must run everywhere.
#pragma once

#include "image/kernels/Kernels.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr std::int16_t Saturate16(std::int32_t n) {
    return static_cast<std::int16_t>(n < -32768 ? -32768 : n > 32767 ? 32767 : n);
}

// Where the samples of a block go.
struct BlockTarget {
    std::uint8_t* pDst;
    std::ptrdiff_t nStep;
};

// For the scan writer, whose blocks have their rows and columns exchanged.
//
// Position in coding order to place in such a block.
inline constexpr std::array<std::uint8_t, 64> g_aExchangedZigZag = [] {
    std::array<std::uint8_t, 64> aPlaces{};
    for (std::size_t k = 0; k < 64; ++k)
        aPlaces[k] = static_cast<std::uint8_t>((g_aZigZag[k] & 7) << 3 | g_aZigZag[k] >> 3);
    return aPlaces;
}();

// A byte of a mask of such a block, to the ones that it means in coding order.
inline constexpr std::array<std::array<std::uint64_t, 256>, 8> g_aCodingOrder = [] {
    std::array<std::array<std::uint64_t, 256>, 8> aMasks{};
    for (std::size_t k = 0; k < 64; ++k) {
        const std::size_t nPlace = g_aExchangedZigZag[k];
        for (std::size_t nByte = 0; nByte < 256; ++nByte) {
            if ((nByte >> (nPlace & 7) & 1) != 0)
                aMasks[nPlace >> 3][nByte] |= std::uint64_t{1} << k;
        }
    }
    return aMasks;
}();

// What a value of -2047 to 2047 adds to a code (ippiEncodeHuffmanSpec::aWhole): the bits that follow it, <<
// 5, and their number. At 2048 plus the value.
inline constexpr std::size_t ippValueZero = 2048;
inline constexpr std::array<std::uint16_t, 4096> g_aValueBits = [] {
    std::array<std::uint16_t, 4096> aBits{};
    for (std::size_t nSize = 1; nSize <= 11; ++nSize) {
        const std::size_t nEnd = std::size_t{1} << nSize;
        for (std::size_t n = nEnd / 2; n < nEnd; ++n) {
            aBits[ippValueZero + n] = static_cast<std::uint16_t>(n << 5 | nSize);
            aBits[ippValueZero - n] = static_cast<std::uint16_t>((nEnd - 1 - n) << 5 | nSize);
        }
    }
    return aBits;
}();
