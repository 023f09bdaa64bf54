// A part of a camera's recordings as a file, sent while it is made.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "host/base/wait.h"
#include "host/http/stream.h"
#include "host/recordings/recordings.h"
#include "host/site/recordings/export.h"

namespace host {

enum class SaveForm {
    Movie,    // Matroska, the pictures as they were recorded
    Lapse,    // Matroska, so many times as fast
    Pictures, // zip, a file each
};
std::optional<SaveForm> SaveFormFrom(std::string_view word) noexcept;

struct SaveOrder {
    const Recordings& recordings;
    RecordedCamera camera;
    SaveForm form = SaveForm::Movie;
    double speed = 1; // of a lapse
};
// Sends head and file on the connection, whose request was read, and ends it. A file that could not be sent
// whole ends with a reset, so that nobody takes it for one. `stall`: how long the peer may take nothing.
void SendRecording(const SaveOrder& order, ExportState& state, Stream& stream, const Wakeup& stop,
                   std::chrono::milliseconds stall, bool headOnly);

} // namespace host
