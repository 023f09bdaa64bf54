// The viewing conversation: a phone asks for a source and reads its pictures until one side has enough.
//
//   phone                                              server
//   GET of the source with parameters, credentials -->
//                                                  <-- HTTP head, then pictures (packet.h), until it closes
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "phone/connection.h"

namespace phone {

struct ViewOptions {
    ServerAddress server;
    std::string login;
    std::string password;
    std::string source;                  // the key, as it is
    std::string parameters;              // "width=176&height=144&fps=5"
    std::optional<std::uint64_t> frames; // none: until the server ends the stream, or stopped
    std::filesystem::path folder; // where pictures are written, as 000001.jpg and so on; empty: nowhere
    Reconnecting again{};
};

struct ViewFigures {
    std::uint64_t pictures = 0; // of all conversations, as is the rest
    std::uint64_t bytes = 0;    // of the pictures and their headers
    Clock::time_point first;    // when the first and the last picture were whole
    Clock::time_point last;

    // 0 before the second picture.
    [[nodiscard]] double PicturesPerSecond() const;
    [[nodiscard]] double BytesPerSecond() const;
};

// Done: as many pictures as were asked for, or the last one of a stream that has a last one.
struct ViewReport : Report {
    ViewFigures figures{};
};

// Runs one conversation to its end on the calling thread, and those after losses. `stop` as for Connection.
// `progress` is called behind each picture.
ViewReport View(const ViewOptions& options, int stop,
                const std::function<void(const ViewFigures&)>& progress);

} // namespace phone
