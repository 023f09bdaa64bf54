// What this host keeps by itself, and what it shares with the others of a cluster.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/base/cluster.h"
#include "host/base/kept_store.h"
#include "host/base/wait.h"
#include "host/main/data_folder.h"
#include "host/main/options.h"
#include "host/preferences/store.h"
#include "host/settings/settings.h"

namespace host {

// Without --cluster: files of the data folder, and nothing else.
//
// In a cluster a first start founds it, where nobody has, or joins it: the users, sessions and tokens are the
// founder's then, and so are the settings, as --cluster-join has it. Each later start takes what the others
// have; where they cannot be reached, what was known last holds until they can.
//
// One thread.
class Membership {
    std::unique_ptr<Cluster> m_cluster; // null: there is none; outlives what stands on it

public:
    // Waits for the others, five seconds at most. Throws StartError: for a cluster that cannot be opened, or
    // not be reached by who has never been in it; for settings that differ, with each difference; for a data
    // folder of a cluster without --cluster.
    Membership(const Options& options, const DataFolder& data);
    Membership(const Membership&) = delete;
    Membership& operator=(const Membership&) = delete;

    std::shared_ptr<Store> users;
    std::shared_ptr<Store> sessions;
    std::shared_ptr<Store> phones;
    std::shared_ptr<Store> tokens;
    std::shared_ptr<Store> links;
    // Null without a cluster.
    std::shared_ptr<Store> authority;  // for TLS
    std::shared_ptr<Store> catalogues; // what each host has recorded

    // The cameras of the others, once; null for a host by itself. Throws StartError.
    [[nodiscard]] std::unique_ptr<ClusterCameras> OpenCameras();

    // Brings the settings in line: with the component, before anything is changed in them. Throws StartError.
    void Join(Settings& settings);
    // Behind that, and once the preferences know the cameras.
    void Join(PreferenceStore& preferences);
    // For a cluster: what has passed between the hosts. Any thread.
    [[nodiscard]] std::function<ClusterFigures()> Figures() const;
    [[nodiscard]] Cluster* Others() const noexcept { return m_cluster.get(); } // null: there are none
    // Tells when the others cannot be reached any more, and when they can: to be called some times a second.
    void Tick();
    // Has the files follow: now and then, and at the end.
    void Save();

    // Whether a data folder is one of a cluster: its files are what was known last, and no place for changes.
    static bool IsOfCluster(const DataFolder& data);

private:
    std::shared_ptr<KeptStore> Keep(const char* bucket, std::shared_ptr<Store> file);
    void Enter(const Options& options);
    [[nodiscard]] bool ClaimFounding(StoreMirror& cameras, const std::string& node);
    void ClearWhatWasBegun();
    void KeepCopies() const;

    // While this host founds the cluster: tells the others that it does.
    class Founding {
    public:
        Founding(std::shared_ptr<Store> store, std::string node, Store::Revision revision);
        ~Founding();
        [[nodiscard]] bool IsLost() const noexcept { return m_lost; } // to another host

    private:
        void Beat(const std::string& node, Store::Revision revision);

        const std::shared_ptr<Store> m_store;
        Wakeup m_stop;
        std::atomic<bool> m_lost{false};
        std::thread m_thread;
    };

    const DataFolder& m_data;
    const bool m_member; // has been in the cluster
    Joining m_how = Joining::Take;
    std::vector<std::shared_ptr<KeptStore>> m_kept;
    std::shared_ptr<Store> m_cameras;
    std::shared_ptr<Store> m_preferences;
    std::optional<Founding> m_founding;
    bool m_read = false;
    std::string m_trouble; // that was told
};

} // namespace host
