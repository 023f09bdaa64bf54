// Questions from one host of a cluster to another, and what they are answered: documents of any length, in
// parts that the asker pulls one after the other.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "host/base/cluster.h"
#include "host/base/wait.h"
#include "host/base/workers.h"

namespace host {

using PeerDocument = nlohmann::ordered_json; // with binary values; CBOR (RFC 8949) on its way

// Of an answer at a time: so much as the message engine carries beside pictures without delaying them.
inline constexpr std::size_t kPeerPart = std::size_t{256} * 1024;

// Any thread. Calls wait for an answer, some seconds at most.
class PeerAsker {
public:
    PeerAsker(Cluster& cluster, std::string topic) : m_cluster(cluster), m_topic(std::move(topic)) {}

    // Nothing where there is no answer in time. What changes something (`changes`) is carried out once,
    // however often somebody sends the messages again.
    [[nodiscard]] std::optional<PeerDocument> Ask(const std::string& node, const PeerDocument& question,
                                                  bool changes = false) const;
    // The same of several hosts at a time; of those that do not answer there is nothing.
    [[nodiscard]] std::map<std::string, PeerDocument>
    AskAll(const std::map<std::string, PeerDocument>& questions, bool changes = false) const;

private:
    Cluster& m_cluster;
    const std::string m_topic;
};

// Answers on threads of its own, for as long as it lives.
class PeerAnswerer {
public:
    // Any of its threads. Throws where there is no answer.
    using Answer = std::function<PeerDocument(const PeerDocument& question)>;
    PeerAnswerer(Cluster& cluster, const std::string& topic, Answer answer);
    PeerAnswerer(const PeerAnswerer&) = delete;
    PeerAnswerer& operator=(const PeerAnswerer&) = delete;
    ~PeerAnswerer() = default;

private:
    struct Question {
        std::string text;
        Cluster::Reply reply;
    };
    // What is being pulled, or what is to be carried out with the next message.
    struct Session {
        std::string answer;
        std::optional<PeerDocument> order{};
        Clock::time_point used{};
    };
    void Work();
    void End();
    void Take(const Question& question);
    void Begin(const PeerDocument& question, bool changes, const Cluster::Reply& reply);
    void GoOn(const PeerDocument& message, const Cluster::Reply& reply);
    [[nodiscard]] std::uint64_t Keep(Session session);

    const Answer m_answer;
    std::mutex m_mutex; // the members down to the next blank line
    std::condition_variable m_news;
    std::deque<Question> m_questions;
    std::map<std::uint64_t, Session> m_sessions; // by numbers that nobody guesses
    bool m_ends = false;

    Workers m_workers{[this] { End(); }};
    std::shared_ptr<const void> m_serving; // last: it hands questions on
};

} // namespace host
