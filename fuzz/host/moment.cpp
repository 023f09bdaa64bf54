// A moment in an address: what is read is within the calendar, and the same as its number.

#include "host/base/moment.h"
#include "fuzz/Fuzz.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (const auto time = host::ReadMoment(AsText(data, size)))
        Require(*time >= 0 && host::ReadMoment(std::to_string(*time)) == time);
    return 0;
}
