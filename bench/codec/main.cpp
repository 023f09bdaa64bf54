// The codec against libjpeg-turbo. bench/compare makes the pictures and calls this.

#include "bench/codec/cases.h"
#include "image/ImageCodec.h"
#include "image/kernels/Level.h"
#include "platform/options.h"

#include <cstdio>

#include <fnmatch.h>

namespace {

struct Options {
    std::string frames;
    std::string filter;
    std::string json;
    double seconds = 2;
    std::string level; // empty: the best one that the processor has
    bool list = false;
    bool help = false;
};

Options Read(std::span<const std::string_view> arguments) {
    Options options;
    std::string name;
    const platform::Option table[] = {
        {"--frames", platform::Text(options.frames)},
        {"--case", platform::Text(name)},
        {"--json", platform::Text(options.json)},
        {"--seconds", platform::NumberFrom(0.001, 3600.0, options.seconds)},
        {"--level", platform::Text(options.level)},
        platform::Flag("--list", options.list),
    };
    options.help = !platform::ReadOptions(arguments, table);
    options.filter = "*" + name + "*";
    return options;
}

void ChooseLevel(const std::string& level) {
    ippStaticInit();
    g_nCodecStartState = 0;
    if (!level.empty() && ippSelectVariant(level.c_str()) != ippStsNoErr)
        throw platform::UsageError("this processor has no level " + level);
}

int Compare(const Options& options) {
    if (options.help) {
        std::puts(
            "bench/compare makes the pictures and calls this; bench/compare --help lists the arguments.");
        return platform::kExitDone;
    }
    bench::PinToOneCore();
    bench::KeepHeap();
    ChooseLevel(options.level);
    std::vector<bench::Result> results;
    bool right = true;
    for (const bench::Case& work : bench::AllCases()) {
        if (fnmatch(options.filter.c_str(), work.Name().c_str(), 0) != 0)
            continue;
        if (options.list) {
            std::printf("%s\n", work.Name().c_str());
            continue;
        }
        results.push_back(bench::Run(work, options.frames, options.seconds));
        right = right && results.back().timing.has_value();
        bench::PrintLine(results.back());
    }
    if (options.list)
        return platform::kExitDone;
    if (results.empty())
        throw platform::UsageError("no case has a name like " + options.filter);
    const char* set = "";
    ippxVariant(&set);
    if (!options.json.empty())
        bench::WriteJson(options.json, g_nKernelLevel, set, results);
    return right ? platform::kExitDone : platform::kExitFailed;
}

} // namespace

int main(int count, char** values) {
    return platform::RunProgram("codec_compare", count, values,
                                [](auto arguments) { return Compare(Read(arguments)); });
}
