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
    std::uint8_t* pDst;
    std::ptrdiff_t nDstStep;
};

// The last coefficient in zigzag order that leaves the lower and the right half of a block to zeros.
constexpr std::int32_t kLastOfFour = 9;

// The rows of coefficients times their steps, one block or two to a vector.
inline void LoadScaled(const BlockTask* pTask, int y, Vec16& row) {
    row = MultiplySaturate(Load(pTask->pSrc + 8 * y), pTask->pSteps + 8 * y);
}

inline void StoreTransposed(const BlockTask* pTask, Vec16 (&columns)[8]) {
    StoreTransposedClamped(pTask->pDst, pTask->nDstStep, columns);
}

#ifdef KERNEL_WIDE
inline void LoadScaled(const BlockTask* pTasks, int y, WideVec16& row) {
    row = MultiplySaturate(Load(pTasks[0].pSrc + 8 * y, pTasks[1].pSrc + 8 * y), pTasks[0].pSteps + 8 * y,
                           pTasks[1].pSteps + 8 * y);
}

inline void StoreTransposed(const BlockTask* pTasks, WideVec16 (&columns)[8]) {
    StoreTransposedClamped(pTasks[0].pDst, pTasks[0].nDstStep, pTasks[1].pDst, pTasks[1].nDstStep, columns);
}
#endif

// As many blocks as a vector holds.
template <bool bFour, class Vector>
[[gnu::always_inline]] inline void InverseVector(const BlockTask* pTasks) {
    Vector rows[8];
    for (int y = 0; y < (bFour ? 4 : 8); ++y)
        LoadScaled(pTasks, y, rows[y]);
    FirstPass<bFour>(rows);
    InversePass<kSecondShift, bFour>(rows, kSecondBias);
    StoreTransposed(pTasks, rows);
}

// A lone first coefficient: the two passes make the same sample of it everywhere.
inline void InverseFlat(const BlockTask& task) {
    const std::int32_t nDc = Saturate16(task.pSrc[0] * static_cast<std::int32_t>(task.pSteps[0]));
    const std::int32_t nBetween = Saturate16(nDc * (1 << kPassBits));
    const std::int32_t nSample = (nBetween * kOne + kSecondBias) >> kSecondShift;
    const auto nByte = static_cast<std::uint8_t>(nSample < 0 ? 0 : nSample > 255 ? 255 : nSample);
    std::uint8_t* pDst = task.pDst;
    for (int y = 0; y < 8; ++y, pDst += task.nDstStep)
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
inline void InverseOne(const BlockTask& task, std::int32_t nLast) {
    if (nLast <= 0)
        InverseFlat(task);
    else if (nLast <= kLastOfFour)
        InverseVector<true, Vec16>(&task);
    else
        InverseVector<false, Vec16>(&task);
}

inline void InverseTwo(const BlockTask& first, std::int32_t nFirstLast, const BlockTask& second,
                       std::int32_t nSecondLast) {
#ifdef KERNEL_WIDE
    const std::int32_t nLast = std::max(nFirstLast, nSecondLast);
    const BlockTask aTasks[2] = {first, second};
    if (nLast > kLastOfFour) {
        InverseVector<false, WideVec16>(aTasks);
    } else if (nLast > 0) {
        InverseVector<true, WideVec16>(aTasks);
    } else {
        InverseFlat(first);
        InverseFlat(second);
    }
#else
    InverseOne(first, nFirstLast);
    InverseOne(second, nSecondLast);
#endif
}

} // namespace

IppStatus ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(const std::int16_t* pSrc, std::uint8_t* pDst,
                                              std::int32_t nDstStep, const std::uint16_t* pTable) {
    if (!pSrc || !pDst || !pTable)
        return ippStsNullPtrErr;
    if (nDstStep < 1)
        return ippStsStepErr;
    InverseOne({pSrc, pTable, pDst, nDstStep}, IsFlat(pSrc) ? 0 : 63);
    return ippStsNoErr;
}

IppStatus ippxInverseBlock_16s(const std::int16_t* pSrc, std::int16_t* pDst, const std::uint16_t* pTable) {
    if (!pSrc || !pDst || !pTable)
        return ippStsNullPtrErr;
    const BlockTask task{pSrc, pTable, nullptr, 0};
    Vec16 rows[8];
    for (int y = 0; y < 8; ++y)
        LoadScaled(&task, y, rows[y]);
    FirstPass<false>(rows);
    InversePass<kSecondShift, false>(rows, kShiftedBias);
    Transpose(rows);
    for (int y = 0; y < 8; ++y)
        Store(pDst + 8 * y, rows[y]);
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
