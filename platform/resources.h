// The resources that a module carries: texts, documents and archives, found by type, name and language.
//
// A module is an image in memory in the portable executable layout, as a loader would have mapped it; its
// handle is the address of its first byte, and resource_image.h tells of its inside. A component's own image
// is an instance from the moment that its library is mapped. Every offset of an image is checked before it is
// followed, so a damaged one has fewer resources and does no harm.
//
// Any thread may look up at any time. Bytes that are handed out belong to the image and stay as long as it
// does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "platform/export.h"
#include "platform/status.h"
#include "platform/text.h"

namespace platform {

using ModuleHandle = const std::uint8_t*;

// A type or a name of resources: a number of 16 bits, or a text, which is compared exactly and by code units.
// A text is not copied.
class ResourceKey {
public:
    constexpr ResourceKey(std::uint16_t number) noexcept : m_number(number) {}
    constexpr ResourceKey(const char16_t* text) noexcept : m_text(text), m_isText(true) {}
    constexpr ResourceKey(std::u16string_view text) noexcept : m_text(text), m_isText(true) {}

    [[nodiscard]] constexpr bool IsText() const noexcept { return m_isText; }
    [[nodiscard]] constexpr std::uint16_t Number() const noexcept { return m_number; }
    [[nodiscard]] constexpr std::u16string_view Text() const noexcept { return m_text; }
    friend constexpr bool operator==(const ResourceKey&, const ResourceKey&) noexcept = default;

private:
    std::u16string_view m_text;
    std::uint16_t m_number = 0;
    bool m_isText = false;
};

// Types with a meaning of their own.
inline constexpr std::uint16_t kResourceTypeString = 6;
inline constexpr std::uint16_t kResourceTypeVersion = 16;
inline constexpr std::uint16_t kResourceTypeManifest = 24;

// Language identifiers: ten bits of the language, and above them six of its region. 0 is neutral.
inline constexpr std::uint16_t kLanguageNeutral = 0;
inline constexpr std::uint16_t kLanguageEnglish = 1033;

struct Resource {
    std::span<const std::uint8_t> bytes;
    std::uint32_t codePage = 0;
    std::uint16_t language = kLanguageNeutral; // of the directory entry that led here
    [[nodiscard]] std::string_view Text() const noexcept {
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }
};

// The variant of `language`, or else the neutral one, or else that of kLanguageEnglish, or else the first.
// Nothing, with the last error set, when the image has no such resource.
MORROW_PLATFORM_API std::optional<Resource> FindResource(ModuleHandle module, ResourceKey type,
                                                         ResourceKey name,
                                                         std::uint16_t language = kLanguageNeutral);
// The languages of a resource in the first instance that has it, in the order of the directory.
MORROW_PLATFORM_API std::vector<std::uint16_t> ResourceLanguages(ResourceKey type, ResourceKey name);

// A string of the first instance that has it. String tables stand in blocks of sixteen: identifier / 16 + 1
// is the block's name, and within it each string has its count of units in front. Null, with the last error
// set, when no instance has the string; a string of no units counts as one that is not there.
MORROW_PLATFORM_API Bstr LoadResourceString(std::uint16_t identifier,
                                            std::uint16_t language = kLanguageNeutral);

// The instances, first to last. An image is added at the end; it belongs to the caller and must stay in its
// place until it is removed and no lookup runs. E_INVALIDARG for an empty one or one that is there already.
// Its content is not looked at before a lookup.
MORROW_PLATFORM_API HRESULT AddResourceInstance(std::span<const std::uint8_t> image);
MORROW_PLATFORM_API bool RemoveResourceInstance(ModuleHandle module) noexcept;
MORROW_PLATFORM_API std::vector<ModuleHandle> ResourceInstances();
// The bytes of an instance; empty for a handle that is none.
MORROW_PLATFORM_API std::span<const std::uint8_t> ModuleBytes(ModuleHandle module) noexcept;

// Makes memory readable and writable for the life of the object, then restores the protection that its pages
// had. The pages of a file are mapped privately, so what is written into them is seen by this process alone.
// Only one thread at a time for each page.
class MORROW_PLATFORM_API WritableMemory {
public:
    explicit WritableMemory(std::span<const std::uint8_t> bytes) noexcept;
    WritableMemory(const WritableMemory&) = delete;
    WritableMemory& operator=(const WritableMemory&) = delete;
    ~WritableMemory();

    // The bytes to write into; empty, with the last error set at creation, when the pages cannot be made
    // writable.
    [[nodiscard]] std::span<std::uint8_t> Bytes() const noexcept { return m_bytes; }

private:
    std::span<std::uint8_t> m_bytes;
    void* m_page = nullptr;
    std::size_t m_length = 0;
    int m_protection = 0; // before, in the system's bits
};

} // namespace platform
