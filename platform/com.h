// The component object runtime: interfaces, reference counts, classes.
//
// An interface is a struct of pure virtual operations with a `static constexpr GUID iid`, derived from
// IUnknown. Every operation returns a status and hands results through out parameters; an interface that
// comes back carries one reference, which is the receiver's to release (ComPtr does).
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/export.h"
#include "platform/status.h"

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend constexpr bool operator==(const GUID&, const GUID&) noexcept = default;
};

struct IUnknown {
    static constexpr GUID iid{0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

    // Puts the interface with a new reference into *object, or null there and E_NOINTERFACE. E_POINTER for
    // null.
    virtual HRESULT QueryInterface(const GUID& interfaceId, void** object) = 0;
    virtual std::uint32_t AddRef() = 0;
    // The count left. At 0 the object is gone.
    virtual std::uint32_t Release() = 0;

protected:
    ~IUnknown() = default;
};

struct IClassFactory : IUnknown {
    static constexpr GUID iid{0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

    virtual HRESULT CreateInstance(IUnknown* outer, const GUID& interfaceId, void** object) = 0;
    virtual HRESULT LockServer(std::int32_t lock) = 0;

protected:
    ~IClassFactory() = default;
};

// The global interface table: interfaces of a process by number, for whoever cannot hold a pointer. There is
// one, of the class kInterfaceTableClass, which every process has (CoCreateInstance with an in-process
// context). Any thread may call any operation.
struct IGlobalInterfaceTable : IUnknown {
    static constexpr GUID iid{0x00000146, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

    // Keeps a reference under a number that is never 0. E_POINTER; E_NOINTERFACE for an object without that
    // interface.
    virtual HRESULT RegisterInterfaceInGlobal(IUnknown* object, const GUID& interfaceId,
                                              std::uint32_t* cookie) = 0;
    // Lets go of it. E_INVALIDARG for a number that is none.
    virtual HRESULT RevokeInterfaceFromGlobal(std::uint32_t cookie) = 0;
    // An interface of the object, with a new reference. E_INVALIDARG, E_POINTER, E_NOINTERFACE.
    virtual HRESULT GetInterfaceFromGlobal(std::uint32_t cookie, const GUID& interfaceId, void** object) = 0;

protected:
    ~IGlobalInterfaceTable() = default;
};

// Memory that crosses an interface: whoever receives it frees it. Null for size 0 or when memory is short.
MORROW_PLATFORM_API void* CoTaskMemAlloc(std::size_t size) noexcept;
MORROW_PLATFORM_API void CoTaskMemFree(void* memory) noexcept;

namespace platform {

// Where a class may run.
inline constexpr std::uint32_t kContextInProcess = 1;
inline constexpr std::uint32_t kContextAll = 23;

// Owner of one reference.
template <class T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    // Takes a reference of its own.
    explicit ComPtr(T* object) noexcept : m_object(object) {
        if (m_object != nullptr)
            m_object->AddRef();
    }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.m_object) {}
    ComPtr(ComPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> ComPtr(const ComPtr<U>& other)
    noexcept : ComPtr(static_cast<T*>(other.Get())) {}
    // The old object is released last, so that an object may let go of itself.
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~ComPtr() {
        if (m_object != nullptr)
            m_object->Release();
    }

    // Takes over a reference that somebody made.
    static ComPtr Adopt(T* object) noexcept {
        ComPtr owner;
        owner.m_object = object;
        return owner;
    }

    [[nodiscard]] T* Get() const noexcept { return m_object; }
    // The analyzer does not follow the count. NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete)
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }
    friend bool operator==(const ComPtr& a, const T* b) noexcept { return a.m_object == b; }

    // Gives the reference away.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(m_object, nullptr); }
    // For out parameters: lets go of what is held and gives the place.
    [[nodiscard]] T** Receive() noexcept {
        *this = nullptr;
        return &m_object;
    }
    [[nodiscard]] void** ReceiveVoid() noexcept { return reinterpret_cast<void**>(Receive()); }

