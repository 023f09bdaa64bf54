#include "host/site/events/pages.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/base/moment.h"
#include "host/http/page_socket.h"

namespace host {
namespace {

constexpr std::size_t kUsualEvents = 100;
constexpr std::size_t kMostOnPage = 1000;
constexpr std::size_t kMostEventsOfMessage = 100;
// So that no proxy takes a quiet socket for a dead one.
constexpr std::chrono::seconds kEventsHeartbeat{20};

template <class Number>
std::optional<Number> EventNumberIn(std::string_view text) {
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::string EventsAsText(const std::vector<EventPtr>& events, const EventPages::Sees& sees) {
    auto array = nlohmann::ordered_json::array();
    for (const EventPtr& event : events) {
        if (!sees || sees(*event))
            array.push_back(AsJson(*event));
    }
    return JsonText(array);
}

// What is asked for; a text that says what is wrong with it.
struct EventQuery {
    EventFilter filter{};
    std::map<std::string, std::uint64_t> before{}; // of several hosts: what the last page had of each
    std::size_t limit = kUsualEvents;
    std::string wrong{};
};

// "HOST:NUMBER", with commas between them. Names of hosts have neither of the two signs.
bool ReadCursor(std::string_view text, std::map<std::string, std::uint64_t>& before) {
    while (!text.empty()) {
        const std::string_view one = text.substr(0, text.find(','));
        const auto number =
            EventNumberIn<std::uint64_t>(one.substr(std::min(one.find(':'), one.size() - 1) + 1));
        if (!number || one.find(':') == std::string_view::npos)
            return false;
        before[std::string(one.substr(0, one.find(':')))] = *number;
        text.remove_prefix(std::min(one.size() + 1, text.size()));
    }
    return true;
}

EventQuery ReadEventQuery(const Request& request) {
    EventQuery query;
    const auto read = [&](std::string_view name, const auto& take) {
        const auto value = FormValue(request.query, name);
        if (value && !value->empty() && !take(*value))
            query.wrong = "\"" + std::string(name) + "\" in the query makes no sense.";
    };
    const auto time = [](std::optional<Event::Time>& into) {
        return [&into](const std::string& text) {
            const auto moment = ReadMoment(text);
            if (moment)
                into = Event::Time(std::chrono::milliseconds(*moment));
            return moment.has_value();
        };
    };
    read("from", time(query.filter.from));
    read("to", time(query.filter.to));
    read("camera", [&](const std::string& name) {
        query.filter.camera = name;
        return true;
    });
    read("before", [&](const std::string& text) {
        if (text.find(':') != std::string::npos)
            return ReadCursor(text, query.before);
        const auto number = EventNumberIn<std::uint64_t>(text);
        query.filter.before = number.value_or(0);
        return number.has_value();
    });
    read("limit", [&](const std::string& text) {
        const auto number = EventNumberIn<std::size_t>(text);
        query.limit = number.value_or(0);
        return query.limit >= 1 && query.limit <= kMostOnPage;
    });
    read("kind", [&](std::string_view words) {
        while (!words.empty()) {
            const auto comma = std::min(words.find(','), words.size());
            const auto kind = EventKindFrom(words.substr(0, comma));
            if (!kind)
                return false;
            query.filter.kinds.push_back(*kind);
            words.remove_prefix(std::min(comma + 1, words.size()));
        }
        return true;
    });
    return query;
}

// What a host has, the newest first, as far as it was asked for.
struct HostEvents {
    std::vector<EventPtr> events{}; // that may be seen
    std::size_t taken = 0;
    std::uint64_t reached = 0; // all with this number and above have been looked at
    bool more = false;         // there may be older ones
};

// Of another host as many as there are to be shown, unless it is by its answers that there are not: what may
// not be seen is left out here.
void TakeSeen(HostEvents& host, const std::vector<EventPtr>& answer, const EventQuery& query) {
    host.more = answer.size() > query.limit;
    for (const EventPtr& event : answer) {
        host.reached = event->number;
        if (!query.filter.sees || query.filter.sees(*event))
            host.events.push_back(event);
    }
}

Answer AllEvents(const EventQuery& query, const EventLog& events, const OtherEvents& others) {
    constexpr int kMostRounds = 5;
    EventFilter filter = query.filter;
    std::map<std::string, HostEvents> hosts;
    // This host's: what may not be seen has been left out.
    if (const auto own = query.before.find(others.Self()); own != query.before.end())
        filter.before = own->second;
    const std::string self = others.Self();
    TakeSeen(hosts[self], events.Find(filter, query.limit + 1), query);
    // A host that did not answer for an earlier page is none of the later ones' either.
    auto before = query.before;
    for (int round = 0; round < kMostRounds; ++round) {
        bool again = false;
        for (auto& [node, answer] : others.Newest(query.filter, before, query.limit + 1)) {
            const bool left = !query.before.empty() && !query.before.contains(node);
            HostEvents& host = hosts[node];
            if (left || host.events.size() > query.limit || (round > 0 && !host.more))
                continue;
            TakeSeen(host, answer, query);
            before[node] = host.reached;
            again = again || (host.more && host.events.size() <= query.limit);
        }
        if (!again)
            break;
    }
    auto list = nlohmann::ordered_json::array();
    while (list.size() < query.limit) {
        HostEvents* newest = nullptr;
        for (auto& [node, host] : hosts) {
            if (host.taken < host.events.size() &&
                (newest == nullptr || host.events[host.taken]->time > newest->events[newest->taken]->time))
                newest = &host;
        }
        if (newest == nullptr)
            break;
        list.push_back(AsJson(*newest->events[newest->taken++]));
    }
    std::string next;
    bool more = false;
    for (const auto& [node, host] : hosts) {
        const bool all = host.taken == host.events.size();
        more = more || !all || host.more;
        // Below which number the next page begins.
        const std::uint64_t number = !all        ? host.events[host.taken]->number + 1
                                     : host.more ? host.reached
                                                 : 1;
        next += (next.empty() ? "" : ",") + node + ":" + std::to_string(number);
    }
    nlohmann::ordered_json json{{"events", std::move(list)}, {"next", nullptr}};
    if (more)
        json["next"] = next;
    return Answer::Json(200, json);
}

class EventNews final : public PageSocket {
public:
    EventNews(Stream stream, const Request& request, EventPages::Sees sees, const EventPages& pages)
        : PageSocket(pages.loops.Choose(), std::move(stream), request, pages.limits), m_events(pages.events),
          m_sees(std::move(sees)), m_heartbeat(MakeTimer()), m_watch(pages.events, m_news),
          m_seen(pages.events.LastNumber()), m_begun(pages.others == nullptr) {
        if (pages.others != nullptr)
            m_following =
                pages.others->Follow([this](const std::vector<EventPtr>& events) { TakeTheirs(events); });
    }

private:
    void OnOpen() override {
        Watch(m_news, [] {});
        AwaitHeartbeat();
    }
    void AwaitHeartbeat() {
        At(m_heartbeat, Clock::now() + kEventsHeartbeat, [this] {
            m_heartbeatPending = true;
            AwaitHeartbeat();
        });
    }
    bool OnMessage(std::string_view) override { return false; } // it has nothing to say
    void SendNext() override {
        for (auto events = Next(); !events.empty(); events = Next()) {
            m_text = EventsAsText(events, m_sees);
            if (m_text != "[]")
                return Send();
        }
        if (!m_heartbeatPending || !HasBegun())
            return;
        m_text = "[]";
        Send();
    }
    void Send() {
        m_heartbeatPending = false;
        Text(m_text);
    }

    // What a page cannot take in time is passed over; it is found by asking for it.
    static constexpr std::size_t kMostWaiting = EventLog::kNewest / 2;

    std::vector<EventPtr> Next() {
        if (!HasBegun())
            return {};
        const std::uint64_t last = m_events.LastNumber();
        if (m_seen < last) {
            m_seen = std::max(m_seen, last - std::min<std::uint64_t>(last, kMostWaiting));
            auto events = m_events.After(m_seen, kMostEventsOfMessage);
            m_seen = events.empty() ? last : events.back()->number;
            if (!events.empty())
                return events;
        }
        const std::lock_guard guard(m_mutex);
        const auto count = static_cast<std::ptrdiff_t>(std::min(m_theirs.size(), kMostEventsOfMessage));
        std::vector<EventPtr> events(m_theirs.begin(), m_theirs.begin() + count);
        m_theirs.erase(m_theirs.begin(), m_theirs.begin() + count);
        return events;
    }

    bool HasBegun() const {
        const std::lock_guard guard(m_mutex);
        return m_begun;
    }

    // On the thread that follows other hosts.
    void TakeTheirs(const std::vector<EventPtr>& events) {
        {
            const std::lock_guard guard(m_mutex);
            if (m_begun && events.empty())
                return;
            m_begun = true;
            m_theirs.insert(m_theirs.end(), events.begin(), events.end());
            if (m_theirs.size() > kMostWaiting)
                m_theirs.erase(m_theirs.begin(), m_theirs.end() - kMostWaiting);
        }
        m_news.Signal();
    }

    EventLog& m_events;
    const EventPages::Sees m_sees;
    Wakeup m_news;
    TimerPtr m_heartbeat;
    const EventWatch m_watch;
    std::uint64_t m_seen;           // the number of the newest event that was looked at
    bool m_heartbeatPending = true; // the first one says that nothing is missed from now on
    std::string m_text;             // the message that is being written
    mutable std::mutex m_mutex;     // the members down to the next blank line
    bool m_begun;                   // other hosts are followed, if there are any
    std::deque<EventPtr> m_theirs;  // of other hosts, that were not sent yet

    std::shared_ptr<const void> m_following; // last: it uses the above
};

} // namespace

Answer EventPages::List(const Request& request, Sees sees) const {
    EventQuery query = ReadEventQuery(request);
    if (!query.wrong.empty())
        return Answer::Text(400, query.wrong);
    query.filter.sees = std::move(sees);
    if (others != nullptr)
        return AllEvents(query, events, *others);
    // One more tells whether there are older ones.
    auto found = events.Find(query.filter, query.limit + 1);
    const bool more = found.size() > query.limit;
    if (more)
        found.pop_back();
    auto list = nlohmann::ordered_json::array();
    for (const EventPtr& event : found)
        list.push_back(AsJson(*event));
    nlohmann::ordered_json json{{"events", std::move(list)}, {"next", nullptr}};
    if (more)
        json["next"] = found.back()->number;
    return Answer::Json(200, json);
}

void EventPages::StartNews(Stream stream, const Request& request, Sees sees,
                           std::shared_ptr<const void> held) const {
    PageSocket::Start(std::make_unique<EventNews>(std::move(stream), request, std::move(sees), *this),
                      std::move(held));
}

} // namespace host
