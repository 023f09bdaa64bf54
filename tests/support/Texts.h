// Texts and lines of texts, compared without gmock: its matchers cost each sanitized source a second and a
// half.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace support {

using Lines = std::vector<std::string>;

// For EXPECT_PRED2.
inline bool Has(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

} // namespace support
