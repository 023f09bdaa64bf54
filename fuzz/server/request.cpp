// The parts of a request, as any program on the network may write them. FUZZ_PART names the one that a
// program of this source reads.

#include "server/Request.h"
#include "fuzz/Fuzz.h"
#include "platform/text.h"

namespace part {

void Head(std::string_view text) {
    CHTTPHeader header;
    const auto end = header.Parse(text);
    if (!end)
        return;
    // A head that was accepted ends in a line end, has a first line, and alone parses the same.
    Require(*end > 0 && *end <= text.size() && (text[*end - 1] == '\n' || text[*end - 1] == '\r') &&
            !header.FirstLine().empty());
    CHTTPHeader again;
    Require(again.Parse(text.substr(0, *end)) == end && again.FirstLine() == header.FirstLine() &&
            again.GetParam("Authorization") == header.GetParam("authorization"));
}

// The first byte chooses the thread's code page.
void Path(std::string_view text) {
    if (text.empty())
        return;
    static constexpr unsigned kPages[] = {65001, 1251, 1252, 1257, 20127};
    platform::SetThreadCodePage(kPages[static_cast<std::uint8_t>(text[0]) % 5]);
    const auto path = platform::Bstr(platform::FromUtf8(text.substr(1)));
    for (const bool utf8 : {false, true}) {
        platform::Bstr rest;
        const platform::Bstr segment = SplitPath(path, rest, utf8);
        // The cut takes one character away. A unit of the path is at most three bytes, each a character of
        // its own in a single-byte page; a segment never reaches its limit.
        Require(rest.Length() <= path.Length() && segment.Length() <= 3 * path.Length() &&
                segment.Length() < 1024);
        (void)TrimSlashes(rest.View());
    }
}

// What was read of a query, written again in its order, reads as the same.
void Query(std::string_view text) {
    const std::u16string wide = platform::FromUtf8(text);
    const QueryMap query = ParseQuery(wide);
    std::u16string again;
    for (const auto& [key, value] : query) {
        Require(!key.empty());
        again += u"&" + key + u"=" + value;
    }
    Require(ParseQuery(again) == query && again.size() <= wide.size() + 2 * query.size());
}

} // namespace part

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    part::FUZZ_PART(AsText(data, size));
    return 0;
}
