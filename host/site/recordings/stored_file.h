// A recorded file as it lies on the disk, or a part of its bytes.
#pragma once

#include <chrono>
#include <string>

#include "host/base/wait.h"
#include "host/http/request.h"
#include "host/http/stream.h"

namespace host {

// Answers the request with what Range asks for, or the whole file; `name` is what a browser calls it. 404
// where it is gone by now. The connection ends behind it. A file that is being written has the length that it
// has at that moment. `stall`: how long the peer may take nothing.
void SendStoredFile(const std::string& path, const std::string& name, const Request& request, Stream& stream,
                    const Wakeup& stop, std::chrono::milliseconds stall);

} // namespace host