    // Another interface of the same object; null if it has none of that kind.
    template <class U>
    [[nodiscard]] ComPtr<U> Query() const {
        ComPtr<U> other;
        if (m_object != nullptr)
            (void)m_object->QueryInterface(U::iid, other.ReceiveVoid());
        return other;
    }

private:
    T* m_object = nullptr;
};

// A reference that is set once, by whichever thread comes first, and stays until its owner ends. Any thread
// may read it without a lock: what it read is not released meanwhile.
template <class T>
class OnceComPtr {
public:
    OnceComPtr() noexcept = default;
    OnceComPtr(const OnceComPtr&) = delete;
    OnceComPtr& operator=(const OnceComPtr&) = delete;
    ~OnceComPtr() { (void)ComPtr<T>::Adopt(m_object.load(std::memory_order_acquire)); }

    // Keeps the object, unless one is kept already or there is none: the reference is then let go of.
    void SetOnce(ComPtr<T> object) noexcept {
        T* none = nullptr;
        if (m_object.compare_exchange_strong(none, object.Get(), std::memory_order_acq_rel))
            (void)object.Detach();
    }
    T* operator->() const noexcept { return m_object.load(std::memory_order_acquire); }
    explicit operator bool() const noexcept { return m_object.load(std::memory_order_acquire) != nullptr; }

private:
    std::atomic<T*> m_object{nullptr};
};

// Answers a query out of a list of interfaces, in their order. The first one also answers for IUnknown.
template <class First, class... Others, class Self>
HRESULT QueryTable(Self* self, const GUID& interfaceId, void** object) {
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    const auto give = [&]<class I>(std::type_identity<I>) {
        I* const found = static_cast<I*>(self); // one of several bases that can count references
        found->AddRef();
        *object = found;
    };
    const auto offer = [&]<class I>(std::type_identity<I> interface) {
        if (*object == nullptr && interfaceId == I::iid)
            give(interface);
    };
    if (interfaceId == IUnknown::iid)
        give(std::type_identity<First>{});
    offer(std::type_identity<First>{});
    (offer(std::type_identity<Others>{}), ...);
    if (*object == nullptr)
        return E_NOINTERFACE;
    return S_OK;
}

// The reference-count root. Increments need no order, since whoever adds a reference holds one; the decrement
// that ends the object must see all that others did to it before they let go.
class RefCount {
public:
    std::uint32_t Add() noexcept { return m_count.fetch_add(1, std::memory_order_relaxed) + 1; }
    std::uint32_t Drop() noexcept { return m_count.fetch_sub(1, std::memory_order_acq_rel) - 1; }
    [[nodiscard]] std::uint32_t Value() const noexcept { return m_count.load(std::memory_order_acquire); }

private:
    std::atomic<std::uint32_t> m_count{0};
};

// The counter of ModuleLock. Hidden, so that each shared object that uses this header has one of its own.
[[gnu::visibility("hidden")]] inline std::atomic<std::int32_t>& ModuleLockCounter() noexcept {
    static std::atomic<std::int32_t> count{0};
    return count;
}

// How many objects and locks keep this module loaded. Inline, so that no other shared object's functions
// count here.
class ModuleLock {
public:
    [[gnu::always_inline]] ModuleLock() noexcept { Add(); }
    [[gnu::always_inline]] ModuleLock(const ModuleLock&) noexcept { Add(); }
    ModuleLock& operator=(const ModuleLock&) noexcept = default;
    [[gnu::always_inline]] ~ModuleLock() { Drop(); }

    // Both give the new count.
    [[gnu::always_inline]] static std::int32_t Add() noexcept {
        return ModuleLockCounter().fetch_add(1, std::memory_order_relaxed) + 1;
    }
    [[gnu::always_inline]] static std::int32_t Drop() noexcept {
        return ModuleLockCounter().fetch_sub(1, std::memory_order_acq_rel) - 1;
    }
    [[nodiscard, gnu::always_inline]] static std::int32_t Count() noexcept {
        return ModuleLockCounter().load(std::memory_order_acquire);
    }
};

// Base of a class that answers for these interfaces.
template <class... Interfaces>
class Implements : public Interfaces... {
protected:
    Implements() = default;
    ~Implements() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        return QueryTable<Interfaces...>(this, interfaceId, object);
    }
};

// The last layer of a reference-counted class: Base has its interfaces from Implements, or gives those that
// it has by a `Query(interfaceId, object)` of its own, with QueryTable. The object is made with a count of 0
// and deletes itself when its last reference goes.
template <class Base>
class ComObject final : public Base {
public:
    template <class... Args>
    explicit ComObject(Args&&... args) : Base(std::forward<Args>(args)...) {}

