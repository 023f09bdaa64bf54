#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"

#include "Common/Configuration/XmlConfigSDK/ThreadArg.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "runtime/trace/StatusException.h"

using platform::Bstr;
using platform::ComPtr;

namespace XmlConfig {

namespace {

constexpr char16_t kTextType[] = u"BSTR";

} // namespace

HRESULT SaveText(const Bstr& bstrText, IConfigElement* pElement) {
    if (pElement == nullptr)
        AtlThrow(E_FAIL);
    const HRESULT hr = SetAttributeValue(pElement, u"type", Bstr(kTextType));
    return SUCCEEDED(hr) ? pElement->SetValue(bstrText.Get()) : hr;
}

HRESULT LoadText(Bstr& bstrText, IConfigElement* pElement) {
    if (pElement == nullptr)
        AtlThrow(E_FAIL);
    Bstr bstrRead;
    HRESULT hr = GetAttributeValue(pElement, u"type", bstrRead);
    if (FAILED(hr))
        return hr;
    if (bstrRead.View() != kTextType)
        return E_INVALIDARG;
    hr = pElement->GetValue(bstrRead.Receive());
    if (SUCCEEDED(hr))
        bstrText = bstrRead.IsNull() ? Bstr(u"") : std::move(bstrRead);
    return hr;
}

} // namespace XmlConfig

namespace {

bool HasAttribute(IConfigElement* pElement, const char16_t* szName) {
    Bstr bstrValue;
    return pElement->ReadAttribute(szName, bstrValue.Receive()) == S_OK;
}

void Fire(const CTag& oTag, std::uint32_t nCode, IConfigElement* pElement) {
    if (oTag.pEvents != nullptr && (oTag.pEvents->GetMask(nCode, pElement) & nCode) != 0)
        (void)oTag.pEvents->OnEvent(nCode, oTag.Object(), pElement);
}

void Exchange(const CTag& oTag, IConfigElement* pElement, bool bStore) {
    const CThreadArg oPolicy(CXmlConfigTree::kPolicyArg, oTag.nPolicy);
    const CThreadArg oEvents(CXmlConfigTree::kEventArg, reinterpret_cast<std::uintptr_t>(oTag.pEvents));
    if (!bStore)
        Fire(oTag, CXmlConfigTree::ITagEvent::eFound, pElement);
    // Drops the statuses: only what the objects hold afterwards tells of them.
    if (oTag.pText != nullptr)
        (void)(bStore ? XmlConfig::SaveText(*oTag.pText, pElement)
                      : XmlConfig::LoadText(*oTag.pText, pElement));
    else
        (void)(bStore ? XmlConfig::SaveCollection(*oTag.pCollection, pElement)
                      : XmlConfig::LoadCollection(*oTag.pCollection, pElement));
}

} // namespace

CXmlConfigTree::CXmlConfigTree(IConfigElement* pElement, bool bStore, bool bAppend)
    : m_spState(
          std::make_shared<SState>(SState{ComPtr<IConfigElement>(pElement), bStore, bAppend, nullptr, {}})) {}

CXmlConfigTree::SState& CXmlConfigTree::RootState() const noexcept {
    SState* pState = m_spState.get();
    while (pState->spParent)
        pState = pState->spParent.get();
    return *pState;
}

CXmlConfigTree CXmlConfigTree::Root() const {
    std::shared_ptr<SState> spState = m_spState;
    while (spState->spParent)
        spState = spState->spParent;
    return CXmlConfigTree(std::move(spState));
}

CXmlConfigTree CXmlConfigTree::Reach(const CTagName& oTagName, bool bForceAppend, bool& bAbsent) const {
    bAbsent = false;
    std::vector<bool>& aEnabled = RootState().aEnabled;
    aEnabled.push_back((aEnabled.empty() || aEnabled.back()) && oTagName.bEnable);

    IConfigElement* const pElement = Element();
    bool bAppend = m_spState->bAppend || bForceAppend;
    if (!bAppend && pElement != nullptr)
        bAppend = HasAttribute(pElement, u"lookup") || HasAttribute(pElement, u"appendtags");
    ComPtr<IConfigElement> spChild;
    if (pElement != nullptr && aEnabled.back()) {
        if (!IsStore())
            spChild = XmlConfig::SelectOrCreate(pElement, oTagName.szName, false);
        else if (bAppend)
            spChild = XmlConfig::CreatePath(pElement, oTagName.szName);
        else
            spChild = XmlConfig::SelectOrCreate(pElement, oTagName.szName, true);
        bAbsent = !spChild && !IsStore();
    }
    return CXmlConfigTree(
        std::make_shared<SState>(SState{std::move(spChild), IsStore(), bAppend, m_spState, {}}));
}

CXmlConfigTree CXmlConfigTree::Descend(const CTagName& oTagName) const {
    bool bAbsent = false;
    return Reach(oTagName, false, bAbsent);
}

CXmlConfigTree CXmlConfigTree::Bind(const CTag& oTag) const {
    bool bAbsent = false;
    CXmlConfigTree oChild = Reach({oTag.szName, oTag.bEnable}, oTag.bForceAppend, bAbsent);
    if (bAbsent)
        Fire(oTag, ITagEvent::eAbsent, nullptr);
    if (oChild.Element() == nullptr)
        return oChild;
    for (const CTagAttr& oTagAttr : oTag.aAttributes)
        oChild.Attr(oTagAttr);
    Exchange(oTag, oChild.Element(), IsStore());
    return oChild;
}

const CXmlConfigTree& CXmlConfigTree::Attr(const CTagAttr& oTagAttr) const {
    if (Element() == nullptr)
        return *this;
    // A failure leaves the attribute out, or the variable null.
    if (IsStore()) {
        (void)XmlConfig::SetAttributeValue(Element(), oTagAttr.strName.c_str(), *oTagAttr.pbstrValue);
    } else {
        *oTagAttr.pbstrValue = nullptr;
        (void)XmlConfig::GetAttributeValue(Element(), oTagAttr.strName.c_str(), *oTagAttr.pbstrValue);
    }
    return *this;
}

CXmlConfigTree CXmlConfigTree::End() const {
    std::vector<bool>& aEnabled = RootState().aEnabled;
    if (!aEnabled.empty())
        aEnabled.pop_back();
    return CXmlConfigTree(m_spState->spParent ? m_spState->spParent : m_spState);
}
