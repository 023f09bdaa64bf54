#include "platform/resources.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "platform/resource_image.h"

namespace platform {

namespace {

constexpr unsigned kStringsInBlock = 16;

class InstanceList {
public:
    using Image = std::span<const std::uint8_t>;

    // Never destroyed: a library that is unmapped late takes its image out of it.
    static InstanceList& Get() {
        static auto& list = *new InstanceList;
        return list;
    }

    HRESULT Add(Image image) {
        const std::lock_guard guard(m_mutex);
        if (image.empty() || Find(image.data()) != m_images.end())
            return E_INVALIDARG;
        m_images.push_back(image);
        return S_OK;
    }
    bool Remove(ModuleHandle module) {
        const std::lock_guard guard(m_mutex);
        return std::erase_if(m_images, [&](const Image& image) { return image.data() == module; }) > 0;
    }
    Image Bytes(ModuleHandle module) {
        const std::lock_guard guard(m_mutex);
        const auto found = Find(module);
        return found == m_images.end() ? Image{} : *found;
    }
    std::vector<Image> All() {
        const std::lock_guard guard(m_mutex);
        return m_images;
    }

private:
    std::vector<Image>::iterator Find(ModuleHandle module) {
        return std::ranges::find(m_images, module, &Image::data);
    }

    std::mutex m_mutex; // a leaf: nothing is called with it held
    std::vector<Image> m_images;
};

bool Matches(const ResourceImage& image, const ResourceDirectoryEntry& entry, const ResourceKey& key) {
    if (entry.HasText() != key.IsText())
        return false;
    if (!key.IsText())
        return (entry.name & 0xFFFF) == key.Number();
    return image.Text(entry) == key.Text();
}

// The directory that an entry of `directory` with this key leads to.
std::optional<std::uint32_t> Step(const ResourceImage& image, std::uint32_t directory,
                                  const ResourceKey& key) {
    const std::uint32_t count = image.CountEntries(directory).value_or(0);
    for (std::uint32_t i = 0; i < count; ++i) {
        const ResourceDirectoryEntry entry = image.Entry(directory, i);
        if (entry.IsDirectory() && Matches(image, entry, key))
            return entry.offset & ~ResourceDirectoryEntry::kHighBit;
    }
    return std::nullopt;
}

// The variants of a resource, in the order of the directory; those whose data is not within the image are
// left out.
std::vector<Resource> FindVariants(std::span<const std::uint8_t> bytes, const ResourceKey& type,
                                   const ResourceKey& name) {
    std::vector<Resource> variants;
    const ResourceImage image(bytes);
    if (image.GetState() != ResourceImage::State::Sound)
        return variants;
    const auto names = Step(image, 0, type);
    const auto languages = names ? Step(image, *names, name) : std::nullopt;
    const std::uint32_t count = languages ? image.CountEntries(*languages).value_or(0) : 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const ResourceDirectoryEntry entry = image.Entry(*languages, i);
        const auto place = image.DataEntry(entry.offset);
        if (entry.HasText() || entry.IsDirectory() || place.empty())
            continue;
        ResourceDataEntry data;
        std::memcpy(&data, place.data(), sizeof data);
        if (const auto content = image.Data(data))
            variants.push_back({*content, data.codePage, static_cast<std::uint16_t>(entry.name)});
    }
    return variants;
}

std::optional<Resource> Choose(const std::vector<Resource>& variants, std::uint16_t language) {
    for (const std::uint16_t wanted : {language, kLanguageNeutral, kLanguageEnglish}) {
        const auto found = std::ranges::find(variants, wanted, &Resource::language);
        if (found != variants.end())
            return *found;
    }
    return variants.empty() ? std::nullopt : std::optional(variants.front());
}

// The bytes of string `index` of a block, which need not be aligned; empty when the block ends before it.
std::span<const std::uint8_t> StringOfBlock(std::span<const std::uint8_t> block, unsigned index) {
    for (;; --index) {
        std::uint16_t units = 0;
        if (block.size() < sizeof units)
            return {};
        std::memcpy(&units, block.data(), sizeof units);
        block = block.subspan(sizeof units);
        if (block.size() / sizeof(char16_t) < units)
            return {};
        if (index == 0)
            return block.first(units * sizeof(char16_t));
        block = block.subspan(units * sizeof(char16_t));
    }
}

} // namespace

std::optional<Resource> FindResource(ModuleHandle module, ResourceKey type, ResourceKey name,
                                     std::uint16_t language) {
    const auto found = Choose(FindVariants(ModuleBytes(module), type, name), language);
    if (!found)
        SetLastError(kErrorResourceNotFound);
    return found;
}

std::vector<std::uint16_t> ResourceLanguages(ResourceKey type, ResourceKey name) {
    std::vector<std::uint16_t> languages;
    for (const auto image : InstanceList::Get().All()) {
        for (const Resource& variant : FindVariants(image, type, name))
            languages.push_back(variant.language);
        if (!languages.empty())
            break;
    }
    return languages;
}

Bstr LoadResourceString(std::uint16_t identifier, std::uint16_t language) {
    const auto block = static_cast<std::uint16_t>(identifier / kStringsInBlock + 1);
    for (const auto image : InstanceList::Get().All()) {
        const auto found = Choose(FindVariants(image, kResourceTypeString, block), language);
        const auto text = found ? StringOfBlock(found->bytes, identifier % kStringsInBlock)
                                : std::span<const std::uint8_t>{};
        if (!text.empty())
            return Bstr::FromBytes({reinterpret_cast<const char*>(text.data()), text.size()});
    }
    SetLastError(kErrorResourceNotFound);
    return {};
}

HRESULT AddResourceInstance(std::span<const std::uint8_t> image) {
    return InstanceList::Get().Add(image);
}

bool RemoveResourceInstance(ModuleHandle module) noexcept {
    return InstanceList::Get().Remove(module);
}

std::vector<ModuleHandle> ResourceInstances() {
    std::vector<ModuleHandle> modules;
    for (const auto image : InstanceList::Get().All())
        modules.push_back(image.data());
    return modules;
}

std::span<const std::uint8_t> ModuleBytes(ModuleHandle module) noexcept {
    return InstanceList::Get().Bytes(module);
}

} // namespace platform
