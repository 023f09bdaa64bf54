// Keeps a file whose content is damaged, before something else is written in its place.
#pragma once

#include <string>

namespace host {

// Copies the file to one beside it (".damaged" behind its name, and a number where older ones stay). Returns
// the copy's path. Throws StartError when that cannot be written.
std::string KeepDamagedCopy(const std::string& file, const std::string& content);

} // namespace host
