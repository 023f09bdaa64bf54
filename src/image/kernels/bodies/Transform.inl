// The inverse transform of one block.
//
// One 8-point pass splits into even and odd half (T.81 A.3.3): the even half is two butterflies around one
// rotation, the odd half the plain 4x4 matrix, whose products pair up for processors that multiply and add in
// one step. With all gains scaled by the square root of 8, the constants are sqrt(2)*cos(k*pi/16) with 12
// fractional bits, and a block's pass over columns and rows together has a gain of 8.
//
// Range: inputs of 16 bits, and at most 1 + 1 + 1.307 + 0.541 + 1.387 + 1.176 + 0.786 + 0.276 times 4096 of
// them in a sum, stay below 2^30.1 with the rounding term and the level shift added: 32 bits suffice for any
// input.
#pragma once

#include "image/kernels/Transform.h"
#include "image/kernels/targets/Common.h"

namespace KERNEL_TARGET {
namespace {

constexpr int kFractionBits = 12;
constexpr int kPassBits = 3; // kept between the passes

constexpr std::int16_t kOne = 4096; // 1
constexpr std::int16_t kC1 = 5681;  // 1.387040
constexpr std::int16_t kC2 = 5352;  // 1.306563
constexpr std::int16_t kC3 = 4816;  // 1.175876
constexpr std::int16_t kC5 = 3218;  // 0.785695
constexpr std::int16_t kC6 = 2217;  // 0.541196
constexpr std::int16_t kC7 = 1130;  // 0.275899

// One pass over eight vectors, lane by lane, up to the eight sums that are shifted then: output(i, even, odd)
// takes their sum for place i and their difference for place 7 - i. nBias enters every output. With bFour the
// last four inputs are zeros and not read.
template <bool bFour, class Vector, class Multiply, class Output>
inline void Butterflies(const Vector (&x)[8], std::int32_t nBias, Multiply multiply, Output output) {
    if constexpr (bFour) {
        const auto a = multiply(x[0], kOne, x[2], 0) + nBias;
        const auto c = multiply(x[0], 0, x[2], kC2);
        const auto d = multiply(x[0], 0, x[2], kC6);
        const auto o0 = multiply(x[1], kC1, x[3], kC3);
        const auto o1 = multiply(x[1], kC3, x[3], -kC7);
        const auto o2 = multiply(x[1], kC5, x[3], -kC1);
        const auto o3 = multiply(x[1], kC7, x[3], -kC5);
        output(0, a + c, o0);
        output(1, a + d, o1);
        output(2, a - d, o2);
        output(3, a - c, o3);
    } else {
        const auto a = multiply(x[0], kOne, x[4], kOne) + nBias;
        const auto b = multiply(x[0], kOne, x[4], -kOne) + nBias;
        const auto c = multiply(x[2], kC2, x[6], kC6);
        const auto d = multiply(x[2], kC6, x[6], -kC2);
        const auto o0 = multiply(x[1], kC1, x[3], kC3) + multiply(x[5], kC5, x[7], kC7);
        const auto o1 = multiply(x[1], kC3, x[3], -kC7) + multiply(x[5], -kC1, x[7], -kC5);
        const auto o2 = multiply(x[1], kC5, x[3], -kC1) + multiply(x[5], kC7, x[7], kC3);
        const auto o3 = multiply(x[1], kC7, x[3], -kC5) + multiply(x[5], kC3, x[7], -kC1);
        output(0, a + c, o0);
        output(1, b + d, o1);
        output(2, b - d, o2);
        output(3, a - c, o3);
    }
}

constexpr int kFirstShift = kFractionBits - kPassBits;
constexpr int kSecondShift = kFractionBits + kPassBits + 3; // 3: the gain of 8
constexpr std::int32_t kFirstBias = 1 << (kFirstShift - 1);
constexpr std::int32_t kShiftedBias = 1 << (kSecondShift - 1); // of samples that stay level-shifted
constexpr std::int32_t kSecondBias = kShiftedBias + (128 << kSecondShift);

template <int nShift, bool bFour, class Vector>
void InversePass(Vector (&x)[8], std::int32_t nBias) {
    const auto multiply = [](Vector u, std::int16_t cu, Vector v, std::int16_t cv) {
        return MultiplyAdd(u, cu, v, cv);
    };
    Butterflies<bFour>(x, nBias, multiply, [&x](int i, auto even, auto odd) {
        x[i] = ShiftPack<nShift>(even + odd);
        x[7 - i] = ShiftPack<nShift>(even - odd);
    });
}

// The first pass and the turn of the square behind it. With bFour the lanes of the right half are zeros and
// stay so: only the left ones are worked on, and only four vectors come out.
template <bool bFour, class Vector>
void FirstPass(Vector (&x)[8]) {
    if constexpr (bFour) {
        const auto multiply = [](Vector u, std::int16_t cu, Vector v, std::int16_t cv) {
            return MultiplyAddLow(u, cu, v, cv);
        };
        decltype(multiply(x[0], 0, x[0], 0)) aSums[8];
        Butterflies<true>(x, kFirstBias, multiply, [&aSums](int i, auto even, auto odd) {
            aSums[i] = even + odd;
            aSums[7 - i] = even - odd;
        });
        ShiftPackTransposed<kFirstShift>(aSums, x);
    } else {
        InversePass<kFirstShift, false>(x, kFirstBias);
        Transpose(x);
    }
}

// What is to be made of one block, and where it goes.
struct BlockTask {
    const std::int16_t* pSrc;
    const std::uint16_t* pSteps;
    BlockTarget target;
};

// The last coefficient in zigzag order that leaves the lower and the right half of a block to zeros.
constexpr std::int32_t kLastOfFour = 9;

// Both passes over the rows of coefficients times their steps, of as many blocks as a vector holds.
template <bool bFour, class Vector>
[[gnu::always_inline]] inline void InverseRows(Vector (&rows)[8], const BlockTarget* pTargets) {
    FirstPass<bFour>(rows);
    InversePass<kSecondShift, bFour>(rows, kSecondBias);
    StoreTransposedClamped(pTargets, rows);
}

// A lone first coefficient: the two passes make the same sample of it everywhere.
inline void InverseFlat(std::int16_t nCoefficient, std::uint16_t nStep, const BlockTarget& target) {
    const std::int32_t nDc = Saturate16(nCoefficient * static_cast<std::int32_t>(nStep));
    const std::int32_t nBetween = Saturate16(nDc * (1 << kPassBits));
    const std::int32_t nSample = (nBetween * kOne + kSecondBias) >> kSecondShift;
    const auto nByte = static_cast<std::uint8_t>(nSample < 0 ? 0 : nSample > 255 ? 255 : nSample);
    std::uint8_t* pDst = target.pDst;
    for (int y = 0; y < 8; ++y, pDst += target.nStep)
        std::memset(pDst, nByte, 8);
}

// True when only the first of the 64 coefficients is not zero, as in most blocks of a flat area.
inline bool IsFlat(const std::int16_t* pSrc) {
    std::uint64_t aWords[16];
    std::memcpy(aWords, pSrc, sizeof aWords);
    std::int16_t nFirst = pSrc[0];
    std::uint64_t nDc = 0;
    std::memcpy(&nDc, &nFirst, sizeof nFirst);
    std::uint64_t nAll = aWords[0] ^ nDc;
    for (int i = 1; i < 16; ++i)
        nAll |= aWords[i];
    return nAll == 0;
}

// nLast is the place in zigzag order behind which there are only zeros.
template <bool bFour>
[[gnu::always_inline]] inline void InverseScaled(const BlockTask& task) {
    Vec16 rows[8];
    for (int y = 0; y < (bFour ? 4 : 8); ++y)
        rows[y] = MultiplySaturate(Load(task.pSrc + 8 * y), task.pSteps + 8 * y);
    InverseRows<bFour>(rows, &task.target);
}

inline void InverseOne(const BlockTask& task, std::int32_t nLast) {
    if (nLast <= 0)
        InverseFlat(task.pSrc[0], task.pSteps[0], task.target);
    else if (nLast <= kLastOfFour)
        InverseScaled<true>(task);
    else
        InverseScaled<false>(task);
}

#ifdef KERNEL_WIDE
template <bool bFour>
[[gnu::always_inline]] inline void InverseScaled(const BlockTask& first, const BlockTask& second) {
    WideVec16 rows[8];
    for (int y = 0; y < (bFour ? 4 : 8); ++y)
        rows[y] = MultiplySaturate(Load(first.pSrc + 8 * y, second.pSrc + 8 * y), first.pSteps + 8 * y,
                                   second.pSteps + 8 * y);
    const BlockTarget aTargets[2] = {first.target, second.target};
    InverseRows<bFour>(rows, aTargets);
}
#endif

inline void InverseTwo(const BlockTask& first, std::int32_t nFirstLast, const BlockTask& second,
                       std::int32_t nSecondLast) {
#ifdef KERNEL_WIDE
    const std::int32_t nLast = std::max(nFirstLast, nSecondLast);
    if (nLast > 0) {
        if (nLast > kLastOfFour)
            InverseScaled<false>(first, second);
        else
            InverseScaled<true>(first, second);
        return;
    }
#endif
    InverseOne(first, nFirstLast);
    InverseOne(second, nSecondLast);
}

#if defined(KERNEL_FOUR)
using GroupVec16 = FourVec16;
#elif defined(KERNEL_WIDE)
using GroupVec16 = WideVec16;
#else
using GroupVec16 = Vec16;
#endif

// Blocks of one quantiser that are transformed together, as many as the widest vector holds. Row y of each
// stands beside that of the others, so that one load takes them all. All coefficients are zeros but those of
// blocks that wait.
struct BlockGroup {
    static constexpr int nMost = GroupVec16::nSquares;

