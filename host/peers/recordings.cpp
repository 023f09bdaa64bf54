#include "host/peers/recordings.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <set>
#include <utility>

#include "host/peers/shared_range.h"
#include "platform/scope.h"

namespace host {
namespace {

constexpr const char* kTopic = "recordings";
// How late it shows that another host has begun to record a camera.
constexpr std::chrono::seconds kCatalogueEvery{5};
constexpr std::chrono::seconds kKeepLookEvery{30};
constexpr std::chrono::minutes kKeepEvery{10};
// An extent is as old as the look; what is recorded since may be asked for all the same.
constexpr UnixMs kGrows = 15'000;

// 20 bits that hosts make alike of a name. (Numbers stay exact in a browser's 53 bits; that two of forty
// hosts have one mark is less likely than one in a thousand, and costs that the second one's removed cameras
// cannot be opened.)
std::int64_t MarkOf(std::string_view node) noexcept {
    std::uint64_t hash = 14695981039346656037ULL; // FNV-1a
    for (const char c : node)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    return static_cast<std::int64_t>((hash ^ hash >> 20 ^ hash >> 40) % 0xfffff + 1);
}

std::int64_t Marked(std::string_view node, std::int64_t number) noexcept {
    return number == 0 ? 0 : MarkOf(node) << 32 | (number & 0xffffffff);
}

std::int64_t Unmarked(std::int64_t number) noexcept {
    return number & 0xffffffff;
}

bool HasMark(std::int64_t number, std::string_view node) noexcept {
    return number >> 32 == MarkOf(node);
}

PeerDocument SpanQuestion(const char* op, std::int64_t camera, TimeSpan span) {
    return {{"op", op}, {"camera", camera}, {"from", span.begin}, {"to", span.end}};
}

std::optional<RecordedPicture> PictureOrNone(const PeerDocument& document) {
    return document.is_null() ? std::nullopt : std::optional(PictureIn(document));
}

RecordingSource::Kept KeptIn(const PeerDocument& document) {
    return {.files = document.at("files").get<std::size_t>(),
            .changed = document.at("changed").get<std::size_t>()};
}

// Another host's.
class FileElsewhere final : public StoredFile {
public:
    FileElsewhere(const PeerAsker& asker, std::string node, FileKey key, const PeerDocument& about)
        : m_asker(asker), m_node(std::move(node)), m_key(key) {
        name = about.at("name").get<std::string>();
        size = about.at("size").get<std::uint64_t>();
        version = about.at("version").get<std::string>();
    }
    [[nodiscard]] std::string Read(std::uint64_t at, std::size_t most) override {
        const auto answer = m_asker.Ask(m_node, {{"op", "bytes"},
                                                 {"camera", m_key.camera},
                                                 {"number", m_key.number},
                                                 {"at", at},
                                                 {"most", std::min(most, kPeerPart)}});
        if (!answer || !answer->is_binary())
            return {};
        const auto& bytes = answer->get_binary();
        return {bytes.begin(), bytes.end()};
    }

private:
    const PeerAsker& m_asker;
    const std::string m_node;
    const FileKey m_key;
};

bool Touches(const TimeSpan& one, const TimeSpan& other) noexcept {
    return one.begin <= other.end && other.begin <= one.end;
}

// What an away host may have of a span.
AwayRecordings AwayIn(const std::string& node, const TimeSpan& extent, const TimeSpan& span) {
    return {node, {std::max(extent.begin, span.begin), std::min(extent.end, span.end)}};
}

TimeSpan Widened(const TimeSpan& extent, const TimeSpan& more) {
    return {std::min(extent.begin, more.begin), std::max(extent.end, more.end)};
}

void Widen(std::optional<TimeSpan>& extent, const TimeSpan& more) {
    extent = extent ? Widened(*extent, more) : more;
}

// Of pictures of several hosts the one that is meant.
bool IsBetter(const RecordedPicture& one, const RecordedPicture& than, UnixMs time, int step) {
    if (step != 0)
        return step > 0 ? one.time < than.time : one.time > than.time;
    return std::abs(one.time - time) < std::abs(than.time - time);
}

} // namespace

SharedRecordings::SharedRecordings(Parts parts)
    : m_parts(std::move(parts)), m_asker(m_parts.cluster, kTopic), m_answers(m_parts.local),
      m_kept(m_parts.catalogues), m_keeper([this] { KeepCatalogue(); }),
      m_answerer(m_parts.cluster, kTopic,
                 [this](const PeerDocument& question) { return m_answers.To(question); }) {}

SharedRecordings::~SharedRecordings() {
    m_stop.Signal();
    m_keeper.join();
}

// What the other hosts know of this one while it is away.
void SharedRecordings::KeepCatalogue() {
    StoreMirror kept(m_parts.catalogues);
    std::set<std::int64_t> told;
    Clock::time_point next{};
    for (bool stops = false; !stops;) {
        stops = WaitFor({.stop = &m_stop}, Clock::now() + kKeepLookEvery) == Waited::Stopped;
        const auto listed = m_parts.local.Listed();
        std::set<std::int64_t> cameras;
        for (const ListedCamera& one : listed)
            cameras.insert(one.camera.id);
        if (!stops && cameras == told && Clock::now() < next)
            continue;
        (void)kept.Refresh();
        const auto found = kept.Now().find(m_parts.node);
        const Store::Change change{
            m_parts.node, ToDocument(listed).dump(-1, ' ', false, PeerDocument::error_handler_t::replace),
            found != kept.Now().end() ? found->second.revision : 0};
        const auto outcomes = m_parts.catalogues->Write({&change, 1});
        (void)kept.Settle({&change, 1}, outcomes);
        if (outcomes.front().result != Store::Result::Done)
            continue;
        told = std::move(cameras);
        next = Clock::now() + kKeepEvery;
    }
}

std::shared_ptr<const SharedRecordings::Catalogues> SharedRecordings::Others() const {
    std::unique_lock guard(m_mutex);
    // Who comes while somebody asks has what was known, but for the first time.
    m_looked.wait(guard, [this] { return !m_looking || m_nextLook != Clock::time_point{}; });
    if (m_looking || Clock::now() < m_nextLook)
        return m_others;
    m_looking = true;
    guard.unlock();
    const platform::AtScopeEnd looked([&] { // whatever goes wrong
        if (!guard)
            guard.lock();
        m_looking = false;
        m_nextLook = Clock::now() + kCatalogueEvery;
        m_looked.notify_all();
    });
    auto others = std::make_shared<const Catalogues>(AskOthers());
    guard.lock();
    m_others = std::move(others);
    return m_others;
}

SharedRecordings::Catalogues SharedRecordings::AskOthers() const {
    std::map<std::string, PeerDocument> questions;
    for (const std::string& node : m_parts.live()) {
        if (node != m_parts.node)
            questions.emplace(node, PeerDocument{{"op", "cameras"}});
    }
    Catalogues others;
    const auto take = [&](const std::string& node, const PeerDocument& document, bool away) {
        try {
            others.try_emplace(node, Catalogue{CamerasIn(document), away});
        } catch (const PeerDocument::exception&) {
            // Of a host with another version.
        }
    };
    for (const auto& [node, answer] : m_asker.AskAll(questions))
        take(node, answer, false);
    // Those that did not answer: as they were seen last, else as they have left word.
    const std::lock_guard guard(m_mutex);
    for (const auto& [node, known] : *m_others)
        others.try_emplace(node, Catalogue{known.cameras, true});
    (void)m_kept.Refresh();
    for (const auto& [node, entry] : m_kept.Now()) {
        if (node != m_parts.node && !others.contains(node))
            take(node, PeerDocument::parse(entry.value, nullptr, false), true);
    }
    return others;
}

// So that the next ones do not wait for it as well.
void SharedRecordings::NoteAway(const std::string& node) const {
    const std::lock_guard guard(m_mutex);
    auto others = std::make_shared<Catalogues>(*m_others);
    if (const auto found = others->find(node); found != others->end())
        found->second.away = true;
    m_others = std::move(others);
}

std::vector<RecordedCamera> SharedRecordings::Cameras() const {
    std::map<std::string, RecordedCamera> present;
    std::vector<RecordedCamera> cameras;
    const auto add = [&](const std::string& node, RecordedCamera camera) {
        camera.id = Marked(node, camera.id);
        if (camera.removed == 0)
            present.try_emplace(camera.name, camera);
        else
            cameras.push_back(std::move(camera));
    };
    const auto others = Others();
    for (RecordedCamera& camera : m_parts.local.Cameras())
        add(m_parts.node, std::move(camera));
    for (const auto& [node, catalogue] : *others) {
        for (const ListedCamera& listed : catalogue.cameras)
            add(node, listed.camera);
    }
    std::ranges::sort(cameras, {}, &RecordedCamera::removed);
    for (auto& [name, camera] : present)
        cameras.push_back(std::move(camera));
    return cameras;
}

std::vector<ListedCamera> SharedRecordings::Listed() const {
    std::map<std::string, ListedCamera> present;
    std::vector<ListedCamera> listed;
    const auto add = [&](const std::string& node, ListedCamera one) {
        one.camera.id = Marked(node, one.camera.id);
        if (one.camera.removed != 0) {
            listed.push_back(std::move(one));
            return;
        }
        const auto [found, isNew] = present.try_emplace(one.camera.name, one);
        if (!isNew)
            found->second.extent = Widened(found->second.extent, one.extent);
    };
    const auto others = Others();
    for (ListedCamera& one : m_parts.local.Listed())
        add(m_parts.node, std::move(one));
    for (const auto& [node, catalogue] : *others) {
        for (const ListedCamera& one : catalogue.cameras)
            add(node, one);
    }
    std::ranges::sort(listed, {}, [](const ListedCamera& one) { return one.camera.removed; });
    for (auto& [name, one] : present)
        listed.push_back(std::move(one));
    return listed;
}

// A camera of the settings is that of its name on all hosts; what is left of one that was removed stands for
// itself.
std::vector<SharedRecordings::Share> SharedRecordings::SharesOf(std::int64_t camera) const {
    const auto others = Others();
    const auto local = m_parts.local.Cameras();
    std::optional<RecordedCamera> meant;
    const auto look = [&](const std::string& node, const RecordedCamera& one) {
        if (!meant && HasMark(camera, node) && one.id == Unmarked(camera))
            meant = one;
    };
    for (const RecordedCamera& one : local)
        look(m_parts.node, one);
    for (const auto& [node, catalogue] : *others) {
        for (const ListedCamera& listed : catalogue.cameras)
            look(node, listed.camera);
    }
    std::vector<Share> shares;
    if (!meant)
        return shares;
    const auto isPart = [&](const std::string& node, const RecordedCamera& one) {
        return meant->removed == 0 ? one.name == meant->name && one.removed == 0
                                   : HasMark(camera, node) && one.id == meant->id;
    };
    for (const RecordedCamera& one : local) {
        const auto extent =
            isPart(m_parts.node, one) ? m_parts.local.Extent(one.id) : std::optional<TimeSpan>();
        if (extent)
            shares.push_back({"", one.id, *extent});
    }
    for (const auto& [node, catalogue] : *others) {
        for (const auto& [one, extent] : catalogue.cameras) {
            if (isPart(node, one))
                shares.push_back({node, one.id, extent, catalogue.away});
        }
    }
    return shares;
}

template <typename Answer, typename Here, typename There>
std::vector<std::optional<Answer>> SharedRecordings::AskShares(const std::vector<Share>& shares,
                                                               const Here& here, const There& question,
                                                               Answer (*read)(const PeerDocument&)) const {
    std::map<std::string, PeerDocument> questions;
    for (const Share& share : shares) {
        if (!share.node.empty() && !share.away)
            questions.emplace(share.node, question(share));
    }
    const bool changes = !questions.empty() && questions.begin()->second.at("op") == "keep";
    const auto answers = m_asker.AskAll(questions, changes);
    std::vector<std::optional<Answer>> found;
    for (const Share& share : shares) {
        found.emplace_back();
        if (share.node.empty()) {
            found.back().emplace(here(share));
            continue;
        }
        try {
            if (const auto answer = answers.find(share.node); answer != answers.end())
                found.back().emplace(read(answer->second));
        } catch (const PeerDocument::exception&) {
            // Of a host with another version.
        }
        if (!found.back() && !share.away)
            NoteAway(share.node);
    }
    return found;
}

std::optional<TimeSpan> SharedRecordings::Extent(std::int64_t camera) const {
    std::optional<TimeSpan> extent;
    for (const Share& share : SharesOf(camera))
        Widen(extent, share.extent);
    return extent;
}

RecordedTimes SharedRecordings::Times(std::int64_t camera, TimeSpan span, UnixMs gap, bool ofAll) const {
    const auto shares = SharesOf(camera);
    const auto answers = AskShares<RecordedTimes>(
        shares, [&](const Share& share) { return m_parts.local.Times(share.camera, span, gap, ofAll); },
        [&](const Share& share) {
            PeerDocument question = SpanQuestion("times", share.camera, span);
            question["gap"] = gap;
            question["all"] = ofAll;
            return question;
        },
        &TimesIn);
    RecordedTimes all;
    const auto append = [](auto& to, const auto& from) { to.insert(to.end(), from.begin(), from.end()); };
    for (std::size_t i = 0; i < shares.size(); ++i) {
        const Share& share = shares[i];
        if (!answers[i]) {
            Widen(all.extent, share.extent);
            if (Touches(share.extent, span))
                all.away.push_back(AwayIn(share.node, share.extent, span));
            continue;
        }
        const RecordedTimes& times = *answers[i];
        if (times.extent)
            Widen(all.extent, *times.extent);
        append(all.spans, times.spans);
        append(all.motion, times.motion);
        append(all.events, times.events);
        for (RecordedFile file : times.files) {
            file.key = {camera, Marked(share.node.empty() ? m_parts.node : share.node, file.key.number)};
            all.files.push_back(file);
        }
    }
    std::ranges::sort(all.spans, {}, &TimeSpan::begin);
    std::ranges::sort(all.motion, {}, &TimeSpan::begin);
    std::ranges::stable_sort(all.files, {}, &RecordedFile::begin);
    std::ranges::stable_sort(all.events, std::ranges::greater{}, &Event::time);
    return all;
}

std::optional<RecordedPicture> SharedRecordings::Picture(std::int64_t camera, UnixMs time, int step,
                                                         std::int64_t file) const {
    auto shares = SharesOf(camera);
    // Where some have recorded then, the others have nothing that is nearer.
    const auto has = [&](const Share& share) {
        return share.extent.begin <= time && time <= share.extent.end + kGrows;
    };
    if (step == 0 && std::ranges::any_of(shares, has))
        std::erase_if(shares, [&](const Share& share) { return !has(share); });
    std::erase_if(shares, [&](const Share& share) {
        return (step > 0 && share.extent.end + kGrows < time) || (step < 0 && share.extent.begin >= time);
    });
    const auto nodeOf = [&](const Share& share) { return share.node.empty() ? m_parts.node : share.node; };
    const auto fileAt = [&](const Share& share) { return HasMark(file, nodeOf(share)) ? Unmarked(file) : 0; };
    const auto answers = AskShares<std::optional<RecordedPicture>>(
        shares,
        [&](const Share& share) { return m_parts.local.Picture(share.camera, time, step, fileAt(share)); },
        [&](const Share& share) {
            return PeerDocument{{"op", "picture"},
                                {"camera", share.camera},
                                {"time", time},
                                {"step", step},
                                {"file", fileAt(share)}};
        },
        &PictureOrNone);
    std::optional<RecordedPicture> best;
    for (std::size_t i = 0; i < shares.size(); ++i) {
        if (!answers[i] || !*answers[i])
            continue;
        RecordedPicture picture = **answers[i];
        picture.file = Marked(nodeOf(shares[i]), picture.file);
        if (!best || IsBetter(picture, *best, time, step))
            best = std::move(picture);
    }
    return best;
}

RecordedRange SharedRecordings::Range(std::int64_t camera, TimeSpan span) const {
    std::vector<SharedRange::Part> parts;
    std::vector<AwayRecordings> away;
    for (const Share& share : SharesOf(camera)) {
        if (share.away && Touches(share.extent, span))
            away.push_back(AwayIn(share.node, share.extent, span));
        if (share.away || share.extent.begin > span.end || share.extent.end + kGrows < span.begin)
            continue;
        const std::int64_t mark = Marked(share.node.empty() ? m_parts.node : share.node, 1) - 1;
        if (share.node.empty())
            parts.push_back({m_parts.local.Range(share.camera, span), mark, {}});
        else
            parts.push_back(
                {RecordedRange(std::make_unique<RangeElsewhere>(m_asker, share.node, share.camera, span)),
                 mark,
                 {}});
    }
    return RecordedRange(std::make_unique<SharedRange>(std::move(parts)), std::move(away));
}

std::unique_ptr<StoredFile> SharedRecordings::Open(FileKey key) const {
    for (const Share& share : SharesOf(key.camera)) {
        if (share.away || !HasMark(key.number, share.node.empty() ? m_parts.node : share.node))
            continue;
        const FileKey own{share.camera, Unmarked(key.number)};
        if (share.node.empty())
            return m_parts.local.Open(own);
        const auto about =
            m_asker.Ask(share.node, {{"op", "file"}, {"camera", own.camera}, {"number", own.number}});
        return about && !about->is_null() ? std::make_unique<FileElsewhere>(m_asker, share.node, own, *about)
                                          : nullptr;
    }
    return nullptr;
}

RecordingSource::Kept SharedRecordings::KeepFiles(std::int64_t camera, TimeSpan span, bool keep) {
    const auto shares = SharesOf(camera);
    const auto answers = AskShares<Kept>(
        shares, [&](const Share& share) { return m_parts.local.KeepFiles(share.camera, span, keep); },
        [&](const Share& share) {
            PeerDocument question = SpanQuestion("keep", share.camera, span);
            question["keep"] = keep;
            return question;
        },
        &KeptIn);
    Kept all;
    for (std::size_t i = 0; i < shares.size(); ++i) {
        if (answers[i]) {
            all.files += answers[i]->files;
            all.changed += answers[i]->changed;
        } else if (Touches(shares[i].extent, span)) {
            ++all.files; // at least, and it was not changed
        }
    }
    return all;
}

} // namespace host
