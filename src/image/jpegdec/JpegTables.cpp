#include "image/jpegdec/JpegTables.h"

#include <array>
#include <cstddef>
#include <cstring>

CJPEGDecoderQuantTable::~CJPEGDecoderQuantTable() = default;

IppStatus CJPEGDecoderQuantTable::Init() {
    return ippiQuantInvTableInit_JPEG_8u16u(m_aRaw, m_aSteps);
}

CJPEGDecoderHuffmanTable::~CJPEGDecoderHuffmanTable() = default;

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

// Two sets of the four tables of a colour picture: about 100 KB a thread, when all are in use.
constexpr std::size_t kKept = 8;

struct Kept {
    std::array<std::shared_ptr<const CJPEGDecoderLookup>, kKept> apLookups;
    std::size_t nOldest = 0;
};

// It has a destructor, so a thread that has decoded keeps this code mapped until it ends: an unload is put
// off, and a load before that finds the module as it was left.
thread_local Kept s_kept;

} // namespace

std::shared_ptr<const CJPEGDecoderLookup> CJPEGDecoderLookup::Find(const CJPEGDecoderHuffmanTable& table) {
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
    ippiDecodeHuffmanSpec* pSpec = nullptr;
    const IppStatus nStatus = ippiDecodeHuffmanSpecInit_JPEG_8u(table.m_aBits, table.m_aValues, &pSpec);
    m_pSpec.reset(pSpec);
    if (nStatus != ippStsNoErr)
        return false;
    if (table.m_nClass == 0) {
        m_pDc = std::make_unique<IppDcLookup>();
        ippDcLookupInit(*m_pSpec, *m_pDc);
    } else {
        m_pAc = std::make_unique<IppAcLookup>();
        ippAcLookupInit(*m_pSpec, *m_pAc);
    }
    m_nClass = table.m_nClass;
    std::memcpy(m_aBits, table.m_aBits, sizeof m_aBits);
    std::memcpy(m_aValues, table.m_aValues, sizeof m_aValues);
    return true;
}

// The values behind the last code are zeros in both.
bool CJPEGDecoderLookup::IsOf(const CJPEGDecoderHuffmanTable& table) const {
    return (m_nClass == 0) == (table.m_nClass == 0) &&
           std::memcmp(m_aBits, table.m_aBits, sizeof m_aBits) == 0 &&
           std::memcmp(m_aValues, table.m_aValues, sizeof m_aValues) == 0;
}
