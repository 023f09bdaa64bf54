// The forward transform of whole scans, with the quantiser's scale left to the quantiser.
//
// ForwardTransform.inl keeps to whole coefficients, as the block kernel's contract has it. Here no
// coefficient is rounded before it is quantised, and all products are of 16 bits: half the work. A pass ends
// in rotations (T.81 A.3.3, after Chen, Smith and Fralick) of which the common cosine is left out, x + tan*y
// for cos*x + sin*y. What is missing in an output for each direction, kScanGains, stands in the factors.
//
// An output is 16 coefficients over both gains; the worst of them, DC at -1024, is just -32768. That leaves
// two fraction bits to the samples. The products are rounded to nearest: coefficients are off by a fifth at
// most and some twentieth on average, where the rounding to whole ones costs a half and some quarter.

namespace KERNEL_TARGET {
namespace {

constexpr int kScanFractionBits = 2;

// Of 32768.
constexpr std::int16_t kRootHalf = 23170;
constexpr std::int16_t kTan1 = 6518;  // tan(pi/16)
constexpr std::int16_t kTan2 = 13573; // tan(pi/8)
constexpr std::int16_t kTan3 = 21895; // tan(3*pi/16)

// By frequency: the square root of one half, and the cosines of pi/16, pi/8 and 3*pi/16.
constexpr std::array<double, 8> kScanGains = {0.70710678118654752, 0.98078528040323045, 0.92387953251128676,
                                              0.83146961230254524, 0.70710678118654752, 0.83146961230254524,
                                              0.92387953251128676, 0.98078528040323045};

// One pass over eight vectors, lane by lane.
template <class V16>
[[gnu::always_inline]] inline void ScanPass(V16 (&x)[8]) {
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
    x[0] = t0 + t1;
    x[4] = t0 - t1;
    x[2] = t3 + Scaled(t2, kTan2);
    x[6] = Scaled(t3, kTan2) - t2;
    const V16 sum = Scaled(d1 + d2, kRootHalf);
    const V16 difference = Scaled(d1 - d2, kRootHalf);
    const V16 a = d0 + sum;
    const V16 b = d0 - sum;
    const V16 c = d3 + difference;
    const V16 d = d3 - difference;
    x[1] = a + Scaled(c, kTan1);
    x[7] = Scaled(a, kTan1) - c;
    x[3] = b - Scaled(d, kTan3);
    x[5] = Scaled(b, kTan3) + d;
}

// From samples as they are; rows and columns come out exchanged, as those of ForwardTransform. The level
// shift reaches the sums of the first pass alone.
template <class V16>
[[gnu::always_inline]] inline void ScanTransform(V16 (&rows)[8]) {
    for (V16& row : rows)
        row = ShiftLeft<kScanFractionBits>(row);
    ScanPass(rows);
    rows[0] = rows[0] + std::int16_t{-(8 * 128 << kScanFractionBits)};
    Transpose(rows);
    ScanPass(rows);
}

// What Quantised takes for steps of 1: 16 coefficients times 65536 over both gains make 2^20.
constexpr std::array<std::uint32_t, 64> kScanFactors = [] {
    std::array<std::uint32_t, 64> aFactors{};
    for (std::size_t i = 0; i < 64; ++i)
        aFactors[i] = static_cast<std::uint32_t>(65536 * kScanGains[i >> 3] * kScanGains[i & 7] + 0.5);
    return aFactors;
}();

} // namespace

IppStatus ippiQuantScanTableInit_JPEG_8u16u(const std::uint8_t* pRawTable, std::uint16_t* pTable) {
    if (!pRawTable || !pTable)
        return ippStsNullPtrErr;
    if (std::memchr(pRawTable, 0, 64))
        return ippStsBadArgument;
    for (std::size_t i = 0; i < 64; ++i) {
        const std::size_t nPlace = (g_aZigZag[i] & 7) << 3 | g_aZigZag[i] >> 3;
        const std::uint32_t nStep = pRawTable[i];
        pTable[nPlace] = static_cast<std::uint16_t>((kScanFactors[nPlace] + nStep / 2) / nStep);
    }
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
