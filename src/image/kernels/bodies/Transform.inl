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

// One pass over eight vectors, lane by lane; nBias enters every output before the shift.
template <int nShift>
void InversePass(Vec16 (&x)[8], std::int32_t nBias) {
    const Vec32 a = MultiplyAdd(x[0], kOne, x[4], kOne) + nBias;
    const Vec32 b = MultiplyAdd(x[0], kOne, x[4], -kOne) + nBias;
    const Vec32 c = MultiplyAdd(x[2], kC2, x[6], kC6);
    const Vec32 d = MultiplyAdd(x[2], kC6, x[6], -kC2);
    const Vec32 e0 = a + c;
    const Vec32 e1 = b + d;
    const Vec32 e2 = b - d;
    const Vec32 e3 = a - c;

    const Vec32 o0 = MultiplyAdd(x[1], kC1, x[3], kC3) + MultiplyAdd(x[5], kC5, x[7], kC7);
    const Vec32 o1 = MultiplyAdd(x[1], kC3, x[3], -kC7) + MultiplyAdd(x[5], -kC1, x[7], -kC5);
    const Vec32 o2 = MultiplyAdd(x[1], kC5, x[3], -kC1) + MultiplyAdd(x[5], kC7, x[7], kC3);
    const Vec32 o3 = MultiplyAdd(x[1], kC7, x[3], -kC5) + MultiplyAdd(x[5], kC3, x[7], -kC1);

    x[0] = ShiftPack<nShift>(e0 + o0);
    x[1] = ShiftPack<nShift>(e1 + o1);
    x[2] = ShiftPack<nShift>(e2 + o2);
    x[3] = ShiftPack<nShift>(e3 + o3);
    x[4] = ShiftPack<nShift>(e3 - o3);
    x[5] = ShiftPack<nShift>(e2 - o2);
    x[6] = ShiftPack<nShift>(e1 - o1);
    x[7] = ShiftPack<nShift>(e0 - o0);
}

constexpr int kFirstShift = kFractionBits - kPassBits;
constexpr int kSecondShift = kFractionBits + kPassBits + 3; // 3: the gain of 8
constexpr std::int32_t kFirstBias = 1 << (kFirstShift - 1);
constexpr std::int32_t kSecondBias = (1 << (kSecondShift - 1)) + (128 << kSecondShift);

// True when only the first of the 64 coefficients is not zero, as in most blocks of a flat area.
bool IsFlat(const std::int16_t* pSrc) {
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

// What the two passes make of a lone first coefficient: the same sample everywhere.
std::uint8_t FlatSample(std::int32_t nDc) {
    const std::int32_t nBetween = Saturate16(Saturate16(nDc) * (1 << kPassBits));
    const std::int32_t nSample = (nBetween * kOne + kSecondBias) >> kSecondShift;
    return static_cast<std::uint8_t>(nSample < 0 ? 0 : nSample > 255 ? 255 : nSample);
}

} // namespace

IppStatus ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(const std::int16_t* pSrc, std::uint8_t* pDst,
                                              std::int32_t nDstStep, const std::uint16_t* pTable) {
    if (!pSrc || !pDst || !pTable)
        return ippStsNullPtrErr;
    if (nDstStep < 1)
        return ippStsStepErr;
    if (IsFlat(pSrc)) {
        const std::uint8_t nSample = FlatSample(pSrc[0] * static_cast<std::int32_t>(pTable[0]));
        for (int y = 0; y < 8; ++y, pDst += nDstStep)
            std::memset(pDst, nSample, 8);
        return ippStsNoErr;
    }
    Vec16 rows[8];
    for (int y = 0; y < 8; ++y)
        rows[y] = MultiplySaturate(Load(pSrc + 8 * y), pTable + 8 * y);
    InversePass<kFirstShift>(rows, kFirstBias);
    Transpose(rows);
    InversePass<kSecondShift>(rows, kSecondBias);
    Transpose(rows);
    for (int y = 0; y < 8; ++y, pDst += nDstStep)
        StoreClamped(pDst, rows[y]);
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
