// Squares of eight vectors side by side, one in each lane of 128 bits of wider registers: two in 256 bits
// and, where a target has them (KERNEL_FOUR), four in 512. The lanes are worked on alike and never meet.

namespace KERNEL_TARGET {
namespace {

// An operation under one name for all widths.
#ifdef KERNEL_FOUR
#define WIDE_OPERATION(name, intrinsic)                                                                      \
    inline __m256i name(__m256i x, __m256i y) {                                                              \
        return _mm256_##intrinsic(x, y);                                                                     \
    }                                                                                                        \
    inline __m512i name(__m512i x, __m512i y) {                                                              \
        return _mm512_##intrinsic(x, y);                                                                     \
    }
#else
#define WIDE_OPERATION(name, intrinsic)                                                                      \
    inline __m256i name(__m256i x, __m256i y) {                                                              \
        return _mm256_##intrinsic(x, y);                                                                     \
    }
#endif

WIDE_OPERATION(Add32, add_epi32)
WIDE_OPERATION(Subtract32, sub_epi32)
WIDE_OPERATION(LowProducts, mullo_epi16)
WIDE_OPERATION(HighProducts, mulhi_epi16)
WIDE_OPERATION(PairProducts, madd_epi16)
WIDE_OPERATION(Pack32, packs_epi32)
WIDE_OPERATION(PackBytes, packus_epi16)
WIDE_OPERATION(Low8, unpacklo_epi8)
WIDE_OPERATION(High8, unpackhi_epi8)
WIDE_OPERATION(Low16, unpacklo_epi16)
WIDE_OPERATION(High16, unpackhi_epi16)
WIDE_OPERATION(Low32, unpacklo_epi32)
WIDE_OPERATION(High32, unpackhi_epi32)
WIDE_OPERATION(Low64, unpacklo_epi64)
WIDE_OPERATION(High64, unpackhi_epi64)
#undef WIDE_OPERATION

template <int nShift>
inline __m256i ShiftRight32(__m256i x) {
    return _mm256_srai_epi32(x, nShift);
}

inline void Fill32(std::int32_t n, __m256i& x) {
    x = _mm256_set1_epi32(n);
}

// The same 128 bits to all lanes.
inline void LoadRepeated(const void* p, __m256i& x) {
    x = _mm256_broadcastsi128_si256(LoadRegister(p));
}

inline void LoadAll(const void* p, __m256i& x) {
    x = _mm256_loadu_si256(static_cast<const __m256i*>(p));
}

inline void StoreAll(void* p, __m256i x) {
    _mm256_storeu_si256(static_cast<__m256i*>(p), x);
}

template <int nLane>
inline __m128i Lane(__m256i x) {
    return _mm256_extracti128_si256(x, nLane);
}

#ifdef KERNEL_FOUR
template <int nShift>
inline __m512i ShiftRight32(__m512i x) {
    return _mm512_srai_epi32(x, nShift);
}

inline void Fill32(std::int32_t n, __m512i& x) {
    x = _mm512_set1_epi32(n);
}

inline void LoadRepeated(const void* p, __m512i& x) {
    x = _mm512_broadcast_i32x4(LoadRegister(p));
}

inline void LoadAll(const void* p, __m512i& x) {
    x = _mm512_loadu_si512(p);
}

inline void StoreAll(void* p, __m512i x) {
    _mm512_storeu_si512(p, x);
}

template <int nLane>
inline __m128i Lane(__m512i x) {
    return _mm512_extracti32x4_epi32(x, nLane);
}
#endif

// The register of n lanes of 128 bits.
template <int n>
struct RegisterType {
    using Type = __m256i;
};
#ifdef KERNEL_FOUR
template <>
struct RegisterType<4> {
    using Type = __m512i;
};
#endif
template <int n>
using Register = typename RegisterType<n>::Type;

template <int n>
struct Squares {
    static constexpr int nSquares = n;
    Register<n> v;
};

template <int n>
struct SquareSums {
    Register<n> lo; // lanes 0 to 3 of all squares
    Register<n> hi;
};

template <int n>
struct LowSquareSums {
    Register<n> v;
};

using WideVec16 = Squares<2>;
#ifdef KERNEL_FOUR
using FourVec16 = Squares<4>;
#endif

inline WideVec16 Load(const std::int16_t* pFirst, const std::int16_t* pSecond) {
    return {_mm256_inserti128_si256(_mm256_castsi128_si256(LoadRegister(pFirst)), LoadRegister(pSecond), 1)};
}

// Rows that follow each other in memory, square after square.
template <int n>
inline void LoadRows(const std::int16_t* p, Squares<n>& x) {
    LoadAll(p, x.v);
}

template <int n>
inline void ClearRows(std::int16_t* p, const Squares<n>&) {
    Register<n> zeros;
    Fill32(0, zeros);
    StoreAll(p, zeros);
}

// Of factors below 32768.
template <int n>
inline Squares<n> MultiplyFactors(Squares<n> x, Register<n> factors) {
    const Register<n> low = LowProducts(x.v, factors);
    const Register<n> high = HighProducts(x.v, factors);
    return {Pack32(Low16(low, high), High16(low, high))};
}

inline WideVec16 MultiplySaturate(WideVec16 x, const std::uint16_t* pFirst, const std::uint16_t* pSecond) {
    return MultiplyFactors(
        x, _mm256_inserti128_si256(_mm256_castsi128_si256(LoadRegister(pFirst)), LoadRegister(pSecond), 1));
}

// The same factors for all squares.
template <int n>
inline Squares<n> MultiplySaturate(Squares<n> x, const std::uint16_t* pFactors) {
    Register<n> factors;
    LoadRepeated(pFactors, factors);
    return MultiplyFactors(x, factors);
}

template <int n>
inline SquareSums<n> MultiplyAdd(Squares<n> x, std::int16_t cx, Squares<n> y, std::int16_t cy) {
    Register<n> constants;
    Fill32(ConstantPair(cx, cy), constants);
    return {PairProducts(Low16(x.v, y.v), constants), PairProducts(High16(x.v, y.v), constants)};
}

template <int n>
inline SquareSums<n> operator+(SquareSums<n> x, SquareSums<n> y) {
    return {Add32(x.lo, y.lo), Add32(x.hi, y.hi)};
}

template <int n>
inline SquareSums<n> operator-(SquareSums<n> x, SquareSums<n> y) {
    return {Subtract32(x.lo, y.lo), Subtract32(x.hi, y.hi)};
}

template <int n>
inline SquareSums<n> operator+(SquareSums<n> x, std::int32_t nAll) {
    Register<n> all;
    Fill32(nAll, all);
    return {Add32(x.lo, all), Add32(x.hi, all)};
}

template <int nShift, int n>
inline Squares<n> ShiftPack(SquareSums<n> x) {
    return {Pack32(ShiftRight32<nShift>(x.lo), ShiftRight32<nShift>(x.hi))};
}

// Each square in its lane; the steps are those of one square.
template <int n>
inline void Transpose(Squares<n> (&r)[8]) {
    Register<n> a[8];
    Register<n> b[8];
    for (int i = 0; i < 4; ++i) {
        a[i] = Low16(r[2 * i].v, r[2 * i + 1].v);
        a[4 + i] = High16(r[2 * i].v, r[2 * i + 1].v);
    }
    for (int i = 0; i < 8; i += 2) {
        b[i] = Low32(a[i], a[i + 1]);
        b[i + 1] = High32(a[i], a[i + 1]);
    }
    for (int i = 0; i < 2; ++i) {
        r[4 * i].v = Low64(b[4 * i], b[4 * i + 2]);
        r[4 * i + 1].v = High64(b[4 * i], b[4 * i + 2]);
        r[4 * i + 2].v = Low64(b[4 * i + 1], b[4 * i + 3]);
        r[4 * i + 3].v = High64(b[4 * i + 1], b[4 * i + 3]);
    }
}

template <int n>
inline LowSquareSums<n> MultiplyAddLow(Squares<n> x, std::int16_t cx, Squares<n> y, std::int16_t cy) {
    Register<n> constants;
    Fill32(ConstantPair(cx, cy), constants);
    return {PairProducts(Low16(x.v, y.v), constants)};
}

template <int n>
inline LowSquareSums<n> operator+(LowSquareSums<n> x, LowSquareSums<n> y) {
    return {Add32(x.v, y.v)};
}

template <int n>
inline LowSquareSums<n> operator-(LowSquareSums<n> x, LowSquareSums<n> y) {
    return {Subtract32(x.v, y.v)};
}

template <int n>
inline LowSquareSums<n> operator+(LowSquareSums<n> x, std::int32_t nAll) {
    Register<n> all;
    Fill32(nAll, all);
    return {Add32(x.v, all)};
}

template <int nShift, int n>
inline void ShiftPackTransposed(const LowSquareSums<n> (&x)[8], Squares<n> (&r)[8]) {
    Register<n> a[4]; // two vectors of four lanes each
    for (int i = 0; i < 4; ++i)
        a[i] = Pack32(ShiftRight32<nShift>(x[2 * i].v), ShiftRight32<nShift>(x[2 * i + 1].v));
    Register<n> b[4]; // lanes 0 and 1, then 2 and 3, of vectors 0 to 3 and of 4 to 7
    for (int i = 0; i < 4; i += 2) {
        const Register<n> even = Low16(a[i], a[i + 1]);
        const Register<n> odd = High16(a[i], a[i + 1]);
        b[i] = Low16(even, odd);
        b[i + 1] = High16(even, odd);
    }
    r[0].v = Low64(b[0], b[2]);
    r[1].v = High64(b[0], b[2]);
    r[2].v = Low64(b[1], b[3]);
    r[3].v = High64(b[1], b[3]);
}

template <int n, int nLane>
inline void StoreLane(const BlockTarget& target, const Register<n> (&aRows)[4]) {
    for (int i = 0; i < 4; ++i)
        StoreTwoRows(target.pDst + 2 * i * target.nStep, target.nStep, Lane<nLane>(aRows[i]));
}

template <int n>
inline void StoreTransposedClamped(const BlockTarget* pTargets, Squares<n> (&columns)[8]) {
    Register<n> a[4];
    for (int i = 0; i < 4; ++i)
        a[i] = PackBytes(columns[i].v, columns[4 + i].v);
    const Register<n> b0 = Low8(a[0], a[2]);
    const Register<n> b1 = Low8(a[1], a[3]);
    const Register<n> b2 = High8(a[0], a[2]);
    const Register<n> b3 = High8(a[1], a[3]);
    const Register<n> left03 = Low8(b0, b1);
    const Register<n> left47 = High8(b0, b1);
    const Register<n> right03 = Low8(b2, b3);
    const Register<n> right47 = High8(b2, b3);
    const Register<n> aRows[4] = {Low32(left03, right03), High32(left03, right03), Low32(left47, right47),
                                  High32(left47, right47)};
    StoreLane<n, 0>(pTargets[0], aRows);
    StoreLane<n, 1>(pTargets[1], aRows);
    if constexpr (n == 4) {
        StoreLane<n, 2>(pTargets[2], aRows);
        StoreLane<n, 3>(pTargets[3], aRows);
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
