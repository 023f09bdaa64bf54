#include "platform/categories.h"

#include <string>

#include "platform/guid.h"
#include "platform/registry.h"

namespace platform {

namespace {

std::u16string CategoriesKey(std::u16string_view classText) {
    std::u16string key = u"CLSID\\";
    key += classText;
    return key += u"\\Implemented Categories";
}

std::u16string CategoryKey(std::u16string_view classText, const GUID& category) {
    return CategoriesKey(classText) + u'\\' + GuidText(category);
}

} // namespace

HRESULT RegisterClassImplCategories(const GUID& classId, std::span<const GUID> categories) {
    for (const GUID& category : categories) {
        const HRESULT hr =
            SetRegistryValues(RegistryRoot::ClassesRoot, CategoryKey(GuidText(classId), category), {});
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

HRESULT UnRegisterClassImplCategories(const GUID& classId, std::span<const GUID> categories) {
    for (const GUID& category : categories) {
        const HRESULT hr =
            DeleteRegistryKey(RegistryRoot::ClassesRoot, CategoryKey(GuidText(classId), category));
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

std::vector<GUID> EnumClassesOfCategory(const GUID& category) {
    std::vector<GUID> classes;
    for (const std::u16string& name : RegistrySubkeys(RegistryRoot::ClassesRoot, u"CLSID")) {
        const std::optional<GUID> classId = ParseGuid(name);
        if (classId && RegistryKeyExists(RegistryRoot::ClassesRoot, CategoryKey(name, category)))
            classes.push_back(*classId);
    }
    return classes;
}

} // namespace platform
