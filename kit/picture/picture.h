// One decoded picture, its JPEG for those who watch, and the sources that pictures come from.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "interfaces/IReceivedPicture.h"
#include "interfaces/IVideoFrame.h"
#include "kit/export.h"
#include "platform/com.h"

namespace kit {

// The processor time that this thread has used: unlike the clock it does not count what others took.
MORROW_KIT_API std::chrono::nanoseconds ThreadTime() noexcept;

// The planes of a frame block, as its header describes them.
struct PlaneLayout {
    int width = 0;
    int height = 0;
    bool grey = true;
    friend bool operator==(const PlaneLayout&, const PlaneLayout&) = default;
};

// A picture's planes, as they follow the header of a frame block: Y with width*height samples, then, unless
// it is grey, Cr and Cb with (width/2)*(height/2) samples each and width*height/4 bytes for each; all rounded
// down. For an odd size the missing last column or row of chroma repeats its neighbour.
//
// Encodes with a quality of 1 to 100. The stream stands in `buffer`, which grows when it must and is kept by
// the caller for the next picture; empty when the encoder refuses.
MORROW_KIT_API std::string_view EncodePlanes(const std::uint8_t* planes, const PlaneLayout& layout,
                                             int quality, std::vector<std::uint8_t>& buffer);

struct MORROW_KIT_API FreeFrameContent {
    void operator()(std::uint8_t* block) const noexcept;
};
// The private copy of a frame block that a frame gave.
using FrameContent = std::unique_ptr<std::uint8_t[], FreeFrameContent>;

// The layout of a frame block whose sizes were all checked. False for a block that does not hold what its
// header tells.
MORROW_KIT_API bool ReadLayout(const std::uint8_t* block, std::size_t size, PlaneLayout* layout);

// Bytes of a whole frame block, header included.
MORROW_KIT_API std::size_t FrameBytes(const PlaneLayout& layout) noexcept;
// A frame block with its header filled in and its planes zeroed; null when memory is short.
MORROW_KIT_API FrameContent AllocateFrame(const PlaneLayout& layout) noexcept;

// Encodes a frame block; empty when the encoder refuses.
MORROW_KIT_API std::string EncodeJpeg(const std::uint8_t* block, const PlaneLayout& layout);

// A picture that came from the component, or one of the host's own: a frame block and what keeps it.
struct MORROW_KIT_API HeldFrame {
    using Clock = std::chrono::steady_clock;

    platform::ComPtr<IReceivedPicture> frame; // lends block and file; null where the block is a copy
    FrameContent copy;
    std::span<const std::uint8_t> block;
    std::span<const std::uint8_t> file; // as the phone sent it, not for others as it is; empty: there is none
    Clock::time_point arrival = Clock::now();
    std::uint64_t arrivalUnixMs = 0;

    // Copies nothing of a frame that lends. Without a block when the picture could not be decoded.
    static HeldFrame Of(IVideoFrame& frame);
    static HeldFrame Of(FrameContent content, const PlaneLayout& layout);
};

class MORROW_KIT_API Picture {
public:
    using Clock = HeldFrame::Clock;
    // Is told the processor time that encoding the picture took, on the thread that encoded it.
    using Encoded = std::function<void(std::chrono::nanoseconds)>;

    // `layout` is that of the frame's block.
    Picture(std::uint64_t sequence, HeldFrame frame, const PlaneLayout& layout, Encoded encoded = {})
        : m_sequence(sequence), m_frame(std::move(frame)), m_layout(layout), m_encoded(std::move(encoded)) {}
    Picture(std::uint64_t sequence, FrameContent content, const PlaneLayout& layout)
        : Picture(sequence, HeldFrame::Of(std::move(content), layout), layout) {}
    // One of the host's own that came as JPEG; watchers get that file.
    Picture(std::uint64_t sequence, FrameContent content, const PlaneLayout& layout, std::string jpeg)
        : Picture(sequence, std::move(content), layout) {
        std::call_once(m_once, [&] { m_jpeg = std::move(jpeg); });
    }

    [[nodiscard]] std::uint64_t Sequence() const noexcept { return m_sequence; } // 1 for a camera's first
    [[nodiscard]] const PlaneLayout& Layout() const noexcept { return m_layout; }
    // The whole frame block.
    [[nodiscard]] std::span<const std::uint8_t> Block() const noexcept {
        return m_frame.block.first(FrameBytes(m_layout));
    }
    [[nodiscard]] Clock::time_point Arrival() const noexcept { return m_frame.arrival; }
    [[nodiscard]] std::uint64_t ArrivalUnixMs() const noexcept { return m_frame.arrivalUnixMs; }

    // The picture for those who watch: of a phone's file what may be passed on (StripJpeg), and encoded where
    // there is none. Made by the first who asks; the others wait for that and share it. Empty when it cannot
    // be encoded. Any thread. Not from the thread that receives frames.
    const std::string& Jpeg() const;
    // How many pictures were encoded since the process began, and how many passed on as they had come.
    static std::uint64_t EncodedCount() noexcept;
    static std::uint64_t PassedOnCount() noexcept;

private:
    [[nodiscard]] std::string Encode() const;

    const std::uint64_t m_sequence;
    const HeldFrame m_frame;
    const PlaneLayout m_layout;
    const Encoded m_encoded;
    mutable std::once_flag m_once;
    mutable std::string m_jpeg;
};
using PicturePtr = std::shared_ptr<const Picture>;

// A grey picture with diagonal stripes: what a watcher sees while there is nothing to see. The sizes are
// brought into 16 to 4096.
MORROW_KIT_API PicturePtr MakePlaceholder(int width, int height);
// The placeholder as JPEG.
MORROW_KIT_API std::string DrawPlaceholder(int width, int height);

// Something that can be watched. Any thread, several at a time: all who watch a source share it.
class MORROW_KIT_API Source {
public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source();

    // The picture to show now. While there is nothing to see this is a placeholder that says so, never a
    // picture of the past. Null when the source is gone for good.
    virtual PicturePtr Now() = 0;
    // Whether the pictures come to the host as JPEG files, so that their planes are the dearer form.
    [[nodiscard]] virtual bool IsJpeg() const noexcept { return false; }
};
using SourcePtr = std::shared_ptr<Source>;

} // namespace kit
