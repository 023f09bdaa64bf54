// Where coded symbols go: into bytes, or into counters.
//
// Both have the same two operations, so that the walk over a block is written once: Symbol(n) for a Huffman
// code and Bits(n, count) for plain bits. The first error sticks and stops all that would follow.

namespace KERNEL_TARGET {
namespace {

class BitWriter {
public:
    BitWriter(std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t& nPos, ippiEncodeHuffmanState& state)
        : m_pDst(pDst), m_nDstSize(nDstSize), m_nPos(nPos), m_state(state) {}

    void UseTable(const ippiEncodeHuffmanSpec* pTable) { m_pTable = pTable; }

    // Symbols beyond a byte do not exist: they come of a value that needs more than 15 bits.
    void Symbol(std::uint32_t nSymbol) {
        const std::uint32_t nEntry = nSymbol < 256 ? m_pTable->aCode[nSymbol] : 0;
        if (nEntry == 0)
            Fail(ippStsHuffmanTableErr);
        else
            Bits(nEntry & 0xFFFF, static_cast<std::int32_t>(nEntry >> 16));
    }

    // The nCount low bits, 0 to 16 of them.
    void Bits(std::uint32_t nBits, std::int32_t nCount) {
        if (m_nStatus != ippStsNoErr)
            return;
        nBits &= (1u << nCount) - 1;
        m_state.nAccumulator |= nBits << (24 - m_state.nBits - nCount);
        m_state.nBits += nCount;
        for (; m_state.nBits >= 8; m_state.nBits -= 8) {
            const auto nByte = static_cast<std::uint8_t>(m_state.nAccumulator >> 16);
            if (!Byte(nByte) || (nByte == 0xFF && !Byte(0)))
                return;
            m_state.nAccumulator = m_state.nAccumulator << 8 & 0xFFFFFF;
        }
    }

    // Fills the last byte with ones; nothing where no bit is held.
    void Pad() {
        Bits(0x7F, 7);
        m_state.nAccumulator = 0;
        m_state.nBits = 0;
    }

    IppStatus Status() const { return m_nStatus; }

private:
    void Fail(IppStatus nStatus) {
        if (m_nStatus == ippStsNoErr)
            m_nStatus = nStatus;
    }

    bool Byte(std::uint8_t nByte) {
        if (m_nPos >= m_nDstSize) {
            Fail(ippStsBufferEnd);
            return false;
        }
        m_pDst[m_nPos++] = nByte;
        return true;
    }

    std::uint8_t* m_pDst;
    std::int32_t m_nDstSize;
    std::int32_t& m_nPos;
    ippiEncodeHuffmanState& m_state;
    const ippiEncodeHuffmanSpec* m_pTable = nullptr;
    IppStatus m_nStatus = ippStsNoErr;
};

class SymbolCounter {
public:
    explicit SymbolCounter(std::uint32_t* pStatistics) : m_pStatistics(pStatistics) {}

    void Symbol(std::uint32_t nSymbol) {
        if (nSymbol < 256)
            ++m_pStatistics[nSymbol];
        else
            m_nStatus = ippStsHuffmanTableErr;
    }

    void Bits(std::uint32_t /*nBits*/, std::int32_t /*nCount*/) {}
    IppStatus Status() const { return m_nStatus; }

private:
    std::uint32_t* m_pStatistics;
    IppStatus m_nStatus = ippStsNoErr;
};

} // namespace
} // namespace KERNEL_TARGET
