// Whole files in memory, and what is said about them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace jpegtool {

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
