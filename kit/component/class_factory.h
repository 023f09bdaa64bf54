// The classes that a host gives to the component.
#pragma once

#include <functional>
#include <vector>

#include "kit/export.h"
#include "platform/com.h"

namespace kit {

// A class factory that asks a function for the object; the function's arguments are those of QueryInterface.
class MORROW_KIT_API ClassFactory : public platform::Implements<IClassFactory> {
public:
    using Create = std::function<HRESULT(const GUID& interfaceId, void** object)>;
    explicit ClassFactory(Create create) : m_create(std::move(create)) {}

    HRESULT CreateInstance(IUnknown* outer, const GUID& interfaceId, void** object) override;
    HRESULT LockServer(std::int32_t lock) override;

protected:
    ~ClassFactory() = default;

private:
    const Create m_create;
};

// Registers classes with this process for as long as it lives.
class MORROW_KIT_API ClassRegistrations {
public:
    ClassRegistrations() = default;
    ClassRegistrations(const ClassRegistrations&) = delete;
    ClassRegistrations& operator=(const ClassRegistrations&) = delete;
    ~ClassRegistrations();

    // Throws std::runtime_error.
    void Add(const GUID& classId, ClassFactory::Create create);
    // A class of which there is one object.
    void AddObject(const GUID& classId, platform::ComPtr<IUnknown> object);

private:
    std::vector<GUID> m_classes;
};

} // namespace kit
