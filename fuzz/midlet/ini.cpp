// A language file. Whatever it is, nothing of it can open a line of its own in a manifest.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "midlet/IniTree.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CIniTree tree;
    const bool isWhole = tree.LoadIni({reinterpret_cast<const char*>(data), size});
    std::size_t length = 0;
    const auto require = [&](std::string_view text, std::string_view forbidden) {
        length += text.size();
        if (text.find_first_of(forbidden) != std::string_view::npos)
            std::abort();
    };
    for (const CIniNode& section : tree.Root().oChildren) {
        require(section.strName, "]\t\r\n");
        for (const CIniNode& key : section.oChildren) {
            require(key.strName, "=\t\r\n");
            require(key.strValue, "[];\t\r\n");
        }
    }
    if (length > size || (size == 0 && !isWhole))
        std::abort();
    return 0;
}
