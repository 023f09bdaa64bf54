// The vector type over registers of 128 bits; eight lanes of 32 bits take two of them. Nothing beyond SSE2 is
// used but the rounded product of SSSE3 where a target has it (KERNEL_SSSE3): what else the later sets bring
// is the compiler's to use. The contracts stand in PortableVector.inl.

namespace KERNEL_TARGET {
namespace {

struct Vec16 {
    static constexpr int nSquares = 1;
    __m128i v;
};

struct Vec32 {
    __m128i lo; // lanes 0 to 3
    __m128i hi;
};

inline __m128i LoadRegister(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

inline Vec16 Load(const std::int16_t* p) {
    return {LoadRegister(p)};
}

inline void LoadRows(const std::int16_t* p, Vec16& x) {
    x.v = LoadRegister(p);
}

inline void ClearRows(std::int16_t* p, const Vec16&) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_setzero_si128());
}

inline void Store(std::int16_t* p, Vec16 x) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), x.v);
}

inline Vec16 Widen(const std::uint8_t* p) {
    return {_mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), _mm_setzero_si128())};
}

inline Vec16 Scaled(Vec16 x, const std::int16_t* pFactors) {
    const __m128i factors = LoadRegister(pFactors);
#ifdef KERNEL_SSSE3
    return {_mm_mulhrs_epi16(x.v, factors)};
#else
    const __m128i low = _mm_mullo_epi16(x.v, factors);
    const __m128i high = _mm_mulhi_epi16(x.v, factors);
    const __m128i floor = _mm_or_si128(_mm_slli_epi16(high, 1), _mm_srli_epi16(low, 15));
    return {_mm_add_epi16(floor, _mm_and_si128(_mm_srli_epi16(low, 14), _mm_set1_epi16(1)))};
#endif
}

// By the average, which rounds up, of numbers that are made unsigned: x and y-1, or x and -y-1.
inline Vec16 HalfSum(Vec16 x, Vec16 y) {
    const __m128i top = _mm_set1_epi16(-32768);
    const __m128i less = _mm_subs_epi16(y.v, _mm_set1_epi16(1));
    return {_mm_xor_si128(_mm_avg_epu16(_mm_xor_si128(x.v, top), _mm_xor_si128(less, top)), top)};
}

inline Vec16 HalfDifference(Vec16 x, Vec16 y) {
    const __m128i top = _mm_set1_epi16(-32768);
    const __m128i others = _mm_set1_epi16(32767);
    return {_mm_xor_si128(_mm_avg_epu16(_mm_xor_si128(x.v, top), _mm_xor_si128(y.v, others)), top)};
}

// The processor takes a factor above 32767 for one that is 65536 less.
inline Vec16 MultiplySaturate(Vec16 x, const std::uint16_t* pFactors) {
    const __m128i factors = LoadRegister(pFactors);
    const __m128i low = _mm_mullo_epi16(x.v, factors);
    const __m128i high =
        _mm_add_epi16(_mm_mulhi_epi16(x.v, factors), _mm_and_si128(x.v, _mm_srai_epi16(factors, 15)));
    return {_mm_packs_epi32(_mm_unpacklo_epi16(low, high), _mm_unpackhi_epi16(low, high))};
}

// With SSSE3 there is a product that rounds halves up. Made of x and of -x, the two differ by one where it is
// a tie, and then the even one is what is left of the upper one without its lowest bit.
inline Vec16 RoundedProduct(Vec16 x, const std::int16_t* pNegated) {
    const __m128i factors = LoadRegister(pNegated);
    const __m128i minus = _mm_sub_epi16(_mm_setzero_si128(), x.v);
#ifdef KERNEL_SSSE3
    const __m128i upper = _mm_mulhrs_epi16(minus, factors);
    const __m128i minusLower = _mm_mulhrs_epi16(x.v, factors);
    return {_mm_andnot_si128(_mm_add_epi16(upper, minusLower), upper)};
#else
    const __m128i low = _mm_mullo_epi16(minus, factors);
    const __m128i high = _mm_mulhi_epi16(minus, factors);
    const auto round = [](__m128i n) {
        const __m128i odd = _mm_and_si128(_mm_srli_epi32(n, 15), _mm_set1_epi32(1));
        return _mm_srai_epi32(_mm_add_epi32(_mm_add_epi32(n, _mm_set1_epi32(0x3FFF)), odd), 15);
    };
    return {_mm_packs_epi32(round(_mm_unpacklo_epi16(low, high)), round(_mm_unpackhi_epi16(low, high)))};
#endif
}

