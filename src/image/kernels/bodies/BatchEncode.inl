// Samples to entropy-coded data, an MCU at a time.
//
// What makes this faster than a call a block: bits go through a 64-bit accumulator into a window of the
// stack, eight bytes a store and no branch a symbol; only when the window is nearly full, its bytes go to the
// caller's buffer, with zeros stuffed behind those of 0xFF. The coefficients of a block are never brought
// into zigzag order: a mask of those that are not zero is, and its ones lead from value to value.
#pragma once

#include "image/kernels/Batch.h"
#include "image/kernels/bodies/Encode.inl"
#include "image/kernels/bodies/Transform.inl"
#include "image/kernels/targets/Common.h"

namespace KERNEL_TARGET {
namespace {

std::uint64_t InCodingOrder(std::uint64_t nMask) {
    std::uint64_t nOrdered = 0;
    for (std::size_t i = 0; i < 8; ++i)
        nOrdered |= g_aCodingOrder[i][nMask >> (8 * i) & 0xFF];
    return nOrdered;
}

// Blocks that are worked on together: of one MCU or of several. An even number, for vectors of two.
constexpr std::int32_t kBatchBlocks = 12;
static_assert(kBatchBlocks >= ippMaxMcuBlocks);

// A block takes at most 64 symbols of 16 bits with values of 11; each store writes eight bytes.
constexpr std::ptrdiff_t kBlockBytes = 64 * (16 + 11) / 8;
constexpr std::ptrdiff_t kWindowBytes = 16384;
constexpr std::ptrdiff_t kWindowFull = kWindowBytes - kBatchBlocks * kBlockBytes - 8;
static_assert(kWindowFull > 0);

class ScanWriter {
public:
    ScanWriter(std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t& nPos, ippiEncodeHuffmanState& state)
        : m_pDst(pDst), m_nDstSize(nDstSize), m_nPos(nPos), m_state(state),
          m_nHeld(std::uint64_t{state.nAccumulator} << 40), m_nBits(static_cast<std::uint32_t>(state.nBits)) {
    }

    // nMask: the coefficients that are not zero, in coding order.
    void Block(const std::int16_t* pBlock, std::uint64_t nMask, IppScanComponent& component) {
        // Copies, which stay in registers: the window's bytes could be any memory to a compiler.
        Cursor cursor{m_pNext, m_nHeld, m_nBits};
        const std::int32_t nDifference = pBlock[0] - component.nLastDc;
        component.nLastDc = pBlock[0];
        // No predictor of a caller leads out of the table.
        const std::uint32_t nDcBits =
            g_aValueBits[(static_cast<std::uint32_t>(nDifference) + ippValueZero) % g_aValueBits.size()];

        const std::uint32_t* const pWhole = component.pAcTable->aWhole;
        const std::uint16_t* const pValues = g_aValueBits.data() + ippValueZero;
        std::uint64_t nLeft = nMask & ~std::uint64_t{1};
        std::uint32_t nNext = 1;
        // The next coefficient's code with its value. Runs of sixteen zeros before it go out at once, behind
        // first.
        const auto take = [&](Codes& first) {
            const auto k = static_cast<std::uint32_t>(__builtin_ctzll(nLeft));
            nLeft &= nLeft - 1;
            std::uint32_t nRun = k - nNext;
            nNext = k + 1;
            for (; nRun > 15; nRun -= 16) {
                cursor.Put(first);
                first = {};
                cursor.Put(Codes(pWhole[kZeroRun]));
            }
            const std::uint32_t nBits = pValues[pBlock[g_aExchangedZigZag[k]]];
            return Codes(pWhole[nRun << 4 | (nBits & 15)] + nBits);
        };
        // Two at a time: to put codes together is cheaper than to put out each.
        Codes codes(component.pDcTable->aWhole[nDcBits & 15] + nDcBits);
        while (nLeft != 0) {
            const Codes second = take(codes);
            cursor.Put(codes.With(second));
            codes = {};
            if (nLeft == 0)
                break;
            codes = take(codes);
        }
        if (nNext != 64)
            codes = codes.With(Codes(pWhole[kEndOfBlock]));
        cursor.Put(codes);
        m_pNext = cursor.pNext;
        m_nHeld = cursor.nHeld;
        m_nBits = cursor.nBits;
    }

