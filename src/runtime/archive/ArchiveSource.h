// The bytes that an archive is read from: a block in memory, or a file.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/files.h"

// Positions are 32 bits wide, as in the format. Not to be shared between threads.
class CArchiveSource {
public:
    // The block stays its owner's and must outlive the source.
    explicit CArchiveSource(std::span<const std::uint8_t> block) noexcept : m_block(block) {}
    // The file stays its owner's and must outlive the source. The archive begins at the file's position.
    explicit CArchiveSource(const platform::File& oFile) noexcept;
    // Closes the file when it ends.
    explicit CArchiveSource(std::unique_ptr<platform::File> spFile) noexcept;

    [[nodiscard]] bool IsFile() const noexcept { return m_pFile != nullptr; }
    // True for memory, and for a file that tells its position.
    [[nodiscard]] bool CanSeek() const noexcept { return m_bCanSeek; }
    [[nodiscard]] bool OwnsFile() const noexcept { return m_spFile != nullptr; }
    // Set by a read of the file that failed, and never taken back.
    [[nodiscard]] bool HadError() const noexcept { return m_bHadError; }

    // What positions count from: the file's position at the start, until an archive was found and places in
    // it count from the file's first byte.
    [[nodiscard]] std::uint32_t InitialOffset() const noexcept { return m_nInitialOffset; }
    void ClearInitialOffset() noexcept { m_nInitialOffset = 0; }

    // Bytes from the initial offset to the end. 0 for what has no size, and for a file of 4 GiB and more, in
    // which a position could not be told.
    [[nodiscard]] std::uint32_t Size() const noexcept;

    // Fills `bytes` from `nPosition` on. False when not all of them could be had.
    [[nodiscard]] bool Read(std::uint64_t nPosition, std::span<std::uint8_t> bytes) noexcept;

private:
    std::span<const std::uint8_t> m_block;
    std::unique_ptr<platform::File> m_spFile;
    const platform::File* m_pFile = nullptr; // m_spFile, or the caller's
    std::uint32_t m_nInitialOffset = 0;
    bool m_bCanSeek = true;
    bool m_bHadError = false;
};
