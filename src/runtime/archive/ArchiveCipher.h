// The traditional password scheme of the ZIP format (APPNOTE.TXT, 6.1). It keeps honest people out, no more.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <zlib.h>

class CArchiveCipher {
public:
    // In front of an encrypted item's data stand so many bytes, of which the last tells a wrong password.
    static constexpr std::uint32_t kHeaderBytes = 12;

    // An item without a password starts from the initial keys.
    explicit CArchiveCipher(std::string_view password = {}) noexcept {
        for (const char c : password)
            Update(static_cast<std::uint8_t>(c));
    }

    void Decrypt(std::span<std::uint8_t> bytes) noexcept {
        for (std::uint8_t& nByte : bytes) {
            const std::uint32_t nSeed = (m_aKeys[2] & 0xFFFF) | 2;
            nByte = static_cast<std::uint8_t>(nByte ^ (nSeed * (nSeed ^ 1)) >> 8);
            Update(nByte);
        }
    }

private:
    static std::uint32_t Crc(std::uint32_t nCrc, std::uint32_t nByte) noexcept {
        return static_cast<std::uint32_t>(get_crc_table()[(nCrc ^ nByte) & 0xFF]) ^ nCrc >> 8;
    }

    void Update(std::uint8_t nByte) noexcept {
        m_aKeys[0] = Crc(m_aKeys[0], nByte);
        m_aKeys[1] = (m_aKeys[1] + (m_aKeys[0] & 0xFF)) * 134775813U + 1;
        m_aKeys[2] = Crc(m_aKeys[2], m_aKeys[1] >> 24);
    }

    std::uint32_t m_aKeys[3] = {0x12345678, 0x23456789, 0x34567890};
};
