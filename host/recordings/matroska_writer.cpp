#include "host/recordings/matroska_writer.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "host/recordings/libav.h"

namespace host {
namespace {

constexpr int kWriteBuffer = 64 * 1024;

[[noreturn]] void ThrowDisk(const std::string& what, int error) {
    throw RecordingError(what + ": " + std::generic_category().message(error), error);
}

} // namespace

FileSink::FileSink(Disk& disk, std::string path)
    : m_disk(disk), m_path(std::move(path)), m_file(m_disk.Create(m_path)) {
    if (!m_file)
        ThrowDisk("cannot make " + m_path, errno);
}

bool FileSink::Write(std::uint64_t position, std::span<const std::uint8_t> bytes) {
    return m_disk.Write(m_file.Get(), position, bytes);
}

void FileSink::Sync() const {
    if (::fdatasync(m_file.Get()) != 0)
        ThrowDisk("cannot write " + m_path, errno);
}

struct MatroskaWriter::State {
    const LibAv& av = LibAv::Get();
    ByteSink& sink;
    AVFormatContext* format = nullptr;
    AVPacket* packet = nullptr;
    std::uint64_t position = 0;
    std::uint64_t bytes = 0;
    int error = 0; // errno of the first write that failed

    explicit State(ByteSink& target) : sink(target) {}
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        if (format != nullptr && format->pb != nullptr) {
            av.av_free(format->pb->buffer);
            av.avio_context_free(&format->pb);
        }
        av.avformat_free_context(format);
        av.av_packet_free(&packet);
    }

    static int Write(void* self, std::uint8_t* bytes, int size) {
        State& state = *static_cast<State*>(self);
        // After a failed write no other one may make a whole of what is not.
        if (state.error == 0 && !state.sink.Write(state.position, {bytes, static_cast<std::size_t>(size)}))
            state.error = errno != 0 ? errno : EIO;
        if (state.error != 0)
            return AVERROR(state.error);
        state.position += static_cast<std::uint64_t>(size);
        state.bytes = std::max(state.bytes, state.position);
        return size;
    }
    static std::int64_t Seek(void* self, std::int64_t offset, int whence) {
        State& state = *static_cast<State*>(self);
        if (whence == AVSEEK_SIZE)
            return static_cast<std::int64_t>(state.bytes);
        const auto base = whence == SEEK_CUR   ? static_cast<std::int64_t>(state.position)
                          : whence == SEEK_END ? static_cast<std::int64_t>(state.bytes)
                                               : 0;
        if (base + offset < 0)
            return AVERROR(EINVAL);
        state.position = static_cast<std::uint64_t>(base + offset);
        return base + offset;
    }
    void Check(int status, const char* what) const {
        if (error != 0)
            ThrowDisk("cannot write the recording", error);
        if (status < 0)
            throw RecordingError(std::string("cannot write the recording: ") + what, EIO);
    }
    void Begin(const MovieHead& head) {
        packet = av.av_packet_alloc();
        auto* buffer = static_cast<unsigned char*>(av.av_malloc(kWriteBuffer));
        if (packet == nullptr || buffer == nullptr ||
            av.avformat_alloc_output_context2(&format, nullptr, "matroska", nullptr) < 0) {
            av.av_free(buffer);
            throw std::bad_alloc();
        }
        format->pb = av.avio_alloc_context(buffer, kWriteBuffer, 1, this, nullptr, &State::Write,
                                           sink.CanSeek() ? &State::Seek : nullptr);
        AVStream* const stream = av.avformat_new_stream(format, nullptr);
        if (format->pb == nullptr || stream == nullptr) {
            if (format->pb == nullptr)
                av.av_free(buffer);
            throw std::bad_alloc();
        }
        stream->time_base = {1, 1000};
        stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        stream->codecpar->codec_id = AV_CODEC_ID_MJPEG;
        stream->codecpar->width = head.width;
        stream->codecpar->height = head.height;
        av.av_dict_set(&format->metadata, "title", head.title.c_str(), 0);
        av.av_dict_set(&format->metadata, "creation_time", MomentText(head.begin).c_str(), 0);
        AVDictionary* options = nullptr;
        av.av_dict_set(&options, "cluster_time_limit", "1000", 0);
        const int status = av.avformat_write_header(format, &options);
        av.av_dict_free(&options);
        Check(status, "head");
        av.avio_flush(format->pb);
        Check(0, "head");
    }
};

MatroskaWriter::MatroskaWriter(ByteSink& sink, const MovieHead& head)
    : m_state(std::make_unique<State>(sink)) {
    m_state->Begin(head);
}

MatroskaWriter::~MatroskaWriter() = default;

void MatroskaWriter::Add(std::int64_t time, std::string_view jpeg) {
    if (jpeg.empty() || jpeg.size() > static_cast<std::size_t>(std::numeric_limits<int>::max() / 2))
        throw RecordingError("a picture of no bytes, or of too many");
    AVPacket& packet = *m_state->packet;
    // The muxer copies what it is lent and changes nothing in it.
    packet.data = reinterpret_cast<std::uint8_t*>(const_cast<char*>(jpeg.data()));
    packet.size = static_cast<int>(jpeg.size());
    packet.pts = packet.dts = time;
    packet.flags = AV_PKT_FLAG_KEY;
    packet.stream_index = 0;
    m_state->Check(m_state->av.av_write_frame(m_state->format, &packet), "picture");
}

void MatroskaWriter::Flush() {
    m_state->Check(m_state->av.av_write_frame(m_state->format, nullptr), "flush");
    m_state->av.avio_flush(m_state->format->pb);
    m_state->Check(0, "flush");
}

void MatroskaWriter::Finish() {
    m_state->Check(m_state->av.av_write_trailer(m_state->format), "end");
}

std::uint64_t MatroskaWriter::Bytes() const noexcept {
    return m_state->bytes;
}

} // namespace host
