#include "host/site/events/pages.h"

#include <algorithm>
#include <charconv>
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
    std::size_t limit = kUsualEvents;
    std::string wrong{};
};

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

class EventNews final : public PageSocket {
public:
    EventNews(Stream stream, const Request& request, EventPages::Sees sees, const EventPages& pages)
        : PageSocket(pages.loops.Choose(), std::move(stream), request, pages.limits), m_events(pages.events),
          m_sees(std::move(sees)), m_heartbeat(MakeTimer()), m_watch(pages.events, m_news),
          m_seen(pages.events.LastNumber()) {}

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
        const std::uint64_t last = m_events.LastNumber();
        while (m_seen < last) {
            // What such a page cannot take in time is passed over; it is found by asking for it.
            m_seen = std::max(m_seen, last - std::min<std::uint64_t>(last, EventLog::kNewest / 2));
            const auto events = m_events.After(m_seen, kMostEventsOfMessage);
            m_seen = events.empty() ? last : events.back()->number;
            m_text = EventsAsText(events, m_sees);
            if (m_text != "[]")
                return Text(m_text);
        }
        if (std::exchange(m_heartbeatPending, false)) {
            m_text = "[]";
            Text(m_text);
        }
    }

    EventLog& m_events;
    const EventPages::Sees m_sees;
    Wakeup m_news;
    TimerPtr m_heartbeat;
    const EventWatch m_watch;
    std::uint64_t m_seen; // the number of the newest event that was looked at
    bool m_heartbeatPending = false;
    std::string m_text; // the message that is being written
};

} // namespace

Answer EventPages::List(const Request& request, Sees sees) const {
    EventQuery query = ReadEventQuery(request);
    if (!query.wrong.empty())
        return Answer::Text(400, query.wrong);
    query.filter.sees = std::move(sees);
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
