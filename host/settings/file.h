// The component's settings file, as the host looks after it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/settings/document.h"

namespace host {

// Where the component keeps its settings below the common data folder.
std::string SettingsFile(const std::string& commonData);

// Makes the folder of the file. Throws StartError.
void MakeSettingsFolder(const std::string& file);

struct DamagedSettings {
    std::string copy;              // where the file is kept
    std::vector<std::string> lost; // what of it is not served, a line each
};
// Nothing for a file that is not there or that `served`, which the component gave, holds whole. Any other is
// copied to one beside it (".damaged" behind its name; older ones stay), since the component overwrites it
// with the first change. To be asked before that. Throws StartError when the copy cannot be written.
std::optional<DamagedSettings> KeepIfDamaged(const std::string& file, const SettingsDocument& served);

} // namespace host
