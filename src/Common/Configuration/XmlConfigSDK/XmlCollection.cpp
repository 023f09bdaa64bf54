#include "Common/Configuration/XmlConfigSDK/XmlCollection.h"

#include <optional>

#include "Common/Configuration/XmlConfigSDK/ItemFinder.h"
#include "Common/Configuration/XmlConfigSDK/ThreadArg.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"
#include "platform/configdoc/elements.h"
#include "platform/threads.h"

namespace XmlConfig {

using platform::Bstr;
using platform::ComPtr;

namespace {

constexpr char16_t kItem[] = u"item";
constexpr char16_t kKey[] = u"key";

// The key path of the collection that an item stands in; null when it has none.
Bstr KeyPathOf(IConfigElement* pItem) {
    Bstr bstrKeyPath;
    (void)pItem->GetValueOf(u"../@KeyXPath", bstrKeyPath.Receive());
    return bstrKeyPath;
}

// A path to a key that leads out of its item would give all items one key, and cost a walk through the
// document for each of them.
bool LeadsOut(std::u16string_view keyPath) {
    return keyPath.starts_with(u'/') || keyPath.find(u"..") != std::u16string_view::npos;
}

HRESULT SaveItem(ICollection& oCollection, std::size_t nEntry, IConfigElement* pElement) {
    const Bstr bstrKeyPath = KeyPathOf(pElement);
    HRESULT hr = oCollection.Store(nEntry, pElement);
    if (FAILED(hr) || !bstrKeyPath.IsNull())
        return hr;
    const auto spKey = CreatePath(pElement, kKey);
    hr = SaveText(Bstr(oCollection.Key(nEntry)), spKey.Get());
    return SUCCEEDED(hr) ? SetAttributeValue(spKey.Get(), u"hidden", Bstr(u"true")) : hr;
}

HRESULT LoadKey(IConfigElement* pElement, Bstr& bstrKey) {
    const Bstr bstrKeyPath = KeyPathOf(pElement);
    if (bstrKeyPath.IsNull()) {
        const auto spKey = SelectOrCreate(pElement, kKey, false);
        return LoadText(bstrKey, spKey.Get());
    }
    ComPtr<IConfigNode> spNode;
    const HRESULT hr = pElement->SelectOne(bstrKeyPath.Get(), spNode.Receive());
    if (FAILED(hr))
        return hr;
    // A node that is no element, such as that of `Name/text()`, is a text by itself.
    const auto spElement = spNode.Query<IConfigElement>();
    return spElement ? LoadText(bstrKey, spElement.Get()) : spNode->GetValue(bstrKey.Receive());
}

// Reads the document's key only to find out whether the item is whole: an entry keeps its own, which is its
// place in the map.
HRESULT LoadItem(ICollection& oCollection, std::size_t nEntry, IConfigElement* pElement) {
    Bstr bstrKey;
    const HRESULT hr = LoadKey(pElement, bstrKey);
    return SUCCEEDED(hr) ? oCollection.Read(nEntry, pElement) : hr;
}

HRESULT LoadNewItem(ICollection& oCollection, IConfigElement* pElement) {
    Bstr bstrKey;
    const HRESULT hr = LoadKey(pElement, bstrKey);
    return SUCCEEDED(hr) ? oCollection.Add(bstrKey.View(), pElement) : hr;
}

// One load, with what its steps share.
class CLoad {
public:
    CLoad(ICollection& oCollection, IConfigElement* pElement)
        : m_oCollection(oCollection), m_pElement(pElement), m_oStored(nullptr, Bstr(kRootTemplate)) {}

