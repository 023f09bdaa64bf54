#include "capi/frames.h"

#include <chrono>
#include <climits>
#include <cstring>
#include <span>

#include "capi/calls.h"
#include "image/ImageCodec.h"
#include "interfaces/IReceivedPicture.h"
#include "platform/picture_limit.h"

namespace capi {
namespace {

// The limits of the decoder are those of what is shown and encoded as well.
constexpr std::int32_t kLongestSide = 65500;
constexpr std::int64_t kMostPixels = std::int64_t{1} << 26;

template <class Clock>
std::int64_t NanosecondsOf(const Clock& clock) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(clock.time_since_epoch()).count();
}

std::int32_t JpegSize(const void* bytes, std::size_t size) {
    if (bytes == nullptr || size > INT_MAX - 2)
        throw Failure(MORROW_INVALID, "there is no JPEG file, or one of more than 2 GiB");
    return static_cast<std::int32_t>(size);
}

// The rows of a plane, without what lies between them.
std::uint8_t* CopyRows(std::uint8_t* to, const std::uint8_t* from, std::int32_t stride, int width,
                       int height) {
    if (height > 0 && width > 0 && (from == nullptr || stride < width))
        throw Failure(MORROW_INVALID, "a plane is missing, or its stride is shorter than a row");
    for (int row = 0; row < height; ++row, to += width, from += stride)
        std::memcpy(to, from, static_cast<std::size_t>(width));
    return to;
}

morrow_picture PlanesOf(const kit::Picture& picture) {
    const kit::PlaneLayout& layout = picture.Layout();
    const std::uint8_t* const y = picture.Block().data() + sizeof(BITMAPINFOHEADER);
    const std::ptrdiff_t area = std::ptrdiff_t{layout.width} * layout.height;
    morrow_picture planes = MORROW_PICTURE_INIT;
    planes.form = layout.grey ? MORROW_GREY : MORROW_YCBCR;
    planes.width = layout.width;
    planes.height = layout.height;
    planes.y_stride = layout.width;
    planes.y = y;
    if (!layout.grey) {
        planes.chroma_stride = layout.width / 2;
        planes.cr = y + area;
        planes.cb = y + area + area / 4;
    }
    return planes;
}

} // namespace

Frame::Frame(IVideoFrame& frame, std::uint64_t number) {
    kit::HeldFrame held = kit::HeldFrame::Of(frame);
    if (!held.frame || FAILED(held.frame->GetArrival(&m_monotonic, &m_unixTime))) {
        m_monotonic = NanosecondsOf(held.arrival);
        m_unixTime = static_cast<std::int64_t>(held.arrivalUnixMs) * 1'000'000;
    }
    Hold(std::move(held), number);
}

Frame::Frame(const void* jpeg, std::size_t size)
    : m_monotonic(NanosecondsOf(std::chrono::steady_clock::now())),
      m_unixTime(NanosecondsOf(std::chrono::system_clock::now())) {
    const std::int32_t jpegSize = JpegSize(jpeg, size);
    const auto* const bytes = static_cast<const std::uint8_t*>(jpeg);
    m_block = DecodeToFrameBlock(bytes, jpegSize, &platform::IsWithinPictureLimit);
    if (m_block) {
        m_file.assign(bytes, bytes + size);
        kit::HeldFrame held;
        held.block = {m_block.get(), m_block.size()};
        held.file = m_file;
        held.arrivalUnixMs = static_cast<std::uint64_t>(m_unixTime / 1'000'000);
        Hold(std::move(held), 0);
    }
    (void)Picture(); // or a failure
}

void Frame::Hold(kit::HeldFrame frame, std::uint64_t number) {
    kit::PlaneLayout layout;
    if (kit::ReadLayout(frame.block.data(), frame.block.size(), &layout))
        m_picture.emplace(number, std::move(frame), layout);
}

const kit::Picture& Frame::Picture() const {
    if (!m_picture)
        throw Failure(MORROW_NO_PICTURE, "this is no picture that can be decoded");
    return *m_picture;
}

