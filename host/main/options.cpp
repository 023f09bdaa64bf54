#include "host/main/options.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>

#include "host/base/start_error.h"
#include "host/settings/language.h"

namespace host {

const std::string_view kHelpText =
    R"(morrowstream-host: a video server whose cameras are mobile phones.

  morrowstream-host [--listen ADDR:PORT] [--data DIR] [--seconds N] [--demo] ...
  morrowstream-host [--data DIR] --add-user NAME --kind admin|viewer|phone
  morrowstream-host [--data DIR] --add-users FILE
  morrowstream-host [--data DIR] --language CODE
  morrowstream-host [--data DIR] --register PATH | --unregister PATH

  --listen ADDR:PORT     where to listen (127.0.0.1:8080); port 0 takes a free one
  --data DIR             users, cameras and the administrator's password (./data); made if it is missing
  --seconds N            ends after N seconds; without it, on Ctrl-C or SIGTERM
  --demo                 three cameras, and a simulated phone for two of them; only on a loopback address
  --pictures DIR         what the simulated phones send: folders "yard" and "gate" with *.jpg files
  --files DIR            folders of *.jpg pictures that can be watched as file/FOLDER (DATA/files)
  --quiet                no status lines, and of the log only what went wrong
  --verbose              every channel of the log
  --add-user NAME        adds a user, or gives it a new password, which is read from standard input
  --kind KIND            admin: everything; viewer: looks at the pages; phone: sends and receives pictures
  --add-users FILE       adds the users of a file: a line each, login, kind and password separated by tabs
  --language CODE        the language of texts from the next start on: en, es, fr, ru, lv, az, ka
  --register PATH        enters the component at PATH into the registry of the data folder, from which the host loads it;
                         without one, the component that came with this program is registered at the start
  --unregister PATH      takes the component at PATH out again
  --max-connections N    connections that the web server holds at once (1024)
  --max-per-address N    and from one address (256); an upload stops counting once it has begun

Cameras, passwords and language are changed at http://ADDR:PORT/settings. A file DIR/cameras, with a line each of name, type
(320x240 or 160x120) and password, separated by tabs, is taken into the settings at the start.
Ends with 0; with --demo only if every picture that the simulated phones sent has arrived. 1: it could not start, or
pictures were lost. 2: arguments that make no sense.
)";

namespace {

template <class Number>
Number ParseNumber(std::string_view option, std::string_view text, Number least, Number most) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value < least || value > most)
        throw StartError(std::string(option) + " takes a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not \"" + std::string(text) + "\"");
    return value;
}

// What is to be done in place of serving, each with its one value.
struct CommandOption {
    std::string_view name;
    Command command;
    std::string Options::*value;
};
constexpr CommandOption kCommands[] = {
    {"--add-user", Command::AddUser, &Options::userName},
    {"--add-users", Command::AddUsers, &Options::usersFile},
    {"--language", Command::SetLanguage, &Options::language},
    {"--register", Command::Register, &Options::module},
    {"--unregister", Command::Unregister, &Options::module},
};

} // namespace

Options ParseOptions(std::span<const char* const> arguments) {
    Options options;
    bool kindGiven = false;
    using Value = std::string_view;
    const std::map<std::string_view, std::function<void()>> flags{
        {"--help", [&] { options.command = Command::Help; }},
        {"--version", [&] { options.command = Command::Version; }},
        {"--demo", [&] { options.demo = true; }},
        {"--quiet", [&] { options.verbosity = Verbosity::Quiet; }},
        {"--verbose", [&] { options.verbosity = Verbosity::Verbose; }},
    };
    std::map<std::string_view, std::function<void(Value)>> values{
        {"--listen",
         [&](Value value) {
             const auto endpoint = Endpoint::Parse(value);
             if (!endpoint)
                 throw StartError("--listen takes ADDR:PORT with a numeric address, not \"" +
                                  std::string(value) + "\"");
             options.listen = *endpoint;
         }},
        {"--data", [&](Value value) { options.data = value; }},
        {"--seconds",
         [&](Value value) { options.seconds = ParseNumber("--seconds", value, 1U, 31'536'000U); }},
        {"--files", [&](Value value) { options.files = value; }},
        {"--pictures", [&](Value value) { options.pictures = value; }},
        {"--kind",
         [&](Value value) {
             const auto kind = KindFromName(value);
             if (!kind)
                 throw StartError("--kind takes admin, viewer or phone, not \"" + std::string(value) + "\"");
             options.userKind = *kind;
             kindGiven = true;
         }},
        {"--max-connections",
         [&](Value value) {
             options.limits.maxConnections = ParseNumber<std::size_t>("--max-connections", value, 1, 100'000);
         }},
        {"--max-per-address",
         [&](Value value) {
             options.limits.maxPerAddress = ParseNumber<std::size_t>("--max-per-address", value, 1, 100'000);
         }},
    };
    for (const CommandOption& option : kCommands)
        values[option.name] = [&options, &option](Value value) {
            options.command = option.command;
            options.*option.value = value;
        };
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::string name = arguments[at];
        if (const auto flag = flags.find(name); flag != flags.end()) {
            flag->second();
            continue;
        }
        const auto value = values.find(name);
        if (value == values.end())
            throw StartError("unknown argument \"" + name + "\"");
        if (++at == arguments.size() || *arguments[at] == '\0')
            throw StartError(name + " needs a value");
        value->second(arguments[at]);
    }
    if ((options.command == Command::AddUser) != kindGiven)
        throw StartError("--add-user and --kind go together");
    return options;
}

} // namespace host
