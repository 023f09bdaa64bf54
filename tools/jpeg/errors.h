// How the program ends, and the two ways in which it may not go well.
#pragma once

#include <stdexcept>

#include "platform/options.h"

namespace jpegtool {

using platform::kExitDone;
using platform::kExitFailed; // a file cannot be read, decoded or written
using platform::kExitMisuse;
using platform::UsageError;

// One line for the person at the terminal, without the program's name.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace jpegtool