    bool IsFull() const { return m_pNext - m_aWindow > kWindowFull; }

    // Moves the window's bytes out; false when they find no room.
    bool Drain() {
        const std::uint8_t* pFrom = m_aWindow;
        const std::uint8_t* const pEnd = m_pNext;
        m_pNext = m_aWindow;
        std::int32_t nPos = m_nPos;
        while (pEnd - pFrom >= 8 && m_nDstSize - nPos > 8) {
            std::uint64_t nWord;
            std::memcpy(&nWord, pFrom, sizeof nWord);
            std::memcpy(m_pDst + nPos, &nWord, sizeof nWord);
            const std::uint64_t nFound =
                (~nWord - 0x0101010101010101u) & nWord & 0x8080808080808080u; // the lowest one is exact
            if (nFound == 0) {
                pFrom += 8;
                nPos += 8;
                continue;
            }
            const int nThrough = (__builtin_ctzll(nFound) >> 3) + 1;
            pFrom += nThrough;
            nPos += nThrough;
            m_pDst[nPos++] = 0;
        }
        for (; pFrom != pEnd; ++pFrom) {
            if (m_nDstSize - nPos < (*pFrom == 0xFF ? 2 : 1)) {
                m_nPos = nPos;
                return false;
            }
            m_pDst[nPos++] = *pFrom;
            if (*pFrom == 0xFF)
                m_pDst[nPos++] = 0;
        }
        m_nPos = nPos;
        return true;
    }

    // What is less than a byte goes back into the state.
    void Commit() {
        m_state.nAccumulator = static_cast<std::uint32_t>(m_nHeld >> 40);
        m_state.nBits = static_cast<std::int32_t>(m_nBits);
    }

private:
    // A code and the value behind it, or two of those: 54 bits at most.
    struct Codes {
        Codes() = default;
        // A sum of ippiEncodeHuffmanSpec::aWhole and g_aValueBits.
        explicit Codes(std::uint32_t nWhole) : nCode(nWhole >> 5), nLength(nWhole & 31) {}
        Codes With(Codes second) const {
            Codes both;
            both.nCode = nCode << second.nLength | second.nCode;
            both.nLength = nLength + second.nLength;
            return both;
        }

        std::uint64_t nCode = 0;
        std::uint32_t nLength = 0;
    };

    struct Cursor {
        std::uint8_t* pNext;
        std::uint64_t nHeld; // topmost, zeros below
        std::uint32_t nBits; // 0 to 7

        void Put(Codes codes) {
            nBits += codes.nLength;
            nHeld |= codes.nCode << ((64 - nBits) & 63); // no codes at all shift by nothing
            const std::uint64_t nBytes = __builtin_bswap64(nHeld);
            std::memcpy(pNext, &nBytes, sizeof nBytes);
            pNext += nBits >> 3;
            nHeld <<= nBits & ~7u;
            nBits &= 7;
        }
    };

    std::uint8_t* m_pDst;
    std::int32_t m_nDstSize;
    std::int32_t& m_nPos;
    ippiEncodeHuffmanState& m_state;
    std::uint64_t m_nHeld;
    std::uint32_t m_nBits;
    std::uint8_t* m_pNext = m_aWindow;
    std::uint8_t m_aWindow[kWindowBytes];
};

// One block of the scan: where its samples begin and whose they are.
struct ScanBlock {
    const std::uint8_t* pSamples;
    IppScanComponent* pComponent;
    const std::int16_t* pNegated; // its factors: negated, rows and columns exchanged

