// The query of a request.

#include "fuzz/Fuzz.h"
#include "platform/text.h"
#include "server/Request.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::u16string text = platform::FromUtf8(AsText(data, size));
    // What was read, written again in its order, reads as the same.
    const QueryMap query = ParseQuery(text);
    std::u16string again;
    for (const auto& [key, value] : query) {
        Require(!key.empty());
        again += u"&" + key + u"=" + value;
    }
    Require(ParseQuery(again) == query && again.size() <= text.size() + 2 * query.size());
    return 0;
}
