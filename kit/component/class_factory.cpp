#include "kit/component/class_factory.h"

#include <stdexcept>

namespace kit {

HRESULT ClassFactory::CreateInstance(IUnknown* outer, const GUID& interfaceId, void** object) {
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    return outer != nullptr ? CLASS_E_NOAGGREGATION : m_create(interfaceId, object);
}

HRESULT ClassFactory::LockServer(std::int32_t lock) {
    lock != 0 ? platform::ModuleLock::Add() : platform::ModuleLock::Drop();
    return S_OK;
}

ClassRegistrations::~ClassRegistrations() {
    for (const GUID& classId : m_classes)
        (void)platform::RevokeClassFactory(classId);
}

void ClassRegistrations::Add(const GUID& classId, ClassFactory::Create create) {
    m_classes.reserve(m_classes.size() + 1);
    const auto factory = platform::ComObject<ClassFactory>::Create(std::move(create));
    if (!factory || FAILED(platform::RegisterClassFactory(classId, factory.Get())))
        throw std::runtime_error("a class of the host could not be registered");
    m_classes.push_back(classId);
}

void ClassRegistrations::AddObject(const GUID& classId, platform::ComPtr<IUnknown> object) {
    Add(classId, [object = std::move(object)](const GUID& interfaceId, void** result) {
        return object->QueryInterface(interfaceId, result);
    });
}

} // namespace kit