    HRESULT Run() {
        if (m_oStored.Root() == nullptr)
            return E_UNEXPECTED;
        HRESULT hr = SaveCollection(m_oCollection, m_oStored.Root());
        if (FAILED(hr))
            return hr;
        const std::uint32_t nThread = platform::CurrentThreadId();
        m_pEvents = reinterpret_cast<CXmlConfigTree::ITagEvent*>(
            static_cast<std::uintptr_t>(CThreadArg::Lookup(CXmlConfigTree::kEventArg, nThread)));
        const auto nPolicy = CThreadArg::Lookup(CXmlConfigTree::kPolicyArg, nThread);
        // An attribute stable="true" was once meant to ask for this as well. It does not count: a document's
        // items would have to stand in the order of the map, which whoever edits it cannot know.
        if ((nPolicy & CXmlConfigTree::CPolicy::eInOrder) != 0)
            return UpdateInOrder();
        hr = CompareItems();
        if (FAILED(hr))
            return hr;
        for (auto it = m_aGone.rbegin(); it != m_aGone.rend(); ++it)
            m_oCollection.Erase(*it);
        return AddItems();
    }

private:
    // Reads the items of both again, pair by pair, where they differ.
    HRESULT UpdateInOrder() {
        const std::size_t nEntries = m_oCollection.Refresh();
        ComPtr<IConfigEnum> spNew;
        HRESULT hr = m_pElement->SelectNodes(kItem, spNew.Receive());
        std::size_t nEntry = 0;
        bool bEnd = false;
        if (SUCCEEDED(hr))
            hr = ForEachElement(
                m_oStored.Root(), kItem, [&](const ComPtr<IConfigElement>& spStored) -> HRESULT {
                    ComPtr<IConfigNode> spNode;
                    bEnd = bEnd || nEntry == nEntries || spNew->Next(1, spNode.Receive(), nullptr) != S_OK;
                    if (bEnd)
                        return S_OK;
                    const auto spItem = spNode.Query<IConfigElement>();
                    if (!spItem)
                        return E_NOINTERFACE;
                    const HRESULT hrPair = UpdateItem(nEntry, spStored.Get(), spItem.Get());
                    ++nEntry;
                    return hrPair;
                });
        return FAILED(hr) ? hr : S_OK;
    }

    HRESULT UpdateItem(std::size_t nEntry, IConfigElement* pStored, IConfigElement* pItem) {
        const HRESULT hr = Compare(pStored, pItem, true);
        return hr == S_FALSE ? LoadItem(m_oCollection, nEntry, pItem) : hr;
    }

    // Changes what is there, and notes what is not, and what is new.
    HRESULT CompareItems() {
        ComPtr<IConfigElement> spCopy; // a read may add to what it reads
        HRESULT hr = m_pElement->Clone(spCopy.Receive());
        if (FAILED(hr))
            return hr;
        Bstr bstrKeyPath;
        (void)GetAttributeValue(m_pElement, u"KeyXPath", bstrKeyPath); // null without one
        if (LeadsOut(bstrKeyPath.View()))
            return E_INVALIDARG;
        CItemFinder oFinder(spCopy.Get(), bstrKeyPath);
        m_oCollection.Refresh();
        std::size_t nCounter = 0;
        hr = ForEachElement(m_oStored.Root(), kItem, [&](const ComPtr<IConfigElement>& spStored) -> HRESULT {
            ComPtr<IConfigElement> spFound;
            HRESULT hrItem = oFinder.Find(spStored.Get(), spFound);
            if (SUCCEEDED(hrItem) && !spFound) {
                m_aGone.push_back(nCounter);
                Fire(CXmlConfigTree::ITagEvent::eRemoved, spStored.Get());
            } else if (SUCCEEDED(hrItem) && !bstrKeyPath.IsNull()) {
                hrItem = UpdateItem(nCounter, spStored.Get(), spFound.Get());
            }
            ++nCounter;
            return hrItem;
        });
        m_aNew = oFinder.TakeLeft();
        return hr;
    }

    HRESULT AddItems() {
        for (const ComPtr<IConfigElement>& spItem : m_aNew) {
            const HRESULT hr = LoadNewItem(m_oCollection, spItem.Get());
            if (FAILED(hr))
                return hr;
            Fire(CXmlConfigTree::ITagEvent::eCreated, spItem.Get());
        }
        return S_OK;
    }

    void Fire(std::uint32_t nCode, IConfigElement* pElement) {
        if (m_pEvents != nullptr && (m_pEvents->GetMask(nCode, pElement) & nCode) != 0)
            (void)m_pEvents->OnEvent(nCode, m_oCollection.Object(), pElement);
    }

    ICollection& m_oCollection;
    IConfigElement* const m_pElement;
    CXmlConfig m_oStored; // what the objects hold, in map order
    CXmlConfigTree::ITagEvent* m_pEvents = nullptr;
    std::vector<std::size_t> m_aGone;           // entries to erase, rising
    std::vector<ComPtr<IConfigElement>> m_aNew; // copies of the document's items that belong to no entry
};

} // namespace

HRESULT SaveCollection(ICollection& oCollection, IConfigElement* pElement) {
    const std::size_t nEntries = oCollection.Refresh();
    for (std::size_t n = 0; n < nEntries; ++n) {
        const auto spItem = CreatePath(pElement, kItem);
        const HRESULT hr = spItem ? SaveItem(oCollection, n, spItem.Get()) : E_FAIL;
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

HRESULT LoadCollection(ICollection& oCollection, IConfigElement* pElement) {
    return CLoad(oCollection, pElement).Run();
}

HRESULT Compare(IConfigElement* pA, IConfigElement* pB, bool bDeep) {
    return platform::CompareElements(pA, pB, bDeep);
}

} // namespace XmlConfig
