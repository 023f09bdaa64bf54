// The component's settings file, as the host looks after it.
#pragma once

#include <string>

namespace host {

// Where the component keeps its settings below the common data folder.
std::string SettingsFile(const std::string& commonData);

// Makes the folder of the file. A file that is no settings document, or has a camera that cannot be read, is
// copied to one beside it (".damaged" behind its name; older ones stay), since the component starts with what
// it can read and overwrites the file with the first change. Returns the path of that copy; empty when the
// file is in order or not there. Throws StartError when something cannot be written.
std::string PrepareSettingsFile(const std::string& file);

} // namespace host
