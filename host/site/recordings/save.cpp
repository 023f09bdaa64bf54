#include "host/site/recordings/export.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <string>

#include <sys/socket.h>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/http/wire.h"
#include "host/log/console.h"
#include "host/recordings/matroska_writer.h"
#include "host/site/recordings/zip_writer.h"

namespace host {
namespace {

// "2025-11-26_08-00-00.250": no character that a file system would not have.
std::string NameOf(UnixMs time) {
    std::string name = MomentText(time);
    name.pop_back();
    std::ranges::replace(name, 'T', '_');
    std::ranges::replace(name, ':', '-');
    return name;
}

// Where bytes go that somebody waits for.
class Line : public ByteSink {
public:
    Line(Stream& stream, const Wakeup& stop, std::chrono::milliseconds stall)
        : m_stream(stream), m_stop(stop), m_stall(stall) {}

    [[nodiscard]] bool CanSeek() const noexcept override { return false; }
    bool Write(std::uint64_t /*position*/, std::span<const std::uint8_t> bytes) override {
        const bool sent = Send({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        errno = sent ? 0 : EPIPE;
        return sent;
    }
    bool Send(std::string_view bytes) {
        return SendAll(m_stream, bytes, m_stop, m_stall) == SendResult::Sent;
    }

private:
    Stream& m_stream;
    const Wakeup& m_stop;
    const std::chrono::milliseconds m_stall;
};

// Where the wall clock showed a time twice, its pictures are told apart by their file.
bool SendPictures(RecordedRange range, ExportState& state, Line& line) {
    ZipWriter zip([&line](std::string_view bytes) { return line.Send(bytes); });
    if (const std::string missing = MissingText(range.Away());
        !missing.empty() &&
        !zip.Add("incomplete.txt", static_cast<std::time_t>(state.span.end / 1000), missing))
        return false;
    while (const auto picture = range.Next()) {
        const std::string name = NameOf(picture->time) + '_' + std::to_string(picture->file) + ".jpg";
        if (!state.Reach(picture->time) ||
            !zip.Add(name, static_cast<std::time_t>(picture->time / 1000), picture->jpeg))
            return false;
    }
    return zip.Finish();
}

bool SendFile(const SaveOrder& order, RecordedRange range, ExportState& state, Line& line) {
    if (order.form == SaveForm::Pictures)
        return SendPictures(std::move(range), state, line);
    std::string without;
    for (const auto& [host, span] : range.Away())
        without += (without.empty() ? " without what may be at " : ", ") + host;
    return WriteFilm(std::move(range),
                     {.title = order.camera.name + without,
                      .speed = order.form == SaveForm::Lapse ? order.speed : 1,
                      .progress = [&state](UnixMs time) { return state.Reach(time); }},
                     line);
}

// With the name that a browser gives the file.
Answer HeadOf(const SaveOrder& order, TimeSpan span, const std::vector<AwayRecordings>& away) {
    const bool zip = order.form == SaveForm::Pictures;
    const std::string name = order.camera.name + ' ' + NameOf(span.begin) +
                             (away.empty() ? "" : " incomplete") + (zip ? ".zip" : ".mkv");
    Answer answer;
    answer.type = zip ? "application/zip" : "video/x-matroska";
    answer.headers["Content-Disposition"] = "attachment; filename*=UTF-8''" + PercentEncode(name);
    answer.headers["Cache-Control"] = "no-store";
    TellAway(answer, away);
    return answer;
}

} // namespace

void TellAway(Answer& answer, const std::vector<AwayRecordings>& away) {
    std::string told;
    for (const auto& [host, span] : away)
        told += (told.empty() ? "" : ", ") + host + ";from=" + std::to_string(span.begin) +
                ";to=" + std::to_string(span.end);
    if (!told.empty())
        answer.headers["X-Recordings-Away"] = told;
}

std::string MissingText(const std::vector<AwayRecordings>& away) {
    std::string text;
    for (const auto& [host, span] : away)
        text += "The host \"" + host + "\" does not answer; it may have recordings from " +
                MomentText(span.begin) + " to " + MomentText(span.end) + ".\n";
    return text;
}

std::optional<SaveForm> SaveFormFrom(std::string_view word) noexcept {
    return word == "mkv" || word.empty() ? std::optional(SaveForm::Movie)
           : word == "zip"               ? std::optional(SaveForm::Pictures)
           : word == "lapse"             ? std::optional(SaveForm::Lapse)
                                         : std::nullopt;
}

void SendRecording(const SaveOrder& order, ExportState& state, Stream& stream, const Wakeup& stop,
                   std::chrono::milliseconds stall, bool headOnly) {
    Line line(stream, stop, stall);
    bool whole = false;
    try {
        RecordedRange range = order.recordings.Range(order.camera.id, state.span);
        const Answer head = HeadOf(order, state.span, range.Away());
        whole = line.Send(Serialize(head, {.headOnly = headOnly, .openEnded = true})) &&
                (headOnly || SendFile(order, std::move(range), state, line));
    } catch (const RecordingError& error) {
        if (error.error != EPIPE)
            Console::Get().Log("recording", error.what());
    } catch (...) {
        state.Finish(ExportState::End::Failed);
        throw;
    }
    state.Finish(whole ? ExportState::End::Whole : ExportState::End::Failed);
    if (whole) {
        (void)FinishSending(stream, stop);
        return;
    }
    const linger hard{1, 0};
    ::setsockopt(stream.Fd(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    stream.Close();
}

} // namespace host
