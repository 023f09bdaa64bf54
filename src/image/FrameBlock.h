// The frame block: one decoded picture in one piece of memory, a bitmap header directly followed by the
// planes.
//
// This is the layout that everybody behind the codec reads. Rows are stored top row first, although the
// height in the header is positive; there is no palette and no padding, and every field is little-endian.
//
//   kind   biPlanes  biBitCount  biCompression  biSizeImage                  planes behind the header
//   grey   1         8           0              w*h                          the one plane, stride w
//   YV12   3         12          "YV12"         w*h*1.5, truncated           Y (stride w), Cr, Cb (stride
//   w/2)
//
// A chroma plane takes w*h/4 bytes; w/2 and w*h/4 are divisions that round down.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

struct BITMAPINFOHEADER {
    std::uint32_t biSize;
    std::int32_t biWidth;
    std::int32_t biHeight;
    std::uint16_t biPlanes;
    std::uint16_t biBitCount;
    std::uint32_t biCompression;
    std::uint32_t biSizeImage;
    std::int32_t biXPelsPerMeter;
    std::int32_t biYPelsPerMeter;
    std::uint32_t biClrUsed;
    std::uint32_t biClrImportant;
};

static_assert(sizeof(BITMAPINFOHEADER) == 40);
static_assert(offsetof(BITMAPINFOHEADER, biPlanes) == 12 && offsetof(BITMAPINFOHEADER, biBitCount) == 14);
static_assert(offsetof(BITMAPINFOHEADER, biCompression) == 16 &&
              offsetof(BITMAPINFOHEADER, biSizeImage) == 20);
static_assert(std::endian::native == std::endian::little, "the header is written as it lies in memory");

// biCompression of the two kinds.
inline constexpr std::uint32_t FrameCompressionGrey = 0;
inline constexpr std::uint32_t FrameCompressionYV12 = 0x32315659; // the bytes "YV12"

// Kinds of picture that leave the codec. Every colour stream becomes YV12, whatever its sampling or colour
// model.
enum ImageKind : std::int32_t {
    ImageKindGrey = 1, // one 8-bit plane
    ImageKindYV12 = 2, // three 8-bit planes Y, Cr, Cb; chroma at half width and half height, rounded down
};

// A header with the fields that pictures of a form have in common; all others are zero.
inline BITMAPINFOHEADER MakeFrameHeader(std::int32_t nWidth, std::int32_t nHeight, std::uint16_t nPlanes,
                                        std::uint16_t nBitCount, std::uint32_t nCompression,
                                        std::uint32_t nSizeImage) noexcept {
    return {
        sizeof(BITMAPINFOHEADER), nWidth, nHeight, nPlanes, nBitCount, nCompression, nSizeImage, 0, 0, 0, 0};
}

// What a block of one of the two kinds looks like: its header, and where its planes stand behind it. Width
// and height are above 0 and their planes within 32 bits.
struct FrameLayout {
    ImageKind eKind;
    std::int32_t nWidth;
    std::int32_t nHeight;

    std::size_t LumaBytes() const noexcept {
        return static_cast<std::size_t>(nWidth) * static_cast<std::size_t>(nHeight);
    }
    std::size_t ChromaBytes() const noexcept { return LumaBytes() / 4; } // of one plane
    std::int32_t ChromaStep() const noexcept { return nWidth / 2; }
    std::uint32_t ImageBytes() const noexcept {
        return static_cast<std::uint32_t>(eKind == ImageKindGrey ? LumaBytes() : LumaBytes() * 3 / 2);
    }
    BITMAPINFOHEADER Header() const noexcept {
        return eKind == ImageKindGrey
                   ? MakeFrameHeader(nWidth, nHeight, 1, 8, FrameCompressionGrey, ImageBytes())
                   : MakeFrameHeader(nWidth, nHeight, 3, 12, FrameCompressionYV12, ImageBytes());
    }
};

// Owner of one frame block, or of none. The block is freed as one and never changes its size. The memory of
// large blocks is used again for the next ones of their size (FrameBlock.cpp).
class __attribute__((visibility("default"))) FrameBlock {
public:
    FrameBlock() noexcept = default;
    FrameBlock(FrameBlock&& other) noexcept
        : m_pBytes(std::exchange(other.m_pBytes, nullptr)), m_nSize(std::exchange(other.m_nSize, 0)) {}
    FrameBlock& operator=(FrameBlock&& other) noexcept {
        std::swap(m_pBytes, other.m_pBytes);
        std::swap(m_nSize, other.m_nSize);
        return *this;
    }
    ~FrameBlock() { Free(); }

    // Room for the header and nImageBytes behind it, all zero; an empty owner when there is no memory.
    [[nodiscard]] static FrameBlock Allocate(std::uint32_t nImageBytes) noexcept;

    // The same with any bytes, maybe those of another camera's picture: for a caller that writes or clears
    // all of them before anybody else sees the block. Not for other libraries.
    [[nodiscard]] __attribute__((visibility("hidden"))) static FrameBlock
    AllocateUncleared(std::uint32_t nImageBytes) noexcept;

    void Clear() noexcept { std::memset(m_pBytes, 0, m_nSize); } // only for an owner that holds a block

    explicit operator bool() const noexcept { return m_pBytes != nullptr; }
    std::uint8_t* get() noexcept { return m_pBytes; }
    const std::uint8_t* get() const noexcept { return m_pBytes; }

    // Bytes of the whole block, header included: 40 + biSizeImage; 0 for an empty owner.
    std::size_t size() const noexcept { return m_nSize; }

    // The planes. Only for an owner that holds a block.
    std::uint8_t* Planes() noexcept { return m_pBytes + sizeof(BITMAPINFOHEADER); }
    const std::uint8_t* Planes() const noexcept { return m_pBytes + sizeof(BITMAPINFOHEADER); }

    // A copy of the header. Only for an owner that holds a block.
    BITMAPINFOHEADER Header() const noexcept {
        BITMAPINFOHEADER header;
        std::memcpy(&header, m_pBytes, sizeof header);
        return header;
    }
    void SetHeader(const BITMAPINFOHEADER& header) noexcept { std::memcpy(m_pBytes, &header, sizeof header); }

private:
    __attribute__((visibility("hidden"))) FrameBlock(std::size_t nSize, bool bZero) noexcept;
    void Free() noexcept;

    std::uint8_t* m_pBytes = nullptr;
    std::size_t m_nSize = 0;
};
