#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"

#include <string>
#include <string_view>

#include "platform/files.h"
#include "runtime/trace/Trace.h"

namespace XmlConfig {

using platform::Bstr;
using platform::ComPtr;

HRESULT GetAttributeValue(IConfigElement* pConfigElement, const char16_t* szName, Bstr& bstrValue) {
    TRASSDO(pConfigElement, return E_POINTER);
    Bstr bstrRead;
    const HRESULT hr = pConfigElement->ReadAttribute(szName, bstrRead.Receive());
    if (hr == S_FALSE)
        return E_ELEMENT_NOT_FOUND;
    if (hr == S_OK)
        bstrValue = std::move(bstrRead);
    return hr;
}

HRESULT SetAttributeValue(IConfigElement* pConfigElement, const char16_t* szName, const Bstr& bstrValue) {
    return pConfigElement == nullptr ? E_POINTER : pConfigElement->WriteAttribute(szName, bstrValue.Get());
}

HRESULT GetValueOfPath(IConfigElement* pConfigElement, const char16_t* szPath, Bstr& bstrValue) {
    if (szPath != nullptr && *szPath == u'`') {
        bstrValue = Bstr(std::u16string_view(szPath + 1));
        return S_OK;
    }
    return pConfigElement == nullptr ? E_POINTER : pConfigElement->GetValueOf(szPath, bstrValue.Receive());
}

ComPtr<IConfigElement> SelectOrCreate(IConfigElement* pConfigElement, const char16_t* szPath, bool bCreate) {
    if (pConfigElement == nullptr)
        return nullptr;
    ComPtr<IConfigNode> spNode;
    (void)pConfigElement->SelectOne(szPath, spNode.Receive()); // a node came back or it did not
    if (spNode)
        return spNode.Query<IConfigElement>();
    return bCreate ? CreatePath(pConfigElement, szPath) : nullptr;
}

ComPtr<IConfigElement> CreatePath(IConfigElement* pConfigElement, const char16_t* szPath) {
    ComPtr<IConfigElement> spElement(pConfigElement);
    std::u16string_view path = szPath == nullptr ? std::u16string_view{} : std::u16string_view(szPath);
    for (std::size_t nCut = path.find(u'/'); nCut != std::u16string_view::npos; nCut = path.find(u'/')) {
        spElement = SelectOrCreate(spElement.Get(), std::u16string(path.substr(0, nCut)).c_str(), true);
        path.remove_prefix(nCut + 1);
    }
    if (!spElement)
        return nullptr;
    ComPtr<IConfigElement> spChild;
    (void)spElement->CreateChild(path.data(), spChild.Receive()); // null on failure
    return spChild;
}

HRESULT GetNameAndValue(IConfigNode* pNode, Bstr& bstrName, Bstr& bstrValue) {
    const HRESULT hr = pNode->GetName(bstrName.Receive());
    return SUCCEEDED(hr) ? pNode->GetValue(bstrValue.Receive()) : hr;
}

Bstr EscapeXml(const Bstr& bstrText) {
    if (bstrText.IsNull())
        return nullptr;
    std::u16string text;
    text.reserve(bstrText.Length());
    for (const char16_t c : bstrText.View()) {
        const auto entity = platform::EntityOf(c);
        text += entity.empty() ? std::u16string_view(&c, 1) : entity;
    }
    return Bstr(text);
}

CXmlConfig::CXmlConfig(const Bstr& bstrPath, const Bstr& bstrDefault) {
    const HRESULT hr = platform::CoCreateInstance(kConfigDocumentClass, nullptr, platform::kContextAll,
                                                  IConfigDocument::iid, m_spDocument.ReceiveVoid());
    if (SUCCEEDED(hr) && (!bstrPath.IsNull() || !bstrDefault.IsNull()))
        (void)Load(bstrPath, bstrDefault);
}

HRESULT CXmlConfig::Load(const Bstr& bstrPath, const Bstr& bstrDefault) {
    if (!m_spDocument)
        return E_UNEXPECTED;
    HRESULT hr = E_INVALIDARG;
    if (!bstrPath.IsNull()) {
        m_bstrPath = bstrPath;
        if (platform::FileSize(bstrPath.View()).value_or(0) != 0) {
            hr = m_spDocument->Load(m_bstrPath.Get(), 0);
            if (hr == S_OK)
                return UpdateRootElement();
        }
    }
    if (!bstrDefault.IsNull()) {
        hr = m_spDocument->LoadXml(bstrDefault.Get());
        if (hr != S_OK)
            hr = m_spDocument->LoadXml(Bstr(platform::FromUtf8(bstrDefault.Bytes())).Get());
    }
    return FAILED(hr) ? hr : UpdateRootElement();
}

HRESULT CXmlConfig::Save(const Bstr& bstrPath) {
    if (!m_spDocument)
        return E_UNEXPECTED;
    m_bstrPath = bstrPath;
    return m_spDocument->Save(bstrPath.Get(), 0);
}

HRESULT CXmlConfig::UpdateRootElement() {
    m_spRoot = nullptr;
    if (!m_spDocument)
        return E_UNEXPECTED;
    const HRESULT hr = m_spDocument->GetRootElement(m_spRoot.Receive());
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    return m_spRoot ? S_OK : E_FAIL;
}

Bstr CXmlConfig::GetXml() const {
    Bstr bstrXml;
    if (m_spDocument)
        (void)m_spDocument->GetXml(bstrXml.Receive()); // null on failure
    return bstrXml;
}

} // namespace XmlConfig
