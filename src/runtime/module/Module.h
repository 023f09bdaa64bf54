// The module: what the library is to a process that has loaded it.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "platform/com.h"
#include "platform/resources.h"
#include "platform/sync.h"
#include "runtime/module/Registrar.h"

class CMorrowstreamModule;

// One class of the module. The table of them is written at compile time.
struct SClassEntry {
    GUID oClass;
    // Enters the class into the registry, or takes it out.
    HRESULT (*pfnUpdateRegistry)(CMorrowstreamModule& oModule, bool bRegister);
    HRESULT (*pfnCreateFactory)(platform::ComPtr<IClassFactory>& spFactory);
    std::span<const GUID> aImplementedCategories;
    // Called when the module goes; null for a class that has nothing to do then.
    void (*pfnTerm)();
    // The factory once somebody asked for it, with a reference of the module's, encoded; 0 before.
    std::atomic<std::uintptr_t> nFactory{0};
};

// One instance in a loaded module, from the entry point to the unload. Any thread may call any operation.
class CMorrowstreamModule {
public:
    explicit CMorrowstreamModule(std::span<SClassEntry> aClasses) noexcept : m_aClasses(aClasses) {}
    CMorrowstreamModule(const CMorrowstreamModule&) = delete;
    CMorrowstreamModule& operator=(const CMorrowstreamModule&) = delete;
    // Calls each class's term function and lets go of the factories.
    virtual ~CMorrowstreamModule();

    // The lock count: how many objects, and locks of clients, keep the module loaded. Both give the new
    // count.
    virtual std::int32_t Lock() noexcept { return platform::ModuleLock::Add(); }
    virtual std::int32_t Unlock() noexcept { return platform::ModuleLock::Drop(); }
    [[nodiscard]] virtual std::int32_t GetLockCount() const noexcept { return platform::ModuleLock::Count(); }
    // The process's global interface table, which is asked for at first use. E_POINTER.
    virtual HRESULT GetGITPtr(IGlobalInterfaceTable** ppGIT);
    // What every script of the module may name: %APPID%.
    virtual HRESULT AddCommonRGSReplacements(CRegistrar& oRegistrar) const;

    // Called once, at the load. E_INVALIDARG for a handle that is no resource instance.
    HRESULT Init(platform::ModuleHandle hModule) noexcept;
    [[nodiscard]] bool IsInitialized() const noexcept { return m_hModule != nullptr; }

    // The keys of the application and of each class with its categories. Stops at the first step that fails
    // and gives its status. The thread has the system's locale meanwhile, and its own again on every way out.
    HRESULT RegisterServer();
    HRESULT UnregisterServer();
    // Runs a script of the module's resources; it may name %Module% and %Module_Raw% as well.
    HRESULT UpdateRegistryFromResource(std::uint16_t nScript, bool bRegister) const;

private:
    friend HRESULT ModuleGetClassObject(CMorrowstreamModule* pModule, const GUID& oClass,
                                        const GUID& oInterface, void** ppObject);

    HRESULT GetFactory(SClassEntry& oEntry, IClassFactory*& pFactory);
    HRESULT UpdateApplicationRegistry(bool bRegister) const;

    const std::span<SClassEntry> m_aClasses;
    platform::CriticalSection m_oLock; // the making of factories
    platform::OnceComPtr<IGlobalInterfaceTable> m_spGIT;
    platform::ModuleHandle m_hModule = nullptr; // set before anybody else has the module
};

// An object that makes objects of a class: its factory, which is made at first use and kept. Null in
// *ppObject on failure.
//   E_POINTER for no ppObject, E_INVALIDARG for no module, E_UNEXPECTED for one that was not initialised,
//   CLASS_E_CLASSNOTAVAILABLE for a class that is not in the table, or of which no factory comes; else the
//   status of the factory.
HRESULT ModuleGetClassObject(CMorrowstreamModule* pModule, const GUID& oClass, const GUID& oInterface,
                             void** ppObject);
