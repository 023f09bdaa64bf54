#include "Common/Utils/ModuleImage.h"

#include "platform/status.h"

// The build puts the image between these, on pages of its own. The system maps them read-only and private.
// They are no constants to the compiler, since the localisation changes entries of them.
extern "C" {
extern std::uint8_t morrow_resource_image[] __attribute__((visibility("hidden")));
extern std::uint8_t morrow_resource_image_end[] __attribute__((visibility("hidden")));
}

namespace {

class CModuleInstance {
public:
    CModuleInstance() {
        // Cannot fail but for memory: the image is not empty, and nobody else has it.
        (void)platform::AddResourceInstance({morrow_resource_image, morrow_resource_image_end});
    }
    CModuleInstance(const CModuleInstance&) = delete;
    CModuleInstance& operator=(const CModuleInstance&) = delete;
    ~CModuleInstance() { (void)platform::RemoveResourceInstance(morrow_resource_image); }
};

// Before everything else of the module, whose entry point looks at the resources.
[[gnu::init_priority(200)]] const CModuleInstance g_oModuleInstance;

} // namespace

// What the link asks for, so that this file is part of every program that links the texts.
extern "C" __attribute__((visibility("hidden"))) const bool morrow_module_instance = true;

platform::ModuleHandle ThisModule() noexcept {
    return morrow_resource_image;
}
