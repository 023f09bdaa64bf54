// What a comparison found, as lines and as JSON.
#pragma once

#include "bench/codec/measure.h"

#include <optional>
#include <string>
#include <vector>

namespace bench {

struct Result {
    std::string name;
    std::size_t frames = 0;
    double bytes = 0; // of one stream, mean
    // Empty when ours and the peer did not agree; nothing is timed then.
    std::optional<Timing> timing;
    std::string fault;
    std::string peer;      // what the peer's column is
    double sizeRatio = 0;  // our streams over the peer's, for encoders; else 0
    double errorRatio = 0; // squared error of the samples, likewise
};

void PrintLine(const Result& result);
// level and set are those of the kernels (image/kernels/Level.h).
void WriteJson(const std::string& path, int level, const std::string& set,
               const std::vector<Result>& results);

} // namespace bench
