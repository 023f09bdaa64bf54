// One item of an archive while it is read.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include <zlib.h>

#include "runtime/archive/ArchiveCipher.h"
#include "runtime/archive/ArchiveSource.h"

// What goes on inside a reader; its callers see the statuses of Archive.h.
enum class EReaderStatus : std::int32_t {
    Ok = 0,
    ReadError = -1,
    EndOfList = -100,
    BadParameter = -102,
    BadArchive = -103,
    OutOfMemory = -104,
    CrcMismatch = -105,
    WrongPassword = -106,
};

// Where an item's data lies and how it is packed.
struct SItemData {
    std::uint64_t nPosition = 0; // in the source
    std::uint32_t nCompressedSize = 0;
    std::uint32_t nUncompressedSize = 0;
    std::uint32_t nCrc = 0;
    std::uint16_t nMethod = 0;
    bool bEncrypted = false;
    std::uint8_t nCheckByte = 0; // what the last byte of the encryption header must decrypt to
};

// Costs its input buffer and what inflate takes (some 50 KiB), whatever sizes the archive claims. Never reads
// more input than the compressed size, never gives out more than the uncompressed size, so a stream that
// would unpack to more is cut there.
class COpenItem {
public:
    // The source must outlive the item.
    COpenItem(CArchiveSource& oSource, const SItemData& oData, std::string_view password) noexcept;
    COpenItem(const COpenItem&) = delete;
    COpenItem& operator=(const COpenItem&) = delete;
    ~COpenItem();

    // Starts inflate where it is needed. Once, before the first read.
    [[nodiscard]] EReaderStatus Start() noexcept;

    // Gives out the next bytes: their count goes to `nRead`, 0 at the item's end. With a failure the buffer
    // may be partly filled.
    [[nodiscard]] EReaderStatus Read(std::span<std::uint8_t> buffer, std::uint32_t& nRead) noexcept;

    // Whether what was given out is what was packed; Ok too while bytes are left.
    [[nodiscard]] EReaderStatus Check() const noexcept;

private:
    static constexpr std::size_t kInputBytes = 16384;

    [[nodiscard]] EReaderStatus FillInput() noexcept;
    [[nodiscard]] EReaderStatus SkipEncryptionHeader() noexcept;
    [[nodiscard]] EReaderStatus Inflate(std::span<std::uint8_t>& output) noexcept;
    void CopyStored(std::span<std::uint8_t>& output) noexcept;
    void GiveOut(std::span<std::uint8_t>& output, std::size_t nBytes) noexcept;

    CArchiveSource& m_oSource;
    SItemData m_oData; // position and compressed size: of what was not yet taken from the source
    CArchiveCipher m_oCipher;
    std::uint32_t m_nHeaderLeft;           // bytes of the encryption header still to come
    std::uint32_t m_nLeft;                 // uncompressed bytes still to be given out
    std::uint32_t m_nCrc = 0;              // of those given out
    std::span<const std::uint8_t> m_input; // in m_aInput, not used yet
    z_stream m_oStream{};
    bool m_bStreamOpen = false;
    bool m_bStreamEnded = false;
    std::array<std::uint8_t, kInputBytes> m_aInput;
};
