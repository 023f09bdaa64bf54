#include "bench/codec/report.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include <jpeglib.h>

namespace bench {

void PrintLine(const Result& result) {
    std::printf("%-30s ", result.name.c_str());
    if (const auto& timing = result.timing) {
        std::printf("ours %8.1f us  %s %8.1f us  ratio %5.3f  (%5.3f to %5.3f in %zu rounds)  %7.0f bytes",
                    timing->ours, result.peer.c_str(), timing->peer, timing->ratio, timing->low, timing->high,
                    timing->rounds, result.bytes);
        if (result.sizeRatio > 0)
            std::printf("  size %.4f  error %.4f", result.sizeRatio, result.errorRatio);
        std::printf("\n");
    } else {
        std::printf("WRONG: %s\n", result.fault.c_str());
    }
    std::fflush(stdout);
}

// Names and faults are made here and hold nothing that JSON would want to be escaped.
void WriteJson(const std::string& path, int level, const std::string& set,
               const std::vector<Result>& results) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "w"), std::fclose);
    if (!file)
        throw std::runtime_error("cannot write " + path);
    std::fprintf(file.get(),
                 "{\n  \"peer\": \"libjpeg-turbo %d\",\n  \"level\": %d,\n  \"set\": \"%s\",\n  \"cases\": [",
                 LIBJPEG_TURBO_VERSION_NUMBER, level, set.c_str());
    for (const Result& result : results) {
        std::fprintf(file.get(), "%s\n    {\"name\": \"%s\", \"frames\": %zu, \"bytes\": %.1f",
                     &result == results.data() ? "" : ",", result.name.c_str(), result.frames, result.bytes);
        if (const auto& timing = result.timing) {
            std::fprintf(file.get(),
                         ", \"ours_us\": %.3f, \"peer\": \"%s\", \"peer_us\": %.3f, \"ratio\": %.4f, "
                         "\"low\": %.4f, \"high\": %.4f, \"rounds\": %zu",
                         timing->ours, result.peer.c_str(), timing->peer, timing->ratio, timing->low,
                         timing->high, timing->rounds);
        } else {
            std::fprintf(file.get(), ", \"fault\": \"%s\"", result.fault.c_str());
        }
        if (result.sizeRatio > 0)
            std::fprintf(file.get(), ", \"size_ratio\": %.5f, \"error_ratio\": %.5f", result.sizeRatio,
                         result.errorRatio);
        std::fprintf(file.get(), "}");
    }
    std::fprintf(file.get(), "\n  ]\n}\n");
    if (std::fflush(file.get()) != 0)
        throw std::runtime_error("cannot write " + path);
}

} // namespace bench
