// The command line, and one function a command.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/options.h"
#include "tools/jpeg/picture.h"

namespace jpegtool {

using platform::kExitDone;
using platform::kExitFailed; // a file cannot be read, decoded or written
using platform::kExitMisuse;

enum class Command { Help, Info, Decode, Encode, Bench };
enum class Sampling { S420, S422, S444 };

struct Options {
    Command command = Command::Help;
    std::string_view help; // what Command::Help prints
    std::vector<std::string> inputs;
    std::string output;
    std::string level; // empty: the best one of the processor
    bool showLevel = false;
    Engine engine = Engine::Facade;
    double seconds = 1; // a file, for bench
    // For encode.
    int quality = 75;
    std::optional<Sampling> sampling;
    std::optional<std::pair<std::int32_t, std::int32_t>> size;
    bool progressive = false;
    int restartInterval = 0; // in MCUs, 0 for none
};

// `arguments` stand behind the program's name. Throws UsageError.
Options ParseOptions(std::span<const std::string_view> arguments);

// Each returns the exit status, prints what was asked for on the standard output and a line for each refusal
// on the standard error. They throw UsageError and FileError for what ends the command.
int RunInfo(const Options& options);
int RunDecode(const Options& options);
int RunEncode(const Options& options);
int RunBench(const Options& options);

} // namespace jpegtool
