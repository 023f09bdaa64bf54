// The command line.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace jpegtool {

enum class Command { Help, Info, Decode, Bench };
enum class Engine { Facade, Primary, Fallback };

struct Options {
    Command command = Command::Help;
    std::string_view help; // what Command::Help prints
    std::vector<std::string> inputs;
    std::string output;
    std::optional<int> level; // empty: the best one of the processor
    bool showLevel = false;
    Engine engine = Engine::Facade;
    double seconds = 1; // a file, for bench
};

// `arguments` stand behind the program's name. Throws UsageError.
Options ParseOptions(std::span<const std::string_view> arguments);

} // namespace jpegtool
