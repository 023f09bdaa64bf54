// Two squares of eight vectors side by side, one in each half of registers of 256 bits: the halves are worked
// on alike and never meet.

namespace KERNEL_TARGET {
namespace {

struct WideVec16 {
    __m256i v;
};

struct WideVec32 {
    __m256i lo; // lanes 0 to 3 of both squares
    __m256i hi;
};

inline __m256i JoinRegisters(const void* pLow, const void* pHigh) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(LoadRegister(pLow)), LoadRegister(pHigh), 1);
}

inline WideVec16 Load(const std::int16_t* pFirst, const std::int16_t* pSecond) {
    return {JoinRegisters(pFirst, pSecond)};
}

// Of factors below 32768.
inline WideVec16 MultiplySaturate(WideVec16 x, const std::uint16_t* pFirst, const std::uint16_t* pSecond) {
    const __m256i factors = JoinRegisters(pFirst, pSecond);
    const __m256i low = _mm256_mullo_epi16(x.v, factors);
    const __m256i high = _mm256_mulhi_epi16(x.v, factors);
    return {_mm256_packs_epi32(_mm256_unpacklo_epi16(low, high), _mm256_unpackhi_epi16(low, high))};
}

inline WideVec32 MultiplyAdd(WideVec16 x, std::int16_t cx, WideVec16 y, std::int16_t cy) {
    const __m256i constants = _mm256_set1_epi32(ConstantPair(cx, cy));
    return {_mm256_madd_epi16(_mm256_unpacklo_epi16(x.v, y.v), constants),
            _mm256_madd_epi16(_mm256_unpackhi_epi16(x.v, y.v), constants)};
}

inline WideVec32 operator+(WideVec32 x, WideVec32 y) {
    return {_mm256_add_epi32(x.lo, y.lo), _mm256_add_epi32(x.hi, y.hi)};
}

inline WideVec32 operator-(WideVec32 x, WideVec32 y) {
    return {_mm256_sub_epi32(x.lo, y.lo), _mm256_sub_epi32(x.hi, y.hi)};
}

inline WideVec32 operator+(WideVec32 x, std::int32_t n) {
    const __m256i all = _mm256_set1_epi32(n);
    return {_mm256_add_epi32(x.lo, all), _mm256_add_epi32(x.hi, all)};
}

template <int nShift>
inline WideVec16 ShiftPack(WideVec32 x) {
    return {_mm256_packs_epi32(_mm256_srai_epi32(x.lo, nShift), _mm256_srai_epi32(x.hi, nShift))};
}

// Each square in its half; the steps are those of one square.
inline void Transpose(WideVec16 (&r)[8]) {
    __m256i a[8];
    __m256i b[8];
    for (int i = 0; i < 4; ++i) {
        a[i] = _mm256_unpacklo_epi16(r[2 * i].v, r[2 * i + 1].v);
        a[4 + i] = _mm256_unpackhi_epi16(r[2 * i].v, r[2 * i + 1].v);
    }
    for (int i = 0; i < 8; i += 2) {
        b[i] = _mm256_unpacklo_epi32(a[i], a[i + 1]);
        b[i + 1] = _mm256_unpackhi_epi32(a[i], a[i + 1]);
    }
    for (int i = 0; i < 2; ++i) {
        r[4 * i].v = _mm256_unpacklo_epi64(b[4 * i], b[4 * i + 2]);
        r[4 * i + 1].v = _mm256_unpackhi_epi64(b[4 * i], b[4 * i + 2]);
        r[4 * i + 2].v = _mm256_unpacklo_epi64(b[4 * i + 1], b[4 * i + 3]);
        r[4 * i + 3].v = _mm256_unpackhi_epi64(b[4 * i + 1], b[4 * i + 3]);
    }
}

struct WideLowVec32 {
    __m256i v;
};

inline WideLowVec32 MultiplyAddLow(WideVec16 x, std::int16_t cx, WideVec16 y, std::int16_t cy) {
    return {_mm256_madd_epi16(_mm256_unpacklo_epi16(x.v, y.v), _mm256_set1_epi32(ConstantPair(cx, cy)))};
}

inline WideLowVec32 operator+(WideLowVec32 x, WideLowVec32 y) {
    return {_mm256_add_epi32(x.v, y.v)};
}

inline WideLowVec32 operator-(WideLowVec32 x, WideLowVec32 y) {
    return {_mm256_sub_epi32(x.v, y.v)};
}

inline WideLowVec32 operator+(WideLowVec32 x, std::int32_t n) {
    return {_mm256_add_epi32(x.v, _mm256_set1_epi32(n))};
}

template <int nShift>
inline void ShiftPackTransposed(const WideLowVec32 (&x)[8], WideVec16 (&r)[8]) {
    __m256i a[4]; // two vectors of four lanes each
    for (int i = 0; i < 4; ++i)
        a[i] = _mm256_packs_epi32(_mm256_srai_epi32(x[2 * i].v, nShift),
                                  _mm256_srai_epi32(x[2 * i + 1].v, nShift));
    __m256i b[4]; // lanes 0 and 1, then 2 and 3, of vectors 0 to 3 and of 4 to 7
    for (int i = 0; i < 4; i += 2) {
        const __m256i even = _mm256_unpacklo_epi16(a[i], a[i + 1]);
        const __m256i odd = _mm256_unpackhi_epi16(a[i], a[i + 1]);
        b[i] = _mm256_unpacklo_epi16(even, odd);
        b[i + 1] = _mm256_unpackhi_epi16(even, odd);
    }
    r[0].v = _mm256_unpacklo_epi64(b[0], b[2]);
    r[1].v = _mm256_unpackhi_epi64(b[0], b[2]);
    r[2].v = _mm256_unpacklo_epi64(b[1], b[3]);
    r[3].v = _mm256_unpackhi_epi64(b[1], b[3]);
}

