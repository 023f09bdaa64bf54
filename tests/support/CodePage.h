// The thread's code page, for the life of an object.
#pragma once

#include "platform/text.h"

namespace support {

struct CodePage {
    explicit CodePage(unsigned page) { platform::SetThreadCodePage(page); }
    CodePage(const CodePage&) = delete;
    CodePage& operator=(const CodePage&) = delete;
    ~CodePage() { platform::SetThreadCodePage(0); }
};

} // namespace support
