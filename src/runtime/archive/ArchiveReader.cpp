#include "runtime/archive/ArchiveReader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/text.h"

namespace {

// Names of this length or more are not looked for.
constexpr std::size_t kNameLimit = 256;
// The part of a stored name that callers see.
constexpr std::size_t kShownNameBytes = 260;

bool SameName(std::string_view stored, std::string_view name, bool bIgnoreCase) noexcept {
    return bIgnoreCase ? platform::EqualsIgnoringCase(stored, name) : stored == name;
}

// Names are taken in the system's code page whatever bit 11 of an item's flags (UTF-8) says, since a name
// that is looked for goes through the same page: what is shown can be found.
void SetName(SArchiveEntry& oEntry, std::string_view stored) {
    const std::u16string name = platform::ToWide(stored, platform::kCodePageAnsi);
    std::copy_n(name.begin(), std::min(name.size(), std::size(oEntry.szName) - 1), oEntry.szName);
}

} // namespace

ArchiveStatus CArchiveReader::Open(std::unique_ptr<CArchiveSource> spSource) {
    if (m_spSource)
        return kArchiveAlreadyOpen;
    m_spSource = std::move(spSource);
    EReaderStatus eStatus = ReadEndRecord();
    if (eStatus == EReaderStatus::Ok)
        eStatus = GoToFirst();
    // An archive without items is valid.
    if (eStatus == EReaderStatus::Ok || eStatus == EReaderStatus::EndOfList)
        return kArchiveOk;
    m_spSource.reset();
    return kArchiveNotOpened;
}

EReaderStatus CArchiveReader::ReadEndRecord() {
    const auto oRecord = FindEndRecord(*m_spSource);
    if (!oRecord)
        return EReaderStatus::BadArchive;
    m_nEntries = oRecord->nEntries;
    m_nCentralPosition = oRecord->nPosition;
    m_nCentralOffset = oRecord->nCentralOffset;
    m_nShift = oRecord->nShift;
    m_spSource->ClearInitialOffset();
    return EReaderStatus::Ok;
}

EReaderStatus CArchiveReader::GoToFirst() {
    m_oWalk = {};
    m_oWalk.nPosition = m_nCentralOffset;
    return ReadEntry();
}

EReaderStatus CArchiveReader::GoToNext() {
    if (!m_oWalk.bValid)
        return EReaderStatus::EndOfList;
    m_oWalk.bValid = false;
    if (m_oWalk.nNumber + 1 >= m_nEntries)
        return EReaderStatus::EndOfList;
    // All headers stand in front of the end record.
    const std::uint64_t nNext = std::uint64_t{m_oWalk.nPosition} + m_oWalk.oEntry.Bytes();
    if (nNext + m_nShift >= m_nCentralPosition)
        return EReaderStatus::BadArchive;
    m_oWalk.nPosition = static_cast<std::uint32_t>(nNext);
    ++m_oWalk.nNumber;
    return ReadEntry();
}

EReaderStatus CArchiveReader::GoTo(std::uint32_t nIndex) {
    EReaderStatus eStatus = EReaderStatus::Ok;
    if (!m_oWalk.bValid || nIndex < m_oWalk.nNumber)
        eStatus = GoToFirst();
    while (eStatus == EReaderStatus::Ok && m_oWalk.nNumber < nIndex)
        eStatus = GoToNext();
    return eStatus;
}

EReaderStatus CArchiveReader::ReadEntry() {
    m_oWalk.bValid = false;
    if (m_oWalk.nNumber >= m_nEntries)
        return EReaderStatus::EndOfList;
    std::array<std::uint8_t, kCentralHeaderBytes> aRecord;
    if (!m_spSource->Read(std::uint64_t{m_oWalk.nPosition} + m_nShift, aRecord))
        return EReaderStatus::ReadError;
    m_oWalk.bValid = m_oWalk.oEntry.Parse(aRecord);
    return m_oWalk.bValid ? EReaderStatus::Ok : EReaderStatus::BadArchive;
}

