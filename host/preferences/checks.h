// Checks of preferences that say more than the type of a value.
#pragma once

#include <string>
#include <vector>

#include "host/base/settings_problem.h"
#include "host/preferences/preferences.h"

namespace host {

// Adds what nobody could use: an address that is none, a topic that cannot be published to. `root` is what
// the paths of values begin with. `former` are those in force.
void FindUnfit(const Preferences& preferences, const Preferences& former, const std::string& root,
               std::vector<SettingsProblem>& problems);

} // namespace host
