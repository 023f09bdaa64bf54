#include "tools/rescomp/resources.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

#include "platform/resource_image.h"
#include "platform/text.h"
#include "tools/rescomp/input.h"

namespace rescomp {

namespace {

using platform::ResourceDataEntry;
using platform::ResourceDirectory;
using platform::ResourceDirectoryEntry;

constexpr std::uint32_t kPage = 4096;
constexpr std::uint32_t kRoot = kPage; // of the resources, behind the page of the headers
constexpr std::uint32_t kLargestImage = std::uint32_t{64} << 20;

void Align(std::string& bytes, std::size_t alignment) {
    bytes.resize((bytes.size() + alignment - 1) / alignment * alignment, '\0');
}

template <class Record>
std::uint32_t Append(std::string& bytes, const Record& record) {
    const auto at = static_cast<std::uint32_t>(bytes.size());
    bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
    return at;
}

template <class Record>
void Overwrite(std::string& bytes, std::size_t at, const Record& record) {
    std::memcpy(bytes.data() + at, &record, sizeof record);
}

// The headers in the published format; fields that say nothing here are zero.
struct [[gnu::packed]] Headers {
    char dosSignature[2] = {'M', 'Z'};
    std::uint8_t dosRest[58] = {};
    std::uint32_t headerOffset = 64;
    char signature[4] = {'P', 'E', 0, 0};

    std::uint16_t machine = 0x8664; // x86-64
    std::uint16_t sections = 1;
    std::uint32_t timeStamp = 0;
    std::uint32_t symbolTable = 0;
    std::uint32_t symbols = 0;
    std::uint16_t optionalSize = 240;
    std::uint16_t characteristics = 0x2022; // a library, executable, large addresses

    std::uint16_t magic = 0x20B; // 64 bits
    std::uint8_t linkerVersion[2] = {};
    std::uint32_t codeSize = 0;
    std::uint32_t dataSize = 0; // set
    std::uint32_t bssSize = 0;
    std::uint32_t entryPoint = 0;
    std::uint32_t codeBase = 0;
    std::uint64_t imageBase = 0x180000000;
    std::uint32_t sectionAlignment = kPage;
    std::uint32_t fileAlignment = kPage;
    std::uint16_t versions[6] = {6, 0, 0, 0, 6, 0}; // system, image, subsystem
    std::uint32_t reserved = 0;
    std::uint32_t imageSize = 0; // set
    std::uint32_t headersSize = kPage;
    std::uint32_t checkSum = 0;
    std::uint16_t subsystem = 2;
    std::uint16_t libraryCharacteristics = 0;
    std::uint64_t memorySizes[4] = {}; // stack and heap
    std::uint32_t loaderFlags = 0;
    std::uint32_t directoryCount = 16;
    std::uint32_t directories[16][2] = {}; // address, size; the third is the resources'

    char sectionName[8] = {'.', 'r', 's', 'r', 'c'};
    std::uint32_t virtualSize = 0; // set
    std::uint32_t virtualAddress = kRoot;
    std::uint32_t rawSize = 0; // set
    std::uint32_t rawOffset = kRoot;
    std::uint8_t relocations[12] = {};
    std::uint32_t sectionCharacteristics = 0x40000040; // initialised data, readable
};
static_assert(sizeof(Headers) == 64 + 4 + 20 + 240 + 40);

// The section of the resources: directories first, then data entries, texts and data.
class Section {
public:
    explicit Section(const std::vector<Resource>& resources) {
        for (const Resource& resource : resources)
            m_tree[resource.type][resource.name].push_back(&resource);
        WriteDirectory(m_tree, [&](const auto& names) {
            return WriteDirectory(names, [&](const auto& variants) { return WriteLanguages(variants); });
        });
        WriteDataEntries();
        WriteTexts();
        WriteData();
    }

    [[nodiscard]] const std::string& Bytes() const noexcept { return m_bytes; }

private:
    using Names = std::map<Key, std::vector<const Resource*>>;

    // A directory whose entries lead to what `writeChild` writes and gives the offset of.
    template <class Children, class WriteChild>
    std::uint32_t WriteDirectory(const Children& children, WriteChild writeChild) {
        const auto named = static_cast<std::uint16_t>(
            std::ranges::count_if(children, [](const auto& child) { return child.first.index() == 0; }));
        const std::uint32_t at = BeginDirectory(named, children.size() - named);
        std::uint32_t entryAt = at + static_cast<std::uint32_t>(sizeof(ResourceDirectory));
        for (const auto& [key, child] : children) {
            ResourceDirectoryEntry entry{0, 0};
            if (const auto* const number = std::get_if<std::uint16_t>(&key))
                entry.name = *number;
            else
                m_textPlaces[std::get<std::u16string>(key)].push_back(entryAt);
            entry.offset = writeChild(child) | ResourceDirectoryEntry::kHighBit;
            Overwrite(m_bytes, entryAt, entry);
            entryAt += static_cast<std::uint32_t>(sizeof entry);
        }
        return at;
    }

