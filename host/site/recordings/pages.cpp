#include "host/site/recordings/pages.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "host/site/recordings/stored_file.h"

namespace host {
namespace {

using RecordedJson = nlohmann::ordered_json;

constexpr UnixMs kUsualSpan = 86'400'000;
constexpr std::int64_t kUsualWithin = 10'000; // milliseconds
constexpr std::int64_t kUsualGap = 3000;      // milliseconds
constexpr std::int64_t kMostSpeed = 100'000;
constexpr std::int64_t kMostNumber = INT64_MAX / 4;

// The same for a camera that is not there, has nothing recorded, or is none of the visitor's.
Answer NoRecordings() {
    return Answer::Text(404, "There are no recordings of that camera.");
}

UnixMs NowMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// A parameter that is a whole number from `least` to `most`; `usual` without one, nothing for any other text.
std::optional<std::int64_t> NumberOf(const Request& request, std::string_view name, std::int64_t usual,
                                     std::int64_t least, std::int64_t most) {
    const std::string_view text = QueryParameter(request.query, name);
    if (text.empty())
        return usual;
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool good =
        error == std::errc() && end == text.data() + text.size() && value >= least && value <= most;
    return good ? std::optional(value) : std::nullopt;
}

std::optional<UnixMs> MomentOf(const Request& request, std::string_view name, UnixMs usual) {
    const auto text = FormValue(request.query, name);
    return text && text->empty() ? std::optional(usual) : text ? ReadMoment(*text) : std::nullopt;
}

std::optional<TimeSpan> SpanOf(const Request& request) {
    const auto to = MomentOf(request, "to", NowMs());
    const auto from = to ? MomentOf(request, "from", std::max<UnixMs>(*to - kUsualSpan, 0)) : std::nullopt;
    return from && *from <= *to ? std::optional(TimeSpan{*from, *to}) : std::nullopt;
}

Answer BadMoment() {
    return Answer::Text(400,
                        "A moment is a number of milliseconds since 1970, or a date and time with its zone.");
}

// Those in the order of their begins; what is less than `gap` apart becomes one.
RecordedJson SpansAsJson(const std::vector<TimeSpan>& spans, std::int64_t gap) {
    std::vector<TimeSpan> joined;
    for (const TimeSpan& span : spans) {
        if (!joined.empty() && span.begin - joined.back().end < gap)
            joined.back().end = std::max(joined.back().end, span.end);
        else
            joined.push_back(span);
    }
    RecordedJson list = RecordedJson::array();
    for (const TimeSpan& span : joined)
        list.push_back({span.begin, span.end});
    return list;
}

RecordedJson EventsAsJson(const std::vector<Event>& events) {
    RecordedJson list = RecordedJson::array();
    for (const Event& event : events)
        list.push_back({{"time", event.time.time_since_epoch().count()},
                        {"kind", WordOf(event.kind)},
                        {"text", event.text}});
    return list;
}

RecordedJson AwayAsJson(const std::vector<AwayRecordings>& away) {
    RecordedJson list = RecordedJson::array();
    for (const auto& [host, span] : away)
        list.push_back({{"host", host}, {"from", span.begin}, {"to", span.end}});
    return list;
}

// In the order of their begins.
std::vector<TimeSpan> KeptOf(const std::vector<RecordedFile>& files) {
    std::vector<TimeSpan> kept;
    for (const RecordedFile& file : files) {
        if (file.keep)
            kept.push_back({file.begin, file.end});
    }
    std::ranges::sort(kept, {}, &TimeSpan::begin);
    return kept;
}

RecordedJson FilesAsJson(const std::vector<RecordedFile>& files) {
    RecordedJson list = RecordedJson::array();
    for (const RecordedFile& file : files)
        list.push_back({{"number", file.key.number},
                        {"from", file.begin},
                        {"to", file.end},
                        {"bytes", file.bytes},
                        {"kept", file.keep}});
    return list;
}

// What to answer where there is no picture.
std::optional<Answer> NothingIn(RecordedRange range) {
    std::string missing = MissingText(range.Away());
    try {
        if (range.Next())
            return std::nullopt;
    } catch (const RecordingError& error) { // it has died just now
        missing += std::string(error.what()) + '\n';
    }
    Answer answer =
        missing.empty() ? Answer::Text(404, "Nothing was recorded then.") : Answer::Text(503, missing);
    TellAway(answer, range.Away());
    return answer;
}

} // namespace

bool RecordingPages::IsSeen(const RecordingsVisitor& visitor, const RecordedCamera& camera) const {
    return camera.removed == 0 ? visitor.rights.Sees(camera.name) : visitor.admin;
}

std::optional<RecordedCamera> RecordingPages::Find(const RecordingsVisitor& visitor, std::string_view name,
                                                   const Request& request) const {
    const auto wanted = PercentDecode(name);
    const auto id = NumberOf(request, "camera", 0, 1, kMostNumber);
    if (recordings == nullptr || !wanted || !id)
        return std::nullopt;
    std::optional<RecordedCamera> found;
    for (const RecordedCamera& camera : recordings->Cameras()) {
        // Later ones have larger numbers, and what is in the settings is the last of its name.
        if (camera.name == *wanted && IsSeen(visitor, camera) && (*id == 0 || *id == camera.id))
            found = camera;
    }
    return found;
}

Answer RecordingPages::List(const RecordingsVisitor& visitor) const {
    RecordedJson list = RecordedJson::array();
    const auto listed = recordings != nullptr ? recordings->Listed() : std::vector<ListedCamera>();
    for (const auto& [camera, extent] : listed) {
        if (IsSeen(visitor, camera))
            list.push_back({{"id", camera.id},
                            {"name", camera.name},
                            {"removed", camera.removed != 0},
                            {"from", extent.begin},
                            {"to", extent.end}});
    }
    return Answer::Json(200, {{"cameras", std::move(list)}});
}

Answer RecordingPages::Camera(const RecordingsVisitor& visitor, std::string_view name,
                              const Request& request) const {
    const auto camera = Find(visitor, name, request);
    const auto extent = camera ? recordings->Extent(camera->id) : std::nullopt;
    if (!extent)
        return NoRecordings();
    const auto span = SpanOf(request);
    const auto gap = NumberOf(request, "gap", kUsualGap, 0, kMostNumber);
    const auto files = NumberOf(request, "files", 0, 0, 1);
    if (!span || !gap || !files)
        return BadMoment();
    const RecordedTimes times = recordings->Times(camera->id, *span, *gap, visitor.admin);
    RecordedJson told{{"now", NowMs()},
                      {"first", times.extent.value_or(*extent).begin},
                      {"last", times.extent.value_or(*extent).end},
                      {"spans", SpansAsJson(times.spans, *gap)},
                      {"motion", SpansAsJson(times.motion, *gap)},
                      {"kept", SpansAsJson(KeptOf(times.files), *gap)},
                      {"mayKeep", visitor.admin},
                      {"away", AwayAsJson(times.away)},
                      {"events", EventsAsJson(times.events)}};
    if (*files == 1)
        told["files"] = FilesAsJson(times.files);
    return Answer::Json(200, told);
}

Answer RecordingPages::Keep(const RecordingsVisitor& visitor, std::string_view name, const Request& request,
                            const SignIn& by, bool keep) const {
    const auto camera = Find(visitor, name, request);
    if (!camera)
        return NoRecordings();
    // Without both ends it would be guessed what is meant.
    const auto from = MomentOf(request, "from", -1);
    const auto to = MomentOf(request, "to", -1);
    if (!from || !to || *from < 0 || *to < *from)
        return BadMoment();
    const TimeSpan span{*from, *to};
    const auto [files, done] = recordings->KeepFiles(camera->id, span, keep);
    if (files == 0)
        return Answer::Text(404, "Nothing was recorded then.");
    if (done > 0)
        TellChange(events, EventKind::SettingsChanged, request, by,
                   "recordings of \"" + camera->name + "\" from " + MomentText(span.begin) + " to " +
                       MomentText(span.end) + (keep ? " kept" : " let go"),
                   camera->name);
    if (done < files)
        return Answer::Text(503, std::to_string(files - done) + " of " + std::to_string(files) +
                                     " recorded files could not be changed.");
    return Answer::Json(200, {{"files", done}});
}

Answer RecordingPages::Picture(const RecordingsVisitor& visitor, std::string_view name,
                               const Request& request) const {
    const auto camera = Find(visitor, name, request);
    if (!camera)
        return NoRecordings();
    const auto time = MomentOf(request, "t", -1);
    const auto step = NumberOf(request, "step", 0, -1, 1);
    const auto file = NumberOf(request, "file", 0, 1, kMostNumber);
    const auto within = NumberOf(request, "within", kUsualWithin, 0, kMostNumber);
    if (!time || *time < 0 || !step || !file || !within)
        return BadMoment();
    const auto picture = recordings->Picture(camera->id, *time, static_cast<int>(*step), *file);
    if (!picture || (*step == 0 && std::abs(picture->time - *time) > *within))
        return Answer::Text(404, "Nothing was recorded then.");
    Answer answer;
    answer.type = "image/jpeg";
    answer.body = picture->jpeg;
    answer.headers["X-Picture-Time"] = std::to_string(picture->time);
    answer.headers["X-Picture-File"] = std::to_string(picture->file);
    answer.headers["Cache-Control"] = "private, no-cache";
    return answer;
}

RecordingPages::Export RecordingPages::Save(const RecordingsVisitor& visitor, std::string_view name,
                                            const Request& request) const {
    const auto camera = Find(visitor, name, request);
    if (!camera)
        return {NoRecordings()};
    const auto span = SpanOf(request);
    if (!span)
        return {BadMoment()};
    const auto form = SaveFormFrom(QueryParameter(request.query, "form"));
    const auto speed = NumberOf(request, "speed", 60, 1, kMostSpeed);
    if (!form || !speed)
        return {
            Answer::Text(400, "A form is one of mkv, zip, lapse, and a speed is a number from 1 to 100000.")};
    const std::string_view number = QueryParameter(request.query, "id");
    if (!number.empty() && !ExportTable::IsNumber(number))
        return {Answer::Text(400, "The number of an export has 32 hexadecimal digits.")};
    ExportPtr state = number.empty() ? std::make_shared<ExportState>(*span) : exports.Begin(number, *span);
    if (!state)
        return {Answer::Text(409, "There is an export of that number.")};
    if (auto nothing = NothingIn(recordings->Range(camera->id, *span))) {
        state->Finish(ExportState::End::Empty);
        return {std::move(nothing)};
    }
    const SaveOrder order{*recordings, *camera, *form, static_cast<double>(*speed)};
    const bool headOnly = request.method == "HEAD";
    return {std::nullopt, [this, order, state = std::move(state), headOnly](Stream& stream) {
                SendRecording(order, *state, stream, stop, limits.writeStall, headOnly);
            }};
}

RecordingPages::Export RecordingPages::File(const RecordingsVisitor& visitor, std::string_view name,
                                            const Request& request) const {
    const auto camera = Find(visitor, name, request);
    if (!camera)
        return {NoRecordings()};
    const auto number = NumberOf(request, "number", 0, 1, kMostNumber);
    std::shared_ptr<StoredFile> file = number ? recordings->Open({camera->id, *number}) : nullptr;
    if (!file)
        return {Answer::Text(404, "There is no recorded file of that number.")};
    const std::string called = camera->name + ' ' + file->name;
    return {std::nullopt, [this, file = std::move(file), called, request](Stream& stream) {
                SendStoredFile(*file, called, request, stream, stop, limits.writeStall);
            }};
}

Answer RecordingPages::ExportProgress(const Request& request) const {
    const ExportPtr state = exports.Find(QueryParameter(request.query, "id"));
    if (!state)
        return Answer::Text(404, "There is no export of that number.");
    using enum ExportState::End;
    const auto end = state->end.load();
    RecordedJson ended;
    if (end != None)
        ended = end == Whole ? "whole" : end == Empty ? "empty" : "failed";
    return Answer::Json(200, {{"done", state->Done()}, {"ended", ended}});
}

Answer RecordingPages::StopExport(const Request& request) const {
    const ExportPtr state = exports.Find(QueryParameter(request.query, "id"));
    if (!state)
        return Answer::Text(404, "There is no export of that number.");
    state->stopped = true;
    Answer answer;
    answer.status = 204;
    return answer;
}

} // namespace host
