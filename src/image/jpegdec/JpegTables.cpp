#include "image/jpegdec/JpegTables.h"

#include "image/format/JpegStandardTables.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>

IppStatus CJPEGDecoderQuantTable::Init() {
    return ippiQuantInvTableInit_JPEG_8u16u(m_aRaw, m_aSteps);
}

bool CJPEGDecoderHuffmanTable::Build() {
    if (!m_bBuilt) {
        ippiDecodeHuffmanSpec* pSpec = nullptr;
        m_bUsable = ippiDecodeHuffmanSpecInit_JPEG_8u(m_aBits, m_aValues, &pSpec) == ippStsNoErr;
        m_pSpec.reset(pSpec);
        m_bBuilt = true;
    }
    return m_bUsable;
}

namespace {

// A place for a shared table. Where it stands tells what it may hold.
struct Place {
    std::atomic<std::uint32_t> nMark{0}; // kFree, kTaken, or the mark of the table that is ready in it
    CJPEGDecoderLookup lookup;
};

constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kTaken = 1;    // being filled
constexpr std::uint32_t kStandard = 2; // the one that alone may be there

// In the zeroed part of the image: a place without a table takes no memory.
constexpr std::size_t kShared = 28;
constinit Place s_aStandard[2][2]; // by class and identifier
constinit Place s_aShared[kShared];

// Two sets of the four tables of a colour picture: about 80 KB a thread, when all are in use.
constexpr std::size_t kKept = 8;

struct Kept {
    std::array<std::shared_ptr<const CJPEGDecoderLookup>, kKept> apLookups;
    std::size_t nOldest = 0;
};

// It has a destructor, so a thread that has used it keeps this code mapped until it ends: an unload is put
// off, and a load before that finds the module as it was left.
thread_local Kept s_kept;

bool IsStandard(const CJPEGDecoderHuffmanTable& table, std::int32_t nId) {
    const JpegStandardTable standard = StandardHuffmanTable(nId, table.m_nClass);
    return std::equal(standard.bits.begin(), standard.bits.end(), table.m_aBits) &&
           std::equal(standard.values.begin(), standard.values.end(), table.m_aValues);
}

// Of the counts and values, eight bytes at a time; none of the marks above.
std::uint32_t MarkOf(const CJPEGDecoderHuffmanTable& table) {
    std::uint64_t nHash = table.m_nClass == 0 ? 0 : 1;
    const auto add = [&nHash](const std::uint8_t* pBytes, std::size_t nBytes) {
        for (std::size_t i = 0; i < nBytes; i += 8) {
            std::uint64_t nWord;
            std::memcpy(&nWord, pBytes + i, sizeof nWord);
            nHash = (nHash ^ nWord) * 0x9E3779B97F4A7C15u;
            nHash ^= nHash >> 32;
        }
    };
    add(table.m_aBits, sizeof table.m_aBits);
    add(table.m_aValues, sizeof table.m_aValues);
    return static_cast<std::uint32_t>(nHash >> 32) | 4;
}

// The table of a place, which is filled if it is free. Null where another thread is at it, where it holds
// another table or where this one cannot decode; bOther tells the second.
const CJPEGDecoderLookup* Take(Place& place, const CJPEGDecoderHuffmanTable& table, std::uint32_t nMark,
                               bool& bOther) {
    std::uint32_t nFound = place.nMark.load(std::memory_order_acquire);
    if (nFound == kFree && place.nMark.compare_exchange_strong(nFound, kTaken, std::memory_order_acquire)) {
        const bool bBuilt = place.lookup.Build(table);
        place.nMark.store(bBuilt ? nMark : kFree, std::memory_order_release);
        return bBuilt ? &place.lookup : nullptr;
    }
    const bool bReady = nFound != kTaken;
    bOther = bReady && (nFound != nMark || (nMark != kStandard && !place.lookup.IsOf(table)));
    return bReady && !bOther ? &place.lookup : nullptr;
}

// Every table looks through the places in an order of its own and ends at the first one that is free or being
// filled, so that none comes to be there twice.
const CJPEGDecoderLookup* FindShared(const CJPEGDecoderHuffmanTable& table) {
    bool bOther = false;
    for (std::int32_t nId = 0; nId < 2; ++nId) {
        if (IsStandard(table, nId))
            return Take(s_aStandard[table.m_nClass == 0 ? 0 : 1][nId], table, kStandard, bOther);
    }
    const std::uint32_t nMark = MarkOf(table);
    for (std::size_t i = 0; i < kShared; ++i) {
        bOther = false;
        const CJPEGDecoderLookup* const pFound = Take(s_aShared[(nMark + i) % kShared], table, nMark, bOther);
        if (pFound || !bOther)
            return pFound;
    }
    return nullptr;
}

} // namespace

std::shared_ptr<const CJPEGDecoderLookup> CJPEGDecoderLookup::Find(const CJPEGDecoderHuffmanTable& table) {
    if (const CJPEGDecoderLookup* const pShared = FindShared(table))
        return {std::shared_ptr<void>(), pShared}; // without an owner
    for (const auto& pKept : s_kept.apLookups) {
        if (pKept && pKept->IsOf(table))
            return pKept;
    }
    const auto pNew = std::make_shared<CJPEGDecoderLookup>();
    if (!pNew->Build(table))
        return nullptr;
    s_kept.apLookups[s_kept.nOldest] = pNew;
    s_kept.nOldest = (s_kept.nOldest + 1) % kKept;
    return pNew;
}

bool CJPEGDecoderLookup::Build(const CJPEGDecoderHuffmanTable& table) {
    if (ippDecodeHuffmanSpecFill(table.m_aBits, table.m_aValues, m_spec) != ippStsNoErr)
        return false;
    if (table.m_nClass == 0)
        ippDcLookupInit(m_spec, m_dc);
    else
        ippAcLookupInit(m_spec, m_ac);
    m_nClass = table.m_nClass;
    std::memcpy(m_aBits, table.m_aBits, sizeof m_aBits);
    std::memcpy(m_aValues, table.m_aValues, sizeof m_aValues);
    return true;
}

void CJPEGDecoderLookup::Prefetch() const noexcept {
    const auto* const pFirst = reinterpret_cast<const char*>(&m_dc);
    constexpr std::size_t kLine = 64;
    const std::size_t nSize = m_nClass == 0 ? sizeof m_dc : sizeof m_ac;
    for (std::size_t i = 0; i < nSize; i += kLine)
        __builtin_prefetch(pFirst + i);
}

// The values behind the last code are zeros in both.
bool CJPEGDecoderLookup::IsOf(const CJPEGDecoderHuffmanTable& table) const {
    return (m_nClass == 0) == (table.m_nClass == 0) &&
           std::memcmp(m_aBits, table.m_aBits, sizeof m_aBits) == 0 &&
           std::memcmp(m_aValues, table.m_aValues, sizeof m_aValues) == 0;
}
