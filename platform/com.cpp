#include "platform/com.h"

#include <sys/auxv.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

void* CoTaskMemAlloc(std::size_t size) noexcept {
    return size == 0 ? nullptr : std::malloc(size);
}

void CoTaskMemFree(void* memory) noexcept {
    std::free(memory);
}

namespace platform {

namespace {

// The classes of this process. A handful, so a list will do.
class ClassTable {
public:
    // Never destroyed: factories may live in modules that are torn down before this one.
    static ClassTable& Instance() {
        static ClassTable& table = *new ClassTable;
        return table;
    }

    // The factory that was there before, to be released by the caller: that may run foreign code, which must
    // not find this table locked.
    ComPtr<IClassFactory> Put(const GUID& classId, ComPtr<IClassFactory> factory) {
        const std::scoped_lock guard(m_mutex);
        const auto found = std::ranges::find(m_entries, classId, &Entry::classId);
        if (found != m_entries.end())
            return std::exchange(found->factory, std::move(factory));
        m_entries.push_back({classId, std::move(factory)});
        return nullptr;
    }

    ComPtr<IClassFactory> Take(const GUID& classId) noexcept {
        const std::scoped_lock guard(m_mutex);
        const auto found = std::ranges::find(m_entries, classId, &Entry::classId);
        if (found == m_entries.end())
            return nullptr;
        ComPtr<IClassFactory> factory = std::move(found->factory);
        m_entries.erase(found);
        return factory;
    }

    ComPtr<IClassFactory> Find(const GUID& classId) noexcept {
        const std::scoped_lock guard(m_mutex);
        const auto found = std::ranges::find(m_entries, classId, &Entry::classId);
        return found == m_entries.end() ? nullptr : found->factory;
    }

private:
    struct Entry {
        GUID classId;
        ComPtr<IClassFactory> factory;
    };

    std::mutex m_mutex;
    std::vector<Entry> m_entries; // under m_mutex
};

// How often the calling thread has joined the apartment.
thread_local std::uint32_t t_apartmentJoins = 0;

// The system gives every process 16 random bytes; the first 8 guard its stacks.
std::uintptr_t ProcessSecret() noexcept {
    std::uintptr_t secret = 0;
    if (const auto* const random = reinterpret_cast<const std::uint8_t*>(::getauxval(AT_RANDOM)))
        std::memcpy(&secret, random + sizeof secret, sizeof secret);
    return secret;
}

} // namespace

HRESULT CoInitializeEx(void* reserved, std::uint32_t flags) noexcept {
    if (reserved != nullptr || flags != COINIT_MULTITHREADED)
        return E_INVALIDARG;
    return t_apartmentJoins++ == 0 ? S_OK : S_FALSE;
}

void CoUninitialize() noexcept {
    if (t_apartmentJoins > 0)
        --t_apartmentJoins;
}

bool IsInApartment() noexcept {
    return t_apartmentJoins > 0;
}

std::uintptr_t EncodePointer(const void* pointer) noexcept {
    return reinterpret_cast<std::uintptr_t>(pointer) ^ ProcessSecret();
}

void* DecodePointer(std::uintptr_t encoded) noexcept {
    return reinterpret_cast<void*>(encoded ^ ProcessSecret());
}

HRESULT RegisterClassFactory(const GUID& classId, IClassFactory* factory) try {
    if (factory == nullptr)
        return E_POINTER;
    (void)ClassTable::Instance().Put(classId, ComPtr<IClassFactory>(factory));
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

ComPtr<IClassFactory> RegisteredFactory(const GUID& classId) noexcept {
    return ClassTable::Instance().Find(classId);
}

HRESULT RevokeClassFactory(const GUID& classId) {
    return ClassTable::Instance().Take(classId) ? S_OK : REGDB_E_CLASSNOTREG;
}

} // namespace platform
