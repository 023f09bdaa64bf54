// Why the host does not start: one line for the person who started it.
#pragma once

#include <stdexcept>

namespace host {

struct StartError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The same, for arguments that make no sense.
struct MisuseError : StartError {
    using StartError::StartError;
};

} // namespace host
