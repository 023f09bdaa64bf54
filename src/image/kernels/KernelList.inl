// Every kernel that has variants: KERNEL(name, (parameters), (arguments)). The one list behind the
// declarations of each target's namespace and behind the public stubs. The contracts stand in the public
// headers.

KERNEL(ippxVariant, (const char** pszSet), (pszSet))

KERNEL(ippsCopy_8u, (const std::uint8_t* pSrc, std::uint8_t* pDst, std::int32_t nLength),
       (pSrc, pDst, nLength))
KERNEL(ippsZero_8u, (std::uint8_t * pDst, std::int32_t nLength), (pDst, nLength))
KERNEL(ippiCopy_8u_C1R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, pDst, nDstStep, roiSize))

KERNEL(ippiQuantInvTableInit_JPEG_8u16u, (const std::uint8_t* pRawTable, std::uint16_t* pTable),
       (pRawTable, pTable))
KERNEL(ippiDecodeHuffmanSpecInit_JPEG_8u,
       (const std::uint8_t* pBits, const std::uint8_t* pValues, ippiDecodeHuffmanSpec** ppSpec),
       (pBits, pValues, ppSpec))
KERNEL(ippiDecodeHuffmanSpecFree_JPEG_8u, (ippiDecodeHuffmanSpec * pSpec), (pSpec))

KERNEL(ippiDecodeHuffmanStateInitAlloc_JPEG_8u, (ippiDecodeHuffmanState * *ppState), (ppState))
KERNEL(ippiDecodeHuffmanStateInit_JPEG_8u, (ippiDecodeHuffmanState * pState), (pState))
KERNEL(ippiDecodeHuffmanStateFree_JPEG_8u, (ippiDecodeHuffmanState * pState), (pState))
KERNEL(ippiDecodeHuffman8x8_JPEG_1u16s_C1,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos, std::int16_t* pDst,
        std::int16_t* pLastDC, std::int32_t* pMarker, const ippiDecodeHuffmanSpec* pDcTable,
        const ippiDecodeHuffmanSpec* pAcTable, ippiDecodeHuffmanState* pState),
       (pSrc, nSrcSize, pSrcCurrPos, pDst, pLastDC, pMarker, pDcTable, pAcTable, pState))

KERNEL(ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R,
       (const std::int16_t* pSrc, std::uint8_t* pDst, std::int32_t nDstStep, const std::uint16_t* pTable),
       (pSrc, pDst, nDstStep, pTable))

KERNEL(ippxInverseBlock_16s, (const std::int16_t* pSrc, std::int16_t* pDst, const std::uint16_t* pTable),
       (pSrc, pDst, pTable))

KERNEL(ippiSampleUpH2V1_JPEG_8u_C1R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi, std::uint8_t* pDst,
        std::int32_t nDstStep, IppiSize dstRoi),
       (pSrc, nSrcStep, srcRoi, pDst, nDstStep, dstRoi))
KERNEL(ippiSampleDownH2V2_JPEG_8u_C1R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi, std::uint8_t* pDst,
        std::int32_t nDstStep, IppiSize dstRoi),
       (pSrc, nSrcStep, srcRoi, pDst, nDstStep, dstRoi))

#include "image/kernels/lists/ColourFromYCbCr.inl"
#include "image/kernels/lists/FallbackOutput.inl"
#include "image/kernels/lists/FrameConversion.inl"
#include "image/kernels/lists/Interleave.inl"
#include "image/kernels/lists/ProgressiveEntropy.inl"
#include "image/kernels/lists/ProgressiveRun.inl"

#include "image/kernels/lists/Encode.inl"
#include "image/kernels/lists/Mcus.inl"
