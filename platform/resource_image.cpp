#include "platform/resource_image.h"

#include <cstring>

namespace platform {

namespace {

// Places and values of the published format.
constexpr std::size_t kHeaderOffsetAt = 0x3C;
constexpr std::size_t kSignatureSize = 4;
constexpr std::size_t kFileHeaderSize = 20;
constexpr std::uint16_t kMagic32 = 0x10B;
constexpr std::uint16_t kMagic64 = 0x20B;
// From the optional header's begin: the count of data directories. The table of them stands behind it.
constexpr std::size_t kDirectoryCountAt32 = 92;
constexpr std::size_t kDirectoryCountAt64 = 108;
constexpr std::uint32_t kResourceTable = 2;

struct DataDirectory {
    std::uint32_t address;
    std::uint32_t size;
};

// A record at any place, aligned or not; nothing when it is not wholly there.
template <class Record>
std::optional<Record> Read(std::span<const std::uint8_t> bytes, std::size_t at) noexcept {
    if (at > bytes.size() || bytes.size() - at < sizeof(Record))
        return std::nullopt;
    Record record;
    std::memcpy(&record, bytes.data() + at, sizeof record);
    return record;
}

DataDirectory FindResourceTable(std::span<const std::uint8_t> image) noexcept {
    constexpr DataDirectory kNone{0, 0};
    const auto header = Read<std::uint32_t>(image, kHeaderOffsetAt);
    if (!header || Read<std::uint32_t>(image, *header) != 0x00004550) // "PE" and two zeros
        return kNone;
    // 64 bits hold any sum of these.
    const std::size_t optional = std::size_t{*header} + kSignatureSize + kFileHeaderSize;
    const auto magic = Read<std::uint16_t>(image, optional);
    if (magic != kMagic32 && magic != kMagic64)
        return kNone;
    const std::size_t countAt = optional + (magic == kMagic64 ? kDirectoryCountAt64 : kDirectoryCountAt32);
    const auto count = Read<std::uint32_t>(image, countAt);
    if (!count || *count <= kResourceTable)
        return kNone;
    return Read<DataDirectory>(image, countAt + sizeof *count + kResourceTable * sizeof(DataDirectory))
        .value_or(kNone);
}

} // namespace

ResourceImage::ResourceImage(std::span<const std::uint8_t> image) noexcept : m_image(image) {
    if (image.size() < 2 || image[0] != 'M' || image[1] != 'Z')
        return;
    m_state = State::NoResources;
    const auto [address, size] = FindResourceTable(image);
    if (address == 0 || size == 0 || address > image.size() || size > image.size() - address)
        return;
    m_root = address;
    m_resources = image.subspan(address, size);
    m_state = State::Sound;
}

std::optional<std::uint32_t> ResourceImage::CountEntries(std::uint32_t directory) const noexcept {
    const auto head = Read<ResourceDirectory>(m_resources, directory);
    if (!head)
        return std::nullopt;
    const std::uint32_t count = std::uint32_t{head->namedEntries} + head->numberedEntries;
    const std::size_t room = m_resources.size() - directory - sizeof *head;
    if (room / sizeof(ResourceDirectoryEntry) < count)
        return std::nullopt;
    return count;
}

ResourceDirectoryEntry ResourceImage::Entry(std::uint32_t directory, std::uint32_t index) const noexcept {
    const std::size_t at =
        directory + sizeof(ResourceDirectory) + std::size_t{index} * sizeof(ResourceDirectoryEntry);
    return Read<ResourceDirectoryEntry>(m_resources, at).value_or(ResourceDirectoryEntry{});
}

std::optional<std::u16string> ResourceImage::Text(const ResourceDirectoryEntry& entry) const {
    const std::size_t at = entry.name & ~ResourceDirectoryEntry::kHighBit;
    const auto count = Read<std::uint16_t>(m_resources, at);
    if (!count || (m_resources.size() - at - sizeof *count) / sizeof(char16_t) < *count)
        return std::nullopt;
    std::u16string text(*count, u'\0');
    std::memcpy(text.data(), m_resources.data() + at + sizeof *count, text.size() * sizeof(char16_t));
    return text;
}

std::span<const std::uint8_t> ResourceImage::DataEntry(std::uint32_t offset) const noexcept {
    if (offset > m_resources.size() || m_resources.size() - offset < sizeof(ResourceDataEntry))
        return {};
    return m_resources.subspan(offset, sizeof(ResourceDataEntry));
}

std::optional<std::span<const std::uint8_t>>
ResourceImage::Data(const ResourceDataEntry& entry) const noexcept {
    if (entry.data > m_image.size() || entry.size > m_image.size() - entry.data)
        return std::nullopt;
    return m_image.subspan(entry.data, entry.size);
}

} // namespace platform
