// morrowstream-jpeg: the codec on files.

#include <cstdio>

#include "tools/jpeg/commands.h"
#include "tools/jpeg/files.h"
#include "tools/jpeg/picture.h"

namespace jpegtool {
namespace {

int Run(const Options& options) {
    if (options.command == Command::Help) {
        std::fwrite(options.help.data(), 1, options.help.size(), stdout);
        return kExitDone;
    }
    StartKernels(options.level);
    if (options.showLevel)
        std::printf("%s\n", LevelText().c_str());
    switch (options.command) {
    case Command::Info:
        return RunInfo(options);
    case Command::Decode:
        return RunDecode(options);
    case Command::Encode:
        return RunEncode(options);
    case Command::Bench:
        return RunBench(options);
    case Command::Help:
        break;
    }
    return kExitMisuse;
}

int RunAndFlush(const Options& options) {
    const int status = Run(options);
    if (std::fflush(stdout) != 0)
        throw FileError("cannot write to the standard output");
    return status;
}

} // namespace
} // namespace jpegtool

int main(int count, char** values) {
    return platform::RunProgram("morrowstream-jpeg", count, values, [](auto arguments) {
        return jpegtool::RunAndFlush(jpegtool::ParseOptions(arguments));
    });
}
