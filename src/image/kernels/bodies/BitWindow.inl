// The source without its stuffed bytes, and the bit reader over it, which needs no look at single bytes.

namespace KERNEL_TARGET {
namespace {

constexpr std::int32_t kLongestMcu = ippMaxMcuBlocks * ippWindowSlack; // bytes, without stuffed ones

// Takes in the source from nSrcPos on, as far as the room goes or a byte of 0xFF with anything but a stuffed
// byte behind it.
void FillWindow(IppBitWindow& window, const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t nSrcPos) {
    std::uint8_t* pOut = window.pBytes.get();
    std::uint8_t* const pOutEnd = pOut + window.nCapacity;
    const std::uint8_t* pNext = pSrc + nSrcPos;
    const std::uint8_t* pEnd = pSrc + nSrcSize;
    // Data that ends with a lone 0xFF fails at a place that hangs on how far ahead a reader looks; such an
    // end, and the longest MCU before it, is left to the block kernel.
    if (nSrcSize > nSrcPos && pEnd[-1] == 0xFF)
        pEnd -= std::min<std::ptrdiff_t>(pEnd - pNext, 2 * kLongestMcu + 4 * ippWindowSlack);
    window.bMore = false;
    while (pNext < pEnd) {
        const std::ptrdiff_t nRoom = std::min(pEnd - pNext, pOutEnd - pOut);
        if (nRoom < 2) {
            window.bMore = pEnd - pNext > nRoom;
            break;
        }
        const void* const pFound = std::memchr(pNext, 0xFF, static_cast<std::size_t>(nRoom));
        const std::ptrdiff_t nPlain = pFound ? static_cast<const std::uint8_t*>(pFound) - pNext : nRoom;
        std::memcpy(pOut, pNext, static_cast<std::size_t>(nPlain));
        pOut += nPlain;
        pNext += nPlain;
        if (!pFound)
            continue;
        if (pEnd - pNext < 2 || pNext[1] != 0)
            break;
        *pOut++ = 0xFF;
        pNext += 2;
    }
    std::memset(pOut, 0, ippWindowSlack);
    window.nBytes = static_cast<std::int32_t>(pOut - window.pBytes.get());
    window.nOffset = 0;
    window.nSrcPos = nSrcPos;
}

// Moves the cursor forward. Every 0xFF that it passes was two bytes in the source.
void MoveCursor(IppBitWindow& window, std::int32_t nOffset) {
    const std::uint8_t* pNext = window.pBytes.get() + window.nOffset;
    const std::uint8_t* const pEnd = window.pBytes.get() + nOffset;
    window.nSrcPos += nOffset - window.nOffset;
    while (const void* const pFound = std::memchr(pNext, 0xFF, static_cast<std::size_t>(pEnd - pNext))) {
        ++window.nSrcPos;
        pNext = static_cast<const std::uint8_t*>(pFound) + 1;
    }
    window.nOffset = nOffset;
}

// Moves the cursor to a place of the source that the block kernel has reached. False where the window does
// not hold it. Step by step, so that data which keeps leaving the fast way is not taken in again and again.
bool FollowCursor(IppBitWindow& window, std::int32_t nSrcPos) {
    if (window.nSrcPos < 0 || window.nSrcPos > nSrcPos)
        return false;
    while (window.nSrcPos < nSrcPos && window.nOffset < window.nBytes)
        window.nSrcPos += window.pBytes[static_cast<std::size_t>(window.nOffset++)] == 0xFF ? 2 : 1;
    return window.nSrcPos == nSrcPos;
}

class WindowReader {
public:
    WindowReader(const IppBitWindow& window, const ippiDecodeHuffmanState& state)
        : m_nHeld(std::uint64_t{state.nAccumulator} << 32), m_nBits(static_cast<std::uint32_t>(state.nBits)),
          m_pNext(window.pBytes.get() + window.nOffset) {}

    // Makes at least 56 bits available. Behind the window's bytes they are zeros, which Passed tells.
    void Refill() {
        std::uint64_t nWord;
        std::memcpy(&nWord, m_pNext, sizeof nWord);
        m_nHeld |= __builtin_bswap64(nWord) >> m_nBits;
        m_pNext += (63 - m_nBits) >> 3;
        m_nBits |= 56;
    }

