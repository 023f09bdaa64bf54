#include "Common/Utils/LocalizeEx.h"

#include <atomic>
#include <cstring>
#include <optional>

#include "platform/modules.h"
#include "platform/registry.h"
#include "platform/resources.h"
#include "platform/text.h"
#include "runtime/trace/Trace.h"

// The build puts the module's image between these, on pages of its own. The system maps them read-only and
// private. They are no constants to the compiler, since the localisation changes entries of them.
extern "C" {
extern std::uint8_t morrow_resource_image[] __attribute__((visibility("hidden")));
extern std::uint8_t morrow_resource_image_end[] __attribute__((visibility("hidden")));
}

namespace {

class CModuleInstance {
public:
    CModuleInstance() {
        // Cannot fail but for memory: the image is not empty, and nobody else has it.
        (void)platform::AddResourceInstance({morrow_resource_image, morrow_resource_image_end});
    }
    CModuleInstance(const CModuleInstance&) = delete;
    CModuleInstance& operator=(const CModuleInstance&) = delete;
    ~CModuleInstance() { (void)platform::RemoveResourceInstance(morrow_resource_image); }
};

// Before everything else of the module, whose entry point looks at the resources.
[[gnu::init_priority(200)]] const CModuleInstance g_oModuleInstance;

constexpr HRESULT kNoImage = platform::StatusFromError(platform::kErrorInvalidModuleType);
constexpr HRESULT kDamaged = platform::StatusFromError(platform::kErrorBadFormat);

constexpr std::size_t kFileNameLimit = 1024; // units of a module's file name in a report
constexpr unsigned kSublanguageShift = 10;

// Set once a module shows one language, and never again cleared.
std::atomic<bool> bModuleLocalized{false};

// The language once it was read; before that kNotRead, which no identifier is.
constexpr std::uint64_t kNotRead = ~std::uint64_t{0};
std::atomic<std::uint64_t> g_nConfiguredLanguage{kNotRead};

// Reads a value of four bytes, whatever its type says.
std::optional<std::uint32_t> ReadLanguageValue(const char16_t* szName) {
    std::array<std::uint8_t, sizeof(std::uint32_t)> aBytes{};
    if (!platform::QueryRegistryBytes(platform::RegistryRoot::LocalMachine, kLanguageKey, szName, aBytes))
        return std::nullopt;
    std::uint32_t nValue = 0;
    std::memcpy(&nValue, aBytes.data(), sizeof nValue);
    return nValue;
}

// Gives a level the identity of an entry. False for a name that is too long: such a resource stays as it was
// linked, since two of them that were cut to the same name would get each other's data.
bool ReadIdentity(const platform::ResourceDirectoryEntry& entry, std::u16string_view name,
                  SResourceLevel& level) {
    if (!entry.HasText()) {
        level.nNumber = static_cast<std::uint16_t>(entry.name);
        return true;
    }
    level.nFlags |= SResourceLevel::kNamed;
    if (name.size() >= SResourceLevel::kNameSize)
        return false;
    name.copy(level.szName.data(), name.size());
    return true;
}

CLocalizeEx::CResourceScanner::Name NameOf(const SResourceLevel& level) {
    if ((level.nFlags & SResourceLevel::kNamed) != 0)
        return std::u16string(level.szName.data());
    return level.nNumber;
}

} // namespace

// The link names this symbol, so that this file is part of every program that links the texts.
extern "C" __attribute__((visibility("hidden"))) const bool morrow_module_instance = true;

platform::ModuleHandle ThisModule() noexcept {
    return morrow_resource_image;
}

std::uint32_t GetConfiguredLanguage() {
    if (const std::uint64_t nCached = g_nConfiguredLanguage; nCached != kNotRead)
        return static_cast<std::uint32_t>(nCached);
    const auto nLang = ReadLanguageValue(u"lang");
    const auto nSublang = nLang ? ReadLanguageValue(u"sublang") : std::nullopt;
    if (!nSublang)
        return 0;
    const std::uint32_t nLanguage = *nSublang << kSublanguageShift | *nLang;
    g_nConfiguredLanguage = nLanguage;
    return nLanguage;
}

