// A request's path. The first byte chooses the thread's code page.

#include "fuzz/Fuzz.h"
#include "platform/text.h"
#include "server/Request.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    static constexpr unsigned kPages[] = {65001, 1251, 1252, 1257, 20127};
    platform::SetThreadCodePage(kPages[data[0] % 5]);
    const auto path = platform::Bstr(platform::FromUtf8(AsText(data + 1, size - 1)));
    for (const bool utf8 : {false, true}) {
        platform::Bstr rest;
        const platform::Bstr segment = SplitPath(path, rest, utf8);
        // The cut takes one character away. A unit of the path is at most three bytes, each a character of
        // its own in a single-byte page; a segment never reaches its limit.
        Require(rest.Length() <= path.Length() && segment.Length() <= 3 * path.Length() &&
                segment.Length() < 1024);
        (void)TrimSlashes(rest.View());
    }
    return 0;
}
