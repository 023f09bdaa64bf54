// What the fuzz targets have in common: a requirement ends the program, and bytes are read as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <source_location>
#include <string_view>

inline void Require(bool holds, const char* what = "a requirement",
                    std::source_location where = std::source_location::current()) {
    if (!holds) {
        std::fprintf(stderr, "%s:%u: violated: %s\n", where.file_name(), static_cast<unsigned>(where.line()),
                     what);
        std::abort();
    }
}

inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
