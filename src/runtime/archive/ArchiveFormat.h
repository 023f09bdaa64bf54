// Records of the published ZIP format (PKWARE's application note, APPNOTE.TXT). All numbers in it are
// little-endian. Section numbers are those of the note's version 6.3.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "runtime/archive/Archive.h"
#include "runtime/archive/ArchiveSource.h"

// Takes numbers off the front of a record. The caller has made sure that the record is long enough.
class CFieldReader {
public:
    explicit CFieldReader(std::span<const std::uint8_t> record) noexcept : m_record(record) {}

    std::uint16_t U16() noexcept { return static_cast<std::uint16_t>(Take(2)); }
    std::uint32_t U32() noexcept { return Take(4); }
    std::uint8_t U8() noexcept { return static_cast<std::uint8_t>(Take(1)); }
    void Skip(std::size_t nBytes) noexcept { m_record = m_record.subspan(nBytes); }
    // What stands behind the fields taken so far.
    [[nodiscard]] std::span<const std::uint8_t> Rest() const noexcept { return m_record; }

private:
    std::uint32_t Take(std::size_t nBytes) noexcept {
        std::uint32_t nValue = 0;
        for (std::size_t i = nBytes; i > 0; --i)
            nValue = nValue << 8 | m_record[i - 1];
        m_record = m_record.subspan(nBytes);
        return nValue;
    }

    std::span<const std::uint8_t> m_record;
};

// Sizes of the records' fixed parts, and the signatures that they begin with.
inline constexpr std::size_t kLocalHeaderBytes = 30;   // 4.3.7
inline constexpr std::size_t kCentralHeaderBytes = 46; // 4.3.12
inline constexpr std::size_t kEndRecordBytes = 22;     // 4.3.16
inline constexpr std::size_t kZip64LocatorBytes = 20;  // 4.3.15
inline constexpr std::uint32_t kLocalSignature = 0x04034B50;
inline constexpr std::uint32_t kCentralSignature = 0x02014B50;
inline constexpr std::uint32_t kEndSignature = 0x06054B50;
inline constexpr std::uint32_t kZip64LocatorSignature = 0x07064B50;

// The value of a 32-bit field whose real value stands in a ZIP64 record (4.4.8, 4.4.9, 4.4.16).
inline constexpr std::uint32_t kInZip64 = 0xFFFFFFFF;

// Bits of the general purpose flags (4.4.4).
inline constexpr std::uint16_t kFlagEncrypted = 1U << 0;
inline constexpr std::uint16_t kFlagDescriptor = 1U << 3; // CRC and sizes stand behind the data

// Compression methods (4.4.5).
inline constexpr std::uint16_t kMethodStored = 0;
inline constexpr std::uint16_t kMethodDeflated = 8;

// The fields of a central directory header (4.3.12), without those behind the fixed part.
struct SCentralHeader {
    std::uint16_t nMadeBy = 0; // high byte: the host system whose attributes these are
    std::uint16_t nFlags = 0;
    std::uint16_t nMethod = 0;
    std::uint16_t nDosTime = 0;
    std::uint16_t nDosDate = 0;
    std::uint32_t nCrc = 0;
    std::uint32_t nCompressedSize = 0;
    std::uint32_t nUncompressedSize = 0;
    std::uint16_t nNameBytes = 0;
    std::uint16_t nExtraBytes = 0;
    std::uint16_t nCommentBytes = 0;
    std::uint32_t nExternalAttributes = 0;
    std::uint32_t nLocalOffset = 0;

    // False when the record does not begin with the signature.
    [[nodiscard]] bool Parse(std::span<const std::uint8_t, kCentralHeaderBytes> record) noexcept {
        CFieldReader oFields(record);
        if (oFields.U32() != kCentralSignature)
            return false;
        nMadeBy = oFields.U16();
        oFields.Skip(2); // version needed
        nFlags = oFields.U16();
        nMethod = oFields.U16();
        nDosTime = oFields.U16();
        nDosDate = oFields.U16();
        nCrc = oFields.U32();
        nCompressedSize = oFields.U32();
        nUncompressedSize = oFields.U32();
        nNameBytes = oFields.U16();
        nExtraBytes = oFields.U16();
        nCommentBytes = oFields.U16();
        oFields.Skip(4); // disk number, internal attributes
        nExternalAttributes = oFields.U32();
        nLocalOffset = oFields.U32();
        return true;
    }

    // From this header's first byte to the next one's.
    [[nodiscard]] std::uint32_t Bytes() const noexcept {
        return static_cast<std::uint32_t>(kCentralHeaderBytes) + nNameBytes + nExtraBytes + nCommentBytes;
    }
};

// The end of central directory record (4.3.16).
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

// The sum of kAttribute... bits.
std::uint32_t AttributesOf(const SCentralHeader& oHeader) noexcept;

// All three times from the DOS date and time, which are local time in steps of two seconds, and then those
// that an extended timestamp in the local header's extra field tells exactly.
void SetTimes(SArchiveEntry& oEntry, const SCentralHeader& oHeader,
              std::span<const std::uint8_t> localExtra) noexcept;
