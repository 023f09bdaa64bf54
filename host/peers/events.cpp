#include "host/peers/events.h"

#include <algorithm>

namespace host {
namespace {

constexpr const char* kEventsTopic = "events";
constexpr std::size_t kMostEventsAsked = 2000;

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

} // namespace

SharedEvents::SharedEvents(Parts parts)
    : m_parts(std::move(parts)), m_asker(m_parts.cluster, kEventsTopic),
      m_answerer(m_parts.cluster, kEventsTopic,
                 [this](const PeerDocument& question) { return Answer(question); }) {}

PeerDocument SharedEvents::Answer(const PeerDocument& question) const {
    const auto most = std::min(question.at("most").get<std::size_t>(), kMostEventsAsked);
    PeerDocument list = PeerDocument::array();
    for (const EventPtr& event : m_parts.local.Find(FilterIn(question), most))
        list.push_back(AsJson(*event).dump(-1, ' ', false, PeerDocument::error_handler_t::replace));
    return list;
}

std::map<std::string, std::vector<EventPtr>>
SharedEvents::Newest(const EventFilter& filter, const std::map<std::string, std::uint64_t>& before,
                     std::size_t most) const {
    std::map<std::string, PeerDocument> questions;
    for (const std::string& node : m_parts.live()) {
        const auto asked = before.find(node);
        if (node != m_parts.node)
            questions.emplace(
                node, FilterDocument(filter, asked != before.end() ? asked->second : filter.before, most));
    }
    std::map<std::string, std::vector<EventPtr>> found;
    for (const auto& [node, answer] : m_asker.AskAll(questions)) {
        std::vector<EventPtr>& events = found[node];
        for (const PeerDocument& line : answer) {
            auto event = line.is_string() ? ReadEvent(line.get<std::string>()) : std::nullopt;
            if (!event)
                continue;
            event->host = node;
            events.push_back(std::make_shared<const Event>(std::move(*event)));
        }
    }
    return found;
}

} // namespace host