    const std::uint8_t* Row(int y) const { return pSamples + std::ptrdiff_t{y} * pComponent->nStep; }
};

// The coefficients of a batch, rows and columns exchanged, and a bit for each that is not zero.
struct ScanCoefficients {
    alignas(32) std::int16_t aBlocks[kBatchBlocks][64];
    std::uint64_t aMasks[kBatchBlocks];
};

void TransformOne(const ScanBlock& block, std::int16_t* pTo, std::uint64_t* pMask) {
    Vec16 rows[8];
    for (int y = 0; y < 8; ++y)
        rows[y] = Widen(block.Row(y));
    ForwardTransform(rows);
    for (int x = 0; x < 8; ++x) {
        rows[x] = RoundedProduct(rows[x], block.pNegated + 8 * x);
        Store(pTo + 8 * x, rows[x]);
    }
    std::uint64_t nMask = 0;
    for (int x = 0; x < 8; x += 2)
        nMask |= std::uint64_t{NonZeroMask(rows[x], rows[x + 1])} << (8 * x);
    *pMask = InCodingOrder(nMask);
}

#ifdef KERNEL_WIDE
// Blocks nFirst and nSecond of a batch, with the same factors.
void TransformTwo(const ScanBlock* pBlocks, std::int32_t nFirst, std::int32_t nSecond,
                  ScanCoefficients& coefficients) {
    const ScanBlock& first = pBlocks[nFirst];
    const ScanBlock& second = pBlocks[nSecond];
    WideVec16 rows[8];
    for (int y = 0; y < 8; ++y)
        rows[y] = Widen(first.Row(y), second.Row(y));
    ForwardTransform(rows);
    std::uint64_t anMasks[2] = {};
    for (int x = 0; x < 8; ++x) {
        rows[x] = RoundedProduct(rows[x], first.pNegated + 8 * x);
        Store(coefficients.aBlocks[nFirst] + 8 * x, coefficients.aBlocks[nSecond] + 8 * x, rows[x]);
    }
    for (int x = 0; x < 8; x += 2) {
        const std::uint64_t nBoth = NonZeroMask(rows[x], rows[x + 1]);
        anMasks[0] |= (nBoth & 0xFFFF) << (8 * x);
        anMasks[1] |= nBoth >> 16 << (8 * x);
    }
    coefficients.aMasks[nFirst] = InCodingOrder(anMasks[0]);
    coefficients.aMasks[nSecond] = InCodingOrder(anMasks[1]);
}
#endif

// Two at a time where a target has vectors for that: neighbours with the same factors, or one that found no
// such neighbour with the next one.
void TransformBatch(const ScanBlock* pBlocks, std::int32_t nBlocks, ScanCoefficients& coefficients) {
#ifdef KERNEL_WIDE
    std::int32_t nLone = -1;
    for (std::int32_t i = 0; i < nBlocks; ++i) {
        if (i + 1 < nBlocks && pBlocks[i].pNegated == pBlocks[i + 1].pNegated) {
            TransformTwo(pBlocks, i, i + 1, coefficients);
            ++i;
        } else if (nLone < 0) {
            nLone = i;
        } else if (pBlocks[i].pNegated == pBlocks[nLone].pNegated) {
            TransformTwo(pBlocks, nLone, i, coefficients);
            nLone = -1;
        } else {
            TransformOne(pBlocks[i], coefficients.aBlocks[i], coefficients.aMasks + i);
        }
    }
    if (nLone >= 0)
        TransformOne(pBlocks[nLone], coefficients.aBlocks[nLone], coefficients.aMasks + nLone);
#else
    for (std::int32_t i = 0; i < nBlocks; ++i)
        TransformOne(pBlocks[i], coefficients.aBlocks[i], coefficients.aMasks + i);
#endif
}

// All transforms first: what the processor has begun ahead of a block's last symbol is lost when it guesses
// the symbols' number wrong, which it does in most blocks.
void EncodeBatch(ScanWriter& writer, const ScanBlock* pBlocks, std::int32_t nBlocks) {
    ScanCoefficients coefficients;
    TransformBatch(pBlocks, nBlocks, coefficients);
    for (std::int32_t i = 0; i < nBlocks; ++i)
        writer.Block(coefficients.aBlocks[i], coefficients.aMasks[i], *pBlocks[i].pComponent);
}

// Asks for the samples right below an MCU, which are the next row's. A cache line holds several MCUs side by
// side, each of which asks for its share of the rows. Nothing is read, so that what lies below the last row
// need not be there.
[[gnu::always_inline]] inline void FetchBelow(const IppScanComponent& component) {
    const auto nAddress = reinterpret_cast<std::uintptr_t>(component.pSamples);
    const auto nStep = static_cast<std::uintptr_t>(component.nStep);
    const auto nHeight = static_cast<std::uintptr_t>(8 * component.nVSampling);
    const int nShareBits = component.nHSampling == 2 ? 2 : 3; // MCUs of a line of 64 bytes
    const std::uintptr_t nRows = nHeight >> nShareBits;
    const std::uintptr_t nShare = nAddress >> (6 - nShareBits) & ((1u << nShareBits) - 1);
    for (std::uintptr_t i = 0; i < nRows; ++i)
        __builtin_prefetch(reinterpret_cast<const void*>(nAddress + (nHeight + nShare * nRows + i) * nStep));
}

// The components of a row of MCUs, and how far it is listed.
class ScanList {
public:
    ScanList(IppScanComponent* pComponents, std::int32_t nComponents, std::int32_t nMcuBlocks,
             std::int32_t nMcus)
        : m_pComponents(pComponents), m_nComponents(nComponents), m_nMcuBlocks(nMcuBlocks), m_nMcus(nMcus) {
        for (std::int32_t i = 0; i < nComponents; ++i) {
            m_apNegated[i] = m_aNegated[i];
            for (std::int32_t j = 0; j < i; ++j) {
                if (pComponents[j].pTable == pComponents[i].pTable)
                    m_apNegated[i] = m_apNegated[j];
            }
            if (m_apNegated[i] == m_aNegated[i])
                Exchange(pComponents[i].pTable, m_aNegated[i]);
        }
    }

