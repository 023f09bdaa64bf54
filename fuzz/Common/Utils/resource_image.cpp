// A module's image of any bytes: walked, localised, and searched. Whatever is found lies within it.

#include <vector>

#include "Common/Utils/LocalizeEx.h"
#include "fuzz/Fuzz.h"
#include "platform/resources.h"

namespace {

// Looks every resource of the walk up again, in each of its languages.
class Seeker final : public resutils::CResourceScanner {
public:
    explicit Seeker(std::span<const std::uint8_t> image) : m_image(image) {}

    HRESULT OnResource(const ResourcePath& path, const std::uint8_t* pDataEntry,
                       std::uint32_t nDepth) override {
        RequireWithin({pDataEntry, sizeof(platform::ResourceDataEntry)});
        RequireWithin({path[nDepth - 1].pData, path[nDepth - 1].nSize});
        // Lookups that find the same in another way; as many as an image of these sizes can sensibly have.
        if (nDepth == path.size() && ++m_count <= 64) {
            const auto found =
                platform::FindResource(m_image.data(), KeyOf(path[0]), KeyOf(path[1]), path[2].nNumber);
            if (found)
                RequireWithin(found->bytes);
        }
        return S_OK;
    }

private:
    static platform::ResourceKey KeyOf(const SResourceLevel& level) {
        if ((level.nFlags & SResourceLevel::kNamed) != 0)
            return level.szName.data();
        return level.nNumber;
    }
    void RequireWithin(std::span<const std::uint8_t> part) const {
        Require(part.data() >= m_image.data() &&
                part.data() + part.size() <= m_image.data() + m_image.size());
    }

    std::span<const std::uint8_t> m_image;
    unsigned m_count = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> bytes(data, data + size);
    if (platform::AddResourceInstance(bytes) != S_OK)
        return 0; // nothing is no image
    const platform::ModuleHandle module = bytes.data();
    Seeker seeker(bytes);
    const HRESULT scanned = seeker.Scan(module);

    CLocalizeEx::CResourceScanner scanner;
    Require(scanner.Scan(module) == scanned);
    scanner.DropSingleLanguage();
    for (const auto& [identity, languages] : scanner.Resources())
        Require(languages.size() > 1);
    // In the first resource's last language, so that something changes where anything can.
    if (!scanner.Resources().empty())
        (void)scanner.Apply(scanner.Resources().begin()->second.rbegin()->first);
    (void)Seeker(bytes).Scan(module);
    for (std::uint16_t identifier = 96; identifier < 130; ++identifier)
        (void)platform::LoadResourceString(identifier);
    Require(platform::RemoveResourceInstance(module));
    return 0;
}
