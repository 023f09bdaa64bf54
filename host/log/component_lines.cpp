#include "host/log/console.h"

#include <string>
#include <string_view>

#include "kit/log/log_engine.h"

namespace host {
namespace {

// The component's own "message" tells of every grant to a phone.
bool IsShown(std::string_view channel) {
    const Console& console = Console::Get();
    return console.Shows(channel) && (channel != "message" || console.HowVerbose() == Verbosity::Verbose);
}

} // namespace

void ShowComponentLines() {
    Console::Get(); // made before the component's last line, so that it ends after it
    kit::SetLogTarget({.wants = IsShown, .write = [](const kit::LogLine& line) {
                           Console& console = Console::Get();
                           std::string text(line.text);
                           if (console.HowVerbose() == Verbosity::Verbose && !line.file.empty())
                               text.append("  [")
                                   .append(line.function)
                                   .append(", ")
                                   .append(line.file)
                                   .append(":" + std::to_string(line.number) + "]");
                           console.Log(line.channel, text);
                       }});
}

} // namespace host
