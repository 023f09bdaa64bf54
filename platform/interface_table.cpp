#include "platform/com.h"

#include <map>
#include <mutex>

namespace platform {

namespace {

class InterfaceTable : public Implements<IGlobalInterfaceTable> {
public:
    HRESULT RegisterInterfaceInGlobal(IUnknown* object, const GUID& interfaceId,
                                      std::uint32_t* cookie) override {
        if (object == nullptr || cookie == nullptr)
            return E_POINTER;
        *cookie = 0;
        ComPtr<IUnknown> kept;
        if (const HRESULT hr = object->QueryInterface(interfaceId, kept.ReceiveVoid()); FAILED(hr))
            return hr;
        try {
            const std::scoped_lock guard(m_mutex);
            m_interfaces.emplace(++m_last, std::move(kept));
            *cookie = m_last;
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    HRESULT RevokeInterfaceFromGlobal(std::uint32_t cookie) override {
        std::unique_lock guard(m_mutex);
        const auto node = m_interfaces.extract(cookie);
        // The release may run foreign code, which must not find this table locked.
        guard.unlock();
        return node.empty() ? E_INVALIDARG : S_OK;
    }

    HRESULT GetInterfaceFromGlobal(std::uint32_t cookie, const GUID& interfaceId, void** object) override {
        if (object == nullptr)
            return E_POINTER;
        *object = nullptr;
        ComPtr<IUnknown> kept;
        {
            const std::scoped_lock guard(m_mutex);
            if (const auto found = m_interfaces.find(cookie); found != m_interfaces.end())
                kept = found->second;
        }
        return kept ? kept->QueryInterface(interfaceId, object) : E_INVALIDARG;
    }

protected:
    ~InterfaceTable() = default;

private:
    std::mutex m_mutex;
    std::map<std::uint32_t, ComPtr<IUnknown>> m_interfaces; // under m_mutex
    std::uint32_t m_last = 0;                               // under m_mutex; the last number that was given
};

} // namespace

HRESULT GetInterfaceTable(IUnknown* outer, const GUID& interfaceId, void** object) {
    if (outer != nullptr)
        return CLASS_E_NOAGGREGATION;
    // Never destroyed: modules may ask for it while the process ends.
    static const auto& table = *new ComPtr(ComObject<InterfaceTable>::Create());
    return table ? table->QueryInterface(interfaceId, object) : E_OUTOFMEMORY;
}

} // namespace platform
