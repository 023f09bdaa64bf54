#include "interfaces/ComponentDoor.h"

#include "Common/Utils/LocalizeEx.h"
#include "Common/Utils/ModuleImage.h"
#include "platform/text.h"
#include "runtime/trace/StatusException.h"
#include "server/SingletonFactory.h"
#include "server/UploadServer.h"

namespace {

// What the component does once in a process, before anything looks at its texts: they show the configured
// language, and single-byte text is taken for that of this language. Without one, both stay as the host has
// them.
void LoadModule() {
    (void)CLocalizeEx::LocalizeModule(ThisModule());
    if (const std::uint32_t nLanguage = GetConfiguredLanguage(); nLanguage != 0)
        (void)platform::SetSystemCodePage(platform::CodePageOfLanguage(nLanguage));
}

} // namespace

HRESULT RegisterComponentClasses() {
    return StatusOf([] {
        [[maybe_unused]] static const bool bLoaded = (LoadModule(), true);
        const auto spFactory = CComObjectSingletonFactory<CUploadServer>::Create();
        if (!spFactory)
            return E_OUTOFMEMORY;
        return platform::RegisterClassFactory(kUploadServerClass, spFactory.Get());
    });
}

HRESULT RevokeComponentClasses() {
    return platform::RevokeClassFactory(kUploadServerClass);
}
