#include "host/peers/events.h"

#include <algorithm>

namespace host {
namespace {

constexpr const char* kEventsTopic = "events";
constexpr std::size_t kMostEventsAsked = 2000;
// While somebody here follows what happens. Others are asked nothing else.
constexpr std::chrono::milliseconds kNewsEvery{500};
// Between two such questions; what is more is found by asking for it.
constexpr std::size_t kMostNews = EventLog::kNewest / 2;
constexpr std::uint64_t kNoneSeen = UINT64_MAX; // what follows the newest one is asked for from then on

PeerDocument FilterDocument(const EventFilter& filter, std::uint64_t before, std::size_t most) {
    PeerDocument document{{"before", before}, {"most", most}, {"kinds", PeerDocument::array()}};
    for (const EventKind kind : filter.kinds)
        document["kinds"].push_back(WordOf(kind));
    if (filter.from)
        document["from"] = filter.from->time_since_epoch().count();
    if (filter.to)
        document["to"] = filter.to->time_since_epoch().count();
    if (filter.camera)
        document["camera"] = *filter.camera;
    return document;
}

EventFilter FilterIn(const PeerDocument& document) {
    EventFilter filter{.before = document.at("before").get<std::uint64_t>()};
    for (const PeerDocument& word : document.at("kinds")) {
        // One that this host does not know yet has not happened here.
        filter.kinds.push_back(EventKindFrom(word.get<std::string>()).value_or(EventKind::Count));
    }
    const auto time = [&](const char* name, std::optional<Event::Time>& into) {
        if (document.contains(name))
            into = Event::Time(std::chrono::milliseconds(document.at(name).get<std::int64_t>()));
    };
    time("from", filter.from);
    time("to", filter.to);
    if (document.contains("camera"))
        filter.camera = document.at("camera").get<std::string>();
    return filter;
}

PeerDocument EventLines(const std::vector<EventPtr>& events) {
    PeerDocument lines = PeerDocument::array();
    for (const EventPtr& event : events)
        lines.push_back(AsJson(*event).dump(-1, ' ', false, PeerDocument::error_handler_t::replace));
    return lines;
}

std::vector<EventPtr> EventsIn(const PeerDocument& lines, const std::string& node) {
    std::vector<EventPtr> events;
    for (const PeerDocument& line : lines) {
        auto event = line.is_string() ? ReadEvent(line.get<std::string>()) : std::nullopt;
        if (!event)
            continue;
        event->host = node;
        events.push_back(std::make_shared<const Event>(std::move(*event)));
    }
    return events;
}

} // namespace

SharedEvents::SharedEvents(Parts parts)
    : m_parts(std::move(parts)), m_asker(m_parts.cluster, kEventsTopic),
      m_answerer(m_parts.cluster, kEventsTopic,
                 [this](const PeerDocument& question) { return Answer(question); }),
      m_following([this] { AskForNews(); }) {}

SharedEvents::~SharedEvents() {
    m_stop.Signal();
    m_following.join();
}

// With `after`: those with numbers above it, and which the newest one is.
PeerDocument SharedEvents::Answer(const PeerDocument& question) const {
    if (question.contains("after")) {
        const std::uint64_t last = m_parts.local.LastNumber();
        const auto after = std::max(question.at("after").get<std::uint64_t>(),
                                    last - std::min<std::uint64_t>(last, kMostNews));
        return {{"last", last}, {"events", EventLines(m_parts.local.After(after, kMostNews))}};
    }
    const auto most = std::min(question.at("most").get<std::size_t>(), kMostEventsAsked);
    return EventLines(m_parts.local.Find(FilterIn(question), most));
}

std::map<std::string, PeerDocument>
SharedEvents::AskOthers(const std::function<PeerDocument(const std::string& node)>& question) const {
    std::map<std::string, PeerDocument> questions;
    for (const std::string& node : m_parts.live()) {
        if (node != m_parts.node)
            questions.emplace(node, question(node));
    }
    return m_asker.AskAll(questions);
}

std::map<std::string, std::vector<EventPtr>>
SharedEvents::Newest(const EventFilter& filter, const std::map<std::string, std::uint64_t>& before,
                     std::size_t most) const {
    std::map<std::string, std::vector<EventPtr>> found;
    for (const auto& [node, answer] : AskOthers([&](const std::string& asked) {
             const auto number = before.find(asked);
             return FilterDocument(filter, number != before.end() ? number->second : filter.before, most);
         }))
        found[node] = EventsIn(answer, node);
    return found;
}

std::shared_ptr<const void> SharedEvents::Follow(Take take) {
    const std::lock_guard guard(m_mutex);
    const auto place = m_followers.insert(m_followers.end(), std::move(take));
    m_followed.Signal();
    return {&*place, [this, place](const void*) {
                const std::lock_guard ending(m_mutex);
                m_followers.erase(place);
            }};
}

void SharedEvents::AskForNews() {
    Numbers seen;
    for (;;) {
        m_followed.Clear();
        bool follows = false;
        {
            const std::lock_guard guard(m_mutex);
            follows = !m_followers.empty();
        }
        if (follows) {
            const auto news = NewsSince(seen);
            const std::lock_guard guard(m_mutex);
            // One who came meanwhile misses nothing either: what happens from here on is still to be asked
            // for.
            for (const Take& take : m_followers)
                take(news);
        } else {
            seen.clear();
        }
        const auto until = follows ? Clock::now() + kNewsEvery : Clock::time_point::max();
        if (WaitFor({.wakeup = &m_followed, .stop = &m_stop}, until) == Waited::Stopped)
            return;
    }
}

std::vector<EventPtr> SharedEvents::NewsSince(Numbers& seen) const {
    std::vector<EventPtr> news;
    for (const auto& [node, answer] : AskOthers([&](const std::string& asked) {
             const auto number = seen.find(asked);
             return PeerDocument{{"after", number != seen.end() ? number->second : kNoneSeen}};
         })) {
        try {
            const auto events = EventsIn(answer.at("events"), node);
            news.insert(news.end(), events.begin(), events.end());
            // Below what was seen where the host has begun anew, with another folder.
            seen[node] = events.empty() ? answer.at("last").get<std::uint64_t>() : events.back()->number;
        } catch (const PeerDocument::exception&) {
            // Of a host with another version.
        }
    }
    std::ranges::stable_sort(news, {}, &Event::time);
    return news;
}

} // namespace host
