#include "runtime/archive/EndRecord.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <string_view>

#include "runtime/archive/ArchiveFormat.h"

namespace {

// How far from the end the record may begin, and how much is looked at in one step.
constexpr std::uint32_t kSearchBytes = 65535;
constexpr std::uint32_t kStepBytes = 1024;
// A signature across the border of two steps is seen by the earlier one.
constexpr std::uint32_t kOverlapBytes = 4;

constexpr std::string_view kSignatureBytes = "PK\5\6";

// From the source's initial offset; nothing is found at 0.
std::optional<std::uint32_t> FindSignature(CArchiveSource& oSource) {
    const std::uint32_t nSize = oSource.Size();
    const std::uint32_t nReach = std::min(nSize, kSearchBytes);
    std::array<std::uint8_t, kStepBytes + kOverlapBytes> aBuffer;
    for (std::uint32_t nBack = kOverlapBytes; nBack < nReach;) {
        nBack = std::min(nBack + kStepBytes, nReach);
        const std::uint32_t nPosition = nSize - nBack;
        const auto window = std::span(aBuffer).first(std::min<std::size_t>(aBuffer.size(), nBack));
        if (!oSource.Read(nPosition, window))
            return std::nullopt;
        const std::string_view text(reinterpret_cast<const char*>(window.data()), window.size());
        const std::size_t nFound = text.rfind(kSignatureBytes);
        if (nFound != std::string_view::npos && nPosition + nFound != 0)
            return nPosition + static_cast<std::uint32_t>(nFound);
    }
    return std::nullopt;
}

// ZIP64 keeps the real numbers elsewhere and says where in a locator right in front of the end record.
bool HasZip64Locator(CArchiveSource& oSource, std::uint32_t nEndRecord) {
    std::array<std::uint8_t, kZip64LocatorBytes> aRecord;
    return nEndRecord >= aRecord.size() && oSource.Read(nEndRecord - aRecord.size(), aRecord) &&
           CFieldReader(aRecord).U32() == kZip64LocatorSignature;
}

} // namespace

std::optional<SEndRecord> FindEndRecord(CArchiveSource& oSource) {
    if (!oSource.CanSeek())
        return std::nullopt;
    const auto nFound = FindSignature(oSource);
    std::array<std::uint8_t, kEndRecordBytes> aRecord;
    if (!nFound || !oSource.Read(*nFound, aRecord) || HasZip64Locator(oSource, *nFound))
        return std::nullopt;

    CFieldReader oFields(aRecord);
    oFields.Skip(4); // signature
    const std::uint16_t nDisk = oFields.U16();
    const std::uint16_t nCentralDisk = oFields.U16();
    const std::uint16_t nEntriesOnDisk = oFields.U16();
    const std::uint16_t nEntries = oFields.U16();
    const std::uint32_t nCentralSize = oFields.U32();
    const std::uint32_t nCentralOffset = oFields.U32();
    const std::uint64_t nPosition = std::uint64_t{*nFound} + oSource.InitialOffset();
    const std::uint64_t nExpected = std::uint64_t{nCentralOffset} + nCentralSize;
    if (nEntriesOnDisk != nEntries || nDisk != 0 || nCentralDisk != 0 || nPosition < nExpected)
        return std::nullopt;

    SEndRecord oRecord;
    oRecord.nPosition = static_cast<std::uint32_t>(nPosition);
    oRecord.nEntries = nEntries;
    oRecord.nCentralOffset = nCentralOffset;
    oRecord.nShift = static_cast<std::uint32_t>(nPosition - nExpected);
    return oRecord;
}
