#include "runtime/archive/Archive.h"

#include <atomic>
#include <exception>
#include <optional>
#include <string_view>

#include "platform/text.h"
#include "runtime/archive/ArchiveReader.h"

namespace {

constexpr std::uint32_t kHandleMarker = 1;

constinit std::atomic<ArchiveStatus> g_nLastStatus{kArchiveOk};

// Makes the source of an archive. Gives null, with a status, when it cannot be had.
std::unique_ptr<CArchiveSource> MakeSource(const void* pData, std::uint32_t nSize, std::uint32_t nKind,
                                           ArchiveStatus& nStatus) {
    nStatus = kArchiveArguments;
    if (pData == nullptr)
        return nullptr;
    switch (nKind) {
    case kSourceFileHandle: {
        auto spSource = std::make_unique<CArchiveSource>(*static_cast<const platform::File*>(pData));
        nStatus = kArchiveSeek;
        return spSource->CanSeek() ? std::move(spSource) : nullptr;
    }
    case kSourceFileName: {
        nStatus = kArchiveNotOpened;
        auto oFile = platform::File::OpenForReading(platform::ToUtf8(static_cast<const char16_t*>(pData)));
        if (!oFile)
            return nullptr;
        return std::make_unique<CArchiveSource>(std::make_unique<platform::File>(*std::move(oFile)));
    }
    case kSourceMemory:
        return std::make_unique<CArchiveSource>(
            std::span(static_cast<const std::uint8_t*>(pData), std::size_t{nSize}));
    default:
        return nullptr;
    }
}

// Turns an exception of the library into a status: callers of the reader know no exceptions.
template <class Operation>
ArchiveStatus StatusOfOperation(ArchiveStatus nFailure, Operation&& operation) noexcept {
    try {
        return operation();
    } catch (const std::exception&) {
        return nFailure;
    }
}

} // namespace

CArchiveHandle* OpenArchive(const void* pData, std::uint32_t nSize, std::uint32_t nSourceKind,
                            const char* szPassword) noexcept {
    std::unique_ptr<CArchiveHandle> spHandle;
    const ArchiveStatus nResult = StatusOfOperation(kArchiveNotOpened, [&] {
        auto spReader = std::make_unique<CArchiveReader>(
            szPassword == nullptr ? std::string_view() : std::string_view(szPassword));
        ArchiveStatus nStatus = kArchiveOk;
        // It is owned all the way. NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
        auto spSource = MakeSource(pData, nSize, nSourceKind, nStatus);
        if (!spSource)
            return nStatus;
        nStatus = spReader->Open(std::move(spSource));
        if (nStatus == kArchiveOk) {
            spHandle = std::make_unique<CArchiveHandle>(CArchiveHandle{kHandleMarker, nullptr});
            spHandle->pReader = spReader.release(); // CloseArchive frees it
        }
        return nStatus;
    });
    SetLastArchiveStatus(nResult);
    return spHandle.release();
}

ArchiveStatus CloseArchive(CArchiveHandle* pHandle) noexcept {
    ArchiveStatus nStatus = kArchiveOk;
    if (pHandle == nullptr) {
        nStatus = kArchiveArguments;
    } else if (pHandle->nMarker != kHandleMarker) {
        nStatus = kArchiveNoHandle;
    } else {
        const std::unique_ptr<CArchiveReader> spReader(pHandle->pReader);
        const std::unique_ptr<CArchiveHandle> spHandle(pHandle);
    }
    SetLastArchiveStatus(nStatus);
    return nStatus;
}

ArchiveStatus GetArchiveItem(CArchiveReader* pReader, std::int32_t nIndex, SArchiveEntry* pEntry) noexcept {
    if (pReader == nullptr || pEntry == nullptr)
        return kArchiveArguments;
    return StatusOfOperation(kArchiveExtraField, [&] { return pReader->GetItem(nIndex, *pEntry); });
}

ArchiveStatus FindArchiveItem(CArchiveReader* pReader, const char16_t* szName, bool bIgnoreCase,
                              std::int32_t* pIndex, SArchiveEntry* pEntry) noexcept {
    if (pReader == nullptr || szName == nullptr)
        return kArchiveArguments;
    std::int32_t nIndex = -1;
    const ArchiveStatus nStatus = StatusOfOperation(
        kArchiveNotFound, [&] { return pReader->FindItem(szName, bIgnoreCase, nIndex, pEntry); });
    if (pIndex != nullptr)
        *pIndex = nIndex;
    return nStatus;
}

ArchiveStatus ReadArchiveItem(CArchiveReader* pReader, std::int32_t nIndex, void* pBuffer,
                              std::uint32_t nSize) noexcept {
    if (pReader == nullptr || (pBuffer == nullptr && nSize > 0))
        return kArchiveArguments;
    std::uint32_t nRead = 0;
    return StatusOfOperation(kArchiveInflate, [&] {
        return pReader->ReadItem(nIndex, {static_cast<std::uint8_t*>(pBuffer), std::size_t{nSize}}, nRead);
    });
}

ArchiveStatus LastArchiveStatus() noexcept {
    return g_nLastStatus.load(std::memory_order_relaxed);
}

void SetLastArchiveStatus(ArchiveStatus nStatus) noexcept {
    g_nLastStatus.store(nStatus, std::memory_order_relaxed);
}
