// The only door to JPEG in the system: one complete JPEG stream in memory becomes frame memory.
//
// Plain functions without objects, threads, files or locks. All are re-entrant and may run on any number of
// threads at once. The stream is read in place and stays the caller's. No function throws; none reads or
// writes outside the memory that it is told of, whatever the stream holds.
#pragma once

#include "image/FrameBlock.h"

#include <atomic>
#include <cstdint>

// Result codes of the functions below.
inline constexpr std::int32_t ImageOk = 0;
inline constexpr std::int32_t ImageUnreadable =
    -1; // no engine can read or decode the stream, or a fault was caught
inline constexpr std::int32_t ImageEncodeFailed = -2; // the encoder failed
inline constexpr std::int32_t ImageNoMemory = -4;     // no temporary buffer for a decode into YV12
inline constexpr std::int32_t ImageBadStride = -5;    // a negative destination stride
inline constexpr std::int32_t ImageBadGrid = -6;      // MeanOfCells alone: no such grid lies over the picture
inline constexpr std::int32_t ImageMustBeEncoded = 1; // StripJpeg alone: encode the decoded picture instead

// Above zero until the kernels are started, zero from the first use on. A negative value would be a start-up
// failure and is what every function below would hand back. Written with the same value by whoever comes
// first, so that no order between threads is needed.
extern std::atomic<std::int32_t> g_nCodecStartState;

#pragma GCC visibility push(default) // what a library that carries the codec shows

// Whether a picture of that width and height is wanted.
using ImageSizeFilter = bool (*)(std::int32_t nWidth, std::int32_t nHeight) noexcept;

// Decodes a whole stream into a new block. Gives an empty owner when the stream cannot be decoded, its
// picture is not wanted (without a filter every one is), or the memory is not there: the caller has no frame
// then.
[[nodiscard]] FrameBlock DecodeToFrameBlock(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                                            ImageSizeFilter pIsWanted = nullptr) noexcept;

// Reads no more than the header. Width, height and kind are written on success alone. A stream whose header
// is good may still fail to decode.
[[nodiscard]] std::int32_t ProbeJpeg(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::int32_t& nWidth,
                                     std::int32_t& nHeight, ImageKind& eKind) noexcept;

// Decodes into memory of the caller, who has sized it for the stream (ProbeJpeg tells the size). Strides are
// bytes from one row's start to the next row's. A failed decode may leave rows written.
//
// Grey: height rows of width samples. A YCbCr stream gives its luma; an RGB one has none and is unreadable.
[[nodiscard]] std::int32_t DecodeJpegGrey(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                                          std::uint8_t* pDst, std::int32_t nDstStep) noexcept;

// Y: height rows of width samples; Cr and Cb: height/2 rows of width/2 samples. A grey stream fills
// height*step/2 bytes of each chroma plane with 128, the value of neutral chroma. Of a stream that the
// primary decoder turns down while it reads the header, an odd last column or row of Y is not written.
[[nodiscard]] std::int32_t DecodeJpegYV12(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pY,
                                          std::int32_t nYStep, std::uint8_t* pCr, std::int32_t nCrStep,
                                          std::uint8_t* pCb, std::int32_t nCbStep) noexcept;

// Makes of a stream that a stranger sent, and that DecodeToFrameBlock has taken, the one that may be passed
// on: the same picture for everybody, and nothing besides. Copied byte for byte are DQT, DHT, SOF, DRI and
// SOS segments and the entropy-coded data up to the marker that ends it; of JFIF (APP0) and Adobe (APP14)
// segments their fields of 14 and 12 bytes, without thumbnails. All other segments are left out (Exif, with
// the place where the picture was taken and its orientation; colour profiles; comments), so is what lies
// between segments and behind EOI. What is hidden inside entropy-coded data, behind its last coefficient or
// in it, is not looked for.
//
// The result decodes here to the same block. ImageMustBeEncoded, with nothing written to *pnOutSize, comes
// back for a stream of 16-bit quantisers, for one that only the second engine takes, for one that other
// decoders could take for another picture than this one does (two passes, tables or scans that are not by the
// letter, restarts that are missing), and for a capacity below nJpegSize + 2.
[[nodiscard]] std::int32_t StripJpeg(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pOut,
                                     std::int32_t nOutCapacity, std::int32_t* pnOutSize) noexcept;

// Encoding: baseline streams of at most nOutCapacity bytes with the standard tables for nQuality, 1 to 100,
// without restart markers. *pnOutSize is written on success alone. Every failure, also a picture that does
// not fit, is ImageEncodeFailed; nothing is written behind nOutCapacity, and a stream needs one byte of
// capacity more than its length. A stride of 0 stands for the width.
//
// Grey: height rows of width samples.
[[nodiscard]] std::int32_t EncodeJpegGrey(const std::uint8_t* pSrc, std::int32_t nWidth, std::int32_t nHeight,
                                          std::int32_t nQuality, std::uint8_t* pOut,
                                          std::int32_t nOutCapacity, std::int32_t* pnOutSize,
                                          std::int32_t nSrcStep) noexcept;

// Y: height rows of width samples; Cr and Cb: height/2 rows of width/2 samples at half the stride of Y, all
// rounded down. The stream is 4:2:0; an odd last column or row repeats the chroma before it, and a picture of
// one column or row is written without colour.
[[nodiscard]] std::int32_t EncodeJpegYV12(const std::uint8_t* pY, const std::uint8_t* pCr,
                                          const std::uint8_t* pCb, std::int32_t nWidth, std::int32_t nHeight,
                                          std::int32_t nQuality, std::uint8_t* pOut,
                                          std::int32_t nOutCapacity, std::int32_t* pnOutSize,
                                          std::int32_t nYStep) noexcept;

// A picture from afar, for those who look for what changes in it: the mean of the samples of each cell of a
// grid, in 1/256, to the nearest or, near the middle of two, the next. Y: nHeight rows of nWidth samples,
// nYStep bytes from one to the next. The grid has 1 to 256 columns and rows, whose cells have 1 to 2048
// samples a side: cell c of a row begins at column c * nWidth / nColumns, rounded down. pMeans gets nRows
// rows of nColumns, or nothing with ImageBadGrid or ImageBadStride.
[[nodiscard]] std::int32_t MeanOfCells(const std::uint8_t* pY, std::int32_t nWidth, std::int32_t nHeight,
                                       std::int32_t nYStep, std::int32_t nColumns, std::int32_t nRows,
                                       std::uint16_t* pMeans) noexcept;

#pragma GCC visibility pop
