// The component's class in this process, for programs that link its objects instead of loading the module.
#pragma once

#include "Common/Utils/LocalizeEx.h"
#include "interfaces/IUploadServer.h"
#include "platform/com.h"
#include "platform/text.h"
#include "runtime/trace/StatusException.h"
#include "server/SingletonFactory.h"
#include "server/UploadServer.h"

namespace support {

// What the module's entry point does once in a process, and the host's start with the code page.
inline void LoadComponent() {
    (void)CLocalizeEx::LocalizeModule(ThisModule());
    if (const std::uint32_t nLanguage = GetConfiguredLanguage(); nLanguage != 0)
        (void)platform::SetSystemCodePage(platform::CodePageOfLanguage(nLanguage));
}

inline HRESULT RegisterComponentClasses() {
    return StatusOf([] {
        [[maybe_unused]] static const bool bLoaded = (LoadComponent(), true);
        const auto spFactory = CComObjectSingletonFactory<CUploadServer>::Create();
        if (!spFactory)
            return E_OUTOFMEMORY;
        return platform::RegisterClassFactory(kUploadServerClass, spFactory.Get());
    });
}

inline HRESULT RevokeComponentClasses() {
    return platform::RevokeClassFactory(kUploadServerClass);
}

} // namespace support
