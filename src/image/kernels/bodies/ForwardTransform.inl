// The forward transform, of one block or of as many as a vector holds. With all gains scaled by the square
// root of 8, as those of the inverse (Transform.inl), a pass over columns and rows together has a gain of 8.
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

namespace KERNEL_TARGET {
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
