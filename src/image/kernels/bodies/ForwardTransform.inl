// The forward transform, the inverse one's mirror: the same constants (Transform.inl), the even half of a
// pass two butterflies around one rotation, the odd half the plain 4x4 matrix. A pass over columns and rows
// together has a gain of 8. Of one block or of as many as a vector holds.
//
// Range: shifted samples lie in -128..127. A first pass makes of them at most 1024 times the 8 that the
// fraction bits kept between the passes stand for (-8192 to 8160), so that sums of four of its outputs just
// fit 16 bits (-32768 to 32640, and differences of two and two within 32704). The two outputs of the first
// pass that take no multiplication need no 32 bits. The level shift reaches the sum of all samples alone.

namespace KERNEL_TARGET {
namespace {

constexpr int kForwardPassBits = 3; // kept between the passes
constexpr int kForwardFirstShift = kFractionBits - kForwardPassBits;
constexpr int kForwardSecondShift = kFractionBits + kForwardPassBits + 3; // 3: the gain of 8

// One pass over eight vectors, lane by lane. The first one keeps fraction bits, the second one drops them.
template <bool bFirst, class V16>
[[gnu::always_inline]] inline void ForwardPass(V16 (&x)[8]) {
    constexpr int nShift = bFirst ? kForwardFirstShift : kForwardSecondShift;
    constexpr std::int32_t nBias = 1 << (nShift - 1);
    const V16 d0 = x[0] - x[7];
    const V16 d1 = x[1] - x[6];
    const V16 d2 = x[2] - x[5];
    const V16 d3 = x[3] - x[4];
    const V16 s0 = x[0] + x[7];
    const V16 s1 = x[1] + x[6];
    const V16 s2 = x[2] + x[5];
    const V16 s3 = x[3] + x[4];
    const V16 t0 = s0 + s3;
    const V16 t1 = s1 + s2;
    const V16 t2 = s1 - s2;
    const V16 t3 = s0 - s3;
    if constexpr (bFirst) {
        x[0] = ShiftLeft<kForwardPassBits>(t0 + t1);
        x[4] = ShiftLeft<kForwardPassBits>(t0 - t1);
    } else {
        x[0] = ShiftPack<nShift>(MultiplyAdd(t0, kOne, t1, kOne) + nBias);
        x[4] = ShiftPack<nShift>(MultiplyAdd(t0, kOne, t1, -kOne) + nBias);
    }
    x[2] = ShiftPack<nShift>(MultiplyAdd(t3, kC2, t2, kC6) + nBias);
    x[6] = ShiftPack<nShift>(MultiplyAdd(t3, kC6, t2, -kC2) + nBias);
    x[1] = ShiftPack<nShift>(MultiplyAdd(d0, kC1, d1, kC3) + MultiplyAdd(d2, kC5, d3, kC7) + nBias);
    x[3] = ShiftPack<nShift>(MultiplyAdd(d0, kC3, d1, -kC7) + MultiplyAdd(d2, -kC1, d3, -kC5) + nBias);
    x[5] = ShiftPack<nShift>(MultiplyAdd(d0, kC5, d1, -kC1) + MultiplyAdd(d2, kC7, d3, kC3) + nBias);
    x[7] = ShiftPack<nShift>(MultiplyAdd(d0, kC7, d1, -kC5) + MultiplyAdd(d2, kC3, d3, -kC1) + nBias);
}

// From samples as they are to coefficients with rows and columns exchanged: vector x holds horizontal
// frequency x, lane y vertical frequency y.
template <class V16>
[[gnu::always_inline]] inline void ForwardTransform(V16 (&rows)[8]) {
    ForwardPass<true>(rows);
    rows[0] = rows[0] + std::int16_t{-(8 * 128 << kForwardPassBits)};
    Transpose(rows);
    ForwardPass<false>(rows);
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
    for (int y = 0; y < 8; ++y)
        Store(pDst + 8 * y, RoundedProduct(rows[y], pTable + 8 * y));
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
