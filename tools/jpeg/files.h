// Whole files in memory, and the two ways in which a command may not go well.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/options.h"

namespace jpegtool {

using platform::UsageError;

// One line for the person at the terminal, without the program's name.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
using Bytes = std::vector<std::uint8_t>;

// Sizes of the codec have 32 bits; a larger file holds no stream for it.
inline constexpr std::size_t kLargestFile = INT32_MAX;

// Both throw FileError, which names the file and says why.
Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, std::span<const std::uint8_t> head,
               std::span<const std::uint8_t> body = {});

// "morrowstream-jpeg: ..." on the standard error.
void Complain(const std::string& line);

} // namespace jpegtool