    std::uint32_t WriteLanguages(const std::vector<const Resource*>& variants) {
        const std::uint32_t at = BeginDirectory(0, variants.size());
        std::uint32_t entryAt = at + static_cast<std::uint32_t>(sizeof(ResourceDirectory));
        for (const Resource* const variant : variants) {
            Overwrite(m_bytes, entryAt, ResourceDirectoryEntry{variant->language, 0});
            m_leaves.push_back({variant, entryAt});
            entryAt += static_cast<std::uint32_t>(sizeof(ResourceDirectoryEntry));
        }
        return at;
    }

    std::uint32_t BeginDirectory(std::size_t named, std::size_t numbered) {
        const std::uint32_t at =
            Append(m_bytes, ResourceDirectory{0, 0, 0, 0, static_cast<std::uint16_t>(named),
                                              static_cast<std::uint16_t>(numbered)});
        m_bytes.resize(m_bytes.size() + (named + numbered) * sizeof(ResourceDirectoryEntry), '\0');
        return at;
    }

    void WriteDataEntries() {
        for (Leaf& leaf : m_leaves) {
            leaf.dataEntryAt = Append(m_bytes, ResourceDataEntry{});
            Overwrite(m_bytes, leaf.entryAt,
                      ResourceDirectoryEntry{leaf.variant->language, leaf.dataEntryAt});
        }
    }

    void WriteTexts() {
        for (const auto& [text, places] : m_textPlaces) {
            const std::uint32_t at = Append(m_bytes, static_cast<std::uint16_t>(text.size()));
            m_bytes.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
            for (const std::uint32_t place : places)
                Overwrite(m_bytes, place, at | ResourceDirectoryEntry::kHighBit);
        }
    }

    void WriteData() {
        for (const Leaf& leaf : m_leaves) {
            Align(m_bytes, 8);
            const std::string& data = leaf.variant->bytes;
            Overwrite(m_bytes, leaf.dataEntryAt,
                      ResourceDataEntry{static_cast<std::uint32_t>(kRoot + m_bytes.size()),
                                        static_cast<std::uint32_t>(data.size()), leaf.variant->codePage, 0});
            m_bytes += data;
        }
    }

    struct Leaf {
        const Resource* variant;
        std::uint32_t entryAt; // of the directory entry
        std::uint32_t dataEntryAt = 0;
    };

    std::map<Key, Names> m_tree;
    std::string m_bytes;
    std::vector<Leaf> m_leaves;
    std::map<std::u16string, std::vector<std::uint32_t>>
        m_textPlaces; // entries that have the text for a name
};

std::string TextOf(const Key& key) {
    const auto* const number = std::get_if<std::uint16_t>(&key);
    return number != nullptr ? std::to_string(*number) : platform::ToUtf8(std::get<std::u16string>(key));
}

} // namespace

std::string BuildImage(std::vector<Resource> resources) {
    const auto order = [](const Resource& r) { return std::tie(r.type, r.name, r.language); };
    std::ranges::stable_sort(resources, {}, order);
    const auto twice = std::ranges::adjacent_find(resources, {}, order);
    if (twice != resources.end())
        throw InputError("the resource " + TextOf(twice->type) + " " + TextOf(twice->name) +
                         " stands in the list twice for the language " + std::to_string(twice->language));
    std::size_t size = 0;
    for (const Resource& resource : resources)
        size += resource.bytes.size();
    if (size > kLargestImage)
        throw InputError("the resources are larger than an image may be, 64 MiB");

    const std::string section = Section(resources).Bytes();
    Headers headers;
    const auto sectionSize = static_cast<std::uint32_t>(section.size());
    const std::uint32_t pages = (sectionSize + kPage - 1) / kPage * kPage;
    headers.dataSize = pages;
    headers.imageSize = kRoot + pages;
    headers.directories[2][0] = kRoot;
    headers.directories[2][1] = sectionSize;
    headers.virtualSize = sectionSize;
    headers.rawSize = pages;
    std::string image;
    Append(image, headers);
    Align(image, kPage);
    image += section;
    Align(image, kPage);
    return image;
}

} // namespace rescomp
