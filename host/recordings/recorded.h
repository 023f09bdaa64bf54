// What is recorded, as all of this room speak of it.
#pragma once

#include <compare>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "host/base/moment.h"

namespace host {

// A camera's recordings stay until their time has come, also when the camera is gone. Another one of its name
// is another camera.
struct RecordedCamera {
    std::int64_t id = 0; // from 1
    std::string name{};  // UTF-8
    UnixMs removed = 0;  // when it left the settings; 0: it is there
    friend bool operator==(const RecordedCamera&, const RecordedCamera&) = default;
};

// Numbers of a camera's files go up in the order in which they were recorded, whatever the wall clock did.
struct FileKey {
    std::int64_t camera = 0;
    std::int64_t number = 0; // from 1
    // NOLINTNEXTLINE(modernize-use-nullptr)
    friend auto operator<=>(const FileKey&, const FileKey&) = default;
};

enum class FileState {
    Finished = 0,
    Open = 1, // being written
    Cut = 2   // without an end of its own: it is read, and finished by a later start
};

struct RecordedFile {
    FileKey key{};
    UnixMs begin = 0; // of its first picture
    UnixMs end = 0;   // of its last one
    std::uint64_t bytes = 0;
    FileState state = FileState::Finished;
    bool keep = false; // nothing removes it but a person
    friend bool operator==(const RecordedFile&, const RecordedFile&) = default;
};

// Both ends belong to it.
struct TimeSpan {
    UnixMs begin = 0;
    UnixMs end = 0;
    friend bool operator==(const TimeSpan&, const TimeSpan&) = default;
};

// Why something cannot be recorded or read: one line.
struct RecordingError : std::runtime_error {
    explicit RecordingError(const std::string& text, int code = 0) : std::runtime_error(text), error(code) {}
    int error; // as errno has it; 0 where the system did not say
};

} // namespace host
