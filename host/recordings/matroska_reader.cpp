#include "host/recordings/matroska_reader.h"

#include <cerrno>
#include <cstdio>
#include <limits>
#include <new>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/recordings/libav.h"
#include "host/recordings/matroska_writer.h"

namespace host {
namespace {

constexpr int kReadBuffer = 64 * 1024;

} // namespace

struct MatroskaReader::State {
    const LibAv& av = LibAv::Get();
    platform::Descriptor file;
    AVFormatContext* format = nullptr;
    AVIOContext* io = nullptr;
    AVPacket* packet = nullptr;
    std::int64_t position = 0;

    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        av.avformat_close_input(&format);
        if (io != nullptr) {
            av.av_free(io->buffer);
            av.avio_context_free(&io);
        }
        av.av_packet_free(&packet);
    }

    static int Read(void* self, std::uint8_t* bytes, int size) {
        State& state = *static_cast<State*>(self);
        ssize_t read = 0;
        do
            read = ::pread(state.file.Get(), bytes, static_cast<std::size_t>(size), state.position);
        while (read < 0 && errno == EINTR);
        if (read <= 0)
            return read == 0 ? AVERROR_EOF : AVERROR(errno);
        state.position += read;
        return static_cast<int>(read);
    }
    static std::int64_t Seek(void* self, std::int64_t offset, int whence) {
        State& state = *static_cast<State*>(self);
        struct stat info {};
        if (::fstat(state.file.Get(), &info) != 0)
            return AVERROR(errno);
        if (whence == AVSEEK_SIZE)
            return info.st_size;
        const std::int64_t base = whence == SEEK_CUR ? state.position : whence == SEEK_END ? info.st_size : 0;
        if (base + offset < 0)
            return AVERROR(EINVAL);
        return state.position = base + offset;
    }
    void Open(const std::string& path) {
        file = platform::Descriptor(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat info {};
        if (!file || ::fstat(file.Get(), &info) != 0)
            throw RecordingError("cannot read " + path + ": " + std::generic_category().message(errno),
                                 errno);
        if (!S_ISREG(info.st_mode))
            throw RecordingError(path + " is no file");
        packet = av.av_packet_alloc();
        format = av.avformat_alloc_context();
        auto* buffer = static_cast<unsigned char*>(av.av_malloc(kReadBuffer));
        if (buffer != nullptr)
            io = av.avio_alloc_context(buffer, kReadBuffer, 0, this, &State::Read, nullptr, &State::Seek);
        if (packet == nullptr || format == nullptr || io == nullptr) {
            if (io == nullptr)
                av.av_free(buffer);
            throw std::bad_alloc();
        }
        format->pb = io;
        // Of all that libavformat can read, this format alone.
        const AVInputFormat* const matroska = av.av_find_input_format("matroska");
        if (matroska == nullptr || av.avformat_open_input(&format, "", matroska, nullptr) < 0)
            throw RecordingError(path + " cannot be read as Matroska");
        if (format->nb_streams != 1 || Video().codec_id != AV_CODEC_ID_MJPEG)
            throw RecordingError(path + " is no recording of pictures");
    }
    [[nodiscard]] const AVCodecParameters& Video() const { return *format->streams[0]->codecpar; }
};

MatroskaReader::MatroskaReader(const std::string& path) : m_state(std::make_unique<State>()) {
    m_state->Open(path);
}

MatroskaReader::~MatroskaReader() = default;

std::string MatroskaReader::Title() const {
    const AVDictionaryEntry* const entry =
        m_state->av.av_dict_get(m_state->format->metadata, "title", nullptr, 0);
    return entry != nullptr ? entry->value : "";
}

int MatroskaReader::Width() const noexcept {
    return m_state->Video().width;
}

int MatroskaReader::Height() const noexcept {
    return m_state->Video().height;
}

bool MatroskaReader::IsGone() const noexcept {
    struct stat info {};
    return ::fstat(m_state->file.Get(), &info) != 0 || info.st_nlink == 0;
}

std::optional<std::int64_t> MatroskaReader::Length() const noexcept {
    const std::int64_t length = m_state->format->duration;
    if (length == AV_NOPTS_VALUE || length < 0)
        return std::nullopt;
    return length / (AV_TIME_BASE / 1000);
}

std::optional<MatroskaReader::Frame> MatroskaReader::Next() {
    AVPacket& packet = *m_state->packet;
    m_state->av.av_packet_unref(&packet);
    if (m_state->av.av_read_frame(m_state->format, &packet) < 0)
        return std::nullopt;
    if (packet.size <= 0 || packet.pts == AV_NOPTS_VALUE || (packet.flags & AV_PKT_FLAG_CORRUPT) != 0)
        return std::nullopt;
    return Frame{packet.pts,
                 {reinterpret_cast<const char*>(packet.data), static_cast<std::size_t>(packet.size)}};
}

bool MatroskaReader::SeekTo(std::int64_t time) {
    m_state->io->eof_reached = 0;
    m_state->io->error = 0;
    return m_state->av.av_seek_frame(m_state->format, 0, time, AVSEEK_FLAG_BACKWARD) >= 0 ||
           m_state->av.av_seek_frame(m_state->format, 0, time, 0) >= 0;
}

std::optional<FinishedFile> FinishCutFile(Disk& disk, const std::string& path, UnixMs begin) {
    MatroskaReader reader(path);
    auto frame = reader.Next();
    if (!frame)
        return std::nullopt;
    const std::string whole = path + ".new";
    (void)disk.Remove(whole); // of a start that was cut as well
    FileSink sink(disk, whole);
    try {
        FinishedFile finished;
        MatroskaWriter writer(
            sink,
            {.title = reader.Title(), .begin = begin, .width = reader.Width(), .height = reader.Height()});
        for (; frame; frame = reader.Next()) {
            finished.length = frame->time;
            writer.Add(frame->time, frame->jpeg);
        }
        writer.Finish();
        finished.bytes = writer.Bytes();
        sink.Sync();
        if (::rename(whole.c_str(), path.c_str()) != 0)
            throw RecordingError("cannot write " + path + ": " + std::generic_category().message(errno),
                                 errno);
        return finished;
    } catch (...) {
        (void)disk.Remove(whole);
        throw;
    }
}

} // namespace host