inline void StoreZeroBlock(std::int16_t* p) {
#ifdef KERNEL_WIDE
    for (int i = 0; i < 64; i += 16)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + i), _mm256_setzero_si256());
#else
    for (int i = 0; i < 64; i += 8)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p + i), _mm_setzero_si128());
#endif
}

// Two constants as one lane of the multiply-and-add.
inline std::int32_t ConstantPair(std::int16_t cx, std::int16_t cy) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(cy)) << 16 |
                                     static_cast<std::uint16_t>(cx));
}

inline Vec32 MultiplyAdd(Vec16 x, std::int16_t cx, Vec16 y, std::int16_t cy) {
    const __m128i constants = _mm_set1_epi32(ConstantPair(cx, cy));
    return {_mm_madd_epi16(_mm_unpacklo_epi16(x.v, y.v), constants),
            _mm_madd_epi16(_mm_unpackhi_epi16(x.v, y.v), constants)};
}

inline Vec32 operator+(Vec32 x, Vec32 y) {
    return {_mm_add_epi32(x.lo, y.lo), _mm_add_epi32(x.hi, y.hi)};
}

inline Vec32 operator-(Vec32 x, Vec32 y) {
    return {_mm_sub_epi32(x.lo, y.lo), _mm_sub_epi32(x.hi, y.hi)};
}

inline Vec32 operator+(Vec32 x, std::int32_t n) {
    const __m128i all = _mm_set1_epi32(n);
    return {_mm_add_epi32(x.lo, all), _mm_add_epi32(x.hi, all)};
}

inline Vec16 operator+(Vec16 x, Vec16 y) {
    return {_mm_add_epi16(x.v, y.v)};
}

inline Vec16 operator-(Vec16 x, Vec16 y) {
    return {_mm_sub_epi16(x.v, y.v)};
}

inline Vec16 operator+(Vec16 x, std::int16_t n) {
    return {_mm_add_epi16(x.v, _mm_set1_epi16(n))};
}

template <int nShift>
inline Vec16 ShiftLeft(Vec16 x) {
    return {_mm_slli_epi16(x.v, nShift)};
}

template <int nShift>
inline Vec16 ShiftRight(Vec16 x) {
    return {_mm_srai_epi16(x.v, nShift)};
}

template <int nShift>
inline Vec16 ShiftPack(Vec32 x) {
    return {_mm_packs_epi32(_mm_srai_epi32(x.lo, nShift), _mm_srai_epi32(x.hi, nShift))};
}

inline std::uint32_t NonZeroMask(Vec16 x, Vec16 y) {
    const __m128i zeros = _mm_cmpeq_epi8(_mm_packs_epi16(x.v, y.v), _mm_setzero_si128());
    return static_cast<std::uint32_t>(_mm_movemask_epi8(zeros)) ^ 0xFFFF;
}

inline void Transpose(Vec16 (&r)[8]) {
    __m128i a[8];
    __m128i b[8];
    for (int i = 0; i < 4; ++i) { // rows 2i and 2i+1, in pairs of lanes
        a[i] = _mm_unpacklo_epi16(r[2 * i].v, r[2 * i + 1].v);
        a[4 + i] = _mm_unpackhi_epi16(r[2 * i].v, r[2 * i + 1].v);
    }
    for (int i = 0; i < 8; i += 2) { // columns by two, rows 0 to 3 and 4 to 7
        b[i] = _mm_unpacklo_epi32(a[i], a[i + 1]);
        b[i + 1] = _mm_unpackhi_epi32(a[i], a[i + 1]);
    }
    for (int i = 0; i < 2; ++i) {
        r[4 * i].v = _mm_unpacklo_epi64(b[4 * i], b[4 * i + 2]);
        r[4 * i + 1].v = _mm_unpackhi_epi64(b[4 * i], b[4 * i + 2]);
        r[4 * i + 2].v = _mm_unpacklo_epi64(b[4 * i + 1], b[4 * i + 3]);
        r[4 * i + 3].v = _mm_unpackhi_epi64(b[4 * i + 1], b[4 * i + 3]);
    }
}

struct LowVec32 {
    __m128i v;
};

