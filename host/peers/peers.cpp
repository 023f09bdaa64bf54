#include "host/peers/peers.h"

#include <algorithm>
#include <set>
#include <utility>

#include "host/log/console.h"
#include "host/sources/sources.h"

namespace host {
namespace {

constexpr std::chrono::milliseconds kLookEvery{100};
// Somebody who begins to look waits for no longer than that until it is noticed.
constexpr std::chrono::milliseconds kDemandEvery{30};
constexpr std::chrono::milliseconds kAgainAfter{300};
// What others may wait for at a time; more are answered at once.
constexpr std::size_t kMostWanted = 20'000;

// A picture that another host has sent: lends what it holds, as those of the component do.
class PulledPicture : public platform::Implements<IReceivedPicture> {
public:
    PulledPicture(kit::FrameContent block, std::size_t size, std::string file)
        : m_block(std::move(block)), m_size(size), m_file(std::move(file)) {}

    HRESULT GetFile(const std::uint8_t** bytes, std::uint32_t* size) override {
        if (bytes == nullptr || size == nullptr)
            return E_POINTER;
        *bytes = reinterpret_cast<const std::uint8_t*>(m_file.data());
        *size = static_cast<std::uint32_t>(m_file.size());
        return S_OK;
    }
    HRESULT GetArrival(std::int64_t* monotonic, std::int64_t* utc) override {
        if (monotonic == nullptr || utc == nullptr)
            return E_POINTER;
        *monotonic = *utc = 0; // whoever holds it knows
        return S_OK;
    }
    HRESULT GetFrameBlock(const std::uint8_t** block, std::uint32_t* size) override {
        if (block == nullptr || size == nullptr)
            return E_POINTER;
        *block = m_block.get();
        *size = static_cast<std::uint32_t>(m_size);
        return S_OK;
    }

protected:
    ~PulledPicture() = default;

private:
    const kit::FrameContent m_block;
    const std::size_t m_size;
    const std::string m_file;
};

std::optional<std::pair<kit::HeldFrame, kit::PlaneLayout>> HeldOf(const CameraPicture& picture) {
    kit::PlaneLayout layout;
    kit::FrameContent block = DecodeFile(picture.jpeg, &layout);
    if (!block)
        return std::nullopt;
    kit::HeldFrame held;
    const std::size_t size = kit::FrameBytes(layout);
    held.block = {block.get(), size};
    const auto pulled = platform::ComObject<PulledPicture>::Create(std::move(block), size, picture.jpeg);
    const std::uint8_t* file = nullptr;
    std::uint32_t fileSize = 0;
    (void)pulled->GetFile(&file, &fileSize);
    held.file = {file, fileSize};
    held.frame = platform::ComPtr<IReceivedPicture>(pulled.Get());
    held.arrival = Clock::now() - std::chrono::milliseconds(picture.ageMs);
    held.arrivalUnixMs = picture.unixMs;
    return std::pair(std::move(held), layout);
}

CameraPicture PictureOf(const CameraFeed& feed, const kit::Picture& picture, Clock::time_point now) {
    const CameraFigures figures = feed.Figures();
    const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(now - picture.Arrival());
    return {.number = picture.Sequence(),
            .unixMs = picture.ArrivalUnixMs(),
            .ageMs = static_cast<std::uint32_t>(std::clamp<std::int64_t>(age.count(), 0, 1'000'000'000)),
            .frames = figures.frames,
            .failed = figures.failed,
            .milliFps = static_cast<std::uint32_t>(figures.fps * 1000),
            .jpeg = picture.Jpeg()};
}

} // namespace

Peers::Peers(FeedTable& feeds, std::unique_ptr<ClusterCameras> cameras)
    : m_feeds(feeds), m_cameras(std::move(cameras)) {
    m_feeds.SetOwners(*this);
}

Peers::~Peers() {
    m_cameras->Serve(nullptr);
    m_stop.Signal();
    if (m_thread.joinable())
        m_thread.join();
}

void Peers::Begin() {
    m_cameras->Serve(
        [inbox = m_inbox](const std::string& camera, std::uint64_t after, ClusterCameras::Reply reply) {
            const std::lock_guard guard(inbox->mutex);
            inbox->questions.push_back({camera, after, std::move(reply)});
            inbox->wake.Signal();
        });
    m_thread = std::thread([this] { Run(); });
}

void Peers::Claim(const std::string& camera) {
    m_cameras->Claim(camera);
    if (const FeedPtr feed = m_feeds.Find(camera))
        m_feeds.SetElsewhere(*feed, std::nullopt);
}

void Peers::Run() {
    for (;;) {
        const auto now = Clock::now();
        if (now >= m_nextLook) {
            m_nextLook = now + kLookEvery;
            LookAround(now);
        }
        TakeArrived();
        TakeQuestions(now);
        Answer(now);
        PullSome(now);
        if (WaitFor({.wakeup = &m_inbox->wake, .stop = &m_stop}, now + kDemandEvery) == Waited::Stopped)
            return;
        m_inbox->wake.Clear();
    }
}

void Peers::LookAround(Clock::time_point now) {
    const std::vector<FeedPtr> feeds = m_feeds.List();
    std::set<std::string> receiving;
    for (const FeedPtr& feed : feeds) {
        if (feed->IsConnected())
            receiving.insert(feed->Name());
    }
    const ClusterCameras::Orders orders = m_cameras->Look(receiving);
    for (const std::string& camera : orders.end) {
        Console::Get().Log("cluster", "the upload of " + camera + " is ended: the camera is another host's");
        if (const FeedPtr feed = m_feeds.Find(camera))
            feed->EndUpload();
    }
    SetAwake(now);
    for (const FeedPtr& feed : feeds) {
        const auto found = orders.elsewhere.find(feed->Name());
        if (found == orders.elsewhere.end()) {
            if (m_pulls.erase(feed->Name()) > 0 || feed->IsElsewhere())
                m_feeds.SetElsewhere(*feed, std::nullopt);
            continue;
        }
        Pull& pull = m_pulls[feed->Name()];
        const bool moved = pull.place != found->second;
        if (moved)
            pull = {.place = found->second};
        if (moved || !feed->IsElsewhere())
            m_feeds.SetElsewhere(*feed, Elsewhere{.node = found->second.node});
    }
}

void Peers::PullSome(Clock::time_point now) {
    for (auto& [camera, pull] : m_pulls) {
        if (pull.inFlight || now < pull.next)
            continue;
        const FeedPtr feed = m_feeds.Find(camera);
        if (!feed || !feed->IsLookedAt(now))
            continue;
        pull.inFlight = true;
        pull.asked = now;
        m_cameras->Pull(
            camera, pull.place, pull.shown,
            [inbox = m_inbox, name = camera, place = pull.place](std::optional<CameraPicture> picture) {
                const std::lock_guard guard(inbox->mutex);
                inbox->arrived.push_back({name, place, std::move(picture)});
                inbox->wake.Signal();
            });
    }
}

void Peers::TakeArrived() {
    std::vector<Arrived> arrived;
    {
        const std::lock_guard guard(m_inbox->mutex);
        arrived.swap(m_inbox->arrived);
    }
    for (const Arrived& one : arrived)
        Show(one);
}

void Peers::Show(const Arrived& arrived) {
    const auto found = m_pulls.find(arrived.camera);
    // Of an owner that is none any more.
    if (found == m_pulls.end() || found->second.place != arrived.place)
        return;
    Pull& pull = found->second;
    pull.inFlight = false;
    const auto now = Clock::now();
    const bool something =
        arrived.picture && !arrived.picture->jpeg.empty() && arrived.picture->number > pull.shown;
    if (!something) {
        // An owner waits for its next picture before it says that there is none; one that says so at once has
        // the camera no more, and would say it a thousand times a second until the new one is heard of.
        if (!arrived.picture || now - pull.asked < ClusterCameras::kPictureWithin / 2)
            pull.next = now + kAgainAfter;
        return;
    }
    const CameraPicture& picture = *arrived.picture;
    const bool first = std::exchange(pull.shown, picture.number) == 0;
    const FeedPtr feed = m_feeds.Find(arrived.camera);
    auto held = HeldOf(picture);
    if (!feed || !held)
        return;
    // The first one of an owner may be what it had from this host or from the one before.
    if (const kit::PicturePtr newest = first ? feed->Newest() : nullptr;
        newest && held->first.arrival <= newest->Arrival())
        return;
    m_feeds.SetElsewhere(
        *feed, Elsewhere{pull.place.node, picture.frames, picture.failed, picture.milliFps / 1000.0});
    feed->Show(std::move(held->first), held->second);
}

void Peers::TakeQuestions(Clock::time_point now) {
    std::vector<Question> questions;
    {
        const std::lock_guard guard(m_inbox->mutex);
        questions.swap(m_inbox->questions);
    }
    for (Question& question : questions) {
        FeedPtr feed = m_feeds.Find(question.camera);
        if (!feed || m_wanted.size() >= kMostWanted) {
            question.reply({});
            continue;
        }
        FeedWatch watch(feed, m_inbox->wake);
        m_wanted.push_back({std::move(feed), std::move(watch), question.after,
                            now + ClusterCameras::kPictureWithin, std::move(question.reply)});
    }
}

void Peers::Answer(Clock::time_point now) {
    std::vector<Wanted> waiting;
    for (Wanted& wanted : m_wanted) {
        const kit::PicturePtr newest = wanted.feed->Newest();
        if (newest && newest->Sequence() > wanted.after)
            wanted.reply(PictureOf(*wanted.feed, *newest, now));
        else if (now >= wanted.until)
            wanted.reply({});
        else
            waiting.push_back(std::move(wanted));
    }
    m_wanted.swap(waiting);
}

} // namespace host
