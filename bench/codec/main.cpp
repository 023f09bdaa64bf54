// The codec against libjpeg-turbo. bench/compare makes the pictures and calls this.

#include "bench/codec/cases.h"
#include "image/ImageCodec.h"
#include "image/kernels/Level.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include <fnmatch.h>

namespace {

struct Options {
    std::string frames;
    std::string filter = "*";
    std::string json;
    double seconds = 2;
    int level = -1; // the best one that the processor has
    bool list = false;
};

double Number(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0')
        throw std::invalid_argument("no number: " + text);
    return value;
}

Options Read(int count, char** arguments) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        if (name == "--list") {
            options.list = true;
            continue;
        }
        if (i + 1 == count)
            throw std::invalid_argument(name + " is unknown or lacks its value");
        const std::string value = arguments[++i];
        if (name == "--frames")
            options.frames = value;
        else if (name == "--case")
            options.filter = "*" + value + "*";
        else if (name == "--json")
            options.json = value;
        else if (name == "--seconds")
            options.seconds = Number(value);
        else if (name == "--level")
            options.level = static_cast<int>(Number(value));
        else
            throw std::invalid_argument(name + " is unknown");
    }
    return options;
}

void ChooseLevel(int level) {
    ippStaticInit();
    g_nCodecStartState = 0;
    if (level < 0)
        return;
    if (level > g_nKernelLevel)
        throw std::invalid_argument("this processor has no level " + std::to_string(level));
    g_nKernelLevel = level;
}

int Compare(const Options& options) {
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
        return 0;
    if (results.empty())
        throw std::invalid_argument("no case has a name like " + options.filter);
    if (!options.json.empty())
        bench::WriteJson(options.json, g_nKernelLevel, results);
    return right ? 0 : 1;
}

} // namespace

int main(int count, char** arguments) {
    try {
        return Compare(Read(count, arguments));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "codec_compare: %s\n", error.what());
        return 2;
    }
}
