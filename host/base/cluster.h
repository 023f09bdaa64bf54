// What hosts that are one server share: the host's side of a plug-in, which is opened for such hosts alone.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
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
    // Whether all of them have told what is in them; waits that long for it at most.
    [[nodiscard]] virtual bool AwaitRead(std::chrono::milliseconds within) = 0;
    // Why the others cannot be reached, in a line for a person; empty while they can.
    [[nodiscard]] virtual std::string Trouble() const = 0;
};

// `tell` takes lines for the log, on any thread. Null, and `wrong` says why, when it cannot be opened: a
// secret that is none, or a library that is missing. Does not wait for a server.
using ClusterTell = std::function<void(const std::string& line)>;
using OpenClusterFunction = Cluster*(const ClusterOptions& options, const ClusterTell& tell,
                                     std::string& wrong);
inline constexpr const char* kOpenCluster = "MorrowOpenCluster"; // what the plug-in exports

} // namespace host
