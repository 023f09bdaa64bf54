#include "host/peers/talk.h"

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

namespace host {
namespace {

// A disk that is busy may take that long.
constexpr std::chrono::milliseconds kPartWithin{3000};
constexpr std::size_t kMostAnswer = std::size_t{64} << 20;
// Of a host that answers, and never comes to an end.
constexpr std::chrono::seconds kWholeWithin{30};
constexpr std::size_t kThreads = 3; // they wait for disks
constexpr std::size_t kMostQuestions = 256;
// Answers that are pulled at a time; who is slower than that asks anew.
constexpr std::size_t kMostSessions = 64;
constexpr std::chrono::seconds kSessionFor{15};

std::string PackPeer(const PeerDocument& document) {
    std::string text;
    PeerDocument::to_cbor(document, text);
    return text;
}

// One answer on its way. Shared with the link, which may tell of it after nobody waits any more.
struct PeerPart {
    std::mutex mutex;
    std::condition_variable told;
    bool done = false; // these two under the mutex
    std::optional<std::string> text;

    std::optional<std::string> Await() {
        std::unique_lock guard(mutex);
        told.wait(guard, [this] { return done; }); // the link tells of silence as well
        return std::move(text);
    }
};

std::shared_ptr<PeerPart> SendPeer(Cluster& cluster, const std::string& node, const std::string& topic,
                                   const PeerDocument& message) {
    auto part = std::make_shared<PeerPart>();
    cluster.Ask(node, topic, PackPeer(message), kPartWithin, [part](std::optional<std::string> text) {
        const std::lock_guard guard(part->mutex);
        part->text = std::move(text);
        part->done = true;
        part->told.notify_all();
    });
    return part;
}

// The whole answer, of which the first part is on its way. `mayHold`: that one may be without any of it,
// since an order is carried out with the next message; every part but the last is a full one.
std::optional<PeerDocument> PullPeer(Cluster& cluster, const std::string& node, const std::string& topic,
                                     std::shared_ptr<PeerPart> part, bool mayHold, Clock::time_point until) {
    std::string answer;
    for (;;) {
        const auto text = part->Await();
        if (!text)
            return std::nullopt;
        const auto message = PeerDocument::from_cbor(*text);
        const auto session = message.at("session").get<std::uint64_t>();
        const auto size = message.at("size").get<std::uint64_t>();
        const auto& bytes = message.at("part").get_binary();
        const bool held = message.at("held").get<bool>();
        answer.append(bytes.begin(), bytes.end());
        if (!held && answer.size() >= size)
            return PeerDocument::from_cbor(answer);
        if (size > kMostAnswer || Clock::now() >= until ||
            (held ? !std::exchange(mayHold, false) || !bytes.empty() : bytes.size() != kPeerPart))
            return std::nullopt;
        part = SendPeer(cluster, node, topic, {{"session", session}, {"at", answer.size()}});
    }
}

} // namespace

std::optional<PeerDocument> PeerAsker::Ask(const std::string& node, const PeerDocument& question,
                                           bool changes) const {
    auto answers = AskAll({{node, question}}, changes);
    return answers.empty() ? std::nullopt : std::optional(std::move(answers.begin()->second));
}

std::map<std::string, PeerDocument> PeerAsker::AskAll(const std::map<std::string, PeerDocument>& questions,
                                                      bool changes) const {
    std::vector<std::pair<std::string, std::shared_ptr<PeerPart>>> parts;
    parts.reserve(questions.size());
    for (const auto& [node, question] : questions)
        parts.emplace_back(node,
                           SendPeer(m_cluster, node, m_topic, {{"ask", question}, {"changes", changes}}));
    const auto until = Clock::now() + kWholeWithin;
    std::map<std::string, PeerDocument> answers;
    for (auto& [node, part] : parts) {
        try {
            if (auto answer = PullPeer(m_cluster, node, m_topic, std::move(part), changes, until))
                answers.emplace(node, std::move(*answer));
        } catch (const PeerDocument::exception&) {
            // Of a host with another version.
        }
    }
    return answers;
}

PeerAnswerer::PeerAnswerer(Cluster& cluster, const std::string& topic, Answer answer)
    : m_answer(std::move(answer)) {
    for (std::size_t i = 0; i < kThreads; ++i)
        m_workers.Start([this] { Work(); });
    m_serving = cluster.Serve(topic, [this](const std::string& text, Cluster::Reply reply) {
        const std::lock_guard guard(m_mutex);
        if (m_questions.size() >= kMostQuestions)
            return; // the asker takes this host for one that is away
        m_questions.push_back({text, std::move(reply)});
        m_news.notify_one();
    });
}

void PeerAnswerer::End() {
    const std::lock_guard guard(m_mutex);
    m_ends = true;
    m_news.notify_all();
}

void PeerAnswerer::Work() {
    for (;;) {
        Question question;
        {
            std::unique_lock guard(m_mutex);
            m_news.wait(guard, [this] { return m_ends || !m_questions.empty(); });
            if (m_ends)
                return;
            question = std::move(m_questions.front());
            m_questions.pop_front();
        }
        try {
            Take(question);
        } catch (const std::exception&) {
            // It is no question, or this host has no answer: the asker goes on without.
        }
    }
}

void PeerAnswerer::Take(const Question& question) {
    const auto message = PeerDocument::from_cbor(question.text);
    if (message.contains("ask"))
        Begin(message.at("ask"), message.at("changes").get<bool>(), question.reply);
    else
        GoOn(message, question.reply);
}

// A question that is sent once more by somebody who has recorded it is answered once more, to nobody who
// could read that. An order is carried out with the second message alone, for the number that the first was
// answered with, and that one counts once.
void PeerAnswerer::Begin(const PeerDocument& question, bool changes, const Cluster::Reply& reply) {
    if (changes) {
        const std::uint64_t session = Keep({.answer = {}, .order = question});
        return reply(PackPeer(
            {{"session", session}, {"size", 0}, {"part", PeerDocument::binary({})}, {"held", true}}));
    }
    std::string answer = PackPeer(m_answer(question));
    const std::size_t size = answer.size();
    const std::string first = answer.substr(0, kPeerPart);
    const std::uint64_t session = size > kPeerPart ? Keep({.answer = std::move(answer)}) : 0;
    reply(PackPeer({{"session", session},
                    {"size", size},
                    {"part", PeerDocument::binary({first.begin(), first.end()})},
                    {"held", false}}));
}

void PeerAnswerer::GoOn(const PeerDocument& message, const Cluster::Reply& reply) {
    const auto number = message.at("session").get<std::uint64_t>();
    const auto at = message.at("at").get<std::uint64_t>();
    std::string part;
    std::size_t size = 0;
    std::optional<PeerDocument> order;
    {
        const std::lock_guard guard(m_mutex);
        const auto found = m_sessions.find(number);
        if (found == m_sessions.end())
            return;
        Session& session = found->second;
        session.used = Clock::now();
        order = std::exchange(session.order, std::nullopt);
        size = session.answer.size();
        part = session.answer.substr(std::min<std::uint64_t>(at, size), kPeerPart);
        if (order || at + part.size() >= size)
            m_sessions.erase(found);
    }
    if (order) {
        part = PackPeer(m_answer(*order));
        size = part.size();
    }
    reply(PackPeer({{"session", number},
                    {"size", size},
                    {"part", PeerDocument::binary({part.begin(), part.end()})},
                    {"held", false}}));
}

std::uint64_t PeerAnswerer::Keep(Session session) {
    session.used = Clock::now();
    std::random_device random;
    const std::uint64_t number = std::uint64_t{random()} << 32 | random();
    const std::lock_guard guard(m_mutex);
    const auto oldest = session.used - kSessionFor;
    std::erase_if(m_sessions, [&](const auto& item) { return item.second.used < oldest; });
    if (m_sessions.size() >= kMostSessions)
        m_sessions.erase(
            std::ranges::min_element(m_sessions, {}, [](const auto& item) { return item.second.used; }));
    m_sessions.insert_or_assign(number, std::move(session));
    return number;
}

} // namespace host
