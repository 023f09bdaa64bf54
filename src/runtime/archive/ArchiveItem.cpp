#include "runtime/archive/ArchiveItem.h"

#include <algorithm>
#include <cstring>

#include "runtime/archive/ArchiveFormat.h"

COpenItem::COpenItem(CArchiveSource& oSource, const SItemData& oData, std::string_view password) noexcept
    : m_oSource(oSource), m_oData(oData), m_oCipher(password),
      m_nHeaderLeft(oData.bEncrypted ? CArchiveCipher::kHeaderBytes : 0), m_nLeft(oData.nUncompressedSize) {}

COpenItem::~COpenItem() {
    if (m_bStreamOpen)
        inflateEnd(&m_oStream);
}

EReaderStatus COpenItem::Start() noexcept {
    if (m_oData.nMethod == kMethodStored)
        return EReaderStatus::Ok;
    // Negative: a raw stream, without zlib's header.
    if (inflateInit2(&m_oStream, -MAX_WBITS) != Z_OK)
        return EReaderStatus::OutOfMemory;
    m_bStreamOpen = true;
    return EReaderStatus::Ok;
}

EReaderStatus COpenItem::Read(std::span<std::uint8_t> buffer, std::uint32_t& nRead) noexcept {
    nRead = 0;
    std::span<std::uint8_t> output = buffer.first(std::min<std::size_t>(buffer.size(), m_nLeft));
    const std::size_t nWanted = output.size();
    while (!output.empty() && !m_bStreamEnded) {
        if (const EReaderStatus eStatus = FillInput(); eStatus != EReaderStatus::Ok)
            return eStatus;
        if (const EReaderStatus eStatus = SkipEncryptionHeader(); eStatus != EReaderStatus::Ok)
            return eStatus;
        if (m_bStreamOpen) {
            if (const EReaderStatus eStatus = Inflate(output); eStatus != EReaderStatus::Ok)
                return eStatus;
        } else if (m_input.empty()) {
            // The sizes of a stored item contradict each other. What is there is given out first.
            if (output.size() == nWanted)
                return EReaderStatus::BadArchive;
            break;
        } else {
            CopyStored(output);
        }
    }
    nRead = static_cast<std::uint32_t>(nWanted - output.size());
    return EReaderStatus::Ok;
}

EReaderStatus COpenItem::FillInput() noexcept {
    if (!m_input.empty() || m_oData.nCompressedSize == 0)
        return EReaderStatus::Ok;
    const auto nBytes =
        static_cast<std::uint32_t>(std::min<std::size_t>(kInputBytes, m_oData.nCompressedSize));
    const auto input = std::span(m_aInput).first(nBytes);
    if (!m_oSource.Read(m_oData.nPosition, input))
        return EReaderStatus::ReadError;
    m_oData.nPosition += nBytes;
    m_oData.nCompressedSize -= nBytes;
    if (m_oData.bEncrypted)
        m_oCipher.Decrypt(input);
    m_input = input;
    return EReaderStatus::Ok;
}

EReaderStatus COpenItem::SkipEncryptionHeader() noexcept {
    if (m_nHeaderLeft == 0)
        return EReaderStatus::Ok;
    // The input buffer is larger than the header, so all of it is in the first filling or nowhere.
    if (m_input.size() < m_nHeaderLeft)
        return EReaderStatus::BadArchive;
    const std::uint8_t nLast = m_input[m_nHeaderLeft - 1];
    m_input = m_input.subspan(m_nHeaderLeft);
    m_nHeaderLeft = 0;
    return nLast == m_oData.nCheckByte ? EReaderStatus::Ok : EReaderStatus::WrongPassword;
}

// Without input, too: inflate may still hold output for which the last buffer had no room. If it does not, it
// says that it cannot go on, which is the failure of a stream that was cut.
EReaderStatus COpenItem::Inflate(std::span<std::uint8_t>& output) noexcept {
    // Not written through; the library's declaration is older than const.
    m_oStream.next_in = const_cast<Bytef*>(m_input.data());
    m_oStream.avail_in = static_cast<uInt>(m_input.size());
    m_oStream.next_out = output.data();
    m_oStream.avail_out = static_cast<uInt>(output.size());
    const int nResult = inflate(&m_oStream, Z_SYNC_FLUSH);
    m_input = m_input.last(m_oStream.avail_in);
    GiveOut(output, output.size() - m_oStream.avail_out);
    m_bStreamEnded = nResult == Z_STREAM_END;
    if (nResult == Z_OK || nResult == Z_STREAM_END)
        return EReaderStatus::Ok;
    return nResult == Z_MEM_ERROR ? EReaderStatus::OutOfMemory : EReaderStatus::BadArchive;
}

void COpenItem::CopyStored(std::span<std::uint8_t>& output) noexcept {
    const std::size_t nBytes = std::min(output.size(), m_input.size());
    std::memcpy(output.data(), m_input.data(), nBytes);
    m_input = m_input.subspan(nBytes);
    GiveOut(output, nBytes);
}

void COpenItem::GiveOut(std::span<std::uint8_t>& output, std::size_t nBytes) noexcept {
    m_nCrc = static_cast<std::uint32_t>(crc32_z(m_nCrc, output.data(), nBytes));
    m_nLeft -= static_cast<std::uint32_t>(nBytes);
    output = output.subspan(nBytes);
}

EReaderStatus COpenItem::Check() const noexcept {
    return m_nLeft == 0 && m_nCrc != m_oData.nCrc ? EReaderStatus::CrcMismatch : EReaderStatus::Ok;
}
