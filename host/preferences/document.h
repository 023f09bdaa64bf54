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

// --- What it is made of and held against ---

// The document with every value, its defaults left out, and with one camera, which stands for all.
//
// Types: "BSTR" is a text, with `password` one that stays at home, with `lookup` one of those choices;
// "number" is a whole number from `min` to `max`; "yesno" is "yes" or "no"; "set" has any of its choices,
// with spaces between; "mask" is a CellMask. `longest` is in bytes of UTF-8. Labels are those of `local`, in
// English.
std::u16string_view PreferencePattern() noexcept;

// Adds what nobody could use: an address that is none, a topic that cannot be published to. `root` is what
// the paths of values begin with. `former` are those in force; `passwordEntered` tells whether the broker's
// password has been entered now, and is not that of the former ones left as it is.
void FindUnfit(const Preferences& preferences, const Preferences& former, bool passwordEntered,
               const std::string& root, std::vector<SettingsProblem>& problems);

} // namespace host
