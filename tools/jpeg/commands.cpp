#include "tools/jpeg/commands.h"

#include "tools/jpeg/files.h"

namespace jpegtool {
namespace {

constexpr std::string_view kHelp = R"(morrowstream-jpeg: the codec on the command line.

  morrowstream-jpeg info FILE...           what a stream holds, and which engine takes it
  morrowstream-jpeg decode IN.jpg -o OUT   a stream to a picture: .pgm, .ppm or .yuv
  morrowstream-jpeg encode IN -o OUT.jpg   a picture to a stream
  morrowstream-jpeg bench FILE...          how long a decode takes

"morrowstream-jpeg COMMAND --help" lists a command's arguments. All commands take

  --level N      runs the kernels at level N, 0 to 4, instead of the best one of this processor; 4-avx and 4-avx2 are
                 level 4 as processors with no more than that run it, 4 takes AVX-512 where it is there
  --show-level   prints the level and the best one, each with the instruction set that it runs

Ends with status 0 if all went well, with 1 if a file cannot be read, decoded or written, and with 2 for arguments that make
no sense.
)";

constexpr std::string_view kInfoHelp = R"(morrowstream-jpeg info FILE... [--level N] [--show-level]

Prints for each file: size, frame type, sampling, colour, restart interval, tables, scans, comment, and which engine takes
it and why. Ends with status 1 if a file cannot be read or no engine takes it.
)";

constexpr std::string_view kDecodeHelp =
    R"(morrowstream-jpeg decode IN.jpg -o OUT [--engine E] [--level N] [--show-level]

The name's end chooses what is written:

  .pgm   the Y plane (P5)
  .yuv   the planes Y, Cb, Cr without padding; chroma has half the width and half the height, rounded down
  .ppm   RGB made of these planes (P6): each chroma sample counts for two by two pixels, then the equations of JFIF with
         16 fractional bits, rounded

A grey stream has neutral chroma. --engine is

  facade     as the system does it: the primary engine, and the fallback for what that one turns down (usual)
  primary    the primary engine alone
  fallback   the fallback engine alone
)";

constexpr std::string_view kEncodeHelp = R"(morrowstream-jpeg encode IN -o OUT.jpg [OPTIONS]

IN is a .pgm or .ppm file of the binary form with 255 as the greatest value, or a .yuv file: the planes Y, Cb, Cr without
padding, chroma of half the width and half the height, rounded down.

  --quality N      1 to 100 (75)
  --size WxH       of a .yuv file
  --sampling S     of a .ppm file's stream: 4:2:0 (usual), 4:2:2 or 4:4:4
  --progressive    a progressive stream
  --restart N      a restart marker after every N MCUs, 0 to 65535 (0: none)
)";

constexpr std::string_view kBenchHelp =
    R"(morrowstream-jpeg bench FILE... [--seconds N] [--engine E] [--level N] [--show-level]

Decodes each file again and again for N seconds (1) and prints the median. The processor learns one small picture by heart,
so the time of a stream of different pictures is longer: bench/compare measures that.
)";

platform::TakeValue WidthByHeight(std::optional<Size>& target) {
    return [&target](std::string_view name, std::string_view value) {
        const std::size_t cross = value.find('x');
        if (cross == std::string_view::npos)
            throw platform::WrongValue(name, "WxH", value);
        target.emplace(platform::ParseNumber(name, value.substr(0, cross), 1, 65535),
                       platform::ParseNumber(name, value.substr(cross + 1), 1, 65535));
    };
}

struct CommandRow {
    std::string_view name;
    Command command;
    std::string_view help;
};
constexpr CommandRow kCommands[] = {
    {"info", Command::Info, kInfoHelp},
    {"decode", Command::Decode, kDecodeHelp},
    {"encode", Command::Encode, kEncodeHelp},
    {"bench", Command::Bench, kBenchHelp},
};

const CommandRow& FindCommand(std::string_view name) {
    for (const CommandRow& row : kCommands) {
        if (row.name == name)
            return row;
    }
    throw UsageError("unknown command \"" + std::string(name) + "\"");
}

// What the command in `options` takes.
std::vector<platform::Option> OptionsOf(Options& options) {
    std::vector<platform::Option> table{
        {"--level", platform::Text(options.level)},
        platform::Flag("--show-level", options.showLevel),
    };
    if (options.command == Command::Decode || options.command == Command::Encode)
        table.push_back({"-o", platform::Text(options.output)});
    if (options.command == Command::Decode || options.command == Command::Bench)
        table.push_back({"--engine", platform::OneOf<Engine>({{"primary", Engine::Primary},
                                                              {"fallback", Engine::Fallback},
                                                              {"facade", Engine::Facade}},
                                                             options.engine)});
    if (options.command == Command::Bench)
        table.push_back({"--seconds", platform::NumberFrom(0.01, 3600.0, options.seconds)});
    if (options.command == Command::Encode) {
        table.push_back({"--quality", platform::NumberFrom(1, 100, options.quality)});
        table.push_back({"--size", WidthByHeight(options.size)});
        table.push_back({"--sampling", platform::OneOf<Sampling>({{"4:2:0", Sampling::S420},
                                                                  {"4:2:2", Sampling::S422},
                                                                  {"4:4:4", Sampling::S444}},
                                                                 options.sampling)});
        table.push_back(platform::Flag("--progressive", options.progressive));
        table.push_back({"--restart", platform::NumberFrom(0, 65535, options.restartInterval)});
    }
    return table;
}

void CheckComplete(const Options& options, const std::string& name) {
    if (options.inputs.empty())
        throw UsageError(name + " needs a file");
    if (options.command == Command::Info || options.command == Command::Bench)
        return;
    if (options.inputs.size() > 1)
        throw UsageError(name + " takes one file, and \"" + options.inputs[1] + "\" is a second");
    if (options.output.empty())
        throw UsageError(name + " needs -o OUT");
}

} // namespace

Options ParseOptions(std::span<const std::string_view> arguments) {
    Options options;
    options.help = kHelp;
    if (arguments.empty())
        throw UsageError("no command");
    if (arguments[0] == "--help")
        return options;
    const CommandRow& row = FindCommand(arguments[0]);
    options.command = row.command;
    options.help = row.help;
    if (platform::ReadOptions(arguments.subspan(1), OptionsOf(options),
                              [&](std::string_view file) { options.inputs.emplace_back(file); }))
        CheckComplete(options, std::string(row.name));
    else
        options.command = Command::Help;
    return options;
}

} // namespace jpegtool
