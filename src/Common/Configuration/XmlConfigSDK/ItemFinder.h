// Finds the item of a document that belongs to one of the objects.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/com.h"
#include "platform/configdoc/configdoc.h"
#include "platform/text.h"

namespace XmlConfig {

// Over the items of one element, each of which is found once. An index stands in for a search through all
// items for each of them: a thousand cameras would otherwise cost a million comparisons.
class CItemFinder {
public:
    // With a key path items are found by key, and without one (null) by being like the item asked for.
    CItemFinder(IConfigElement* pCollection, const platform::Bstr& bstrKeyPath);

    // The first item that belongs to pStored, or null: also for a key path that cannot be evaluated.
    HRESULT Find(IConfigElement* pStored, platform::ComPtr<IConfigElement>& spFound);
    // The items that were not found, in document order.
    [[nodiscard]] std::vector<platform::ComPtr<IConfigElement>> TakeLeft();

private:
    // Items with a text in common, in document order; those in front of nNext are gone.
    struct SBucket {
        std::vector<std::size_t> aItems;
        std::size_t nNext = 0;
    };

    void FindByKey(const platform::Bstr& bstrKey, platform::ComPtr<IConfigElement>& spFound);
    HRESULT FindLike(IConfigElement* pStored, platform::ComPtr<IConfigElement>& spFound);
    [[nodiscard]] SBucket* BucketOf(const std::u16string& text);

    platform::Bstr m_bstrKeyPath;
    std::vector<platform::ComPtr<IConfigElement>> m_aItems; // null once it was found
    std::unordered_map<std::u16string, SBucket> m_oBuckets;
    HRESULT m_hrIndex = S_OK; // of making the index
};

} // namespace XmlConfig
