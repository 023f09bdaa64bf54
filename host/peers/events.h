// What has happened at the other hosts of a cluster: each keeps its own, and answers.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/events/event_log.h"
#include "host/peers/talk.h"

namespace host {

class SharedEvents final : public OtherEvents {
public:
    struct Parts {
        EventLog& local;
        Cluster& cluster;
        std::string node;                               // this host's name
        std::function<std::vector<std::string>()> live; // the hosts that live
    };
    explicit SharedEvents(Parts parts);

    [[nodiscard]] std::string Self() const override { return m_parts.node; }
    [[nodiscard]] std::map<std::string, std::vector<EventPtr>>
    Newest(const EventFilter& filter, const std::map<std::string, std::uint64_t>& before,
           std::size_t most) const override;

private:
    [[nodiscard]] PeerDocument Answer(const PeerDocument& question) const;

    const Parts m_parts;
    const PeerAsker m_asker;
    PeerAnswerer m_answerer; // last: it uses the above
};

} // namespace host