    alignas(64) std::int16_t aCoefficients[64 * nMost];
    BlockTarget aTargets[nMost];
    std::int32_t nBlocks; // that wait
    std::int32_t nLast;   // the place in zigzag order behind which all of them have only zeros
};

template <bool bFour>
inline void InverseGroup(BlockGroup& group, const std::uint16_t* pSteps) {
    GroupVec16 rows[8];
    std::int16_t* pRow = group.aCoefficients;
    for (int y = 0; y < (bFour ? 4 : 8); ++y, pRow += 8 * BlockGroup::nMost) {
        LoadRows(pRow, rows[y]);
        ClearRows(pRow, rows[y]);
        rows[y] = MultiplySaturate(rows[y], pSteps + 8 * y);
    }
    InverseRows<bFour>(rows, group.aTargets);
}

// Every block of the group has a target, whether it waits or not. Leaves the group empty.
[[gnu::noinline]] inline void InverseGroup(BlockGroup& group, const std::uint16_t* pSteps) {
    if (group.nLast > kLastOfFour) {
        InverseGroup<false>(group, pSteps);
    } else if (group.nLast > 0) {
        InverseGroup<true>(group, pSteps);
    } else {
        for (std::int32_t i = 0; i < group.nBlocks; ++i) {
            InverseFlat(group.aCoefficients[8 * i], pSteps[0], group.aTargets[i]);
            group.aCoefficients[8 * i] = 0;
        }
    }
    group.nBlocks = 0;
    group.nLast = 0;
}

} // namespace

IppStatus ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(const std::int16_t* pSrc, std::uint8_t* pDst,
                                              std::int32_t nDstStep, const std::uint16_t* pTable) {
    if (!pSrc || !pDst || !pTable)
        return ippStsNullPtrErr;
    if (nDstStep < 1)
        return ippStsStepErr;
    InverseOne({pSrc, pTable, {pDst, nDstStep}}, IsFlat(pSrc) ? 0 : 63);
    return ippStsNoErr;
}

IppStatus ippxInverseBlock_16s(const std::int16_t* pSrc, std::int16_t* pDst, const std::uint16_t* pTable) {
    if (!pSrc || !pDst || !pTable)
        return ippStsNullPtrErr;
    Vec16 rows[8];
    for (int y = 0; y < 8; ++y)
        rows[y] = MultiplySaturate(Load(pSrc + 8 * y), pTable + 8 * y);
    FirstPass<false>(rows);
    InversePass<kSecondShift, false>(rows, kShiftedBias);
    Transpose(rows);
    for (int y = 0; y < 8; ++y)
        Store(pDst + 8 * y, rows[y]);
    return ippStsNoErr;
}

// The forward transform, of one block or of as many as a vector holds. With all gains scaled by the square
// root of 8, as those of the inverse, a pass over columns and rows together has a gain of 8.
//
// The first pass works in 16 bits. It keeps four fraction bits of samples that are not level-shifted, 0 to
// 255, up to its last step, which drops one: no sum is above 8 * 255 * 16 = 32640. Its even half is two
// butterflies around a rotation and its odd half, after Chen, Smith and Fralick, three of them; of each the
// cosine is left to the last step, x + tan*y for cos*x + sin*y. The products are rounded to nearest.
//
// The level shift of 128 reaches the sum of all samples alone. Shifted samples lie in -128..127: the first
// pass makes of them at most 1024 times the 8 that its three fraction bits stand for (-8192 to 8160), so that
// sums of four of its outputs just fit 16 bits (-32768 to 32640, and differences of two and two within
// 32704). The second pass multiplies those in 32 bits, its odd half being the plain 4x4 matrix.
namespace {

constexpr int kForwardSampleBits = 4;
constexpr int kForwardPassBits = 3;                                 // kept between the passes
constexpr int kForwardShift = kFractionBits + kForwardPassBits + 3; // 3: the gain of 8

// Factors of 32768, as many times as the widest vector has lanes.
struct ForwardFactors {
    alignas(32) std::int16_t aRootHalf[16];
    std::int16_t aTan1[16];      // tan(pi/16)
    std::int16_t aTan2[16];      // tan(pi/8)
    std::int16_t aTan3[16];      // tan(3*pi/16)
    std::int16_t aHalfGain1[16]; // sqrt(2)*cos(pi/16) / 2, the half for the fraction bit dropped
    std::int16_t aHalfGain2[16]; // sqrt(2)*cos(pi/8) / 2
    std::int16_t aHalfGain3[16]; // sqrt(2)*cos(3*pi/16) / 2
    std::int16_t aThirtySecond[16];
};

constexpr ForwardFactors kForwardFactors = [] {
    ForwardFactors factors{};
    for (int i = 0; i < 16; ++i) {
        factors.aRootHalf[i] = 23170;
        factors.aTan1[i] = 6518;
        factors.aTan2[i] = 13573;
        factors.aTan3[i] = 21895;
        factors.aHalfGain1[i] = 22725;
        factors.aHalfGain2[i] = 21407;
        factors.aHalfGain3[i] = 19266;
        factors.aThirtySecond[i] = 1024;
    }
    return factors;
}();

// Out of the compiler's sight: it would make each factor anew from an immediate, which takes longer than to
// load it.
inline const ForwardFactors& Factors() {
    const ForwardFactors* p = &kForwardFactors;
    __asm__("" : "+r"(p));
    return *p;
}

// Sums and differences of eight vectors, lane by lane.
template <class V16>
struct ForwardSums {
    explicit ForwardSums(const V16 (&x)[8])
        : d0(x[0] - x[7]), d1(x[1] - x[6]), d2(x[2] - x[5]), d3(x[3] - x[4]) {
        const V16 s0 = x[0] + x[7];
        const V16 s1 = x[1] + x[6];
        const V16 s2 = x[2] + x[5];
        const V16 s3 = x[3] + x[4];
        t0 = s0 + s3;
        t1 = s1 + s2;
        t2 = s1 - s2;
        t3 = s0 - s3;
    }

