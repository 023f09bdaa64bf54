// The engine's stream of a bucket: what its servers keep, as the one tells that leads them.
//
// Only that one is asked and read. Behind a server's death or a pause the others of NATS 2.9 may hold
// messages under a number that the leading one has given to something else, or lack the newest for a while.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/cluster/link.h"

namespace host::cluster {

// Of each key it keeps the last five messages, so that one that somebody puts on top does not take the true
// one away. Any thread, but for a Reading. A call waits for one answer, kStep at most.
class Stream {
public:
    using Clock = std::chrono::steady_clock;
    using Sequence = std::uint64_t; // of a message; grows; 0: none
    static constexpr std::chrono::milliseconds kStep{1500};

    // The link outlives it. Throws LinkError.
    Stream(Link& link, std::string bucket, int replicas);

    // Makes it where it is not there. False: not known.
    [[nodiscard]] bool Make() const;

    struct Head {
        std::string leader;        // empty: there is one server, and nobody to choose between
        Sequence last = 0;         // that it has given out
        std::int64_t subjects = 0; // keys that have messages
    };
    [[nodiscard]] std::optional<Head> Ask() const;

    // All that it keeps, and what comes. Belongs to one thread.
    struct Reading {
        SubscriptionPtr subscription;
        std::string server;      // that sends it
        std::uint64_t count = 0; // messages that it keeps
    };
    [[nodiscard]] std::optional<Reading> Read(const Head& head) const;
    // What became of that: how many messages were sent, and how many are left to be.
    struct Progress {
        std::uint64_t sent = 0;
        std::uint64_t left = 0;
    };
    [[nodiscard]] static std::optional<Progress> Ask(const Reading& reading);

    struct Message {
        std::string key;
        std::string_view text; // as long as the engine's message
        Sequence sequence = 0;
        std::uint64_t number = 0; // of those of this reading, from 1
        std::int64_t put = 0;     // by the engine's clock, milliseconds since 1970
        bool removal = false;     // a mark of the engine's own, which no host makes
    };
    // Nothing for what the engine has not sent: others can send to where it does, but not from a key.
    [[nodiscard]] std::optional<Message> Open(natsMsg* message) const;

    struct Put {
        enum class Fate { Done, Overtaken, Unknown } fate = Fate::Unknown;
        Sequence sequence = 0;
        std::string why{}; // with Unknown
    };
    // Where the key's last message is still that one (0: there is none).
    [[nodiscard]] Put Publish(const std::string& key, std::string_view text, Sequence last,
                              Clock::time_point until) const;

    struct Last {
        std::string why{};    // not known, for this reason
        MessagePtr message{}; // null: there is none
        Sequence sequence = 0;
        bool removal = false;
    };
    [[nodiscard]] Last Find(const std::string& key, Clock::time_point until) const;
    // Takes the messages of a key away, up to that one. False: not known.
    [[nodiscard]] bool Purge(const std::string& key, Sequence last) const;

private:
    [[nodiscard]] std::string SubjectOf(const std::string& key) const {
        return "$KV." + m_bucket + "." + key;
    }

    Link& m_link;
    const std::string m_bucket;
    const std::string m_name; // of the stream, as the engine's key-value buckets are made
    const int m_replicas;
    JetStreamPtr m_stream;
};

} // namespace host::cluster
