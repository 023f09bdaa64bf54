// Says why the host does not start: one line for the person who started it.
#pragma once

#include <stdexcept>

namespace host {

struct StartError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace host
