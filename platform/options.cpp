#include "platform/options.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>

#include "platform/text.h"

namespace platform {

namespace {

int Complain(std::string_view name, std::string_view what, int status) {
    // The two outputs often share a terminal: what was printed before comes before.
    std::fflush(stdout);
    std::fprintf(stderr, "%.*s: %s\n", static_cast<int>(name.size()), name.data(), Printable(what).c_str());
    return status;
}

} // namespace

bool ReadOptions(std::span<const std::string_view> arguments, std::span<const Option> options,
                 const std::function<void(std::string_view)>& takePlain) {
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::string_view name = arguments[at];
        const auto option = std::ranges::find(options, name, &Option::name);
        if (option == options.end()) {
            if (name == "--help")
                return false;
            if (!takePlain || (name.starts_with('-') && name != "-"))
                throw UsageError("unknown argument \"" + std::string(name) + "\"");
            takePlain(name);
        } else if (option->isFlag) {
            option->take(name, {});
        } else if (++at == arguments.size()) {
            throw UsageError(std::string(name) + " needs a value");
        } else {
            option->take(name, arguments[at]);
        }
    }
    return true;
}

int RunProgram(std::string_view name, int count, const char* const* values,
               const std::function<int(std::span<const std::string_view>)>& work) {
    try {
        const std::vector<std::string_view> arguments(values + (count > 0 ? 1 : 0), values + count);
        return work(arguments);
    } catch (const UsageError& error) {
        return Complain(name, error.what() + ("; see " + std::string(name) + " --help"), kExitMisuse);
    } catch (const std::bad_alloc&) {
        return Complain(name, "not enough memory", kExitFailed);
    } catch (const std::exception& error) {
        return Complain(name, FailureText(error), kExitFailed);
    }
}

std::string NumberText(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", number);
    return text;
}

UsageError WrongValue(std::string_view name, std::string_view what, std::string_view value) {
    return UsageError(std::string(name) + " takes " + std::string(what) + ", not \"" + std::string(value) +
                      "\"");
}

} // namespace platform