namespace resutils {

HRESULT CResourceScanner::Scan(platform::ModuleHandle hModule) {
    const platform::ResourceImage image(platform::ModuleBytes(hModule));
    if (image.GetState() == platform::ResourceImage::State::NoImage)
        return kNoImage;
    if (image.GetState() == platform::ResourceImage::State::NoResources)
        return E_ELEMENT_NOT_FOUND;
    m_nEntriesLeft = image.Bytes().size() / sizeof(platform::ResourceDirectoryEntry);
    ResourcePath path{};
    return ScanDirectory(image, 0, 0, path);
}

HRESULT CResourceScanner::ScanDirectory(const platform::ResourceImage& image, std::uint32_t nDirectory,
                                        std::uint32_t nLevel, ResourcePath& path) {
    // No linker makes directories below the language, or so many entries that directories must share them.
    // Following those could take for ever.
    const auto nCount = image.CountEntries(nDirectory);
    if (nLevel >= path.size() || !nCount || *nCount > m_nEntriesLeft)
        return kDamaged;
    m_nEntriesLeft -= *nCount;
    SResourceLevel& level = path[nLevel];
    level = {};
    for (std::uint32_t i = 0; i < *nCount; ++i) {
        const platform::ResourceDirectoryEntry entry = image.Entry(nDirectory, i);
        const auto name = entry.HasText() ? image.Text(entry) : std::u16string();
        if (!name)
            return kDamaged;
        level = {};
        if (!ReadIdentity(entry, *name, level))
            continue;
        if (entry.IsDirectory()) {
            level.nFlags |= SResourceLevel::kDirectory;
            // A damaged directory does not affect those beside it.
            (void)ScanDirectory(image, entry.offset & ~platform::ResourceDirectoryEntry::kHighBit, nLevel + 1,
                                path);
            continue;
        }
        const auto place = image.DataEntry(entry.offset);
        platform::ResourceDataEntry data{};
        if (!place.empty())
            std::memcpy(&data, place.data(), sizeof data);
        const auto bytes = image.Data(data);
        if (place.empty() || !bytes)
            return kDamaged;
        level.pData = bytes->data();
        level.nSize = data.size;
        const HRESULT hr = OnResource(path, place.data(), nLevel + 1);
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

} // namespace resutils

HRESULT CLocalizeEx::CResourceScanner::OnResource(const ResourcePath& path, const std::uint8_t* pDataEntry,
                                                  std::uint32_t nDepth) {
    // A resource that stands above the languages, or whose language has a name, is no variant.
    const auto& [type, name, language] = path;
    if (nDepth == path.size() && (language.nFlags & SResourceLevel::kNamed) == 0)
        m_oResources[{NameOf(type), NameOf(name)}].emplace(language.nNumber, pDataEntry);
    return S_OK;
}

void CLocalizeEx::CResourceScanner::DropSingleLanguage() {
    std::erase_if(m_oResources, [](const auto& resource) { return resource.second.size() < 2; });
}

bool CLocalizeEx::CResourceScanner::Apply(std::uint32_t nLanguage) {
    for (const auto& [identity, languages] : m_oResources) {
        const auto chosen = languages.find(nLanguage);
        if (chosen == languages.end())
            return false;
        for (const auto& [nOther, pEntry] : languages) {
            if (pEntry == chosen->second)
                continue;
            const platform::WritableMemory memory({pEntry, sizeof(platform::ResourceDataEntry)});
            if (memory.Bytes().empty())
                return false;
            // Entries of a damaged image may overlap.
            std::memmove(memory.Bytes().data(), chosen->second, sizeof(platform::ResourceDataEntry));
        }
    }
    return true;
}

bool CLocalizeEx::LocalizeModule(platform::ModuleHandle hModule) {
    const std::uint32_t nLanguage = GetConfiguredLanguage();
    if (nLanguage == 0)
        return false;
    if (bModuleLocalized) {
        const std::u16string fileName = platform::FromUtf8(platform::FileNameOfModule(hModule));
        LogPrintf(LOG_SITE(), kChannelError, u"module %s is already localized!\n",
                  std::u16string_view(fileName).substr(0, kFileNameLimit));
        return false;
    }
    CResourceScanner scanner;
    // What could not be walked is not localised: a module without resources has nothing to localise.
    (void)scanner.Scan(hModule);
    scanner.DropSingleLanguage();
    bModuleLocalized = scanner.Apply(nLanguage);
    TRASSDO(bModuleLocalized && "cannot localize the module!");
    return bModuleLocalized;
}
