// The query of a request.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/text.h"
#include "server/ParseQuery.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::u16string text = platform::FromUtf8({reinterpret_cast<const char*>(data), size});
    // What was read, written again in its order, reads as the same.
    const QueryMap query = ParseQuery(text);
    std::u16string again;
    for (const auto& [key, value] : query) {
        if (key.empty())
            std::abort();
        again += u"&" + key + u"=" + value;
    }
    if (ParseQuery(again) != query || again.size() > text.size() + 2 * query.size())
        std::abort();
    return 0;
}
