// Answers monitors and supervisors.
#pragma once

#include <functional>
#include <string>

#include "host/base/cluster.h"
#include "host/base/counters.h"
#include "host/feed/feed_table.h"
#include "host/http/answer.h"
#include "host/notices/notices.h"
#include "host/preferences/store.h"
#include "host/recordings/recorder.h"
#include "host/settings/settings.h"
#include "host/users/rights.h"
#include "kit/packer/frame_packer.h"

namespace host {

struct MonitorPages {
    FeedTable& feeds;
    const Counters& counters;
    const kit::PackerCounters& packers;
    const Settings& settings;
    const PreferenceStore& preferences;
    Notices* notices = nullptr;         // null: nobody is told of events
    const Recorder* recorder = nullptr; // null: nothing is recorded
    // In a cluster; else empty.
    std::string node{};
    std::function<ClusterFigures()> cluster{};

    // Of the cameras that somebody sees.
    //
    // /health: {"status":"ok","uptime":...,"version":...,"cameras":[...]}
    [[nodiscard]] Answer Health(const Rights& rights) const;
    // /metrics: Prometheus text format 0.0.4. Labels are names of cameras and words of fixed lists, so what
    // it holds grows with the cameras alone. In a cluster the cameras are those whose phones this host has,
    // with its name as `node`. What is counted over all cameras is for who sees all. Takes the locks of the
    // feeds, none of the component's.
    [[nodiscard]] Answer Metrics(const Rights& rights) const;

    // Does the process live, and should it get traffic? Without a sign-in, since the answers tell nothing but
    // themselves. Neither calls the component nor waits for a lock.
    //
    // /healthz: 200 "ok", this thread runs
    [[nodiscard]] static Answer Alive();
    // /readyz: 200 "ready", or 503 with a line that says why not
    [[nodiscard]] Answer Ready() const;

private:
    // Why the host should get no traffic, in a line; empty when all is well.
    [[nodiscard]] std::string Trouble() const;
};

} // namespace host
