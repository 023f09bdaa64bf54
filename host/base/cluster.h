// What hosts that are one server share: the host's side of a plug-in, which is opened for such hosts alone.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/cluster_cameras.h"
#include "host/base/store.h"

namespace host {

struct ClusterOptions {
    std::vector<std::string> servers; // of the message engine: "nats://HOST:PORT" or "tls://HOST:PORT"
    std::string node;                 // this host's name among the others
    std::string secretFile;
    std::string credentials{}; // a file of the engine's; empty: none
    std::string authority{};   // certificates that its servers are known by; empty: the system's
    std::string folder;        // where it keeps what it has to know after a start
};

// What has passed between the hosts, as this one sees it.
struct ClusterFigures {
    bool connected = false;        // to the message engine
    std::uint64_t connections = 0; // that were lost and found again
    std::uint64_t messagesIn = 0;
    std::uint64_t messagesOut = 0;
    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;
    std::uint64_t refused = 0;   // what no host had sealed for its place
    std::uint64_t conflicts = 0; // writes that another host's came before
};

// Any thread.
class Cluster {
public:
    Cluster() = default;
    Cluster(const Cluster&) = delete;
    Cluster& operator=(const Cluster&) = delete;
    virtual ~Cluster() = default;

    // Each is made once, before there are several threads; the cluster outlives it.
    [[nodiscard]] virtual std::shared_ptr<Store> Bucket(const std::string& name) = 0;
    // Once, and gone before the cluster. Null, and `wrong` says why, when another host has this one's name.
    [[nodiscard]] virtual std::unique_ptr<ClusterCameras> Cameras(std::string& wrong) = 0;
    // Questions of one host to another about something, and their answers. `then` is told once, on a thread
    // of the cluster that must not be kept waiting: nothing when no answer has come in time.
    using Then = std::function<void(std::optional<std::string> answer)>;
    virtual void Ask(const std::string& node, const std::string& topic, std::string_view text,
                     std::chrono::milliseconds within, Then then) = 0;
    // Takes the questions for this host, one of a topic at a time, on such a thread, for as long as what is
    // returned is held; gone before the cluster. A reply is told once, from any thread, or never. Who listens
    // may send a question again: what changes something looks whether it is new.
    using Reply = std::function<void(std::string_view text)>;
    using Respond = std::function<void(const std::string& text, Reply reply)>;
    [[nodiscard]] virtual std::shared_ptr<const void> Serve(const std::string& topic, Respond respond) = 0;
    // Whether all of them have told what is in them; waits that long for it at most.
    [[nodiscard]] virtual bool AwaitRead(std::chrono::milliseconds within) = 0;
    // Why the others cannot be reached, in a line for a person; empty while they can.
    [[nodiscard]] virtual std::string Trouble() const = 0;
    [[nodiscard]] virtual ClusterFigures Figures() const = 0;
};

// `tell` takes lines for the log, on any thread. Null, and `wrong` says why, when it cannot be opened: a
// secret that is none, or a library that is missing. Does not wait for a server.
using ClusterTell = std::function<void(const std::string& line)>;
using OpenClusterFunction = Cluster*(const ClusterOptions& options, const ClusterTell& tell,
                                     std::string& wrong);
inline constexpr const char* kOpenCluster = "MorrowOpenCluster"; // what the plug-in exports

} // namespace host
