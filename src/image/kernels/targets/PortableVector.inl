// The vector type of the portable target: eight lanes of 16 or 32 bits in plain arrays, with loops of fixed
// length that a compiler unrolls. Another target gives the same operations over its registers; the bodies use
// no others.

namespace KERNEL_TARGET {
namespace {

struct Vec16 {
    static constexpr int nSquares = 1; // of eight vectors, that it has a row of
    std::int16_t a[8];
};

struct Vec32 {
    std::int32_t a[8];
};

inline Vec16 Load(const std::int16_t* p) {
    Vec16 v;
    std::memcpy(v.a, p, sizeof v.a);
    return v;
}

// The next rows of as many squares as the vector has, and zeros in their place.
inline void LoadRows(const std::int16_t* p, Vec16& x) {
    x = Load(p);
}

inline void ClearRows(std::int16_t* p, const Vec16&) {
    std::memset(p, 0, 8 * sizeof *p);
}

// The products, saturated to 16 bits. The factors of the second operand are unsigned.
inline Vec16 MultiplySaturate(Vec16 x, const std::uint16_t* pFactors) {
    Vec16 v;
    for (int i = 0; i < 8; ++i)
        v.a[i] = Saturate16(x.a[i] * static_cast<std::int32_t>(pFactors[i]));
    return v;
}

// x*cx + y*cy in 32 bits, the constants being of 16.
inline Vec32 MultiplyAdd(Vec16 x, std::int16_t cx, Vec16 y, std::int16_t cy) {
    Vec32 v;
    for (int i = 0; i < 8; ++i)
        v.a[i] = x.a[i] * cx + y.a[i] * cy;
    return v;
}

inline Vec32 operator+(Vec32 x, Vec32 y) {
    for (int i = 0; i < 8; ++i)
        x.a[i] += y.a[i];
    return x;
}

inline Vec32 operator-(Vec32 x, Vec32 y) {
    for (int i = 0; i < 8; ++i)
        x.a[i] -= y.a[i];
    return x;
}

inline Vec32 operator+(Vec32 x, std::int32_t n) {
    for (int i = 0; i < 8; ++i)
        x.a[i] += n;
    return x;
}

// Arithmetic shift right, then saturation to 16 bits.
template <int nShift>
inline Vec16 ShiftPack(Vec32 x) {
    Vec16 v;
    for (int i = 0; i < 8; ++i)
        v.a[i] = Saturate16(x.a[i] >> nShift);
    return v;
}

inline void Transpose(Vec16 (&r)[8]) {
    for (int i = 0; i < 8; ++i) {
        for (int j = 0; j < i; ++j)
            std::swap(r[i].a[j], r[j].a[i]);
    }
}

// The lower four lanes of 32 bits, for squares whose other lanes are zeros.
struct LowVec32 {
    std::int32_t a[4];
};

inline LowVec32 MultiplyAddLow(Vec16 x, std::int16_t cx, Vec16 y, std::int16_t cy) {
    LowVec32 v;
    for (int i = 0; i < 4; ++i)
        v.a[i] = x.a[i] * cx + y.a[i] * cy;
    return v;
}

inline LowVec32 operator+(LowVec32 x, LowVec32 y) {
    for (int i = 0; i < 4; ++i)
        x.a[i] += y.a[i];
    return x;
}

inline LowVec32 operator-(LowVec32 x, LowVec32 y) {
    for (int i = 0; i < 4; ++i)
        x.a[i] -= y.a[i];
    return x;
}

inline LowVec32 operator+(LowVec32 x, std::int32_t n) {
    for (int i = 0; i < 4; ++i)
        x.a[i] += n;
    return x;
}

// ShiftPack of eight vectors and the four vectors of eight lanes that Transpose would make of them.
template <int nShift>
inline void ShiftPackTransposed(const LowVec32 (&x)[8], Vec16 (&r)[8]) {
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 8; ++j)
            r[i].a[j] = Saturate16(x[j].a[i] >> nShift);
    }
}

// Clamps to 0..255 and stores eight bytes.
inline void StoreClamped(std::uint8_t* p, Vec16 x) {
    for (int i = 0; i < 8; ++i)
        p[i] = static_cast<std::uint8_t>(x.a[i] < 0 ? 0 : x.a[i] > 255 ? 255 : x.a[i]);
}

