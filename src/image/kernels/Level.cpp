#include "image/kernels/Level.h"

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#define KERNELS_HAVE_CPUID 1
#else
#define KERNELS_HAVE_CPUID 0
#endif

std::atomic<std::int32_t> g_nKernelLevel{0};
std::atomic<std::int32_t> g_nKernelSubLevel{0};
std::atomic<std::int32_t> g_nKernelWide{0};

namespace {

struct Registers {
    std::uint32_t nEax = 0, nEbx = 0, nEcx = 0, nEdx = 0;
};

// A leaf that the processor does not have reads as zeros.
Registers Identification([[maybe_unused]] std::uint32_t nLeaf) noexcept {
    Registers registers;
#if KERNELS_HAVE_CPUID
    __get_cpuid_count(nLeaf, 0, &registers.nEax, &registers.nEbx, &registers.nEcx, &registers.nEdx);
#endif
    return registers;
}

constexpr std::uint32_t kEcxXsave = 27;
constexpr std::uint32_t kEcxAvx = 28;

constexpr bool Bit(std::uint32_t nWord, std::uint32_t nBit) {
    return (nWord >> nBit & 1) != 0;
}

// Only where the processor lets a program read it (ECX bit 27), else 0.
std::uint32_t ReadXcr0([[maybe_unused]] std::uint32_t nEcx) noexcept {
#if KERNELS_HAVE_CPUID
    if (Bit(nEcx, kEcxXsave)) {
        std::uint32_t nLow = 0;
        std::uint32_t nHigh = 0;
        __asm__ volatile("xgetbv" : "=a"(nLow), "=d"(nHigh) : "c"(0));
        return nLow;
    }
#endif
    return 0;
}

// The kept word and the flag that it is valid; two threads may both fill it, with the same value.
std::atomic<std::uint64_t> s_nFeatures{0};
std::atomic<bool> s_bFeaturesValid{false};

} // namespace

std::uint64_t ippFeaturesFromIdentification(std::uint32_t nEcx, std::uint32_t nEdx,
                                            std::uint32_t nXcr0) noexcept {
    std::uint64_t nFeatures = 0;
    const auto add = [&nFeatures](bool bThere, IppFeature eFeature) {
        nFeatures |= bThere ? std::uint64_t{eFeature} : 0;
    };
    add(Bit(nEdx, 23), ippFeatureMMX);
    add(Bit(nEdx, 25), ippFeatureSSE);
    add(Bit(nEdx, 26), ippFeatureSSE2);
    add(Bit(nEcx, 0), ippFeatureSSE3);
    add(Bit(nEcx, 9), ippFeatureSSSE3);
    add(Bit(nEcx, 22), ippFeatureMOVBE);
    add(Bit(nEcx, 19), ippFeatureSSE41);
    add(Bit(nEcx, 20), ippFeatureSSE42);
    add(Bit(nEcx, kEcxAvx), ippFeatureAVX);
    add(Bit(nEcx, kEcxXsave) && Bit(nEcx, kEcxAvx) && Bit(nXcr0, 1) && Bit(nXcr0, 2),
        ippFeatureAVXStateSaved);
    add(Bit(nEcx, 25), ippFeatureAES);
    add(Bit(nEcx, 1), ippFeaturePCLMULQDQ);
    return nFeatures;
}

IppKernelLevel ippLevelFromFeatures(std::uint64_t nFeatures) noexcept {
    const auto has = [nFeatures](std::uint64_t nAll) { return (nFeatures & nAll) == nAll; };
    if (has(ippFeatureAVX | ippFeatureAVXStateSaved))
        return {4, 0};
    if (has(ippFeatureSSE41))
        return {3, 0};
    if (has(ippFeatureSSSE3))
        return {2, has(ippFeatureMOVBE) ? 1 : 0};
    if (has(ippFeatureSSE3))
        return {1, 0};
    return {0, 0};
}

std::uint64_t ippGetFeatures() noexcept {
    if (s_bFeaturesValid.load(std::memory_order_acquire))
        return s_nFeatures.load(std::memory_order_relaxed);
    const Registers leaf = Identification(1);
    const std::uint64_t nFeatures = ippFeaturesFromIdentification(leaf.nEcx, leaf.nEdx, ReadXcr0(leaf.nEcx));
    s_nFeatures.store(nFeatures, std::memory_order_relaxed);
    s_bFeaturesValid.store(true, std::memory_order_release);
    return nFeatures;
}

std::int32_t ippWidestKernels() noexcept {
    if (ippLevelFromFeatures(ippGetFeatures()).nLevel < 4)
        return 0;
    const std::uint32_t nBasic = Identification(1).nEcx;
    const Registers extended = Identification(7);
    // MOVBE, POPCNT and LZCNT; then BMI1, AVX2 and BMI2.
    const bool bCounts = Bit(nBasic, 22) && Bit(nBasic, 23) && Bit(Identification(0x80000001).nEcx, 5);
    if (!bCounts || !Bit(extended.nEbx, 3) || !Bit(extended.nEbx, 5) || !Bit(extended.nEbx, 8))
        return 0;
    // AVX-512 F, DQ, BW and VL, with all its registers saved (XCR0 bits 5 to 7). The variant does without
    // VBMI2, but the processors before that one lower their clock for such registers.
    const bool bFoundation =
        Bit(extended.nEbx, 16) && Bit(extended.nEbx, 17) && Bit(extended.nEbx, 30) && Bit(extended.nEbx, 31);
    const bool bSaved = (ReadXcr0(nBasic) & 0xE0) == 0xE0;
    return bFoundation && bSaved && Bit(extended.nEcx, 6) ? 2 : 1;
}

IppStatus ippSelectVariant(const char* szName) noexcept {
    const std::int32_t nWide = ippWidestKernels();
    std::int32_t nAsked = nWide;
    if (std::strcmp(szName, "4-avx") == 0)
        nAsked = 0;
    else if (std::strcmp(szName, "4-avx2") == 0)
        nAsked = 1;
    else if (szName[0] < '0' || szName[0] >= '0' + ippLevels || szName[1] != 0)
        return ippStsBadArgument;
    if (nAsked > nWide)
        return ippStsFeatureNotThere;
    const std::int32_t nLevel = szName[0] - '0';
    if (nLevel > ippLevelFromFeatures(ippGetFeatures()).nLevel)
        return ippStsFeatureNotThere;
    g_nKernelWide.store(nAsked, std::memory_order_relaxed);
    g_nKernelLevel.store(nLevel, std::memory_order_relaxed);
    return ippStsNoErr;
}

IppStatus ippStaticInit() noexcept {
    const IppKernelLevel level = ippLevelFromFeatures(ippGetFeatures());
    g_nKernelWide.store(ippWidestKernels(), std::memory_order_relaxed);
    g_nKernelLevel.store(level.nLevel, std::memory_order_relaxed);
    g_nKernelSubLevel.store(level.nSubLevel, std::memory_order_relaxed);

    // "GenuineIntel" as leaf 0 spells it.
    const Registers vendor = Identification(0);
    const bool bExpected =
        vendor.nEbx == 0x756E6547 && vendor.nEdx == 0x49656E69 && vendor.nEcx == 0x6C65746E;
    return bExpected ? ippStsNoErr : ippStsOtherVendor;
}
