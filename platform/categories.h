// The category manager: which registered classes say that they do a certain job.
//
// A class's categories stand in the registry, as keys below CLSID\{class}\Implemented Categories under the
// root of classes. Registering twice does no harm.
#pragma once

#include <span>
#include <vector>

#include "platform/com.h"
#include "platform/export.h"
#include "platform/status.h"

namespace platform {

MORROW_PLATFORM_API HRESULT RegisterClassImplCategories(const GUID& classId,
                                                        std::span<const GUID> categories);
// A category that the class does not have is passed over.
MORROW_PLATFORM_API HRESULT UnRegisterClassImplCategories(const GUID& classId,
                                                          std::span<const GUID> categories);
// The registered classes of a category, in the order of their texts. Keys that are no identifiers are passed
// over.
[[nodiscard]] MORROW_PLATFORM_API std::vector<GUID> EnumClassesOfCategory(const GUID& category);

} // namespace platform