inline LowVec32 MultiplyAddLow(Vec16 x, std::int16_t cx, Vec16 y, std::int16_t cy) {
    return {_mm_madd_epi16(_mm_unpacklo_epi16(x.v, y.v), _mm_set1_epi32(ConstantPair(cx, cy)))};
}

inline LowVec32 operator+(LowVec32 x, LowVec32 y) {
    return {_mm_add_epi32(x.v, y.v)};
}

inline LowVec32 operator-(LowVec32 x, LowVec32 y) {
    return {_mm_sub_epi32(x.v, y.v)};
}

inline LowVec32 operator+(LowVec32 x, std::int32_t n) {
    return {_mm_add_epi32(x.v, _mm_set1_epi32(n))};
}

template <int nShift>
inline void ShiftPackTransposed(const LowVec32 (&x)[8], Vec16 (&r)[8]) {
    __m128i a[4]; // two vectors of four lanes each
    for (int i = 0; i < 4; ++i)
        a[i] = _mm_packs_epi32(_mm_srai_epi32(x[2 * i].v, nShift), _mm_srai_epi32(x[2 * i + 1].v, nShift));
    __m128i b[4]; // lanes 0 and 1, then 2 and 3, of vectors 0 to 3 and of 4 to 7
    for (int i = 0; i < 4; i += 2) {
        const __m128i even = _mm_unpacklo_epi16(a[i], a[i + 1]);
        const __m128i odd = _mm_unpackhi_epi16(a[i], a[i + 1]);
        b[i] = _mm_unpacklo_epi16(even, odd);
        b[i + 1] = _mm_unpackhi_epi16(even, odd);
    }
    r[0].v = _mm_unpacklo_epi64(b[0], b[2]);
    r[1].v = _mm_unpackhi_epi64(b[0], b[2]);
    r[2].v = _mm_unpacklo_epi64(b[1], b[3]);
    r[3].v = _mm_unpackhi_epi64(b[1], b[3]);
}

inline void StoreClamped(std::uint8_t* p, Vec16 x) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packus_epi16(x.v, x.v));
}

// A bit for each byte of 0xFF among the next kScan.
#ifdef KERNEL_WIDE
constexpr std::ptrdiff_t kScan = 32;
inline std::uint32_t FindStuffed(const std::uint8_t* p) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(-1))));
}
#else
constexpr std::ptrdiff_t kScan = 16;
inline std::uint32_t FindStuffed(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(LoadRegister(p), _mm_set1_epi8(-1))));
}
#endif

inline void StoreTwoRows(std::uint8_t* p, std::ptrdiff_t nStep, __m128i rows) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), rows);
    // As two floats: the form for doubles wants an aligned address.
    _mm_storeh_pi(reinterpret_cast<__m64*>(p + nStep), _mm_castsi128_ps(rows));
}

// As bytes, which halves the work: columns 0 and 4 of the square to a register, and so on.
inline void StoreTransposedClamped(const BlockTarget* pTarget, Vec16 (&columns)[8]) {
    std::uint8_t* const p = pTarget->pDst;
    const std::ptrdiff_t nStep = pTarget->nStep;
    __m128i a[4];
    for (int i = 0; i < 4; ++i)
        a[i] = _mm_packus_epi16(columns[i].v, columns[4 + i].v);
    // Columns 0 2 and 1 3 in the low halves below, 4 6 and 5 7 in the high ones.
    const __m128i b0 = _mm_unpacklo_epi8(a[0], a[2]);
    const __m128i b1 = _mm_unpacklo_epi8(a[1], a[3]);
    const __m128i b2 = _mm_unpackhi_epi8(a[0], a[2]);
    const __m128i b3 = _mm_unpackhi_epi8(a[1], a[3]);
    const __m128i left03 = _mm_unpacklo_epi8(b0, b1);
    const __m128i left47 = _mm_unpackhi_epi8(b0, b1);
    const __m128i right03 = _mm_unpacklo_epi8(b2, b3);
    const __m128i right47 = _mm_unpackhi_epi8(b2, b3);
    StoreTwoRows(p, nStep, _mm_unpacklo_epi32(left03, right03));
    StoreTwoRows(p + 2 * nStep, nStep, _mm_unpackhi_epi32(left03, right03));
    StoreTwoRows(p + 4 * nStep, nStep, _mm_unpacklo_epi32(left47, right47));
    StoreTwoRows(p + 6 * nStep, nStep, _mm_unpackhi_epi32(left47, right47));
}

} // namespace
} // namespace KERNEL_TARGET
