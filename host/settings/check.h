// What is looked at before a settings document is handed over to the component, which takes of one what it
// can read and leaves out the rest without a word.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "host/settings/document.h"

namespace host {

// What the component would not read as it stands there: another root, a list with another key, values without
// their type or in pieces, elements that it does not know, names that are missing or stand there twice.
// `served` is a document that the component gave: its elements, and its pattern of a new camera, are what
// there is to know.
std::vector<SettingsProblem> FindUnreadable(const SettingsDocument& document, const SettingsDocument& served);

// Names and passwords that no phone could sign in with. `isTaken` tells which names cannot be signed in to.
// A value that stands in `present` already is somebody's, and stays.
std::vector<SettingsProblem> FindUnusable(const SettingsDocument& document, const SettingsDocument* present,
                                          const std::function<bool(std::string_view)>& isTaken);

// Where `taken`, which the component gave, differs from what it was given. A part that `given` does not have
// stays as it was and is not looked at.
std::vector<SettingsProblem> FindDifferences(const SettingsDocument& given, const SettingsDocument& taken);

} // namespace host
