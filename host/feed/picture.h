// One decoded picture of a camera, and its JPEG for those who watch.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "host/web/net.h"

namespace host {

struct FreeFrameContent {
    void operator()(std::uint8_t* block) const noexcept;
};
// The private copy of a frame block that a frame gave.
using FrameContent = std::unique_ptr<std::uint8_t[], FreeFrameContent>;

// What a frame block's header says of its planes, after every size was checked against the block.
struct PlaneLayout {
    int width = 0;
    int height = 0;
    bool grey = true;
};
// False for a block that does not hold what its header tells.
bool ReadLayout(const std::uint8_t* block, std::size_t size, PlaneLayout* layout);

// Encodes a frame block; empty when the encoder refuses. The chroma planes of a frame block have w/2 columns
// and h/2 rows, rounded down; for an odd size the missing last column or row repeats its neighbour.
std::string EncodeJpeg(const std::uint8_t* block, const PlaneLayout& layout);

// A grey picture with diagonal stripes: what a watcher sees while there is nothing to see.
std::string DrawPlaceholder(int width, int height);

class Picture {
public:
    Picture(std::uint64_t sequence, FrameContent content, PlaneLayout layout)
        : m_sequence(sequence), m_content(std::move(content)), m_layout(layout) {}

    [[nodiscard]] std::uint64_t Sequence() const noexcept { return m_sequence; } // 1 for a camera's first
    [[nodiscard]] const PlaneLayout& Layout() const noexcept { return m_layout; }
    [[nodiscard]] Clock::time_point Arrival() const noexcept { return m_arrival; }
    [[nodiscard]] std::uint64_t ArrivalUnixMs() const noexcept { return m_arrivalUnixMs; }

    // Encoded by the first who asks; the others wait for that and share it. Empty when it cannot be encoded.
    // Any thread. Not from the thread that receives frames.
    const std::string& Jpeg() const;
    // How many pictures were encoded since the process began.
    static std::uint64_t EncodedCount() noexcept;

private:
    const std::uint64_t m_sequence;
    const FrameContent m_content;
    const PlaneLayout m_layout;
    const Clock::time_point m_arrival = Clock::now();
    const std::uint64_t m_arrivalUnixMs =
        static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                       std::chrono::system_clock::now().time_since_epoch())
                                       .count());
    mutable std::once_flag m_once;
    mutable std::string m_jpeg;
};
using PicturePtr = std::shared_ptr<const Picture>;

} // namespace host
