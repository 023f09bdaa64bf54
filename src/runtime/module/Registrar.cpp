#include "runtime/module/Registrar.h"

#include <algorithm>

#include "platform/registry.h"
#include "platform/text.h"

namespace {

using platform::RegistryRoot;
using EMark = SRegistrarKey::EMark;

constexpr HRESULT kNoScript = platform::StatusFromError(platform::kErrorInvalidData);
constexpr char16_t kScriptType[] = u"REGISTRY";

std::u16string InCapitals(std::u16string_view text) {
    std::u16string strCapitals(text);
    for (char16_t& c : strCapitals) {
        if (c >= u'a' && c <= u'z')
            c = static_cast<char16_t>(c - u'a' + u'A');
    }
    return strCapitals;
}

HRESULT MakeKey(RegistryRoot eRoot, const std::u16string& strPath, const SRegistrarKey& oKey) {
    if (oKey.eMark == EMark::Delete || oKey.eMark == EMark::ForceRemove) {
        const HRESULT hr = platform::DeleteRegistryKey(eRoot, strPath);
        if (FAILED(hr) || oKey.eMark == EMark::Delete)
            return hr;
    }
    const std::vector<platform::NamedRegistryValue> aValues(oKey.aValues.begin(), oKey.aValues.end());
    return platform::SetRegistryValues(eRoot, strPath, aValues);
}

HRESULT RemoveKey(RegistryRoot eRoot, const std::u16string& strPath, const SRegistrarKey& oKey) {
    for (const auto& [strName, oValue] : oKey.aValues) {
        if (const HRESULT hr = platform::DeleteRegistryValue(eRoot, strPath, strName); FAILED(hr))
            return hr;
    }
    return oKey.eMark == EMark::NoRemove ? S_OK : platform::DeleteEmptyRegistryKey(eRoot, strPath);
}

// `strAround` is the path of the key around these, with a backslash behind it if there is one.
HRESULT Register(RegistryRoot eRoot, const std::u16string& strAround,
                 const std::vector<SRegistrarKey>& aKeys) {
    for (const SRegistrarKey& oKey : aKeys) {
        const std::u16string strPath = strAround + oKey.strName;
        HRESULT hr = MakeKey(eRoot, strPath, oKey);
        if (SUCCEEDED(hr))
            hr = Register(eRoot, strPath + u'\\', oKey.aKeys);
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

HRESULT Unregister(RegistryRoot eRoot, const std::u16string& strAround,
                   const std::vector<SRegistrarKey>& aKeys) {
    for (const SRegistrarKey& oKey : aKeys) {
        const std::u16string strPath = strAround + oKey.strName;
        HRESULT hr = S_OK;
        if (oKey.eMark == EMark::ForceRemove) {
            hr = platform::DeleteRegistryKey(eRoot, strPath);
        } else if (oKey.eMark != EMark::Delete) {
            hr = Unregister(eRoot, strPath + u'\\', oKey.aKeys);
            if (SUCCEEDED(hr))
                hr = RemoveKey(eRoot, strPath, oKey);
        }
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

template <class Direction>
HRESULT ForEachRoot(std::u16string_view script, Direction pfnDirection) {
    // The whole text is read before anything is changed: half a script is worse than none.
    const auto oRoots = ParseRegistrarScript(script);
    if (!oRoots)
        return kNoScript;
    for (const SRegistrarRoot& oRoot : *oRoots) {
        if (const HRESULT hr = pfnDirection(oRoot.eRoot, {}, oRoot.aKeys); FAILED(hr))
            return hr;
    }
    return S_OK;
}

} // namespace

void CRegistrar::AddReplacement(std::u16string_view key, std::u16string_view value) {
    m_aReplacements.emplace_back(InCapitals(key), value);
}

bool CRegistrar::Replace(std::u16string_view script, std::u16string& strText) const {
    for (;;) {
        const std::size_t nBegin = script.find(u'%');
        strText += script.substr(0, nBegin);
        if (nBegin == std::u16string_view::npos)
            return true;
        const std::size_t nEnd = script.find(u'%', nBegin + 1);
        if (nEnd == std::u16string_view::npos)
            return false;
        const std::u16string strKey = InCapitals(script.substr(nBegin + 1, nEnd - nBegin - 1));
        script.remove_prefix(nEnd + 1);
        if (strKey.empty()) {
            strText += u'%';
            continue;
        }
        const auto it =
            std::ranges::find(m_aReplacements, strKey, [](const auto& pair) { return pair.first; });
        if (it == m_aReplacements.end())
            return false;
        strText += it->second;
    }
}

HRESULT CRegistrar::StringRegister(std::u16string_view script) const {
    std::u16string strText;
    return Replace(script, strText) ? ForEachRoot(strText, Register) : kNoScript;
}

HRESULT CRegistrar::StringUnregister(std::u16string_view script) const {
    std::u16string strText;
    return Replace(script, strText) ? ForEachRoot(strText, Unregister) : kNoScript;
}

HRESULT CRegistrar::ResourceUpdate(platform::ModuleHandle hModule, std::uint16_t nScript,
                                   bool bRegister) const {
    const auto oResource = platform::FindResource(hModule, kScriptType, nScript);
    if (!oResource)
        return platform::StatusFromError(platform::kErrorResourceNotFound);
    const auto script = platform::Utf8ToWideStrict(oResource->Text());
    if (!script)
        return kNoScript;
    return bRegister ? StringRegister(*script) : StringUnregister(*script);
}
