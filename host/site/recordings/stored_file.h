// A recorded file as it lies on the disk, or a part of its bytes.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/wait.h"
#include "host/http/request.h"
#include "host/http/stream.h"
#include "host/recordings/source.h"

namespace host {

// Which bytes of a file a request asks for (RFC 9110, section 14).
struct ByteRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0; // belongs to it
    friend bool operator==(const ByteRange&, const ByteRange&) = default;
};
struct AskedRange {
    bool possible = true;           // false: none of the file's bytes are among those (416)
    std::optional<ByteRange> range; // nothing: the whole file
};
// Of the value of a Range line. What is no single range of bytes counts as none, as the standard allows.
AskedRange ReadRange(std::string_view value, std::uint64_t size) noexcept;

// Answers the request with what Range asks for, or the whole file; `name` is what a browser calls it. The
// connection ends behind it. A file that is being written has the length that it
// has at that moment. `stall`: how long the peer may take nothing.
void SendStoredFile(StoredFile& file, const std::string& name, const Request& request, Stream& stream,
                    const Wakeup& stop, std::chrono::milliseconds stall);

} // namespace host
