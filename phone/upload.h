// The upload conversation: a phone sends pictures to the camera of its name, as many as the server asks for.
//
//   phone                                    server
//   HTTP head, 131 bytes of the record  -->
//                                       <--  1 byte: 0 accepted, 1 wrong password
//   u16 length, the shared header       -->
//                                       <--  1 byte: so many frames more, at any time
//   4, u16 length, body                 -->  for each frame
//
// Integers are little-endian. The conversation ends when one side closes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "phone/connection.h"
#include "phone/pictures.h"

namespace phone {

inline constexpr std::size_t kRecordSize = 131;
inline constexpr std::size_t kRecordPrefixSize = 67;
// A password that fills the field has no terminator; a longer one cannot be sent.
inline constexpr std::size_t kLongestPassword = kRecordSize - kRecordPrefixSize;

struct UploadOptions {
    ServerAddress server;
    std::string login; // the camera's name, too
    std::string password;
    double framesPerSecond = 10;         // the rate aimed at; the grants may hold it down
    std::optional<std::uint64_t> frames; // none: until stopped
    Clock::duration startDelay{};        // from the first grant to the first frame
    Reconnecting again{};
};

// Done: the server has read all of it. Stopped: the last frame was sent whole.
struct UploadReport : Report {
    std::uint64_t frames = 0; // sent whole
    std::uint64_t grants = 0; // grants received, each for some frames
};

// The record as the phones' program fills it: 3, the rate, 5, then the login with the picture format, and the
// password.
std::string UploadRecord(const UploadOptions& options, PictureSize size);

// Runs one conversation to its end on the calling thread, and those after losses. `stop` as for Connection.
UploadReport Upload(const UploadOptions& options, const PictureSequence& pictures, int stop);

} // namespace phone
