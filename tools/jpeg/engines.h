// The engines behind the codec, one by one, and in words why they take a stream or do not.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>

#include "tools/jpeg/picture.h"

namespace jpegtool {

using Stream = std::span<const std::uint8_t>; // at most kLargestFile bytes

enum class Engine { Facade, Primary, Fallback };

// Starts the kernels at this level, or with an empty name at the best one. Throws UsageError for one that the
// processor lacks and for what is none.
void StartKernels(const std::string& level);
// For example "kernel level 4 (AVX2), best level 4 (AVX2)".
std::string LevelText();

// Which engine decodes a stream in the system.
struct Verdict {
    std::string engine; // "primary", "fallback" or "none"
    std::string reason;
};
Verdict ChooseEngine(Stream stream);

// The picture, or in words why there is none. Throws std::bad_alloc.
std::variant<Picture, std::string> Decode(Stream stream, Engine engine);

} // namespace jpegtool
