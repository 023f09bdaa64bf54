// The head of a request, as any program on the network may write it.

#include "fuzz/Fuzz.h"
#include "server/Request.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = AsText(data, size);
    CHTTPHeader header;
    const auto end = header.Parse(text);
    if (!end)
        return 0;
    // A head that was accepted ends in a line end, has a first line, and alone parses the same.
    Require(*end > 0 && *end <= size && (text[*end - 1] == '\n' || text[*end - 1] == '\r') &&
            !header.FirstLine().empty());
    CHTTPHeader again;
    Require(again.Parse(text.substr(0, *end)) == end && again.FirstLine() == header.FirstLine() &&
            again.GetParam("Authorization") == header.GetParam("authorization"));
    return 0;
}
