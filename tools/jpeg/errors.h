// How the program ends, and the two ways in which it may not go well.
#pragma once

#include <stdexcept>

namespace jpegtool {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1; // a file cannot be read, decoded or written
inline constexpr int kExitMisuse = 2; // the command line makes no sense

// Each is one line for the person at the terminal, without the program's name.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace jpegtool
