// What the fuzz targets have in common: a requirement ends the program, and bytes are read as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// Built-ins give the caller's place: the standard library lacks <source_location> under Debian 12's clang.
inline void Require(bool holds, const char* what = "a requirement", const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "%s:%d: violated: %s\n", file, line, what);
        std::abort();
    }
}

inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