    V16 d0, d1, d2, d3;
    V16 t0, t1, t2, t3;
};

template <class V16>
[[gnu::always_inline]] inline void ForwardColumns(V16 (&x)[8]) {
    const ForwardFactors& factors = Factors();
    const ForwardSums<V16> sums(x);
    x[0] = ShiftLeft<kForwardPassBits>(sums.t0 + sums.t1) + std::int16_t{-(8 * 128 << kForwardPassBits)};
    x[4] = ShiftLeft<kForwardPassBits>(sums.t0 - sums.t1);
    const V16 t2 = ShiftLeft<kForwardSampleBits>(sums.t2);
    const V16 t3 = ShiftLeft<kForwardSampleBits>(sums.t3);
    x[2] = Scaled(t3 + Scaled(t2, factors.aTan2), factors.aHalfGain2);
    x[6] = Scaled(Scaled(t3, factors.aTan2) - t2, factors.aHalfGain2);
    const V16 d0 = ShiftLeft<kForwardSampleBits>(sums.d0);
    const V16 d3 = ShiftLeft<kForwardSampleBits>(sums.d3);
    const V16 sum = Scaled(ShiftLeft<kForwardSampleBits>(sums.d1 + sums.d2), factors.aRootHalf);
    const V16 difference = Scaled(ShiftLeft<kForwardSampleBits>(sums.d1 - sums.d2), factors.aRootHalf);
    const V16 a = d0 + sum;
    const V16 b = d0 - sum;
    const V16 c = d3 + difference;
    const V16 d = d3 - difference;
    x[1] = Scaled(a + Scaled(c, factors.aTan1), factors.aHalfGain1);
    x[7] = Scaled(Scaled(a, factors.aTan1) - c, factors.aHalfGain1);
    x[3] = Scaled(b - Scaled(d, factors.aTan3), factors.aHalfGain3);
    x[5] = Scaled(Scaled(b, factors.aTan3) + d, factors.aHalfGain3);
}

template <class V16>
[[gnu::always_inline]] inline void ForwardRows(V16 (&x)[8]) {
    constexpr std::int32_t nBias = 1 << (kForwardShift - 1);
    const ForwardFactors& factors = Factors();
    const ForwardSums<V16> sums(x);
    const auto& [d0, d1, d2, d3, t0, t1, t2, t3] = sums;
    x[0] = Scaled(HalfSum(t0, t1), factors.aThirtySecond);
    x[4] = Scaled(HalfDifference(t0, t1), factors.aThirtySecond);
    x[2] = ShiftPack<kForwardShift>(MultiplyAdd(t3, kC2, t2, kC6) + nBias);
    x[6] = ShiftPack<kForwardShift>(MultiplyAdd(t3, kC6, t2, -kC2) + nBias);
    x[1] = ShiftPack<kForwardShift>(MultiplyAdd(d0, kC1, d1, kC3) + MultiplyAdd(d2, kC5, d3, kC7) + nBias);
    x[3] = ShiftPack<kForwardShift>(MultiplyAdd(d0, kC3, d1, -kC7) + MultiplyAdd(d2, -kC1, d3, -kC5) + nBias);
    x[5] = ShiftPack<kForwardShift>(MultiplyAdd(d0, kC5, d1, -kC1) + MultiplyAdd(d2, kC7, d3, kC3) + nBias);
    x[7] = ShiftPack<kForwardShift>(MultiplyAdd(d0, kC7, d1, -kC5) + MultiplyAdd(d2, kC3, d3, -kC1) + nBias);
}

// From samples as they are to coefficients with rows and columns exchanged: vector x holds horizontal
// frequency x, lane y vertical frequency y.
template <class V16>
[[gnu::always_inline]] inline void ForwardTransform(V16 (&rows)[8]) {
    ForwardColumns(rows);
    Transpose(rows);
    ForwardRows(rows);
}

} // namespace

IppStatus ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                              std::int16_t* pDst, const std::uint16_t* pTable) {
    if (!pSrc || !pDst || !pTable)
        return ippStsNullPtrErr;
    if (nSrcStep < 1)
        return ippStsStepErr;
    Vec16 rows[8];
    for (int y = 0; y < 8; ++y, pSrc += nSrcStep)
        rows[y] = Widen(pSrc);
    ForwardTransform(rows);
    Transpose(rows);
    std::int16_t aNegated[64];
    for (int i = 0; i < 64; ++i)
        aNegated[i] = static_cast<std::int16_t>(-pTable[i]);
    for (int y = 0; y < 8; ++y)
        Store(pDst + 8 * y, RoundedProduct(rows[y], aNegated + 8 * y));
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
