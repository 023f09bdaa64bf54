// The end of central directory record of an archive (APPNOTE.TXT, 4.3.16).
#pragma once

#include <cstdint>
#include <optional>

#include "runtime/archive/ArchiveSource.h"

struct SEndRecord {
    std::uint32_t nPosition = 0; // in the source
    std::uint32_t nEntries = 0;
    std::uint32_t nCentralOffset = 0; // as the archive counts
    std::uint32_t nShift = 0;         // what must be added to it, and to every other offset of the archive
};

// Looks for the record in the last 65535 bytes; the last signature there counts. Nothing when there is none,
// when it is the source's very beginning, and for what is no archive in one piece or is one in ZIP64.
// Positions count from the source's first byte, so its initial offset must be cleared then.
std::optional<SEndRecord> FindEndRecord(CArchiveSource& oSource);