    // A new object with one reference; null when memory is short. Other exceptions of the constructor pass.
    template <class... Args>
    static ComPtr<ComObject> Create(Args&&... args) {
        return ComPtr<ComObject>(new (std::nothrow) ComObject(std::forward<Args>(args)...));
    }

    HRESULT QueryInterface(const GUID& interfaceId, void** object) override {
        return Base::Query(interfaceId, object);
    }
    std::uint32_t AddRef() override { return m_count.Add(); }
    std::uint32_t Release() override {
        const std::uint32_t left = m_count.Drop();
        if (left == 0) {
            // The object's own lock goes before the rest of the object does.
            const ModuleLock whileItGoes;
            delete this;
        }
        return left;
    }

private:
    ~ComObject() = default;

    RefCount m_count;
    [[no_unique_address]] ModuleLock m_moduleLock;
};

// The multithreaded apartment, in which all objects of this process live. A thread that works with them for
// long joins it, and leaves it once for each join. CoInitializeEx: S_OK for the first join of a thread,
// S_FALSE for a further one (to be left too), E_INVALIDARG for flags other than 0 and for anything but a null
// `reserved`.
inline constexpr std::uint32_t COINIT_MULTITHREADED = 0;
MORROW_PLATFORM_API HRESULT CoInitializeEx(void* reserved, std::uint32_t flags) noexcept;
MORROW_PLATFORM_API void CoUninitialize() noexcept; // does nothing on a thread that has not joined
MORROW_PLATFORM_API bool IsInApartment() noexcept;  // the calling thread

// Membership for a scope.
class ApartmentScope {
public:
    ApartmentScope() noexcept { (void)CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
    ApartmentScope(const ApartmentScope&) = delete;
    ApartmentScope& operator=(const ApartmentScope&) = delete;
    ~ApartmentScope() { CoUninitialize(); }
};

// Identifiers as text: "{158F9099-FA63-4B67-B221-C9A22E5061E9}", in capitals. Reading takes letters of either
// case and gives nothing for any other form.
MORROW_PLATFORM_API std::u16string GuidText(const GUID& identifier);
MORROW_PLATFORM_API std::optional<GUID> ParseGuid(std::u16string_view text) noexcept;

// A pointer that is kept for long, in a form from which nobody makes a pointer to something else: mixed with
// a number that is drawn anew for each process. Null has such a form as well.
MORROW_PLATFORM_API std::uintptr_t EncodePointer(const void* pointer) noexcept;
MORROW_PLATFORM_API void* DecodePointer(std::uintptr_t encoded) noexcept;

// Registers the factory of a class for this process, replacing an earlier one; the registry holds a reference
// until the class is revoked.
MORROW_PLATFORM_API HRESULT RegisterClassFactory(const GUID& classId, IClassFactory* factory);
MORROW_PLATFORM_API HRESULT RevokeClassFactory(const GUID& classId);
// Null where this process has registered none.
ComPtr<IClassFactory> RegisteredFactory(const GUID& classId) noexcept;

// Creates an object of a class: one that this process registered, or one of a module that the registry names
// (modules.h has its statuses). REGDB_E_CLASSNOTREG when neither knows it; E_INVALIDARG for an empty mask.
MORROW_PLATFORM_API HRESULT CoCreateInstance(const GUID& classId, IUnknown* outer, std::uint32_t contextMask,
                                             const GUID& interfaceId, void** object);

inline constexpr GUID kInterfaceTableClass{0x00000323, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// The global interface table, for CoCreateInstance.
HRESULT GetInterfaceTable(IUnknown* outer, const GUID& interfaceId, void** object);

} // namespace platform
