// The plug-in's one door.
#include <exception>
#include <memory>
#include <random>

#include <string.h>

#include "host/base/cluster.h"
#include "host/base/workers.h"
#include "host/cluster/bucket.h"
#include "host/cluster/cameras.h"
#include "host/cluster/link.h"
#include "host/cluster/seal.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/options.h"
#include "platform/text.h"

namespace host::cluster {
namespace {

constexpr const char* kNameKey = "name-key";
constexpr std::size_t kNameKeyBytes = 32;
// A first start needs the engine; each later one gets along without.
constexpr std::chrono::seconds kFirstWait{30};

Secrets SecretsIn(const std::string& file) {
    std::string text = platform::ReadWholeFile(file, 4096).value_or("");
    if (text.empty())
        throw SealError("the secret of the cluster cannot be read from " + file + ": " +
                        platform::DescribeLastError());
    const std::unique_ptr<std::string, void (*)(std::string*)> wiped(
        &text, [](std::string* read) { ::explicit_bzero(read->data(), read->size()); });
    return Secrets::Of(text);
}

class OpenedCluster final : public Cluster {
public:
    OpenedCluster(const ClusterOptions& options, const ClusterTell& tell)
        : m_folder(options.folder), m_replicas(options.servers.size() >= 3 ? 3 : 1),
          m_link({options.servers, options.credentials, options.authority},
                 std::make_shared<const Sealer>(SecretsIn(options.secretFile), options.node), tell) {
        if (FAILED(platform::CreateFolder(m_folder)))
            throw LinkError("cannot make the folder " + m_folder + ": " + platform::DescribeLastError());
        m_nameKey = platform::ReadWholeFile(m_folder + "/" + kNameKey).value_or("");
        if (m_nameKey.size() != kNameKeyBytes)
            m_nameKey = AgreedNameKey();
    }

    // Each may have a question to the engine on its way.
    ~OpenedCluster() override {
        Workers ends;
        for (auto& bucket : m_buckets) {
            if (!ends.TryStart([&bucket] { bucket.reset(); }))
                bucket.reset();
        }
    }

    std::shared_ptr<Store> Bucket(const std::string& name) override {
        auto bucket = std::make_shared<cluster::Bucket>(
            m_link, BucketOptions{"morrowstream-" + name, m_replicas, m_folder + "/revisions-" + name},
            Secret(m_nameKey));
        m_buckets.push_back(bucket);
        return bucket;
    }

    std::unique_ptr<ClusterCameras> Cameras(std::string& wrong) override {
        try {
            auto nodes = Bucket("nodes");
            return std::make_unique<cluster::Cameras>(m_link, std::move(nodes), Bucket("owners"));
        } catch (const std::exception& error) {
            wrong = platform::FailureText(error);
            return nullptr;
        }
    }

    void Ask(const std::string& node, const std::string& topic, std::string_view text,
             std::chrono::milliseconds within, Then then) override {
        m_link.Ask(SubjectOf(topic, node), text, 0, within,
                   [then = std::move(then)](std::optional<Opened> answer) {
                       then(answer ? std::optional(std::move(answer->text)) : std::nullopt);
                   });
    }

    std::shared_ptr<const void> Serve(const std::string& topic, Respond respond) override {
        return std::make_shared<Link::Service>(
            m_link, SubjectOf(topic, m_link.Seals()->Node()),
            [respond = std::move(respond)](const Opened& question, const Link::Service::Reply& reply) {
                respond(question.text, [reply](std::string_view text) { reply(text, 0); });
            });
    }

    bool AwaitRead(std::chrono::milliseconds within) override {
        const auto until = std::chrono::steady_clock::now() + within;
        bool all = true;
        for (const auto& bucket : m_buckets) {
            const auto left = until - std::chrono::steady_clock::now();
            all = bucket->AwaitRead(std::max(std::chrono::duration_cast<std::chrono::milliseconds>(left),
                                             std::chrono::milliseconds(0))) &&
                  all;
        }
        return all;
    }

    [[nodiscard]] std::string Trouble() const override {
        return m_link.IsConnected() ? "" : "no server of the cluster's engine can be reached";
    }

    [[nodiscard]] ClusterFigures Figures() const override {
        const Link::State link = m_link.Now();
        ClusterFigures figures{.connected = link.connected,
                               .connections = link.connections,
                               .messagesIn = link.messagesIn,
                               .messagesOut = link.messagesOut,
                               .bytesIn = link.bytesIn,
                               .bytesOut = link.bytesOut,
                               .refused = link.refused};
        for (const auto& bucket : m_buckets)
            figures.conflicts += bucket->Conflicts();
        return figures;
    }

private:
    static std::string SubjectOf(const std::string& topic, const std::string& node) {
        return "morrowstream." + topic + "." + node;
    }

    // Made by who comes first, and the same for good: what hides the names of entries from the engine.
    std::string AgreedNameKey() {
        cluster::Bucket bucket(m_link, {"morrowstream-cluster", m_replicas, m_folder + "/revisions-cluster"});
        if (!bucket.AwaitRead(kFirstWait))
            throw LinkError("no server of the cluster's engine can be reached, and a host's first start in a "
                            "cluster needs one");
        if (!bucket.Get(kNameKey).entry && m_link.Now().refused > 0)
            throw LinkError("the cluster of these servers has another secret");
        std::random_device random;
        std::string made;
        while (made.size() < kNameKeyBytes)
            made += static_cast<char>(random());
        const Store::Outcome outcome = bucket.Put(kNameKey, made, 0);
        if (outcome.result == Store::Result::Conflict && outcome.present)
            made = outcome.present->value;
        else if (outcome.result != Store::Result::Done)
            throw LinkError("the cluster cannot be founded or joined: " + outcome.why);
        if (FAILED(platform::ReplaceFile(m_folder + "/" + kNameKey, made, 0600)))
            throw LinkError("cannot write to " + m_folder + ": " + platform::DescribeLastError());
        return made;
    }

    const std::string m_folder;
    const int m_replicas;
    Link m_link;
    std::string m_nameKey;
    std::vector<std::shared_ptr<cluster::Bucket>> m_buckets;
};

} // namespace
} // namespace host::cluster

extern "C" [[gnu::visibility("default")]] host::Cluster*
MorrowOpenCluster(const host::ClusterOptions& options, const host::ClusterTell& tell, std::string& wrong) {
    try {
        return std::make_unique<host::cluster::OpenedCluster>(options, tell).release();
    } catch (const std::exception& error) {
        wrong = platform::FailureText(error);
        return nullptr;
    }
}
