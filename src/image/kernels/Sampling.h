// Resampling of planes by two. The area of the output counts; that of the input is only checked to be one.
// All strides in bytes.
#pragma once

#include "image/kernels/Status.h"

// Doubles the width with a triangular filter, for each row s:
//   out[2i] = (3 s[i] + s[i-1] + 1) >> 2,  out[2i+1] = (3 s[i] + s[i+1] + 2) >> 2.
// The samples just before and just behind a row are read: the caller keeps room and values for them. With an
// odd output width the last sample of the pair is not written.
IppStatus ippiSampleUpH2V1_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi);

// Doubles width and height with a triangular filter. Output row r lies in source row r >> 1 (near); far is
// the row before it for even r and after it for odd r. With c[i] = 3 near[i] + far[i]:
//   out[2i] = (3 c[i] + c[i-1] + 8) >> 4,  out[2i+1] = (3 c[i] + c[i+1] + 7) >> 4.
// The samples around the area are read: a column on each side, a row above, and one below where the output's
// last row is an odd one.
IppStatus ippiSampleUpH2V2_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi);

// Halves width and height, for two rows s0 and s1:
//   out[i] = (s0[2i] + s0[2i+1] + s1[2i] + s1[2i+1] + 3) >> 2.
// The input must be two samples wide and high at least.
IppStatus ippiSampleDownH2V2_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                         std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi);

// Halves the width, for each row s: out[i] = (s[2i] + s[2i+1] + 1) >> 1. The input must be two samples wide
// at least.
IppStatus ippiSampleDownH2V1_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                         std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi);

// Chroma of 4:2:2 to that of 4:2:0: the height halved, and to the sample what ippiSampleUpH2V1 and then
// ippiSampleDownH2V2 give. Source and destination are equally wide; the samples just before and just behind a
// source row are read, as by the first of the two.
IppStatus ippxSample422To420_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                                    std::int32_t nDstStep, IppiSize dstRoi);

// The list of the family (Kernels.h): names and numbers of arguments.
#define SAMPLING_KERNELS(KERNEL)                                                                             \
    KERNEL(ippiSampleUpH2V1_JPEG_8u_C1R, 6)                                                                  \
    KERNEL(ippiSampleUpH2V2_JPEG_8u_C1R, 6)                                                                  \
    KERNEL(ippiSampleDownH2V2_JPEG_8u_C1R, 6)                                                                \
    KERNEL(ippiSampleDownH2V1_JPEG_8u_C1R, 6)                                                                \
    KERNEL(ippxSample422To420_8u_C1R, 5)
