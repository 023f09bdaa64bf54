// What fake objects have in common: their interfaces, and factories that make them.
#pragma once

#include <functional>
#include <utility>

#include "platform/com.h"

namespace support {

template <class... Interfaces>
using Fake = platform::Implements<Interfaces...>;

class FakeFactory : public Fake<IClassFactory> {
public:
    using Make = std::function<HRESULT(const GUID& interfaceId, void** object)>;

    HRESULT CreateInstance(IUnknown* outer, const GUID& interfaceId, void** object) override {
        return outer != nullptr ? CLASS_E_NOAGGREGATION : m_make(interfaceId, object);
    }
    HRESULT LockServer(std::int32_t) override { return S_OK; }

protected:
    explicit FakeFactory(Make make) : m_make(std::move(make)) {}
    ~FakeFactory() = default;

private:
    const Make m_make;
};

} // namespace support
