// A language file. Whatever it is, nothing of it can open a line of its own in a manifest.

#include "fuzz/Fuzz.h"
#include "midlet/Manifest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CIniTree tree;
    const bool isWhole = tree.LoadIni(AsText(data, size));
    std::size_t length = 0;
    const auto require = [&](std::string_view text, std::string_view forbidden) {
        length += text.size();
        Require(text.find_first_of(forbidden) == std::string_view::npos);
    };
    for (const CIniNode& section : tree.Root().oChildren) {
        require(section.strName, "]\t\r\n");
        for (const CIniNode& key : section.oChildren) {
            require(key.strName, "=\t\r\n");
            require(key.strValue, "[];\t\r\n");
        }
    }
    Require(length <= size && (size > 0 || isWhole));
    return 0;
}
