// Which host has which camera, kept in two buckets, and their pictures by questions and answers.
#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/cluster_cameras.h"
#include "host/base/store.h"
#include "host/base/workers.h"
#include "host/cluster/link.h"
#include "host/cluster/owners.h"

namespace host::cluster {

// As they are sealed.
struct PictureQuestion {
    std::uint64_t epoch = 0; // of the owner that is asked
    std::uint64_t after = 0;
    std::string camera;
};
[[nodiscard]] std::string WriteQuestion(const PictureQuestion& question);
[[nodiscard]] std::optional<PictureQuestion> ReadQuestion(std::string_view text);
// What a host has, as it announces it: the epochs by camera; 0: it serves that one without an entry.
[[nodiscard]] std::string WriteOwned(const std::map<std::string, std::uint64_t>& owned);
[[nodiscard]] std::optional<std::map<std::string, std::uint64_t>> ReadOwned(std::string_view text);
[[nodiscard]] std::string WritePicture(const CameraPicture& picture);
[[nodiscard]] std::optional<CameraPicture> ReadPicture(std::string_view text);

class Cameras final : public ClusterCameras {
public:
    // The link and the stores outlive it: one for the hosts' hearts, one for the cameras' owners. Throws
    // LinkError when another host has its name, which takes a second to see; a store that has not been read
    // is not waited for.
    Cameras(Link& link, std::shared_ptr<Store> nodes, std::shared_ptr<Store> owners);
    ~Cameras() override;

    void Claim(const std::string& camera) override;
    [[nodiscard]] Orders Look(const std::set<std::string>& receiving) override;
    void Pull(const std::string& camera, const Place& place, std::uint64_t after, Then then) override;
    void Serve(Respond respond) override;
    [[nodiscard]] std::vector<std::string> Nodes() const override;
    [[nodiscard]] std::vector<std::string> Silent() const override;

private:
    using Clock = std::chrono::steady_clock;

    void TakeName();
    void Beat();
    void KeepEntry();
    void Work();
    bool Sleep(std::chrono::milliseconds how); // false: it is over
    void TakeNodes(std::span<const Store::Update> updates);
    void Stop();
    void TakeBeat(const Opened& beat);
    void TakeOwned(const Opened& announcement);
    void Announce(std::map<std::string, std::uint64_t> owned);
    void TakeOwners(std::span<const Store::Update> updates);
    void TakeQuestion(const Opened& opened, const Link::Service::Reply& reply);
    [[nodiscard]] std::optional<std::uint64_t> PutClaim(const std::string& camera, bool insists);

    Link& m_link;
    const std::string m_node;
    const std::shared_ptr<Store> m_nodes;
    const std::shared_ptr<Store> m_owners;

    mutable std::mutex m_mutex; // the members down to the next blank line
    std::condition_variable m_wake;
    Ownership m_ownership;
    // Of each kind of announcement, since those of one kind come in order.
    Freshness m_freshBeats;
    Freshness m_freshOwned;
    std::set<std::string> m_known; // hosts that have not left
    bool m_returned = false;       // somebody who may not know what this host has
    std::vector<std::string> m_claims;
    std::vector<std::pair<std::string, std::uint64_t>> m_releases;
    bool m_stop = false;

    std::mutex m_serving; // held while a question is handed on
    Respond m_respond;    // under m_serving

    Store::Revision m_entry = 0; // of the thread that keeps it, and before and after that
    Store::Watching m_watchNodes;
    Store::Watching m_watchOwners;
    std::optional<Link::Service> m_pictures;
    std::optional<Link::Service> m_hearts;
    std::optional<Link::Service> m_owned;
    Workers m_workers{[this] { Stop(); }}; // last: they use all of the above
};

} // namespace host::cluster
