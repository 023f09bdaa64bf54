#include "runtime/archive/ArchiveFormat.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

namespace {

// How far from the end the record may begin, and how much is looked at in one step.
constexpr std::uint32_t kSearchBytes = 65535;
constexpr std::uint32_t kStepBytes = 1024;
// A signature across the border of two steps is seen by the earlier one.
constexpr std::uint32_t kOverlapBytes = 4;

constexpr std::string_view kSignatureBytes = "PK\5\6";

// Gives the position of the last signature, counted from the source's initial offset. Position 0 counts as
// not found.
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

// Systems whose external attributes have the MS-DOS directory attributes in their low byte
// (APPNOTE.TXT, 4.4.2).
constexpr std::uint8_t kDosHosts[] = {0, 7, 11, 14};
constexpr std::uint32_t kDosAttributes =
    kAttributeReadOnly | kAttributeHidden | kAttributeSystem | kAttributeDirectory | kAttributeArchive;
// Elsewhere the upper half holds the mode of a Unix file: its owner may write, it is a folder.
constexpr std::uint32_t kModeWritable = 1U << 23;
constexpr std::uint32_t kModeFolder = 1U << 30;

// The extended timestamp among the extra fields (4.6.1, Info-ZIP's extra fields).
constexpr std::uint16_t kExtendedTimestamp = 'U' | 'T' << 8;

constexpr std::int64_t FileTimeOfUnix(std::int64_t nSeconds) noexcept {
    constexpr std::int64_t kSecondsBefore1970 = 11644473600;
    return (nSeconds + kSecondsBefore1970) * 10000000;
}

// Gives 0 for a number that is no date; some packers write zeros.
std::int64_t FileTimeOfDos(std::uint32_t nDate, std::uint32_t nTime) noexcept {
    std::tm oTime{};
    oTime.tm_year = static_cast<int>(nDate >> 9 & 0x7F) + 80;
    oTime.tm_mon = static_cast<int>(nDate >> 5 & 0xF) - 1;
    oTime.tm_mday = static_cast<int>(nDate & 0x1F);
    oTime.tm_hour = static_cast<int>(nTime >> 11 & 0x1F);
    oTime.tm_min = static_cast<int>(nTime >> 5 & 0x3F);
    oTime.tm_sec = static_cast<int>(nTime & 0x1F) * 2;
    oTime.tm_isdst = -1; // as it was on that day
    if (oTime.tm_mon < 0 || oTime.tm_mon > 11 || oTime.tm_mday == 0 || oTime.tm_hour > 23 ||
        oTime.tm_min > 59 || oTime.tm_sec > 59)
        return 0;
    return FileTimeOfUnix(std::mktime(&oTime));
}

// The record's data: a byte of flags and a signed 32-bit Unix time for each of its bits 0 to 2.
void ApplyTimestamp(SArchiveEntry& oEntry, std::span<const std::uint8_t> data) noexcept {
    if (data.empty())
        return;
    CFieldReader oFields(data);
    const std::uint8_t nFlags = oFields.U8();
    std::int64_t* const apTimes[] = {&oEntry.nModificationTime, &oEntry.nAccessTime, &oEntry.nCreationTime};
    for (unsigned nBit = 0; nBit < 3; ++nBit) {
        if ((nFlags & 1U << nBit) == 0)
            continue;
        if (oFields.Rest().size() < 4)
            return; // the flags promise more than the record holds
        *apTimes[nBit] = FileTimeOfUnix(static_cast<std::int32_t>(oFields.U32()));
    }
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

std::uint32_t AttributesOf(const SCentralHeader& oHeader) noexcept {
    const auto nHost = static_cast<std::uint8_t>(oHeader.nMadeBy >> 8);
    for (const std::uint8_t nDosHost : kDosHosts) {
        if (nHost == nDosHost)
            return oHeader.nExternalAttributes & kDosAttributes;
    }
    std::uint32_t nAttributes = kAttributeArchive;
    if ((oHeader.nExternalAttributes & kModeWritable) == 0)
        nAttributes |= kAttributeReadOnly;
    if ((oHeader.nExternalAttributes & kModeFolder) != 0)
        nAttributes |= kAttributeDirectory;
    return nAttributes;
}

void SetTimes(SArchiveEntry& oEntry, const SCentralHeader& oHeader,
              std::span<const std::uint8_t> localExtra) noexcept {
    const std::int64_t nTime = FileTimeOfDos(oHeader.nDosDate, oHeader.nDosTime);
    oEntry.nModificationTime = oEntry.nAccessTime = oEntry.nCreationTime = nTime;
    CFieldReader oFields(localExtra);
    while (oFields.Rest().size() > 4) {
        const std::uint16_t nIdentifier = oFields.U16();
        const std::uint16_t nBytes = oFields.U16();
        if (nBytes > oFields.Rest().size())
            return;
        if (nIdentifier == kExtendedTimestamp) {
            ApplyTimestamp(oEntry, oFields.Rest().first(nBytes));
            return;
        }
        oFields.Skip(nBytes);
    }
}
