// Reads ZIP archives: opens one, finds an item by its name, gives its bytes.
//
// The format is the published one of PKWARE's application note: stored and deflated items, the traditional
// password scheme, data descriptors. ZIP64 is not read: its records make an archive (kArchiveNotOpened) or an
// item (kArchiveMismatch) one that is refused. Nothing is written.
//
// A handle belongs to one thread at a time. Archives may be hostile: whatever they say, memory is bounded by
// the fixed buffers of one open item and 64 KiB for an extra field, work by the archive's own size and by the
// size that a caller asks for. What a caller allocates for an item's claimed size is the caller's to limit.
#pragma once

#include <cstdint>
#include <memory>

// Statuses of every operation.
using ArchiveStatus = std::uint32_t;
inline constexpr ArchiveStatus kArchiveOk = 0;
inline constexpr ArchiveStatus kArchiveNotOpened = 0x200; // could not be opened, or is no valid archive
inline constexpr ArchiveStatus kArchiveNotFound = 0x500;  // no item of that name
inline constexpr ArchiveStatus kArchiveMore = 0x600;      // the buffer is filled, more of the item may follow
inline constexpr ArchiveStatus kArchiveMismatch = 0x700;  // local header and central directory disagree
inline constexpr ArchiveStatus kArchiveExtraField = 0x800;
inline constexpr ArchiveStatus kArchivePassword = 0x1000;
inline constexpr ArchiveStatus kArchiveArguments = 0x10000; // null, unknown source kind, index out of range
inline constexpr ArchiveStatus kArchiveNoHandle = 0x80000;  // the handle's marker is not 1
inline constexpr ArchiveStatus kArchiveAlreadyOpen = 0x1000000;
inline constexpr ArchiveStatus kArchiveSeek = 0x2000000; // the position of a file handle cannot be read
inline constexpr ArchiveStatus kArchiveInflate = 0x5000000;

// Where the bytes of an archive are.
inline constexpr std::uint32_t kSourceFileHandle = 1; // data: a platform::File, borrowed; size unused
inline constexpr std::uint32_t kSourceFileName = 2;   // data: a zero-terminated wide path; size unused
inline constexpr std::uint32_t kSourceMemory = 3;     // data: a block of `size` bytes, borrowed

// Bits of SArchiveEntry::nAttributes.
inline constexpr std::uint32_t kAttributeReadOnly = 1;
inline constexpr std::uint32_t kAttributeHidden = 2;
inline constexpr std::uint32_t kAttributeSystem = 4;
inline constexpr std::uint32_t kAttributeDirectory = 16;
inline constexpr std::uint32_t kAttributeArchive = 32;

// An item as callers see it. File times count 100 nanoseconds from 1 January 1601, universal time;
// 0 is a date that the archive does not tell.
struct SArchiveEntry {
    std::int32_t nIndex = 0;   // 0 first
    char16_t szName[260] = {}; // widened with the system's code page, cut to what fits, zero-terminated
    std::uint32_t nAttributes = 0;
    std::int64_t nAccessTime = 0;
    std::int64_t nCreationTime = 0;
    std::int64_t nModificationTime = 0;
    std::uint32_t nCompressedSize = 0;
    std::uint32_t nUncompressedSize = 0;
};

class CArchiveReader;

// What a caller holds of an open archive.
struct CArchiveHandle {
    std::uint32_t nMarker; // 1
    CArchiveReader* pReader;
};

// Opens an archive. The data of kinds 1 and 3 must outlive the handle. The password may be null; it is
// copied, and looked at when an encrypted item is read. The result is null for a failure, whose status is the
// last status: kArchiveArguments, kArchiveSeek or kArchiveNotOpened, the latter also when memory is short.
CArchiveHandle* OpenArchive(const void* pData, std::uint32_t nSize, std::uint32_t nSourceKind,
                            const char* szPassword) noexcept;

// Frees the handle and all that belongs to it. Sets the last status, too.
ArchiveStatus CloseArchive(CArchiveHandle* pHandle) noexcept;

struct CArchiveCloser {
    void operator()(CArchiveHandle* pHandle) const noexcept { CloseArchive(pHandle); }
};
using ArchivePtr = std::unique_ptr<CArchiveHandle, CArchiveCloser>;

// An item by its number. -1 gives the number of items as the entry's index, and nothing else. On a failure
// the entry is empty. An item that is being read is closed.
ArchiveStatus GetArchiveItem(CArchiveReader* pReader, std::int32_t nIndex, SArchiveEntry* pEntry) noexcept;

// The first item of a name, compared in bytes of the system's code page, without regard to the case of a to z
// if that is wanted. Either out pointer may be null. kArchiveOk or kArchiveNotFound; the latter gives the
// index -1 in both, and the item that is being read stays so. An item whose header is damaged is found, with
// an entry that is empty but for its index.
ArchiveStatus FindArchiveItem(CArchiveReader* pReader, const char16_t* szName, bool bIgnoreCase,
                              std::int32_t* pIndex, SArchiveEntry* pEntry) noexcept;

// The next `nSize` bytes of an item, from its first ones on if another item was read before. kArchiveMore:
// some bytes came, and the item stays open even if they were the last. kArchiveOk: there were none left, and
// the item is closed. A buffer for exactly the item so gives kArchiveMore. kArchivePassword, kArchiveInflate
// (for whatever is wrong with the item): closed, the buffer perhaps partly filled, other items can be read. A
// CRC that does not fit is not told.
ArchiveStatus ReadArchiveItem(CArchiveReader* pReader, std::int32_t nIndex, void* pBuffer,
                              std::uint32_t nSize) noexcept;

// The last status: one variable of the process, with what the latest OpenArchive or CloseArchive gave.
// Callers may store there what their finds and reads gave. It tells nothing while several threads work on
// archives.
ArchiveStatus LastArchiveStatus() noexcept;
void SetLastArchiveStatus(ArchiveStatus nStatus) noexcept;