// Eight samples as they are.
inline Vec16 Widen(const std::uint8_t* p) {
    Vec16 v;
    for (int i = 0; i < 8; ++i)
        v.a[i] = p[i];
    return v;
}

// x*c/32768, rounded to nearest with halves up; the factors are those of the lanes.
inline Vec16 Scaled(Vec16 x, const std::int16_t* pFactors) {
    for (int i = 0; i < 8; ++i)
        x.a[i] = static_cast<std::int16_t>((x.a[i] * pFactors[i] + 0x4000) >> 15);
    return x;
}

// (x+y) >> 1 and (x-y) >> 1, of sums that 16 bits need not hold. Where y of a sum is the least number, x has
// to be even: then the one by which y is off does not show in the half.
inline Vec16 HalfSum(Vec16 x, Vec16 y) {
    for (int i = 0; i < 8; ++i)
        x.a[i] = static_cast<std::int16_t>((x.a[i] + y.a[i]) >> 1);
    return x;
}

inline Vec16 HalfDifference(Vec16 x, Vec16 y) {
    for (int i = 0; i < 8; ++i)
        x.a[i] = static_cast<std::int16_t>((x.a[i] - y.a[i]) >> 1);
    return x;
}

inline void Store(std::int16_t* p, Vec16 x) {
    std::memcpy(p, x.a, sizeof x.a);
}

// Sums and differences of 16 bits, of lanes that stay inside them.
inline Vec16 operator+(Vec16 x, Vec16 y) {
    for (int i = 0; i < 8; ++i)
        x.a[i] = static_cast<std::int16_t>(x.a[i] + y.a[i]);
    return x;
}

inline Vec16 operator-(Vec16 x, Vec16 y) {
    for (int i = 0; i < 8; ++i)
        x.a[i] = static_cast<std::int16_t>(x.a[i] - y.a[i]);
    return x;
}

inline Vec16 operator+(Vec16 x, std::int16_t n) {
    for (int i = 0; i < 8; ++i)
        x.a[i] = static_cast<std::int16_t>(x.a[i] + n);
    return x;
}

template <int nShift>
inline Vec16 ShiftLeft(Vec16 x) {
    for (int i = 0; i < 8; ++i)
        x.a[i] = static_cast<std::int16_t>(x.a[i] * (1 << nShift));
    return x;
}

// Arithmetic.
template <int nShift>
inline Vec16 ShiftRight(Vec16 x) {
    for (int i = 0; i < 8; ++i)
        x.a[i] = static_cast<std::int16_t>(x.a[i] >> nShift);
    return x;
}

// The products shifted right by 15, rounded to nearest with ties to even. No lane is the least number. The
// factors come negated, since 32768 is one of them: -32768 to -1.
inline Vec16 RoundedProduct(Vec16 x, const std::int16_t* pNegated) {
    Vec16 v;
    for (int i = 0; i < 8; ++i) {
        const std::int32_t nProduct = -x.a[i] * pNegated[i];
        v.a[i] = static_cast<std::int16_t>((nProduct + 0x3FFF + (nProduct >> 15 & 1)) >> 15);
    }
    return v;
}

// A bit for each lane that is not zero: those of the first vector lowest.
inline std::uint32_t NonZeroMask(Vec16 x, Vec16 y) {
    std::uint32_t nMask = 0;
    for (int i = 0; i < 8; ++i)
        nMask |= (x.a[i] != 0 ? 1u : 0u) << i | (y.a[i] != 0 ? 1u : 0u) << (8 + i);
    return nMask;
}

// 64 zeros.
inline void StoreZeroBlock(std::int16_t* p) {
    std::memset(p, 0, 64 * sizeof *p);
}

// Clamps to 0..255 and stores the transposed square: the lanes of a vector go below each other.
inline void StoreTransposedClamped(const BlockTarget* pTarget, Vec16 (&columns)[8]) {
    Transpose(columns);
    for (int y = 0; y < 8; ++y)
        StoreClamped(pTarget->pDst + y * pTarget->nStep, columns[y]);
}

// A bit for each byte of 0xFF among the next kScan.
constexpr std::ptrdiff_t kScan = 8;
inline std::uint32_t FindStuffed(const std::uint8_t* p) {
    std::uint32_t nFound = 0;
    for (int i = 0; i < kScan; ++i)
        nFound |= (p[i] == 0xFF ? 1u : 0u) << i;
    return nFound;
}

} // namespace
} // namespace KERNEL_TARGET
