// Reading a program's command line, and how a program ends.
//
// A program has a table of its options: a name each, and what takes the value. ReadOptions goes through the
// arguments in their order, so a later one wins.
#pragma once

#include <charconv>
#include <concepts>
#include <exception>
#include <functional>
#include <initializer_list>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/export.h"

namespace platform {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitMisuse = 2; // the command line makes no sense

// A command line that makes no sense, as one line for the person at the terminal.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Takes a value. The option's name is for messages.
using TakeValue = std::function<void(std::string_view name, std::string_view value)>;

struct Option {
    std::string_view name;
    TakeValue take;
    bool isFlag = false; // has no value; `take` gets an empty one
};

// Throws UsageError for an unknown argument or a missing value. `takePlain` gets what does not begin with a
// "-" (and "-" itself); without it that is unknown, too. False as soon as "--help" is met, unless the table
// has it.
MORROW_PLATFORM_API bool ReadOptions(std::span<const std::string_view> arguments,
                                     std::span<const Option> options,
                                     const std::function<void(std::string_view)>& takePlain = {});

// Runs a program's work and gives its exit status. What it throws becomes one line on standard error behind
// the program's name, made printable: kExitMisuse for a UsageError, with a hint at --help, kExitFailed for
// the rest.
MORROW_PLATFORM_API int RunProgram(std::string_view name, int count, const char* const* values,
                                   const std::function<int(std::span<const std::string_view>)>& work);

// What a program says of a failure: the exception's own text. Where no thread could be started that would be
// "Resource temporarily unavailable", so the text says what to raise.
inline std::string FailureText(const std::exception& error) {
    const auto* const system = dynamic_cast<const std::system_error*>(&error);
    return system != nullptr && system->code() == std::errc::resource_unavailable_try_again
               ? "no thread can be started: raise the limit of tasks (ulimit -u, or TasksMax of the service)"
               : error.what();
}

// "NAME takes WHAT, not "VALUE"".
MORROW_PLATFORM_API UsageError WrongValue(std::string_view name, std::string_view what,
                                          std::string_view value);

// As a person writes it: 0.01 and not 0.010000.
MORROW_PLATFORM_API std::string NumberText(double number);
template <std::integral Number>
std::string NumberText(Number number) {
    return std::to_string(number);
}

// The whole of `text` as a number from `least` to `most`. Throws UsageError.
template <class Number>
Number ParseNumber(std::string_view name, std::string_view text, Number least, Number most) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    // Written so that a NaN fails, too.
    if (error != std::errc{} || end != text.data() + text.size() || !(value >= least && value <= most))
        throw WrongValue(name, "a number from " + NumberText(least) + " to " + NumberText(most), text);
    return value;
}

// Takers of values. They keep references, so what they fill must outlive the reading.

// A text, or a path.
template <class Target>
TakeValue Text(Target& target) {
    return [&target](std::string_view, std::string_view value) { target = value; };
}

// One that may not be empty.
template <class Target>
TakeValue SomeText(Target& target) {
    return [&target](std::string_view name, std::string_view value) {
        if (value.empty())
            throw UsageError(std::string(name) + " needs a value");
        target = value;
    };
}

// `Target` may be an optional number.
template <class Number, class Target>
TakeValue NumberFrom(Number least, Number most, Target& target) {
    return [least, most, &target](std::string_view name, std::string_view value) {
        target = ParseNumber<Number>(name, value, least, most);
    };
}

// One word of a list.
template <class Value, class Target>
TakeValue OneOf(std::initializer_list<std::pair<std::string_view, Value>> words, Target& target) {
    return [words = std::vector(words), &target](std::string_view name, std::string_view value) {
        std::string list;
        for (std::size_t at = 0; at < words.size(); ++at) {
            if (words[at].first == value) {
                target = words[at].second;
                return;
            }
            list += at == 0 ? "" : at + 1 == words.size() ? " or " : ", ";
            list += words[at].first;
        }
        throw WrongValue(name, list, value);
    };
}

// The option `name`, which has no value.
inline Option Flag(std::string_view name, bool& target) {
    return {name, [&target](std::string_view, std::string_view) { target = true; }, true};
}

} // namespace platform
