// The stream of a viewing phone, as any server may send it. The first byte says in what pieces it comes:
// pictures and the failure are the same for each.

#include <algorithm>
#include <string>

#include "fuzz/Fuzz.h"
#include "phone/connection.h"
#include "phone/packet.h"

namespace {

struct Outcome {
    std::string pictures;
    bool failed = false;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

Outcome Read(std::string_view stream, std::size_t chunk) {
    Outcome outcome;
    phone::PacketReader reader;
    try {
        for (; !stream.empty(); stream.remove_prefix(std::min(chunk, stream.size()))) {
            reader.Feed(stream.substr(0, chunk));
            while (const auto packet = reader.Next())
                outcome.pictures += packet->jpeg;
        }
    } catch (const phone::Ended&) {
        outcome.failed = true;
    }
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string_view stream = AsText(data + 1, size - 1);
    Require(Read(stream, data[0] + std::size_t{1}) == Read(stream, stream.size() + 1));
    return 0;
}
