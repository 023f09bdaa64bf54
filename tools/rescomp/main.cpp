// rescomp: makes the image with a module's resources.

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "tools/rescomp/input.h"
#include "tools/rescomp/resource_list.h"

namespace {

constexpr std::string_view kHelpText =
    R"(rescomp: makes the image with a module's resources from a list of them.

  rescomp LIST --search DIR [--search DIR ...] --version N.N.N -o IMAGE

  --search DIR     where the files of the list are looked for, first to last
  --version N.N.N  what the version block says
  -o IMAGE         the file to write

Ends with 0; 1: an input is at fault, which a line names; 2: arguments that make no sense.
)";

int Misuse(const std::string& what) {
    std::fprintf(stderr, "rescomp: %s; see rescomp --help\n", what.c_str());
    return 2;
}

int Run(const std::string& list, const rescomp::ListOptions& options, const std::string& output) {
    const std::string image = rescomp::BuildImage(rescomp::ReadResourceList(list, options));
    // Whoever builds may read it, as any other file of a build.
    if (FAILED(platform::ReplaceFile(output, image, 0644)))
        throw rescomp::InputError(output + ": cannot be written");
    return 0;
}

} // namespace

int main(int count, char** values) {
    try {
        std::string list;
        std::string output;
        rescomp::ListOptions options;
        for (int at = 1; at < count; ++at) {
            const std::string argument = values[at];
            if (argument == "--help") {
                std::fputs(kHelpText.data(), stdout);
                return 0;
            }
            const bool isOption = argument == "--search" || argument == "--version" || argument == "-o";
            if (isOption && at + 1 == count)
                return Misuse(argument + " needs a value");
            if (argument == "--search")
                options.folders.emplace_back(values[++at]);
            else if (argument == "--version")
                options.version = values[++at];
            else if (argument == "-o")
                output = values[++at];
            else if (list.empty() && !argument.starts_with('-'))
                list = argument;
            else
                return Misuse("unknown argument \"" + argument + "\"");
        }
        if (list.empty() || output.empty() || options.folders.empty())
            return Misuse("a list, a folder to search and an image to write are needed");
        return Run(list, options, output);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "rescomp: %s\n", error.what());
        return 1;
    }
}
