// What the kernels have in common: their status values and the size of an area.
//
// Every kernel checks its pointers and sizes first and returns without touching the destination when one is
// bad. Negative values are errors, positive ones are notes on work that was done.
#pragma once

#include <cstdint>

using IppStatus = std::int32_t;

inline constexpr IppStatus ippStsNoErr = 0;
inline constexpr IppStatus ippStsFeatureNotThere = 36; // a feature asked about is not there
inline constexpr IppStatus ippStsOddSize = 35;         // an odd last row or column was left out
inline constexpr IppStatus ippStsOtherVendor = 20;     // start-up: another vendor's processor; kernels work
inline constexpr IppStatus ippStsBadRun = -2;          // a run of zeros points beyond its block
inline constexpr IppStatus ippStsBadArgument =
    -5;                                        // quality below 1, Ss/Se/Al out of range, negative source size
inline constexpr IppStatus ippStsSizeErr = -6; // a width, height or length below 1, or below 2 for pairs
inline constexpr IppStatus ippStsNullPtrErr = -8; // a null pointer, or a failed allocation of an Init form
inline constexpr IppStatus ippStsStepErr = -14;   // a stride below 1
inline constexpr IppStatus ippStsMirrorAxisErr = -21;   // an axis other than 0, 1, 2
inline constexpr IppStatus ippStsBufferEnd = -62;       // no more room or data in the buffer
inline constexpr IppStatus ippStsMarkerOrNoCode = -63;  // a marker stands before needed bits, or no code fits
inline constexpr IppStatus ippStsHuffmanTableErr = -64; // over-full code lengths; a symbol without a code

// An area in samples.
struct IppiSize {
    std::int32_t width;
    std::int32_t height;
};
