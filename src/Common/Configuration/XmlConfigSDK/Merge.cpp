// Folding one element tree into another.

#include <optional>
#include <string>

#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "platform/configdoc/elements.h"
#include "runtime/trace/Trace.h"

namespace XmlConfig {

using platform::Bstr;
using platform::ComPtr;

namespace {

// An attribute's text; nothing when the element has none of that name.
std::optional<Bstr> AttributeOf(IConfigElement* pElement, const char16_t* szName) {
    Bstr bstrValue;
    return pElement->ReadAttribute(szName, bstrValue.Receive()) == S_OK ? std::optional(std::move(bstrValue))
                                                                        : std::nullopt;
}

HRESULT MergeValue(IConfigElement* pLeft, IConfigElement* pRight, std::uint32_t nMode) {
    Bstr bstrLeft;
    Bstr bstrRight;
    HRESULT hr = pLeft->GetValue(bstrLeft.Receive());
    if (SUCCEEDED(hr))
        hr = pRight->GetValue(bstrRight.Receive());
    if (FAILED(hr) || bstrLeft == bstrRight)
        return hr;
    if (nMode == CXmlConfig::eConflict)
        return SetAttributeValue(pLeft, u"conflict", Bstr(u"true"));
    // The two differ, so that they are not both empty, and neither is the joined value.
    if (nMode == CXmlConfig::eJoin)
        bstrRight = Bstr(std::u16string(bstrLeft.View()).append(bstrRight.View()));
    return pLeft->SetValue(bstrRight.Get());
}

// The attributes that name the key of left's and right's children. Left's is null when its children have
// none.
struct SKeys {
    Bstr bstrLeft;
    Bstr bstrRight;
};

// What selects a child's counterpart among the children of right. A child without a key value has an empty
// one.
HRESULT SelectorOf(IConfigElement* pChild, const SKeys& oKeys, Bstr& bstrSelector) {
    Bstr bstrName;
    const HRESULT hr = pChild->GetName(bstrName.Receive());
    if (FAILED(hr))
        return hr;
    std::u16string selector(bstrName.View());
    if (!oKeys.bstrLeft.IsNull()) {
        Bstr bstrKey;
        (void)GetValueOfPath(pChild, oKeys.bstrLeft.Get(), bstrKey);
        selector.append(u"[").append(oKeys.bstrRight.View()).append(u"='");
        selector.append(EscapeXml(bstrKey).View()).append(u"']");
    }
    bstrSelector = Bstr(selector);
    return S_OK;
}

// Merges each child of left with its counterpart, which leaves right: none is used twice.
HRESULT MergeChildren(IConfigElement* pLeft, IConfigElement* pRight, const SKeys& oKeys,
                      std::uint32_t nMode) {
    return ForEachElement(pLeft, u"*", [&](const ComPtr<IConfigElement>& spChild) -> HRESULT {
        Bstr bstrSelector;
        HRESULT hr = SelectorOf(spChild.Get(), oKeys, bstrSelector);
        if (FAILED(hr))
            return hr;
        ComPtr<IConfigNode> spFound;
        if (FAILED(pRight->SelectOne(bstrSelector.Get(), spFound.Receive())))
            return S_OK;
        const auto spCounterpart = spFound.Query<IConfigElement>();
        if (!spCounterpart)
            return E_NOINTERFACE;
        hr = CXmlConfig::Merge(spChild.Get(), spCounterpart.Get(), nMode);
        return SUCCEEDED(hr) ? spCounterpart->Remove() : hr;
    });
}

} // namespace

HRESULT CXmlConfig::Merge(IConfigElement* pLeft, IConfigElement* pRight, std::uint32_t nMode) {
    if (pLeft == nullptr || pRight == nullptr)
        return E_POINTER;
    if (AttributeOf(pLeft, u"readonly") == Bstr(u"true"))
        return S_FALSE;
    const std::optional<Bstr> szLeftType = AttributeOf(pLeft, u"type");
    const std::optional<Bstr> szRightType = AttributeOf(pRight, u"type");
    TRASSDO(szLeftType==szRightType || !szLeftType || !szRightType, return E_INVALIDARG);
    // Only matching takes children out of right, so that only matching needs a copy to take them from.
    ComPtr<IConfigElement> spRight(pRight);
    HRESULT hr = nMode == eAppend ? S_OK : pRight->Clone(spRight.Receive());
    if (SUCCEEDED(hr))
        hr = platform::CopyAttributes(pLeft, spRight.Get());
    if (SUCCEEDED(hr))
        hr = MergeValue(pLeft, spRight.Get(), nMode);
    if (FAILED(hr))
        return hr;

    if (nMode != eAppend) {
        SKeys oKeys;
        (void)pLeft->GetValueOf(u"@KeyXPath", oKeys.bstrLeft.Receive()); // null without one
        if (oKeys.bstrLeft.Length() == 0) {
            oKeys.bstrLeft = nullptr;
        } else {
            const std::optional<Bstr> szKeyXPathRight = AttributeOf(spRight.Get(), u"KeyXPath");
            TRASSDO(szKeyXPathRight, return E_NOTIMPL);
            oKeys.bstrRight = szKeyXPathRight->Length() != 0 ? *szKeyXPathRight : oKeys.bstrLeft;
        }
        hr = MergeChildren(pLeft, spRight.Get(), oKeys, nMode);
        if (FAILED(hr) || nMode == eUpdate)
            return FAILED(hr) ? hr : S_OK;
    }
    return platform::CopyChildren(pLeft, spRight.Get());
}

} // namespace XmlConfig
