// Texts and lines of texts, and the code page that they are read in. They are compared without gmock: its
// matchers cost each sanitized source a second and a half.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/text.h"

namespace support {

using Lines = std::vector<std::string>;

// For EXPECT_PRED2.
inline bool Has(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

// The thread's code page, for the life of an object.
struct CodePage {
    explicit CodePage(unsigned page) { platform::SetThreadCodePage(page); }
    CodePage(const CodePage&) = delete;
    CodePage& operator=(const CodePage&) = delete;
    ~CodePage() { platform::SetThreadCodePage(0); }
};

} // namespace support
