// The inside of a module's image: headers, and the resource directory of the published portable executable
// format.
//
// The directory has three levels: types, names, languages. A directory's entries lead to directories of the
// next level or to a data entry; those with a text for a name stand before those with a number. Offsets of
// directories, texts and data entries count from the root of the resources, those of data from the image's
// first byte. All numbers are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/export.h"

namespace platform {

struct ResourceDirectory {
    std::uint32_t characteristics;
    std::uint32_t timeStamp;
    std::uint16_t majorVersion;
    std::uint16_t minorVersion;
    std::uint16_t namedEntries;
    std::uint16_t numberedEntries;
};
static_assert(sizeof(ResourceDirectory) == 16);

struct ResourceDirectoryEntry {
    static constexpr std::uint32_t kHighBit = 0x80000000;

    std::uint32_t name;   // a number, or with the high bit the offset of a text: count of units, units
    std::uint32_t offset; // of a data entry, or with the high bit of a directory

    [[nodiscard]] bool HasText() const noexcept { return (name & kHighBit) != 0; }
    [[nodiscard]] bool IsDirectory() const noexcept { return (offset & kHighBit) != 0; }
};
static_assert(sizeof(ResourceDirectoryEntry) == 8);

struct ResourceDataEntry {
    std::uint32_t data; // from the image's first byte
    std::uint32_t size;
    std::uint32_t codePage;
    std::uint32_t reserved;
};
static_assert(sizeof(ResourceDataEntry) == 16);

// A reader of one image that checks each place before it is read. Does not own the bytes.
class MORROW_PLATFORM_API ResourceImage {
public:
    enum class State { Sound, NoImage, NoResources };

    explicit ResourceImage(std::span<const std::uint8_t> image) noexcept;

    // NoImage: it does not begin with "MZ". NoResources: its headers lead to no resources within it.
    [[nodiscard]] State GetState() const noexcept { return m_state; }
    [[nodiscard]] std::span<const std::uint8_t> Bytes() const noexcept { return m_image; }
    // The offset of the root directory from the image's first byte.
    [[nodiscard]] std::uint32_t Root() const noexcept { return m_root; }

    // A directory at an offset from the root: how many entries it has, all of them within the resources.
    [[nodiscard]] std::optional<std::uint32_t> CountEntries(std::uint32_t directory) const noexcept;
    // One of them; `index` is less than the count.
    [[nodiscard]] ResourceDirectoryEntry Entry(std::uint32_t directory, std::uint32_t index) const noexcept;
    [[nodiscard]] std::optional<std::u16string> Text(const ResourceDirectoryEntry& entry) const;
    // The place of a data entry at an offset from the root; empty when it is not within the resources.
    [[nodiscard]] std::span<const std::uint8_t> DataEntry(std::uint32_t offset) const noexcept;
    // What a data entry tells of; nothing when the data is not within the image.
    [[nodiscard]] std::optional<std::span<const std::uint8_t>>
    Data(const ResourceDataEntry& entry) const noexcept;

private:
    std::span<const std::uint8_t> m_image;
    std::span<const std::uint8_t> m_resources; // from the root on
    std::uint32_t m_root = 0;
    State m_state = State::NoImage;
};

} // namespace platform
