// An archive in memory, asked for everything that it holds, in pieces of different sizes. The first byte's
// lowest bit says whether there is a password.

#include <array>

#include "fuzz/Fuzz.h"
#include "runtime/archive/Archive.h"

namespace {

constexpr std::int32_t kItems = 20;
constexpr std::uint64_t kBytesOfItem = 100000;

void ReadItem(CArchiveReader* reader, std::int32_t index, const SArchiveEntry& entry, std::uint32_t piece) {
    std::array<std::uint8_t, 1000> buffer;
    std::uint64_t read = 0;
    ArchiveStatus status = kArchiveMore;
    while (status == kArchiveMore && read < kBytesOfItem) {
        status = ReadArchiveItem(reader, index, buffer.data(), piece);
        if (status == kArchiveMore)
            ++read;
    }
    // Each piece holds a byte at least, and an item no more than it claims.
    Require(read <= entry.nUncompressedSize);
    Require(status == kArchiveMore || status == kArchiveOk || status == kArchivePassword ||
            status == kArchiveInflate);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const char* const password = (data[0] & 1) != 0 ? "secret" : nullptr;
    const ArchivePtr archive(
        OpenArchive(data + 1, static_cast<std::uint32_t>(size - 1), kSourceMemory, password));
    Require((archive == nullptr) == (LastArchiveStatus() != kArchiveOk));
    if (!archive)
        return 0;
    CArchiveReader* const reader = archive->pReader;
    SArchiveEntry entry;
    Require(GetArchiveItem(reader, -1, &entry) == kArchiveOk);
    const std::int32_t count = entry.nIndex;
    // Backwards as well, which makes the walk begin anew.
    for (std::int32_t n = 0; n < count && n < kItems; ++n) {
        for (const std::int32_t index : {n, count - 1 - n}) {
            const ArchiveStatus status = GetArchiveItem(reader, index, &entry);
            Require(status == kArchiveOk || status == kArchiveMismatch || status == kArchiveExtraField);
            std::int32_t found = -1;
            if (status == kArchiveOk &&
                FindArchiveItem(reader, entry.szName, true, &found, nullptr) == kArchiveOk)
                Require(found >= 0 && found < count);
            if (status == kArchiveOk)
                ReadItem(reader, index, entry, n % 2 == 0 ? 1000 : 7);
        }
    }
    return 0;
}
