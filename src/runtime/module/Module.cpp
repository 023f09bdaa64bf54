#include "runtime/module/Module.h"

#include <algorithm>
#include <filesystem>

#include "interfaces/Registration.h"
#include "platform/com.h"
#include "platform/modules.h"
#include "platform/registry.h"
#include "platform/scope.h"
#include "platform/text.h"
#include "runtime/trace/StatusException.h"

namespace {

using platform::ComPtr;
using platform::RegistryRoot;

constexpr std::uint16_t kApplicationScript = 101;

// A file name has to fit into a buffer of this many units with the zero at its end. So the doubled form is
// below twice as many.
constexpr std::size_t kFileNameBuffer = 260;

// Runs the steps of a registration in the system's locale.
template <class Steps>
HRESULT InSystemLocale(Steps&& steps) {
    const platform::AtScopeEnd restore(
        [nLocale = platform::ThreadLocale()] { platform::SetThreadLocale(nLocale); });
    platform::SetThreadLocale(platform::kLocaleSystemDefault);
    return StatusOf(std::forward<Steps>(steps));
}

// The module's full file name with each apostrophe doubled. A module that is the main program would get
// double quotes around it; a library, which this is, never does.
HRESULT GetModuleText(platform::ModuleHandle hModule, std::u16string& strText) {
    // The loader gives the name that the file was loaded by, which may be a relative one.
    std::error_code error;
    const auto path = std::filesystem::absolute(platform::FileNameOfModule(hModule), error);
    const auto name = error ? std::nullopt : platform::Utf8ToWideStrict(path.native());
    // The registry holds text alone, so a name that is no text could not be found again.
    if (!name)
        return platform::StatusFromError(platform::kErrorNoUnicodeTranslation);
    if (name->size() >= kFileNameBuffer)
        return platform::StatusFromError(platform::kErrorInsufficientBuffer);
    for (const char16_t c : *name)
        strText.append(c == u'\'' ? 2 : 1, c);
    return S_OK;
}

// Removes the key only when nothing is left in it: some of what is there may be somebody else's.
HRESULT RemoveCategoryKey(const GUID& oClass, std::u16string_view name) {
    const std::u16string strKey = u"CLSID\\" + platform::GuidText(oClass) + u'\\' + std::u16string(name);
    if (!platform::RegistrySubkeys(RegistryRoot::ClassesRoot, strKey).empty())
        return S_OK;
    return platform::DeleteRegistryKey(RegistryRoot::ClassesRoot, strKey);
}

HRESULT UnregisterCategories(const SClassEntry& oEntry) {
    HRESULT hr = platform::UnRegisterClassImplCategories(oEntry.oClass, oEntry.aImplementedCategories);
    for (const std::u16string_view name : {u"Required Categories", u"Implemented Categories"}) {
        if (SUCCEEDED(hr))
            hr = RemoveCategoryKey(oEntry.oClass, name);
    }
    return hr;
}

} // namespace

CMorrowstreamModule::~CMorrowstreamModule() {
    for (SClassEntry& oEntry : m_aClasses) {
        if (oEntry.pfnTerm != nullptr)
            oEntry.pfnTerm();
        if (const std::uintptr_t nFactory = oEntry.nFactory.exchange(0))
            (void)ComPtr<IClassFactory>::Adopt(
                static_cast<IClassFactory*>(platform::DecodePointer(nFactory)));
    }
}

HRESULT CMorrowstreamModule::Init(platform::ModuleHandle hModule) noexcept {
    if (platform::ModuleBytes(hModule).empty())
        return E_INVALIDARG;
    m_hModule = hModule;
    return S_OK;
}

HRESULT CMorrowstreamModule::GetGITPtr(IGlobalInterfaceTable** ppGIT) {
    if (ppGIT == nullptr)
        return E_POINTER;
    *ppGIT = nullptr;
    if (!m_spGIT) {
        ComPtr<IGlobalInterfaceTable> spTable;
        const HRESULT hr =
            platform::CoCreateInstance(platform::kInterfaceTableClass, nullptr, platform::kContextInProcess,
                                       IGlobalInterfaceTable::iid, spTable.ReceiveVoid());
        if (FAILED(hr))
            return hr;
        m_spGIT.SetOnce(std::move(spTable));
    }
    return m_spGIT->QueryInterface(IGlobalInterfaceTable::iid, reinterpret_cast<void**>(ppGIT));
}

