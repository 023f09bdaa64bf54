// The factory of a class of which there is at most one object in the process.
#pragma once

#include <cstdint>
#include <mutex>
#include <new>
#include <type_traits>

#include "platform/com.h"
#include "platform/sync.h"
#include "runtime/trace/StatusException.h"

// Orders creation and last release of single objects, in the whole process. Made on its first use. It leaves
// nothing behind when the module is unloaded, and an object may be released while the process ends: it is not
// destroyed at all.
inline platform::CriticalSection& CreationLock() {
    static platform::CriticalSection oLock;
    static_assert(std::is_trivially_destructible_v<platform::CriticalSection>);
    return oLock;
}

// The last layer of an object that the module keeps in its class table: the module's own reference, the first
// one, does not keep it loaded; any further ones do.
template <class Base>
class CComObjectCached final : public Base {
public:
    HRESULT QueryInterface(const GUID& interfaceId, void** object) override {
        return Base::Query(interfaceId, object);
    }
    std::uint32_t AddRef() override {
        const std::uint32_t nCount = m_nRef.Add();
        if (nCount == 2)
            platform::ModuleLock::Add();
        return nCount;
    }
    std::uint32_t Release() override {
        const std::uint32_t nLeft = m_nRef.Drop();
        if (nLeft == 1)
            platform::ModuleLock::Drop();
        else if (nLeft == 0)
            delete this;
        return nLeft;
    }

private:
    ~CComObjectCached() = default;

    platform::RefCount m_nRef;
};

// The last layer of a single object: tells its factory when it goes. The count is lowered under the creation
// lock, so that no client can be given an object that has just lost its last reference.
template <class Base, class Factory>
class CComObjectSink final : public Base {
public:
    HRESULT QueryInterface(const GUID& interfaceId, void** object) override {
        return Base::Query(interfaceId, object);
    }
    std::uint32_t AddRef() override { return m_nRef.Add(); }
    std::uint32_t Release() override {
        platform::SectionGuard guard(CreationLock());
        const std::uint32_t nLeft = m_nRef.Drop();
        if (nLeft != 0)
            return nLeft;
        if (m_spFactory)
            m_spFactory->ForgetObject();
        guard.unlock();
        // The object's own lock goes before the rest of the object does.
        const platform::ModuleLock oWhileItGoes;
        delete this;
        return 0;
    }

private:
    friend Factory;

    CComObjectSink() = default;
    ~CComObjectSink() = default;

    platform::RefCount m_nRef;
    platform::ComPtr<Factory> m_spFactory; // the factory outlives the object that it has given away
    [[no_unique_address]] platform::ModuleLock m_oModuleLock;
};

// Class must have HRESULT FinalConstruct() and Query(interfaceId, object).
template <class Class>
class CComObjectSingletonFactory : public platform::Implements<IClassFactory> {
public:
    // With one reference; null when memory is short.
    static platform::ComPtr<IClassFactory> Create() {
        return platform::ComPtr<IClassFactory>(new (std::nothrow)
                                                   CComObjectCached<CComObjectSingletonFactory>);
    }

    HRESULT CreateInstance(IUnknown* outer, const GUID& interfaceId, void** object) override {
        if (object == nullptr)
            return E_POINTER;
        *object = nullptr;
        if (outer != nullptr)
            return CLASS_E_NOAGGREGATION;
        const platform::SectionGuard guard(CreationLock());
        if (m_pObject != nullptr)
            return m_pObject->QueryInterface(interfaceId, object);
        return StatusOf([&] { return Make(interfaceId, object); });
    }

    HRESULT LockServer(std::int32_t lock) override {
        if (lock != 0)
            platform::ModuleLock::Add();
        else
            platform::ModuleLock::Drop();
        return S_OK;
    }

    // For the object alone, which calls it with the creation lock held.
    void ForgetObject() noexcept { m_pObject = nullptr; }

protected:
    CComObjectSingletonFactory() = default;
    ~CComObjectSingletonFactory() = default;

private:
    using Object = CComObjectSink<Class, CComObjectSingletonFactory>;

    // The object is born with a count of 0 and has one while it is made, so that whoever takes and drops a
    // reference meanwhile does not end it. A host that keeps the handler of an object that failed later keeps
    // that object alive, unknown to this factory, rather than being left with a dead one.
    HRESULT Make(const GUID& interfaceId, void** object) {
        auto* pObject = new (std::nothrow) Object;
        if (pObject == nullptr)
            return E_OUTOFMEMORY;
        pObject->m_nRef.Add();
        HRESULT hr = StatusOf([&] { return pObject->FinalConstruct(); });
        if (SUCCEEDED(hr))
            hr = pObject->QueryInterface(interfaceId, object);
        if (SUCCEEDED(hr)) {
            m_pObject = pObject;
            pObject->m_spFactory = platform::ComPtr<CComObjectSingletonFactory>(this);
        }
        if (pObject->m_nRef.Drop() == 0)
            delete pObject;
        return hr;
    }

    Object* m_pObject = nullptr; // not counted; guarded by the creation lock
};
