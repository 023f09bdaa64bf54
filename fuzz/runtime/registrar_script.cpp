// A registration script. Whatever it is, what is read of it has names, and is no deeper than is said.

#include "fuzz/Fuzz.h"
#include "platform/text.h"
#include "runtime/module/Registrar.h"

namespace {

void Look(const std::vector<SRegistrarKey>& keys, unsigned depth) {
    Require(depth <= kRegistrarDepth);
    for (const SRegistrarKey& key : keys) {
        Require(!key.strName.empty());
        Look(key.aKeys, depth + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto script = ParseRegistrarScript(platform::FromUtf8(AsText(data, size)));
    if (!script)
        return 0;
    for (const SRegistrarRoot& root : *script)
        Look(root.aKeys, 0);
    return 0;
}