HRESULT CMorrowstreamModule::AddCommonRGSReplacements(CRegistrar& oRegistrar) const {
    oRegistrar.AddReplacement(u"APPID", platform::GuidText(kApplicationId));
    return S_OK;
}

HRESULT CMorrowstreamModule::UpdateApplicationRegistry(bool bRegister) const {
    CRegistrar oRegistrar;
    const HRESULT hr = AddCommonRGSReplacements(oRegistrar);
    return FAILED(hr) ? hr : oRegistrar.ResourceUpdate(m_hModule, kApplicationScript, bRegister);
}

HRESULT CMorrowstreamModule::UpdateRegistryFromResource(std::uint16_t nScript, bool bRegister) const {
    CRegistrar oRegistrar;
    HRESULT hr = AddCommonRGSReplacements(oRegistrar);
    std::u16string strModule;
    if (SUCCEEDED(hr))
        hr = GetModuleText(m_hModule, strModule);
    if (FAILED(hr))
        return hr;
    oRegistrar.AddReplacement(u"Module", strModule);
    oRegistrar.AddReplacement(u"Module_Raw", strModule);
    return oRegistrar.ResourceUpdate(m_hModule, nScript, bRegister);
}

HRESULT CMorrowstreamModule::RegisterServer() {
    if (!IsInitialized())
        return E_UNEXPECTED;
    return InSystemLocale([this] {
        HRESULT hr = UpdateApplicationRegistry(true);
        for (const SClassEntry& oEntry : m_aClasses) {
            if (SUCCEEDED(hr))
                hr = oEntry.pfnUpdateRegistry(*this, true);
            if (SUCCEEDED(hr))
                hr = platform::RegisterClassImplCategories(oEntry.oClass, oEntry.aImplementedCategories);
        }
        return hr;
    });
}

HRESULT CMorrowstreamModule::UnregisterServer() {
    if (!IsInitialized())
        return E_UNEXPECTED;
    return InSystemLocale([this] {
        HRESULT hr = S_OK;
        for (const SClassEntry& oEntry : m_aClasses) {
            if (SUCCEEDED(hr))
                hr = UnregisterCategories(oEntry);
            if (SUCCEEDED(hr))
                hr = oEntry.pfnUpdateRegistry(*this, false);
        }
        return FAILED(hr) ? hr : UpdateApplicationRegistry(false);
    });
}

HRESULT CMorrowstreamModule::GetFactory(SClassEntry& oEntry, IClassFactory*& pFactory) {
    std::uintptr_t nFactory = oEntry.nFactory.load(std::memory_order_acquire);
    if (nFactory == 0) {
        const platform::SectionGuard guard(m_oLock);
        nFactory = oEntry.nFactory.load(std::memory_order_relaxed);
        if (nFactory == 0) {
            ComPtr<IClassFactory> spFactory;
            const HRESULT hr = oEntry.pfnCreateFactory(spFactory);
            if (FAILED(hr))
                return hr;
            if (!spFactory)
                return CLASS_E_CLASSNOTAVAILABLE;
            nFactory = platform::EncodePointer(spFactory.Detach());
            oEntry.nFactory.store(nFactory, std::memory_order_release);
        }
    }
    pFactory = static_cast<IClassFactory*>(platform::DecodePointer(nFactory));
    return S_OK;
}

HRESULT ModuleGetClassObject(CMorrowstreamModule* pModule, const GUID& oClass, const GUID& oInterface,
                             void** ppObject) {
    if (ppObject == nullptr)
        return E_POINTER;
    *ppObject = nullptr;
    if (pModule == nullptr)
        return E_INVALIDARG;
    if (!pModule->IsInitialized())
        return E_UNEXPECTED;
    const auto it = std::ranges::find(pModule->m_aClasses, oClass, &SClassEntry::oClass);
    if (it == pModule->m_aClasses.end())
        return CLASS_E_CLASSNOTAVAILABLE;
    return StatusOf([&] {
        IClassFactory* pFactory = nullptr;
        HRESULT hr = pModule->GetFactory(*it, pFactory);
        if (SUCCEEDED(hr))
            hr = pFactory->QueryInterface(oInterface, ppObject);
        return hr == S_OK && *ppObject == nullptr ? CLASS_E_CLASSNOTAVAILABLE : hr;
    });
}
