#include "runtime/archive/ArchiveSource.h"

#include <cstring>
#include <limits>
#include <optional>
#include <utility>

namespace {

constexpr std::uint64_t kPositionLimit = std::numeric_limits<std::uint32_t>::max();

} // namespace

CArchiveSource::CArchiveSource(const platform::File& oFile) noexcept : m_pFile(&oFile) {
    const auto nPosition = oFile.Position();
    m_bCanSeek = nPosition && *nPosition <= kPositionLimit;
    if (m_bCanSeek)
        m_nInitialOffset = static_cast<std::uint32_t>(*nPosition);
}

CArchiveSource::CArchiveSource(std::unique_ptr<platform::File> spFile) noexcept : CArchiveSource(*spFile) {
    m_spFile = std::move(spFile);
}

std::uint32_t CArchiveSource::Size() const noexcept {
    const std::uint64_t nEnd = m_pFile == nullptr ? m_block.size() : m_pFile->Size().value_or(0);
    if (nEnd > kPositionLimit || nEnd < m_nInitialOffset)
        return 0;
    return static_cast<std::uint32_t>(nEnd - m_nInitialOffset);
}

bool CArchiveSource::Read(std::uint64_t nPosition, std::span<std::uint8_t> bytes) noexcept {
    nPosition += m_nInitialOffset;
    if (m_pFile != nullptr) {
        const auto nCount = m_pFile->ReadAt(nPosition, bytes);
        m_bHadError = m_bHadError || !nCount;
        return nCount == bytes.size();
    }
    if (nPosition > m_block.size() || bytes.size() > m_block.size() - nPosition)
        return false;
    if (!bytes.empty())
        std::memcpy(bytes.data(), m_block.data() + nPosition, bytes.size());
    return true;
}