std::optional<std::string> CArchiveReader::ReadName(std::size_t nLimit) {
    std::string strName(std::min<std::size_t>(m_oWalk.oEntry.nNameBytes, nLimit), '\0');
    const std::uint64_t nPosition = std::uint64_t{m_oWalk.nPosition} + m_nShift + kCentralHeaderBytes;
    if (!m_spSource->Read(nPosition, {reinterpret_cast<std::uint8_t*>(strName.data()), strName.size()}))
        return std::nullopt;
    return strName;
}

EReaderStatus CArchiveReader::CheckLocalHeader(SLocalItem& oItem) {
    if (!m_oWalk.bValid)
        return EReaderStatus::BadParameter;
    const SCentralHeader& oEntry = m_oWalk.oEntry;
    if (oEntry.nCompressedSize == kInZip64 || oEntry.nUncompressedSize == kInZip64 ||
        oEntry.nLocalOffset == kInZip64)
        return EReaderStatus::BadArchive;
    if (oEntry.nMethod != kMethodStored && oEntry.nMethod != kMethodDeflated)
        return EReaderStatus::BadArchive;

    const std::uint64_t nHeader = std::uint64_t{oEntry.nLocalOffset} + m_nShift;
    std::array<std::uint8_t, kLocalHeaderBytes> aRecord;
    if (!m_spSource->Read(nHeader, aRecord))
        return EReaderStatus::ReadError;
    CFieldReader oFields(aRecord);
    if (oFields.U32() != kLocalSignature)
        return EReaderStatus::BadArchive;
    oFields.Skip(2); // version needed
    const bool bDescriptor = (oFields.U16() & kFlagDescriptor) != 0;
    if (oFields.U16() != oEntry.nMethod)
        return EReaderStatus::BadArchive;
    oFields.Skip(4); // time and date
    const std::uint32_t nCrc = oFields.U32();
    const std::uint32_t nCompressedSize = oFields.U32();
    const std::uint32_t nUncompressedSize = oFields.U32();
    if (!bDescriptor && (nCrc != oEntry.nCrc || nCompressedSize != oEntry.nCompressedSize ||
                         nUncompressedSize != oEntry.nUncompressedSize))
        return EReaderStatus::BadArchive;
    if (oFields.U16() != oEntry.nNameBytes)
        return EReaderStatus::BadArchive;
    oItem.nExtraBytes = oFields.U16();
    oItem.nExtra = nHeader + kLocalHeaderBytes + oEntry.nNameBytes;
    return EReaderStatus::Ok;
}

ArchiveStatus CArchiveReader::GetItem(std::int32_t nIndex, SArchiveEntry& oEntry) {
    oEntry = {};
    if (nIndex < -1 || (nIndex >= 0 && static_cast<std::uint32_t>(nIndex) >= m_nEntries))
        return kArchiveArguments;
    CloseItem();
    if (nIndex == -1) {
        oEntry.nIndex = static_cast<std::int32_t>(m_nEntries);
        return kArchiveOk;
    }
    if (nIndex == m_nCachedIndex) {
        oEntry = m_oCachedEntry;
        return kArchiveOk;
    }

    SLocalItem oItem;
    if (GoTo(static_cast<std::uint32_t>(nIndex)) != EReaderStatus::Ok)
        return kArchiveMismatch;
    const auto name = ReadName(kShownNameBytes);
    if (!name || CheckLocalHeader(oItem) != EReaderStatus::Ok)
        return kArchiveMismatch;
    std::vector<std::uint8_t> aExtra(oItem.nExtraBytes);
    if (!m_spSource->Read(oItem.nExtra, aExtra))
        return kArchiveExtraField;

    const SCentralHeader& oHeader = m_oWalk.oEntry;
    SArchiveEntry oFound;
    oFound.nIndex = nIndex;
    SetName(oFound, *name);
    oFound.nAttributes = AttributesOf(oHeader);
    oFound.nCompressedSize = oHeader.nCompressedSize;
    oFound.nUncompressedSize = oHeader.nUncompressedSize;
    SetTimes(oFound, oHeader, aExtra);
    m_oCachedEntry = oEntry = oFound;
    m_nCachedIndex = nIndex;
    return kArchiveOk;
}

