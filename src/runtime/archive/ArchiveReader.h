// The state of one open archive. Callers go through Archive.h.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/archive/Archive.h"
#include "runtime/archive/ArchiveFormat.h"
#include "runtime/archive/ArchiveItem.h"
#include "runtime/archive/ArchiveSource.h"

// Walks the central directory with one current entry, which every operation may move. One thread.
class CArchiveReader {
public:
    explicit CArchiveReader(std::string_view password) : m_strPassword(password) {}

    // kArchiveOk, kArchiveNotOpened (the source is closed), or kArchiveAlreadyOpen (nothing changes).
    ArchiveStatus Open(std::unique_ptr<CArchiveSource> spSource);

    ArchiveStatus GetItem(std::int32_t nIndex, SArchiveEntry& oEntry);
    ArchiveStatus FindItem(std::u16string_view name, bool bIgnoreCase, std::int32_t& nIndex,
                           SArchiveEntry* pEntry);
    ArchiveStatus ReadItem(std::int32_t nIndex, std::span<std::uint8_t> buffer, std::uint32_t& nRead);

private:
    // Where the walk stands.
    struct SWalk {
        std::uint32_t nNumber = 0;
        std::uint32_t nPosition = 0; // of the entry's header, counted like m_nCentralOffset
        bool bValid = false;         // false before the first entry and behind the last one
        SCentralHeader oEntry;
    };

    // What only the local header tells.
    struct SLocalItem {
        std::uint64_t nExtra = 0; // position of the extra field in the source
        std::uint16_t nExtraBytes = 0;
        [[nodiscard]] std::uint64_t Data() const noexcept { return nExtra + nExtraBytes; }
    };

    [[nodiscard]] EReaderStatus ReadEndRecord();
    [[nodiscard]] EReaderStatus GoToFirst();
    [[nodiscard]] EReaderStatus GoToNext();
    [[nodiscard]] EReaderStatus GoTo(std::uint32_t nIndex);
    [[nodiscard]] EReaderStatus ReadEntry();
    [[nodiscard]] EReaderStatus Locate(std::string_view name, bool bIgnoreCase);
    // The first bytes of the current entry's stored name, or nothing when they cannot be read.
    [[nodiscard]] std::optional<std::string> ReadName(std::size_t nLimit);
    [[nodiscard]] EReaderStatus CheckLocalHeader(SLocalItem& oItem);
    [[nodiscard]] EReaderStatus OpenItem();
    EReaderStatus CloseItem() noexcept;

    std::unique_ptr<CArchiveSource> m_spSource; // null until Open succeeds
    std::uint32_t m_nEntries = 0;
    std::uint32_t m_nCentralPosition = 0; // of the end record
    std::uint32_t m_nShift = 0;           // bytes in front of the archive, to be added to each offset in it
    std::uint32_t m_nCentralOffset = 0;
    SWalk m_oWalk;
    std::unique_ptr<COpenItem> m_spOpenItem;
    std::int32_t m_nOpenIndex = -1;
    SArchiveEntry m_oCachedEntry;
    std::int32_t m_nCachedIndex = -1;
    std::string m_strPassword;
};