    std::uint32_t Peek(std::uint32_t nCount) const {
        return static_cast<std::uint32_t>(m_nHeld >> (64 - nCount));
    }

    void Drop(std::uint32_t nCount) {
        m_nHeld <<= nCount & 63;
        m_nBits -= nCount;
    }

    std::int32_t Value(std::uint32_t nSize) {
        const std::uint32_t nRaw = Peek(nSize);
        Drop(nSize);
        return ReceiveExtend(nRaw, nSize);
    }

    // The next symbol, whose code has nLength bits or more, or -1 where no code fits.
    std::int32_t Symbol(const ippiDecodeHuffmanSpec& huffman, std::uint32_t nLength) {
        for (; nLength <= 16; ++nLength) {
            const auto nCode = static_cast<std::int32_t>(Peek(nLength));
            if (nCode <= huffman.aMaxCode[nLength]) {
                Drop(nLength);
                return huffman
                    .aValues[(huffman.aValueIndex[nLength] + nCode - huffman.aMinCode[nLength]) & 255];
            }
        }
        return -1;
    }

    // More bits were dropped than there are before pEnd.
    bool Passed(const std::uint8_t* pEnd) const {
        return m_pNext - pEnd > static_cast<std::ptrdiff_t>(m_nBits >> 3);
    }

    // Leaves what the block kernel can go on from: whole bytes go back into the window, those that were taken
    // from it.
    void Commit(IppBitWindow& window, std::int32_t& nSrcPos, ippiDecodeHuffmanState& state) const {
        const std::uint8_t* const pBegin = window.pBytes.get() + window.nOffset;
        const auto nBack = std::min<std::ptrdiff_t>(m_nBits >> 3, m_pNext - pBegin);
        MoveCursor(window, static_cast<std::int32_t>(m_pNext - nBack - window.pBytes.get()));
        nSrcPos = window.nSrcPos;
        state.nBits = static_cast<std::int32_t>(m_nBits) - static_cast<std::int32_t>(8 * nBack);
        const auto nHeld = static_cast<std::uint32_t>(m_nHeld >> 32);
        state.nAccumulator = state.nBits == 0 ? 0 : nHeld & ~std::uint32_t{0} << (32 - state.nBits);
    }

private:
    std::uint64_t m_nHeld; // the next bit topmost; below m_nBits bits stand the first ones of the next byte
    std::uint32_t m_nBits;
    const std::uint8_t* m_pNext;
};

// Decodes up to nCount units from the source's position on: decode(bits, pEnd, nDone) goes on behind the
// first nDone of them and returns how many are done then. No unit is longer than kLongestMcu. A window that
// ends a run by being used up in part is filled again, and then tried once more. Returns the units done.
template <typename Decode>
std::int32_t DecodeFromWindow(IppBitWindow& window, const std::uint8_t* pSrc, std::int32_t nSrcSize,
                              std::int32_t& nSrcPos, ippiDecodeHuffmanState& state, std::int32_t nCount,
                              Decode decode) {
    std::int32_t nDone = 0;
    for (bool bFresh = false; nDone < nCount;) {
        if (!FollowCursor(window, nSrcPos)) {
            FillWindow(window, pSrc, nSrcSize, nSrcPos);
            bFresh = true;
        }
        const std::uint8_t* const pEnd = window.pBytes.get() + window.nBytes;
        WindowReader bits(window, state);
        const std::int32_t nBefore = nDone;
        nDone = decode(bits, pEnd, nDone);
        bits.Commit(window, nSrcPos, state);
        // Only a window with too little in it for the longest MCU can be what ended the run.
        const bool bShort = window.bMore && window.nBytes - window.nOffset < kLongestMcu;
        if (nDone == nCount || !bShort || (bFresh && nDone == nBefore))
            break;
        window.nSrcPos = -1;
        bFresh = false;
    }
    return nDone;
}

} // namespace
} // namespace KERNEL_TARGET
