// The module's own image, and the language of its texts and files.
//
// A module carries its texts in all languages side by side, as variants of the same resources. Which of them
// a lookup finds would depend on who looks. Here the configured language is put in force for the whole
// process: for each resource that has several variants, every variant's directory entry is made to point at
// the data of that language.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <variant>

#include "platform/resource_image.h"
#include "platform/resources.h"
#include "platform/status.h"

// The handle of the component's own module, whose image carries its resources. The image is a resource
// instance from before main (or the library's load) to its end.
platform::ModuleHandle ThisModule() noexcept;

// The language that is configured, or 0: sublanguage * 1024 + language, from the registry values "sublang"
// and "lang" of kLanguageKey under the local machine. Kept from the first time that both are there, so a
// change takes effect in the next process. Any thread may call it.
std::uint32_t GetConfiguredLanguage();
inline constexpr char16_t kLanguageKey[] = uR"(SOFTWARE\Norvane\Tessaron)";

// What a walk knows of one level of the path to a resource: type, name and language, in this order.
struct SResourceLevel {
    static constexpr std::uint32_t kNamed = 1; // by a text, not by a number
    static constexpr std::uint32_t kDirectory = 2;
    static constexpr std::size_t kNameSize = 20; // units, with the zero at the end

    std::uint32_t nFlags = 0;
    std::uint16_t nNumber = 0;
    std::array<char16_t, kNameSize> szName{};
    const std::uint8_t* pData = nullptr; // the resource's bytes; set on a leaf
    std::uint32_t nSize = 0;             // of them; set on a leaf
};
using ResourcePath = std::array<SResourceLevel, 3>;

namespace resutils {

// Walks the resource directory of a module and calls for each resource. Offsets are checked before they are
// followed, and a walk takes no more steps than an image has room for entries, so a damaged one ends it
// early.
class CResourceScanner {
public:
    CResourceScanner() = default;
    CResourceScanner(const CResourceScanner&) = delete;
    CResourceScanner& operator=(const CResourceScanner&) = delete;

    // `pDataEntry` is the place of the 16 bytes that tell where the resource is; nDepth counts the levels
    // that lead to it. A negative status ends the directory.
    virtual HRESULT OnResource(const ResourcePath& path, const std::uint8_t* pDataEntry,
                               std::uint32_t nDepth) = 0;
    // The directory at an offset from the resources' root. 0x8007000B for one that is damaged.
    virtual HRESULT ScanDirectory(const platform::ResourceImage& image, std::uint32_t nDirectory,
                                  std::uint32_t nLevel, ResourcePath& path);

    // 0x80070072 for a module that is no image, 0x80070490 for one without resources, else the status of the
    // root directory. The module is an instance of platform/resources.h.
    HRESULT Scan(platform::ModuleHandle hModule);

protected:
    virtual ~CResourceScanner() = default;

private:
    std::size_t m_nEntriesLeft = 0;
};

} // namespace resutils

class CLocalizeEx {
public:
    class CResourceScanner;

    // Puts the configured language in force for a module: true if every resource with variants has that
    // language. False without one, and the module stays as it was linked. Called once, at the component's
    // load, before anything else looks at a resource; the second time is reported and changes nothing.
    static bool LocalizeModule(platform::ModuleHandle hModule);
};

// The variants of each resource of a module.
class CLocalizeEx::CResourceScanner final : public resutils::CResourceScanner {
public:
    ~CResourceScanner() override = default;

    HRESULT OnResource(const ResourcePath& path, const std::uint8_t* pDataEntry,
                       std::uint32_t nDepth) override;
    // Forgets the resources that have fewer than two languages.
    void DropSingleLanguage();
    // Makes every variant of every resource that of the language. False when a resource has none in that
    // language, or the memory cannot be changed; the resources before it, in the order of type and name, are
    // then changed.
    bool Apply(std::uint32_t nLanguage);

    using Name = std::variant<std::u16string, std::uint16_t>;
    using Identity = std::pair<Name, Name>;                         // type and name
    using Languages = std::map<std::uint32_t, const std::uint8_t*>; // places of data entries
    [[nodiscard]] const std::map<Identity, Languages>& Resources() const noexcept { return m_oResources; }

private:
    std::map<Identity, Languages> m_oResources;
};
