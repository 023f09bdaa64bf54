// What has happened at the other hosts of a cluster: each keeps its own, and answers.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/base/wait.h"
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
    ~SharedEvents() override;

    [[nodiscard]] std::string Self() const override { return m_parts.node; }
    [[nodiscard]] std::map<std::string, std::vector<EventPtr>>
    Newest(const EventFilter& filter, const std::map<std::string, std::uint64_t>& before,
           std::size_t most) const override;
    [[nodiscard]] std::shared_ptr<const void> Follow(Take take) override;

private:
    using Numbers = std::map<std::string, std::uint64_t>; // by the host's name

    [[nodiscard]] PeerDocument Answer(const PeerDocument& question) const;
    [[nodiscard]] std::map<std::string, PeerDocument>
    AskOthers(const std::function<PeerDocument(const std::string& node)>& question) const;
    void AskForNews();
    [[nodiscard]] std::vector<EventPtr> NewsSince(Numbers& seen) const;

    const Parts m_parts;
    const PeerAsker m_asker;
    std::mutex m_mutex; // the line below
    std::list<Take> m_followers;
    Wakeup m_followed;
    Wakeup m_stop;
    PeerAnswerer m_answerer;
    std::thread m_following; // last: nothing that may throw comes behind it
};

} // namespace host
