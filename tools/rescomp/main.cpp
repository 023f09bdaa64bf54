// rescomp: makes the image with a module's resources.

#include <cstdio>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/options.h"
#include "tools/rescomp/input.h"
#include "tools/rescomp/resources.h"

namespace {

constexpr std::string_view kHelpText =
    R"(rescomp: makes the image with a module's resources from a list of them.

  rescomp LIST --search DIR [--search DIR ...] --version N.N.N -o IMAGE

  --search DIR     where the files of the list are looked for, first to last
  --version N.N.N  what the version block says
  -o IMAGE         the file to write

Ends with 0; 1: an input is at fault, which a line names; 2: arguments that make no sense.
)";

int Run(std::span<const std::string_view> arguments) {
    std::string list;
    std::string output;
    rescomp::ListOptions options;
    const platform::Option table[] = {
        {"--search", [&](std::string_view, std::string_view value) { options.folders.emplace_back(value); }},
        {"--version", platform::Text(options.version)},
        {"-o", platform::Text(output)},
    };
    const auto takeList = [&](std::string_view name) {
        if (!list.empty())
            throw platform::UsageError("unknown argument \"" + std::string(name) + "\"");
        list = name;
    };
    if (!platform::ReadOptions(arguments, table, takeList)) {
        std::fputs(kHelpText.data(), stdout);
        return platform::kExitDone;
    }
    if (list.empty() || output.empty() || options.folders.empty())
        throw platform::UsageError("a list, a folder to search and an image to write are needed");
    const std::string image = rescomp::BuildImage(rescomp::ReadResourceList(list, options));
    // Whoever builds may read it, as any other file of a build.
    if (FAILED(platform::ReplaceFile(output, image, 0644)))
        throw rescomp::InputError(output + ": cannot be written");
    return platform::kExitDone;
}

} // namespace

int main(int count, char** values) {
    return platform::RunProgram("rescomp", count, values, Run);
}
