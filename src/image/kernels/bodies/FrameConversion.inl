// Pixels of three bytes to Y and half-size U and V.

namespace KERNEL_TARGET {

IppStatus ippiRGBToYUV420_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                   std::uint8_t* const pDst[3], const std::int32_t aDstStep[3],
                                   IppiSize roiSize) {
    if (!pSrc || !pDst || !aDstStep || !pDst[0] || !pDst[1] || !pDst[2])
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || aDstStep[0] < 1 || aDstStep[1] < 1 || aDstStep[2] < 1)
        return ippStsStepErr;
    // Y of one pixel, with 16 fractional bits.
    const auto weigh = [](const std::uint8_t* p) { return 19595 * p[0] + 38470 * p[1] + 7471 * p[2]; };
    for (std::int32_t y = 0; y < roiSize.height / 2; ++y) {
        const std::uint8_t* p0 = pSrc + std::ptrdiff_t{2} * y * nSrcStep;
        const std::uint8_t* p1 = p0 + nSrcStep;
        std::uint8_t* const pY0 = pDst[0] + std::ptrdiff_t{2} * y * aDstStep[0];
        std::uint8_t* const pY1 = pY0 + aDstStep[0];
        std::uint8_t* const pU = pDst[1] + std::ptrdiff_t{y} * aDstStep[1];
        std::uint8_t* const pV = pDst[2] + std::ptrdiff_t{y} * aDstStep[2];
        for (std::int32_t x = 0; x < roiSize.width / 2; ++x, p0 += 6, p1 += 6) {
            const std::int32_t aN[4] = {weigh(p0), weigh(p0 + 3), weigh(p1), weigh(p1 + 3)};
            pY0[2 * x] = static_cast<std::uint8_t>(aN[0] >> 16);
            pY0[2 * x + 1] = static_cast<std::uint8_t>(aN[1] >> 16);
            pY1[2 * x] = static_cast<std::uint8_t>(aN[2] >> 16);
            pY1[2 * x + 1] = static_cast<std::uint8_t>(aN[3] >> 16);
            const std::int32_t nRounded = 0x1FFFF - (aN[0] + aN[1] + aN[2] + aN[3]);
            const std::int32_t nSumA = p0[0] + p0[3] + p1[0] + p1[3];
            const std::int32_t nSumC = p0[2] + p0[5] + p1[2] + p1[5];
            const std::int32_t nU = ((((nSumC << 16) + nRounded) >> 16) * 32244 >> 18) + 128;
            const std::int32_t nV = ((((nSumA << 16) + nRounded) >> 16) * 57475 >> 18) + 128;
            pU[x] = static_cast<std::uint8_t>(nU);
            pV[x] = static_cast<std::uint8_t>(std::clamp(nV, 0, 255));
        }
    }
    return ((roiSize.width | roiSize.height) & 1) != 0 ? ippStsOddSize : ippStsNoErr;
}

} // namespace KERNEL_TARGET
