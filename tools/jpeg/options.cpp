#include "tools/jpeg/options.h"

#include <charconv>

#include "tools/jpeg/errors.h"

namespace jpegtool {
namespace {

constexpr std::string_view kHelp = R"(morrowstream-jpeg: the codec on the command line.

  morrowstream-jpeg info FILE...           what a stream holds, and which engine takes it
  morrowstream-jpeg decode IN.jpg -o OUT   a stream to a picture: .pgm, .ppm or .yuv
  morrowstream-jpeg encode IN -o OUT.jpg   a picture to a stream
  morrowstream-jpeg bench FILE...          how long a decode takes

"morrowstream-jpeg COMMAND --help" lists a command's arguments. All commands take

  --level N      runs the kernels at level N, 0 to 4, instead of the best one of this processor
  --show-level   prints the level and the best one

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

// The whole of `text` as a number from `least` to `most`.
template <typename Number>
Number ParseNumber(std::string_view option, std::string_view text, Number least, Number most) {
    Number value{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    // Written so that a NaN fails, too.
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() ||
        !(value >= least && value <= most)) {
        throw UsageError(std::string(option) + " takes a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not \"" + std::string(text) + "\"");
    }
    return value;
}

Engine ParseEngine(std::string_view text) {
    if (text == "facade")
        return Engine::Facade;
    if (text == "primary")
        return Engine::Primary;
    if (text == "fallback")
        return Engine::Fallback;
    throw UsageError("--engine takes primary, fallback or facade, not \"" + std::string(text) + "\"");
}

Sampling ParseSampling(std::string_view text) {
    if (text == "4:2:0")
        return Sampling::S420;
    if (text == "4:2:2")
        return Sampling::S422;
    if (text == "4:4:4")
        return Sampling::S444;
    throw UsageError("--sampling takes 4:2:0, 4:2:2 or 4:4:4, not \"" + std::string(text) + "\"");
}

std::pair<std::int32_t, std::int32_t> ParseSize(std::string_view text) {
    const std::size_t cross = text.find('x');
    if (cross == std::string_view::npos)
        throw UsageError("--size takes WxH, not \"" + std::string(text) + "\"");
    return {ParseNumber<std::int32_t>("--size", text.substr(0, cross), 1, 65535),
            ParseNumber<std::int32_t>("--size", text.substr(cross + 1), 1, 65535)};
}

struct CommandRow {
    std::string_view name;
    Command command;
    std::string_view help;
    std::string_view options; // each with a blank behind it
};
constexpr CommandRow kCommands[] = {
    {"info", Command::Info, kInfoHelp, ""},
    {"decode", Command::Decode, kDecodeHelp, "-o --engine "},
    {"encode", Command::Encode, kEncodeHelp, "-o --quality --size --sampling --progressive --restart "},
    {"bench", Command::Bench, kBenchHelp, "--engine --seconds "},
};

const CommandRow& FindCommand(std::string_view name) {
    for (const CommandRow& row : kCommands) {
        if (row.name == name)
            return row;
    }
    throw UsageError("unknown command \"" + std::string(name) + "\"");
}

void TakeOption(Options& options, std::string_view name, std::string_view value) {
    if (name == "--level")
        options.level = ParseNumber(name, value, 0, 4);
    else if (name == "-o")
        options.output = value;
    else if (name == "--engine")
        options.engine = ParseEngine(value);
    else if (name == "--quality")
        options.quality = ParseNumber(name, value, 1, 100);
    else if (name == "--size")
        options.size = ParseSize(value);
    else if (name == "--sampling")
        options.sampling = ParseSampling(value);
    else if (name == "--restart")
        options.restartInterval = ParseNumber(name, value, 0, 65535);
    else if (name == "--seconds")
        options.seconds = ParseNumber(name, value, 0.01, 3600.0);
}

void CheckComplete(const Options& options, const CommandRow& row) {
    const std::string name(row.name);
    if (options.inputs.empty())
        throw UsageError(name + " needs a file");
    if (row.options.find("-o ") == std::string_view::npos)
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
    for (std::size_t at = 1; at < arguments.size(); ++at) {
        const std::string_view name = arguments[at];
        if (name == "--help") {
            options.command = Command::Help;
            options.help = row.help;
            return options;
        }
        if (name == "--show-level") {
            options.showLevel = true;
        } else if (!name.starts_with('-') || name == "-") {
            options.inputs.emplace_back(name);
        } else if (name != "--level" && row.options.find(std::string(name) + " ") == std::string_view::npos) {
            throw UsageError("unknown argument \"" + std::string(name) + "\"");
        } else if (name == "--progressive") {
            options.progressive = true;
        } else if (at + 1 == arguments.size()) {
            throw UsageError(std::string(name) + " needs a value");
        } else {
            TakeOption(options, name, arguments[++at]);
        }
    }
    CheckComplete(options, row);
    return options;
}

} // namespace jpegtool
