// Says why the host does not start: one line for the person who started it.
#pragma once

#include <stdexcept>
#include <string>

namespace host {

struct StartError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Keeps a file whose content is damaged, before something else is written in its place.
//
// Copies the file to one beside it (".damaged" behind its name, and a number where older ones stay). Returns
// the copy's path. Throws StartError when that cannot be written.
std::string KeepDamagedCopy(const std::string& file, const std::string& content);

} // namespace host
