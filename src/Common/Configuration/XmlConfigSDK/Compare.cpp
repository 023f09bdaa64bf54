// Compares two elements.

#include "Common/Configuration/XmlConfigSDK/XmlCollection.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"

namespace XmlConfig {

using platform::Bstr;
using platform::ComPtr;

namespace {

// Compares what `get` gives for both elements.
template <class Get>
HRESULT CompareTexts(IConfigElement* pA, IConfigElement* pB, Get get) {
    Bstr bstrA;
    Bstr bstrB;
    HRESULT hr = get(pA, bstrA.Receive());
    if (SUCCEEDED(hr))
        hr = get(pB, bstrB.Receive());
    if (FAILED(hr))
        return hr;
    return bstrA == bstrB ? S_OK : S_FALSE;
}

HRESULT CompareAttributes(IConfigElement* pA, IConfigElement* pB) {
    bool bEqual = true;
    const HRESULT hr = ForEachNode(pA, u"@*", [&](const ComPtr<IConfigNode>& spNode) -> HRESULT {
        Bstr bstrName;
        Bstr bstrA;
        Bstr bstrB;
        HRESULT hrNode = GetNameAndValue(spNode.Get(), bstrName, bstrA);
        if (SUCCEEDED(hrNode))
            hrNode = pB->ReadAttribute(bstrName.Get(), bstrB.Receive());
        bEqual = bEqual && hrNode == S_OK && bstrA == bstrB;
        return hrNode;
    });
    if (FAILED(hr))
        return hr;
    return bEqual ? S_OK : S_FALSE;
}

HRESULT CompareChildren(IConfigElement* pA, IConfigElement* pB) {
    ComPtr<IConfigEnum> spChildrenA;
    ComPtr<IConfigEnum> spChildrenB;
    HRESULT hr = pA->SelectNodes(u"*", spChildrenA.Receive());
    if (SUCCEEDED(hr))
        hr = pB->SelectNodes(u"*", spChildrenB.Receive());
    while (hr == S_OK) {
        ComPtr<IConfigNode> spA;
        ComPtr<IConfigNode> spB;
        const bool bA = spChildrenA->Next(1, spA.Receive(), nullptr) == S_OK;
        const bool bB = spChildrenB->Next(1, spB.Receive(), nullptr) == S_OK;
        if (!bA || !bB)
            return bA == bB ? S_OK : S_FALSE;
        const auto spChildA = spA.Query<IConfigElement>();
        const auto spChildB = spB.Query<IConfigElement>();
        hr = spChildA && spChildB ? Compare(spChildA.Get(), spChildB.Get(), true) : E_NOINTERFACE;
    }
    return hr;
}

} // namespace

HRESULT Compare(IConfigElement* pA, IConfigElement* pB, bool bDeep) {
    if (pA == nullptr || pB == nullptr)
        return E_POINTER;
    HRESULT hr = CompareTexts(pA, pB, [](IConfigElement* p, BSTR* pText) { return p->GetXml(pText); });
    if (hr != S_FALSE)
        return hr;
    hr = CompareTexts(pA, pB, [](IConfigElement* p, BSTR* pText) { return p->GetName(pText); });
    if (hr == S_OK)
        hr = CompareTexts(pA, pB, [](IConfigElement* p, BSTR* pText) { return p->GetValue(pText); });
    if (hr == S_OK)
        hr = CompareAttributes(pA, pB);
    return hr == S_OK && bDeep ? CompareChildren(pA, pB) : hr;
}

} // namespace XmlConfig
