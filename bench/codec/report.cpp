#include "bench/codec/cases.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

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

void WriteJson(const std::string& path, int level, const std::string& set,
               const std::vector<Result>& results) {
    using Json = nlohmann::ordered_json;
    Json cases = Json::array();
    for (const Result& result : results) {
        Json one = {{"name", result.name}, {"frames", result.frames}, {"bytes", result.bytes}};
        if (const auto& timing = result.timing) {
            one.update({{"ours_us", timing->ours},
                        {"peer", result.peer},
                        {"peer_us", timing->peer},
                        {"ratio", timing->ratio},
                        {"low", timing->low},
                        {"high", timing->high},
                        {"rounds", timing->rounds}});
        } else {
            one["fault"] = result.fault;
        }
        if (result.sizeRatio > 0)
            one.update({{"size_ratio", result.sizeRatio}, {"error_ratio", result.errorRatio}});
        cases.push_back(std::move(one));
    }
    const Json report = {{"peer", "libjpeg-turbo " + std::to_string(LIBJPEG_TURBO_VERSION_NUMBER)},
                         {"level", level},
                         {"set", set},
                         {"cases", std::move(cases)}};
    std::ofstream file(path);
    if (!(file << report.dump(2) << std::endl))
        throw std::runtime_error("cannot write " + path);
}

} // namespace bench