    // Lists as many MCUs as fit a batch; returns their number of blocks, 0 at the end.
    std::int32_t Next(ScanBlock (&aBlocks)[kBatchBlocks]) {
        ScanBlock* pNext = aBlocks;
        for (; m_nMcus > 0 && pNext - aBlocks + m_nMcuBlocks <= kBatchBlocks; --m_nMcus)
            pNext = Mcu(pNext);
        return static_cast<std::int32_t>(pNext - aBlocks);
    }

private:
    // Coefficients come with their rows and columns exchanged, and their factors have to.
    static void Exchange(const std::uint16_t* pTable, std::int16_t* pTo) {
        for (int i = 0; i < 64; ++i)
            pTo[i] = static_cast<std::int16_t>(-pTable[(i & 7) << 3 | i >> 3]);
    }

    // The blocks of the next MCU in coding order.
    ScanBlock* Mcu(ScanBlock* pNext) {
        for (std::int32_t i = 0; i < m_nComponents; ++i) {
            IppScanComponent& component = m_pComponents[i];
            FetchBelow(component);
            for (std::int32_t v = 0; v < component.nVSampling; ++v) {
                const std::uint8_t* const pRow = component.pSamples + std::ptrdiff_t{8} * v * component.nStep;
                *pNext++ = {pRow, &component, m_apNegated[i]};
                if (component.nHSampling == 2)
                    *pNext++ = {pRow + 8, &component, m_apNegated[i]};
            }
            component.pSamples += 8 * component.nHSampling;
        }
        return pNext;
    }