inline void StoreTransposedClamped(std::uint8_t* pFirst, std::ptrdiff_t nFirstStep, std::uint8_t* pSecond,
                                   std::ptrdiff_t nSecondStep, WideVec16 (&columns)[8]) {
    __m256i a[4];
    for (int i = 0; i < 4; ++i)
        a[i] = _mm256_packus_epi16(columns[i].v, columns[4 + i].v);
    const __m256i b0 = _mm256_unpacklo_epi8(a[0], a[2]);
    const __m256i b1 = _mm256_unpacklo_epi8(a[1], a[3]);
    const __m256i b2 = _mm256_unpackhi_epi8(a[0], a[2]);
    const __m256i b3 = _mm256_unpackhi_epi8(a[1], a[3]);
    const __m256i left03 = _mm256_unpacklo_epi8(b0, b1);
    const __m256i left47 = _mm256_unpackhi_epi8(b0, b1);
    const __m256i right03 = _mm256_unpacklo_epi8(b2, b3);
    const __m256i right47 = _mm256_unpackhi_epi8(b2, b3);
    const __m256i aRows[4] = {_mm256_unpacklo_epi32(left03, right03), _mm256_unpackhi_epi32(left03, right03),
                              _mm256_unpacklo_epi32(left47, right47), _mm256_unpackhi_epi32(left47, right47)};
    for (int i = 0; i < 4; ++i) {
        StoreTwoRows(pFirst + 2 * i * nFirstStep, nFirstStep, _mm256_castsi256_si128(aRows[i]));
        StoreTwoRows(pSecond + 2 * i * nSecondStep, nSecondStep, _mm256_extracti128_si256(aRows[i], 1));
    }
}

inline WideVec16 Widen(const std::uint8_t* pFirst, const std::uint8_t* pSecond) {
    const __m128i first = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pFirst));
    const __m128 both = _mm_loadh_pi(_mm_castsi128_ps(first), reinterpret_cast<const __m64*>(pSecond));
    return {_mm256_cvtepu8_epi16(_mm_castps_si128(both))};
}

inline WideVec16 Scaled(WideVec16 x, const std::int16_t* pFactors) {
    return {_mm256_mulhrs_epi16(x.v, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pFactors)))};
}

inline WideVec16 HalfSum(WideVec16 x, WideVec16 y) {
    const __m256i top = _mm256_set1_epi16(-32768);
    const __m256i less = _mm256_subs_epi16(y.v, _mm256_set1_epi16(1));
    return {_mm256_xor_si256(_mm256_avg_epu16(_mm256_xor_si256(x.v, top), _mm256_xor_si256(less, top)), top)};
}

inline WideVec16 HalfDifference(WideVec16 x, WideVec16 y) {
    const __m256i top = _mm256_set1_epi16(-32768);
    const __m256i others = _mm256_set1_epi16(32767);
    return {
        _mm256_xor_si256(_mm256_avg_epu16(_mm256_xor_si256(x.v, top), _mm256_xor_si256(y.v, others)), top)};
}

inline void Store(std::int16_t* pFirst, std::int16_t* pSecond, WideVec16 x) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pFirst), _mm256_castsi256_si128(x.v));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pSecond), _mm256_extracti128_si256(x.v, 1));
}

inline WideVec16 operator+(WideVec16 x, WideVec16 y) {
    return {_mm256_add_epi16(x.v, y.v)};
}

inline WideVec16 operator-(WideVec16 x, WideVec16 y) {
    return {_mm256_sub_epi16(x.v, y.v)};
}

template <int nShift>
inline WideVec16 ShiftLeft(WideVec16 x) {
    return {_mm256_slli_epi16(x.v, nShift)};
}

inline WideVec16 operator+(WideVec16 x, std::int16_t n) {
    return {_mm256_add_epi16(x.v, _mm256_set1_epi16(n))};
}

// The same factors for both squares.
inline WideVec16 RoundedProduct(WideVec16 x, const std::int16_t* pNegated) {
    const __m256i factors = _mm256_broadcastsi128_si256(LoadRegister(pNegated));
    const __m256i upper = _mm256_mulhrs_epi16(_mm256_sub_epi16(_mm256_setzero_si256(), x.v), factors);
    const __m256i minusLower = _mm256_mulhrs_epi16(x.v, factors);
    return {_mm256_andnot_si256(_mm256_add_epi16(upper, minusLower), upper)};
}

// Those of the first square in the low half.
inline std::uint32_t NonZeroMask(WideVec16 x, WideVec16 y) {
    const __m256i zeros = _mm256_cmpeq_epi8(_mm256_packs_epi16(x.v, y.v), _mm256_setzero_si256());
    return ~static_cast<std::uint32_t>(_mm256_movemask_epi8(zeros));
}

} // namespace
} // namespace KERNEL_TARGET
