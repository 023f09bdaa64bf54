#include "Common/Configuration/XmlConfigSDK/ItemFinder.h"

#include "Common/Configuration/XmlConfigSDK/XmlCollection.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"

namespace XmlConfig {

using platform::Bstr;
using platform::ComPtr;

namespace {

// What two elements have in common that Compare finds alike: names and values, down to the last child.
// Attributes are left out, since those of one side may not count.
HRESULT Describe(IConfigElement* pElement, std::u16string& text) {
    Bstr bstrName;
    Bstr bstrValue;
    HRESULT hr = GetNameAndValue(pElement, bstrName, bstrValue);
    if (FAILED(hr))
        return hr;
    text.append(bstrName.View()).append(1, u'\1').append(bstrValue.View()).append(1, u'\2');
    hr = ForEachElement(pElement, u"*",
                        [&](const ComPtr<IConfigElement>& spChild) { return Describe(spChild.Get(), text); });
    text.append(1, u'\3');
    return hr;
}

} // namespace

CItemFinder::CItemFinder(IConfigElement* pCollection, const Bstr& bstrKeyPath) : m_bstrKeyPath(bstrKeyPath) {
    m_hrIndex = ForEachElement(pCollection, u"item", [&](const ComPtr<IConfigElement>& spItem) -> HRESULT {
        const std::size_t nItem = m_aItems.size();
        m_aItems.push_back(spItem);
        const auto enter = [&](const std::u16string& text) {
            std::vector<std::size_t>& aItems = m_oBuckets[text].aItems;
            if (aItems.empty() || aItems.back() != nItem)
                aItems.push_back(nItem);
        };
        if (m_bstrKeyPath.IsNull()) {
            std::u16string text;
            const HRESULT hrItem = Describe(spItem.Get(), text);
            enter(text);
            return hrItem;
        }
        // Any of the nodes that the path leads to may hold the key.
        return ForEachNode(spItem.Get(), m_bstrKeyPath.Get(), [&](const ComPtr<IConfigNode>& spNode) {
            Bstr bstrValue;
            const HRESULT hrNode = spNode->GetValue(bstrValue.Receive());
            enter(std::u16string(bstrValue.View()));
            return hrNode;
        });
    });
}

HRESULT CItemFinder::Find(IConfigElement* pStored, ComPtr<IConfigElement>& spFound) {
    spFound = nullptr;
    Bstr bstrKey;
    if (!m_bstrKeyPath.IsNull()) {
        const HRESULT hr = GetValueOfPath(pStored, m_bstrKeyPath.Get(), bstrKey);
        if (FAILED(hr))
            return hr;
    }
    if (FAILED(m_hrIndex))
        return m_hrIndex == E_INVALIDARG ? S_OK : m_hrIndex;
    if (m_bstrKeyPath.IsNull())
        return FindLike(pStored, spFound);
    FindByKey(bstrKey, spFound);
    return S_OK;
}

CItemFinder::SBucket* CItemFinder::BucketOf(const std::u16string& text) {
    const auto it = m_oBuckets.find(text);
    if (it == m_oBuckets.end())
        return nullptr;
    SBucket& oBucket = it->second;
    while (oBucket.nNext < oBucket.aItems.size() && !m_aItems[oBucket.aItems[oBucket.nNext]])
        ++oBucket.nNext;
    return &oBucket;
}

void CItemFinder::FindByKey(const Bstr& bstrKey, ComPtr<IConfigElement>& spFound) {
    SBucket* const pBucket = BucketOf(std::u16string(bstrKey.View()));
    if (pBucket != nullptr && pBucket->nNext < pBucket->aItems.size())
        spFound = std::exchange(m_aItems[pBucket->aItems[pBucket->nNext]], nullptr);
}

HRESULT CItemFinder::FindLike(IConfigElement* pStored, ComPtr<IConfigElement>& spFound) {
    std::u16string text;
    HRESULT hr = Describe(pStored, text);
    SBucket* const pBucket = SUCCEEDED(hr) ? BucketOf(text) : nullptr;
    if (pBucket == nullptr)
        return FAILED(hr) ? hr : S_OK;
    for (std::size_t n = pBucket->nNext; n < pBucket->aItems.size(); ++n) {
        ComPtr<IConfigElement>& spItem = m_aItems[pBucket->aItems[n]];
        hr = spItem ? Compare(pStored, spItem.Get(), true) : S_FALSE;
        if (FAILED(hr))
            return hr;
        if (hr == S_OK) {
            spFound = std::exchange(spItem, nullptr);
            return S_OK;
        }
    }
    return S_OK;
}

std::vector<ComPtr<IConfigElement>> CItemFinder::TakeLeft() {
    std::vector<ComPtr<IConfigElement>> aLeft = std::move(m_aItems);
    std::erase(aLeft, nullptr);
    return aLeft;
}

} // namespace XmlConfig
