// Preferences that hosts share, as entries of a store: one for each camera that is set to something, and one
// for all that is no camera's.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/base/store_mirror.h"
#include "host/preferences/preferences.h"

namespace host {

StoreMirror::Values PreferenceValues(const Preferences& preferences);
// `present` with what stands in the values; of a camera that has none, the usual ones. A value of a newer
// host that means nothing here is passed over.
Preferences PreferencesFrom(const StoreMirror::Values& values, Preferences present);
// The key of a camera's, that of all that is no camera's for an empty name, and the camera of a key; empty
// for what is no camera's.
std::string PreferenceKey(std::string_view camera);
std::string PreferenceCamera(std::string_view key);
// A line for each key whose values differ, for a person.
std::vector<std::string> PreferenceDifferences(const StoreMirror::Values& here,
                                               const StoreMirror::Values& there);

} // namespace host
