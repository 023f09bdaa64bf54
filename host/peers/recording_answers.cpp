#include "host/peers/recording_answers.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace host {
namespace {

constexpr std::size_t kMostRanges = 64;
// Whoever saves an export may take nothing for a while.
constexpr std::chrono::seconds kRangeFor{120};

PeerDocument SpanDocument(const TimeSpan& span) {
    return {span.begin, span.end};
}

TimeSpan SpanIn(const PeerDocument& document) {
    return {document.at(0).get<UnixMs>(), document.at(1).get<UnixMs>()};
}

TimeSpan AskedSpan(const PeerDocument& question) {
    return {question.at("from").get<UnixMs>(), question.at("to").get<UnixMs>()};
}

PeerDocument SpansDocument(const std::vector<TimeSpan>& spans) {
    PeerDocument list = PeerDocument::array();
    for (const TimeSpan& span : spans)
        list.push_back(SpanDocument(span));
    return list;
}

std::vector<TimeSpan> SpansIn(const PeerDocument& document) {
    std::vector<TimeSpan> spans;
    for (const PeerDocument& span : document)
        spans.push_back(SpanIn(span));
    return spans;
}

PeerDocument BytesDocument(std::string_view bytes) {
    return PeerDocument::binary({bytes.begin(), bytes.end()});
}

} // namespace

PeerDocument ToDocument(const std::vector<ListedCamera>& cameras) {
    PeerDocument list = PeerDocument::array();
    for (const auto& [camera, extent] : cameras)
        list.push_back({camera.id, camera.name, camera.removed, extent.begin, extent.end});
    return list;
}

std::vector<ListedCamera> CamerasIn(const PeerDocument& document) {
    std::vector<ListedCamera> cameras;
    for (const PeerDocument& one : document)
        cameras.push_back(
            {{one.at(0).get<std::int64_t>(), one.at(1).get<std::string>(), one.at(2).get<UnixMs>()},
             {one.at(3).get<UnixMs>(), one.at(4).get<UnixMs>()}});
    return cameras;
}

PeerDocument ToDocument(const RecordedTimes& times) {
    PeerDocument files = PeerDocument::array();
    for (const RecordedFile& file : times.files)
        files.push_back({file.key.number, file.begin, file.end, file.bytes, file.keep});
    PeerDocument events = PeerDocument::array();
    for (const Event& event : times.events)
        events.push_back(AsJson(event).dump());
    return {{"extent", times.extent ? SpanDocument(*times.extent) : PeerDocument()},
            {"spans", SpansDocument(times.spans)},
            {"motion", SpansDocument(times.motion)},
            {"files", std::move(files)},
            {"events", std::move(events)}};
}

RecordedTimes TimesIn(const PeerDocument& document) {
    RecordedTimes times{.spans = SpansIn(document.at("spans")), .motion = SpansIn(document.at("motion"))};
    if (const PeerDocument& extent = document.at("extent"); !extent.is_null())
        times.extent = SpanIn(extent);
    for (const PeerDocument& file : document.at("files"))
        times.files.push_back({.key = {0, file.at(0).get<std::int64_t>()},
                               .begin = file.at(1).get<UnixMs>(),
                               .end = file.at(2).get<UnixMs>(),
                               .bytes = file.at(3).get<std::uint64_t>(),
                               .keep = file.at(4).get<bool>()});
    for (const PeerDocument& line : document.at("events")) {
        if (auto event = ReadEvent(line.get<std::string>()))
            times.events.push_back(std::move(*event));
    }
    return times;
}

PeerDocument ToDocument(const RecordedPicture& picture) {
    return {picture.file, picture.time, picture.width, picture.height, BytesDocument(picture.jpeg)};
}

RecordedPicture PictureIn(const PeerDocument& document) {
    const auto& jpeg = document.at(4).get_binary();
    return {.file = document.at(0).get<std::int64_t>(),
            .time = document.at(1).get<UnixMs>(),
            .width = document.at(2).get<int>(),
            .height = document.at(3).get<int>(),
            .jpeg = std::string(jpeg.begin(), jpeg.end())};
}

PeerDocument RecordingAnswers::To(const PeerDocument& question) {
    const std::string op = question.at("op").get<std::string>();
    if (op == "cameras")
        return ToDocument(m_source.Listed());
    if (op == "range")
        return RangePart(question);
    const auto camera = question.at("camera").get<std::int64_t>();
    if (op == "times")
        return ToDocument(m_source.Times(camera, AskedSpan(question), question.at("gap").get<UnixMs>(),
                                         question.at("all").get<bool>()));
    if (op == "picture") {
        const auto picture =
            m_source.Picture(camera, question.at("time").get<UnixMs>(), question.at("step").get<int>(),
                             question.at("file").get<std::int64_t>());
        return picture ? ToDocument(*picture) : PeerDocument();
    }
    if (op == "keep") {
        const auto kept = m_source.KeepFiles(camera, AskedSpan(question), question.at("keep").get<bool>());
        return {{"files", kept.files}, {"changed", kept.changed}};
    }
    const auto file = m_source.Open({camera, question.at("number").get<std::int64_t>()});
    if (op == "file")
        return file ? PeerDocument{{"name", file->name}, {"size", file->size}, {"version", file->version}}
                    : PeerDocument();
    if (op != "bytes")
        throw std::invalid_argument("no such question");
    const auto most = std::min(question.at("most").get<std::size_t>(), kPeerPart);
    return BytesDocument(file ? file->Read(question.at("at").get<std::uint64_t>(), most) : std::string());
}

std::shared_ptr<RecordingAnswers::OpenRange> RecordingAnswers::RangeOf(const PeerDocument& question) {
    const std::string id = question.at("id").get<std::string>();
    const bool begins = question.at("part").get<std::uint64_t>() == 0;
    {
        const std::lock_guard guard(m_mutex);
        if (const auto found = m_ranges.find(id); found != m_ranges.end())
            return found->second;
    }
    if (!begins)
        throw RecordingError("the export was waited for too long");
    auto range = std::make_shared<OpenRange>(
        m_source.Range(question.at("camera").get<std::int64_t>(), AskedSpan(question)));
    const std::lock_guard guard(m_mutex);
    const auto oldest = Clock::now() - kRangeFor;
    std::erase_if(m_ranges, [&](const auto& item) { return item.second->used < oldest; });
    if (m_ranges.size() >= kMostRanges)
        throw RecordingError("too many exports are asked for");
    return m_ranges.try_emplace(id, std::move(range)).first->second;
}

PeerDocument RecordingAnswers::RangePart(const PeerDocument& question) {
    const auto open = RangeOf(question);
    const auto part = question.at("part").get<std::uint64_t>();
    const auto most = question.at("most").get<std::size_t>();
    auto time = question.at("time").get<UnixMs>();
    const std::lock_guard guard(open->mutex);
    if (part + 1 == open->next)
        return open->last;
    if (part != open->next)
        throw RecordingError("the export is further on");
    PeerDocument pictures = PeerDocument::array();
    bool end = false;
    for (std::size_t bytes = 0; bytes < kPeerPart && pictures.size() < most;) {
        const auto picture = open->range.NextFrom(std::exchange(time, 0));
        end = !picture;
        if (end)
            break;
        bytes += picture->jpeg.size();
        pictures.push_back({ToDocument(*picture), open->range.EndBefore()});
    }
    open->next = part + 1;
    open->last = {{"pictures", std::move(pictures)}, {"end", end}};
    const std::lock_guard both(m_mutex);
    open->used = Clock::now();
    return open->last;
}

} // namespace host