kit::PicturePtr CopyPicture(const morrow_picture* picture) {
    const morrow_picture given = ReadStruct(picture);
    if (given.form != MORROW_GREY && given.form != MORROW_YCBCR)
        throw Failure(MORROW_INVALID, "a picture is MORROW_GREY or MORROW_YCBCR");
    if (given.width < 1 || given.height < 1 || given.width > kLongestSide || given.height > kLongestSide ||
        std::int64_t{given.width} * given.height > kMostPixels)
        throw Failure(MORROW_INVALID,
                      "a picture has 1 to 65500 columns and rows, and at most 67,108,864 pixels");
    const kit::PlaneLayout layout{given.width, given.height, given.form == MORROW_GREY};
    kit::FrameContent block = kit::AllocateFrame(layout);
    if (!block)
        throw std::bad_alloc();
    std::uint8_t* const y = block.get() + sizeof(BITMAPINFOHEADER);
    std::uint8_t* const chroma = CopyRows(y, given.y, given.y_stride, given.width, given.height);
    if (!layout.grey) {
        const std::ptrdiff_t area = std::ptrdiff_t{given.width} * given.height;
        CopyRows(chroma, given.cr, given.chroma_stride, given.width / 2, given.height / 2);
        CopyRows(chroma + area / 4, given.cb, given.chroma_stride, given.width / 2, given.height / 2);
    }
    return std::make_shared<const kit::Picture>(0, std::move(block), layout);
}

} // namespace capi

using namespace capi;

int morrow_frame_picture(morrow_picture* picture, morrow_frame frame) {
    return CallAnywhere([&] { WriteStruct(picture, PlanesOf(Lookup<Frame>(frame)->Picture())); });
}

int morrow_frame_jpeg(const void** bytes, size_t* size, morrow_frame frame) {
    return CallAnywhere([&] {
        const void*& place = Out(bytes);
        std::size_t& count = Out(size);
        const std::string& jpeg = Lookup<Frame>(frame)->Picture().Jpeg();
        if (jpeg.empty())
            throw Failure(MORROW_FAILED, "the picture cannot be encoded");
        place = jpeg.data();
        count = jpeg.size();
    });
}

int morrow_frame_times(int64_t* monotonic, int64_t* unix_time, morrow_frame frame) {
    return CallAnywhere([&] {
        const auto found = Lookup<Frame>(frame);
        if (monotonic != nullptr)
            *monotonic = found->Monotonic();
        if (unix_time != nullptr)
            *unix_time = found->UnixTime();
    });
}

int morrow_frame_keep(morrow_frame frame) {
    return CallAnywhere([&] {
        if (!HandleTable::Get().Hold(Kind::Frame, frame))
            throw Failure(MORROW_BAD_HANDLE, "this is no handle of a frame");
    });
}

int morrow_frame_release(morrow_frame frame) {
    return CallAnywhere([&] {
        if (!HandleTable::Get().Drop(Kind::Frame, frame))
            throw Failure(MORROW_BAD_HANDLE, "this is no handle of a frame that was kept");
    });
}

int morrow_jpeg_probe(int32_t* width, int32_t* height, int32_t* form, const void* bytes, size_t size) {
    return Call([&] {
        std::int32_t& columns = Out(width);
        std::int32_t& rows = Out(height);
        std::int32_t& kind = Out(form);
        std::int32_t foundColumns = 0;
        std::int32_t foundRows = 0;
        ImageKind found{};
        if (ProbeJpeg(static_cast<const std::uint8_t*>(bytes), JpegSize(bytes, size), foundColumns, foundRows,
                      found) != ImageOk)
            throw Failure(MORROW_NO_PICTURE, "this is no picture that can be decoded");
        columns = foundColumns;
        rows = foundRows;
        kind = found == ImageKindGrey ? MORROW_GREY : MORROW_YCBCR;
    });
}

int morrow_jpeg_decode(morrow_frame* frame, const void* bytes, size_t size) {
    return Call([&] {
        morrow_frame& handle = Out(frame);
        handle = NewHandle(std::make_shared<Frame>(bytes, size));
    });
}

int morrow_jpeg_encode(void** bytes, size_t* size, const morrow_picture* picture, int quality) {
    return Call([&] {
        void*& place = Out(bytes);
        std::size_t& count = Out(size);
        if (quality < 1 || quality > 100)
            throw Failure(MORROW_INVALID, "a quality is 1 to 100");
        const kit::PicturePtr copy = CopyPicture(picture);
        std::vector<std::uint8_t> buffer;
        const std::string_view jpeg = kit::EncodePlanes(copy->Block().data() + sizeof(BITMAPINFOHEADER),
                                                        copy->Layout(), quality, buffer);
        if (jpeg.empty())
            throw Failure(MORROW_FAILED, "the picture cannot be encoded");
        place = CopyOf(jpeg.data(), jpeg.size());
        count = jpeg.size();
    });
}