EReaderStatus CArchiveReader::Locate(std::string_view name, bool bIgnoreCase) {
    EReaderStatus eStatus = GoToFirst();
    for (; eStatus == EReaderStatus::Ok; eStatus = GoToNext()) {
        if (m_oWalk.oEntry.nNameBytes != name.size())
            continue;
        const auto stored = ReadName(kNameLimit);
        if (!stored)
            return EReaderStatus::ReadError;
        if (SameName(*stored, name, bIgnoreCase))
            return EReaderStatus::Ok;
    }
    return eStatus;
}

ArchiveStatus CArchiveReader::FindItem(std::u16string_view name, bool bIgnoreCase, std::int32_t& nIndex,
                                       SArchiveEntry* pEntry) {
    nIndex = -1;
    if (pEntry != nullptr) {
        *pEntry = {};
        pEntry->nIndex = -1;
    }
    const std::string strName = platform::ToNarrow(name, platform::kCodePageAnsi);
    if (strName.size() >= kNameLimit)
        return kArchiveNotFound;
    const SWalk oPlace = m_oWalk;
    if (Locate(strName, bIgnoreCase) != EReaderStatus::Ok) {
        m_oWalk = oPlace;
        return kArchiveNotFound;
    }
    CloseItem();
    nIndex = static_cast<std::int32_t>(m_oWalk.nNumber);
    // The item exists even if its local header is damaged; reading it tells.
    if (pEntry != nullptr && GetItem(nIndex, *pEntry) != kArchiveOk)
        pEntry->nIndex = nIndex;
    return kArchiveOk;
}

EReaderStatus CArchiveReader::OpenItem() {
    SLocalItem oItem;
    if (const EReaderStatus eStatus = CheckLocalHeader(oItem); eStatus != EReaderStatus::Ok)
        return eStatus;
    const SCentralHeader& oEntry = m_oWalk.oEntry;
    SItemData oData;
    oData.nPosition = oItem.Data();
    oData.nCompressedSize = oEntry.nCompressedSize;
    oData.nUncompressedSize = oEntry.nUncompressedSize;
    oData.nCrc = oEntry.nCrc;
    oData.nMethod = oEntry.nMethod;
    oData.bEncrypted = (oEntry.nFlags & kFlagEncrypted) != 0;
    // A packer that writes a descriptor does not know the CRC yet when it writes the encryption header.
    oData.nCheckByte = static_cast<std::uint8_t>((oEntry.nFlags & kFlagDescriptor) != 0 ? oEntry.nDosTime >> 8
                                                                                        : oEntry.nCrc >> 24);
    m_spOpenItem = std::make_unique<COpenItem>(*m_spSource, oData, m_strPassword);
    return m_spOpenItem->Start();
}

ArchiveStatus CArchiveReader::ReadItem(std::int32_t nIndex, std::span<std::uint8_t> buffer,
                                       std::uint32_t& nRead) {
    nRead = 0;
    if (nIndex < 0)
        return kArchiveArguments;
    EReaderStatus eStatus = EReaderStatus::Ok;
    if (nIndex != m_nOpenIndex) {
        CloseItem();
        if (static_cast<std::uint32_t>(nIndex) >= m_nEntries)
            return kArchiveArguments;
        eStatus = GoTo(static_cast<std::uint32_t>(nIndex));
        if (eStatus == EReaderStatus::Ok)
            eStatus = OpenItem();
        m_nOpenIndex = nIndex;
    }
    if (eStatus == EReaderStatus::Ok)
        eStatus = m_spOpenItem->Read(buffer, nRead);
    if (eStatus == EReaderStatus::Ok && nRead > 0)
        return kArchiveMore;
    CloseItem();
    if (eStatus == EReaderStatus::Ok)
        return kArchiveOk;
    return eStatus == EReaderStatus::WrongPassword ? kArchivePassword : kArchiveInflate;
}

// Gives CrcMismatch for an item that was read to its end and differs from what was packed. No caller looks at
// it: the read that gave the bytes has returned kArchiveMore already.
EReaderStatus CArchiveReader::CloseItem() noexcept {
    const EReaderStatus eStatus = m_spOpenItem ? m_spOpenItem->Check() : EReaderStatus::Ok;
    m_spOpenItem.reset();
    m_nOpenIndex = -1;
    return eStatus;
}
