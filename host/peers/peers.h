// The cameras of a cluster as this host has them: what its phones send goes to other hosts that ask, and what
// somebody here looks at comes from the host that has the phone.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/base/cluster_cameras.h"
#include "host/base/wait.h"
#include "host/feed/feed_table.h"

namespace host {

// Pulls a picture at a time for a camera that is looked at here and is elsewhere: a host that is slow gets
// fewer, and none waits for another.
class Peers final : public CameraOwners {
public:
    // The feeds outlive it, and have no camera yet.
    Peers(FeedTable& feeds, std::unique_ptr<ClusterCameras> cameras);
    ~Peers() override;

    // Once the feeds follow the component.
    void Begin();
    void Claim(const std::string& camera) override;
    // The hosts that live. Any thread.
    [[nodiscard]] std::vector<std::string> Nodes() const { return m_cameras->Nodes(); }
    [[nodiscard]] std::vector<std::string> Silent() const { return m_cameras->Silent(); }

private:
    // A camera that is looked at here.
    struct Pull {
        ClusterCameras::Place place;
        std::uint64_t shown = 0; // number of the last picture, in the place's epoch
        bool inFlight = false;
        Clock::time_point asked{};
        Clock::time_point next{}; // not before, after one that failed
    };
    struct Arrived {
        std::string camera;
        ClusterCameras::Place place;
        std::optional<CameraPicture> picture;
    };
    // What another host waits for.
    struct Wanted {
        FeedPtr feed;
        FeedWatch watch;
        std::uint64_t after = 0;
        Clock::time_point until;
        ClusterCameras::Reply reply;
    };
    struct Question {
        std::string camera;
        std::uint64_t after = 0;
        ClusterCameras::Reply reply;
    };

    void Run();
    void LookAround(Clock::time_point now);
    void PullSome(Clock::time_point now);
    void TakeArrived();
    void Show(const Arrived& arrived);
    void TakeQuestions(Clock::time_point now);
    void Answer(Clock::time_point now);

    FeedTable& m_feeds;
    std::unique_ptr<ClusterCameras> m_cameras;
    // What came from other hosts; theirs as well who bring it, which may be later than this object's end.
    struct Inbox {
        Wakeup wake;
        std::mutex mutex; // the members below
        std::vector<Arrived> arrived;
        std::vector<Question> questions;
    };
    const std::shared_ptr<Inbox> m_inbox = std::make_shared<Inbox>();
    Wakeup m_stop;
    // Of the thread.
    std::map<std::string, Pull> m_pulls;
    std::vector<Wanted> m_wanted;
    Clock::time_point m_nextLook{};

    std::thread m_thread;
};

} // namespace host
