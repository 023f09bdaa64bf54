// The preferences' document: what is taken of it without a problem is written and read again as it was, and
// so is a line of the journal of events.

#include <nlohmann/json.hpp>

#include "fuzz/Fuzz.h"
#include "host/base/moment.h"
#include "host/events/event.h"
#include "host/preferences/document.h"
#include "platform/configdoc/configdoc.h"

namespace {

using namespace host;

void ReadDocument(std::string_view text, bool anyCamera) {
    static const Preferences present{.cameras = {{"yard", {}}, {"Двор", {}}}};
    const auto read = PreferencesIn(text, present, anyCamera);
    if (!read)
        return;
    if (!read->problems.empty()) {
        for (const SettingsProblem& problem : read->problems)
            Require(problem.path.starts_with("/preferences") && !problem.text.empty());
        return;
    }
    std::vector<std::string> cameras;
    for (const auto& [name, camera] : read->preferences.cameras)
        cameras.push_back(name);
    const auto again = PreferencesIn(DocumentOf(read->preferences, cameras, Secrets::Clear), {}, true);
    Require(again && again->problems.empty());
    Require(again->preferences == read->preferences);
    // An editor gives it back as it got it.
    const auto edited =
        PreferencesIn(DocumentOf(read->preferences, cameras, Secrets::Concealed), read->preferences, false);
    Require(edited && edited->problems.empty() && edited->preferences == read->preferences);
}

void ReadLine(std::string_view text) {
    const auto event = ReadEvent(text);
    if (!event)
        return;
    const std::string line = AsJson(*event).dump();
    const auto again = ReadEvent(line);
    Require(again && AsJson(*again).dump() == line);
    Require(ReadMoment(AsJson(*event)["time"].get<std::string>()) == event->time.time_since_epoch().count());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = platform::RegisterConfigDocumentClass() == S_OK;
    Require(ready);
    const std::string_view text = AsText(data, size);
    ReadDocument(text, true);
    ReadDocument(text, false);
    ReadLine(text);
    return 0;
}
