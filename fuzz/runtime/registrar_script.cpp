// A registration script. Whatever it is, what is read of it has names, and is no deeper than is said.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/text.h"
#include "runtime/module/RegistrarScript.h"

namespace {

void Look(const std::vector<SRegistrarKey>& keys, unsigned depth) {
    if (depth > kRegistrarDepth)
        std::abort();
    for (const SRegistrarKey& key : keys) {
        if (key.strName.empty())
            std::abort();
        Look(key.aKeys, depth + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto script = ParseRegistrarScript(platform::FromUtf8({reinterpret_cast<const char*>(data), size}));
    if (!script)
        return 0;
    for (const SRegistrarRoot& root : *script)
        Look(root.aKeys, 0);
    return 0;
}
