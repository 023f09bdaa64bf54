// Which variant of the kernels runs.
//
// Every kernel that works on data exists once as source text and up to five times as code, one variant a
// processor level; its public name is a stub that reads the level once and jumps. Before ippStaticInit the
// level is 0, which every processor has. All variants give the same bytes, so the level may change while
// kernels run.
#pragma once

#include "image/kernels/Status.h"

#include <atomic>
#include <cstdint>

inline constexpr std::int32_t ippLevels = 5;

// 0 to 4 and 0 or 1. Read and written without order: each value alone is right.
extern std::atomic<std::int32_t> g_nKernelLevel;
extern std::atomic<std::int32_t> g_nKernelSubLevel;

// Which variant level 4 takes: 0 that for AVX alone, 1 that for AVX2 and bit manipulation, 2 that for
// AVX-512. Set with the level, which does not depend on it.
extern std::atomic<std::int32_t> g_nKernelWide;

// Chooses a variant by the name that people give it: "0" to "4" for the levels, "4-avx" and "4-avx2" for
// level 4 as processors with no more than that have it. ippStsFeatureNotThere where this processor lacks it,
// ippStsBadArgument for any other name; nothing changes then.
[[nodiscard]] IppStatus ippSelectVariant(const char* szName) noexcept;

// The instruction set of the variant that runs, told by itself: "C++", "SSE2", "SSSE3", "SSE4.1", "AVX",
// "AVX2" or "AVX-512".
IppStatus ippxVariant(const char** pszSet);

// Bits of the processor features word.
enum IppFeature : std::uint64_t {
    ippFeatureMMX = 1u << 0,
    ippFeatureSSE = 1u << 1,
    ippFeatureSSE2 = 1u << 2,
    ippFeatureSSE3 = 1u << 3,
    ippFeatureSSSE3 = 1u << 4,
    ippFeatureMOVBE = 1u << 5,
    ippFeatureSSE41 = 1u << 6,
    ippFeatureSSE42 = 1u << 7,
    ippFeatureAVX = 1u << 8,
    ippFeatureAVXStateSaved = 1u << 9, // the operating system keeps the wide registers
    ippFeatureAES = 1u << 10,
    ippFeaturePCLMULQDQ = 1u << 11,
};

struct IppKernelLevel {
    std::int32_t nLevel;
    std::int32_t nSubLevel;
};

// Reads the processor, sets the level and returns ippStsOtherVendor or ippStsNoErr; the vendor has no say in
// the level. May be repeated and may run on several threads at once: it always writes the same values.
IppStatus ippStaticInit() noexcept;

// The features word of this processor, read once and kept.
[[nodiscard]] std::uint64_t ippGetFeatures() noexcept;

// The greatest value of g_nKernelWide that this processor and its operating system have what it takes for.
[[nodiscard]] std::int32_t ippWidestKernels() noexcept;

// The two rules behind start-up, without a processor: the features word from identification leaf 1 (ECX, EDX)
// and the low half of XCR0 (0 where it cannot be read), and the level from a features word.
[[nodiscard]] std::uint64_t ippFeaturesFromIdentification(std::uint32_t nEcx, std::uint32_t nEdx,
                                                          std::uint32_t nXcr0) noexcept;
[[nodiscard]] IppKernelLevel ippLevelFromFeatures(std::uint64_t nFeatures) noexcept;
