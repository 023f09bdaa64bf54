// The preferences as a document of the kind that the component's settings are: values with types, labels,
// choices and limits, which an editor can draw without knowing one of them. docs/configuration.md has its
// form.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/settings_problem.h"
#include "host/preferences/preferences.h"

namespace host {

enum class Secrets {
    Clear,    // for the file
    Concealed // for an editor: dots with a mark, which comes back where the password is to stay
};

// UTF-8. `cameras`: those to list, in this order.
std::string DocumentOf(const Preferences& preferences, const std::vector<std::string>& cameras,
                       Secrets secrets);

struct ReadPreferences {
    Preferences preferences; // those of `present`, with all that could be taken
    std::vector<SettingsProblem> problems;
};
// What stands in a document, over what is in force. A camera that `present` does not have is taken along when
// `anyCamera`, and is a problem else. Nothing for a text that is no document of this kind.
std::optional<ReadPreferences> PreferencesIn(std::string_view xml, const Preferences& present,
                                             bool anyCamera);

// The choices of the set at a place: "notices/kinds".
std::vector<std::string> ChoicesAt(const char16_t* path);

} // namespace host