    IppScanComponent* m_pComponents;
    std::int32_t m_nComponents;
    std::int32_t m_nMcuBlocks;
    std::int32_t m_nMcus; // still to be listed
    const std::int16_t* m_apNegated[4];
    alignas(32) std::int16_t m_aNegated[4][64];
};

IppStatus CheckScan(const IppScanComponent* pComponents, std::int32_t nComponents, std::int32_t nMcus,
                    std::int32_t& nBlocks) {
    if (nComponents < 1 || nComponents > 4)
        return ippStsBadArgument;
    nBlocks = 0;
    for (const IppScanComponent* p = pComponents; p != pComponents + nComponents; ++p) {
        if (!p->pSamples || !p->pTable)
            return ippStsNullPtrErr;
        if (p->nStep < 1)
            return ippStsStepErr;
        if (p->nHSampling < 1 || p->nHSampling > 2 || p->nVSampling < 1 || p->nVSampling > 2)
            return ippStsBadArgument;
        nBlocks += p->nHSampling * p->nVSampling;
    }
    if (nBlocks > ippMaxMcuBlocks)
        return ippStsBadArgument;
    return nMcus < 1 ? ippStsSizeErr : ippStsNoErr;
}

IppStatus CheckScanCodes(const IppScanComponent* pComponents, std::int32_t nComponents) {
    for (const IppScanComponent* p = pComponents; p != pComponents + nComponents; ++p) {
        if (!p->pDcTable || !p->pAcTable)
            return ippStsNullPtrErr;
        if (!p->pDcTable->bBaselineDc || !p->pAcTable->bBaselineAc)
            return ippStsHuffmanTableErr;
    }
    return ippStsNoErr;
}

} // namespace

IppStatus ippxEncodeMcus_8u1u(IppScanComponent* pComponents, std::int32_t nComponents, std::int32_t nMcus,
                              std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                              ippiEncodeHuffmanState* pState) {
    if (!pComponents)
        return ippStsNullPtrErr;
    if (const IppStatus nStatus = CheckWriter(pDst, nDstSize, pDstCurrPos, pState))
        return nStatus;
    std::int32_t nMcuBlocks = 0;
    if (const IppStatus nStatus = CheckScan(pComponents, nComponents, nMcus, nMcuBlocks))
        return nStatus;
    if (const IppStatus nStatus = CheckScanCodes(pComponents, nComponents))
        return nStatus;
    ScanWriter writer(pDst, nDstSize, *pDstCurrPos, *pState);
    ScanList list(pComponents, nComponents, nMcuBlocks, nMcus);
    ScanBlock aBlocks[kBatchBlocks];
    while (const std::int32_t nBlocks = list.Next(aBlocks)) {
        EncodeBatch(writer, aBlocks, nBlocks);
        if (writer.IsFull() && !writer.Drain())
            return ippStsBufferEnd;
    }
    if (!writer.Drain())
        return ippStsBufferEnd;
    writer.Commit();
    return ippStsNoErr;
}

IppStatus ippxTransformMcus_8u16s(IppScanComponent* pComponents, std::int32_t nComponents, std::int32_t nMcus,
                                  std::int16_t* pDst) {
    if (!pComponents || !pDst)
        return ippStsNullPtrErr;
    std::int32_t nMcuBlocks = 0;
    if (const IppStatus nStatus = CheckScan(pComponents, nComponents, nMcus, nMcuBlocks))
        return nStatus;
    ScanList list(pComponents, nComponents, nMcuBlocks, nMcus);
    ScanBlock aBlocks[kBatchBlocks];
    while (const std::int32_t nBlocks = list.Next(aBlocks)) {
        ScanCoefficients coefficients;
        TransformBatch(aBlocks, nBlocks, coefficients);
        for (std::int32_t i = 0; i < nBlocks; ++i, pDst += 64) {
            Vec16 columns[8];
            for (int x = 0; x < 8; ++x)
                columns[x] = Load(coefficients.aBlocks[i] + 8 * x);
            Transpose(columns);
            for (int y = 0; y < 8; ++y)
                Store(pDst + 8 * y, columns[y]);
        }
    }
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
