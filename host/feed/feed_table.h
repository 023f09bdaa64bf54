// The feeds of all cameras: the host's subscriber of the component's video source.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "host/feed/camera_feed.h"
#include "interfaces/IVideoSource.h"
#include "platform/com.h"

namespace host {

// A camera that leaves and comes back under its name (a change of the settings does that to every camera)
// gets its old feed again, with its number and its figures, but none of its pictures. Of those that stay away
// the last 500 to leave are remembered, and those that somebody still watches.
//
// While somebody changes the settings (Change), a removal waits for the end of the change: a camera that has
// come back by then, the same object, stayed connected throughout, so that no picture of a running upload is
// missed and nobody sees the camera blink.
//
// Locks: OnCamAdded and OnCamRemoved come with the component's server lock held and take m_mutex; nothing
// calls the component with m_mutex held.
class FeedTable : public platform::Implements<IVideoSourceSink> {
public:
    explicit FeedTable(Pictures pictures = Pictures::PassedOn) : m_pictures(pictures) {}

    HRESULT OnCamAdded(BSTR bstrName) override;
    HRESULT OnCamRemoved(BSTR bstrName) override;

    // For the length of a call that changes the settings, on the thread that makes it.
    class Change {
    public:
        explicit Change(FeedTable& table);
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;
        ~Change();

    private:
        FeedTable& m_table;
    };

    // The source to connect to the cameras of. Before Subscribe; null lets go of it, after Unsubscribe, and
    // of all pictures that came from it.
    void SetSource(platform::ComPtr<IVideoSource> source);
    // The type of a camera, before it is added.
    void SetType(const std::string& name, const std::string& type);

    // Gives every camera that is new from then on a tap. Before the subscription; the maker outlives the
    // table.
    void AddTapMaker(TapMaker& maker);

    // Who decides which host has a camera, where there are several. Before the first camera; outlives the
    // table's use.
    void SetOwners(CameraOwners& owners);
    // A phone has shown the camera's password, and is about to be let in: see CameraOwners::Claim.
    void Claim(const std::string& camera) const;

    // Null when there is no camera of that name.
    [[nodiscard]] FeedPtr Find(const std::string& name) const;
    // In the order of their names.
    [[nodiscard]] std::vector<FeedPtr> List() const;
    [[nodiscard]] std::vector<CameraFigures> Figures() const;

    // Of a camera's feed, and tells the watchers.
    void SetPhone(CameraFeed& feed, std::uint64_t session, std::optional<PhoneState> phone,
                  Clock::time_point until = Clock::time_point::max());

    // Whether a phone is connected to a camera now, by the component's own word.
    [[nodiscard]] bool IsReceiving(const std::string& name) const;

    // Whether another host has the phone, and whether it has; tells the watchers of a change.
    void SetElsewhere(CameraFeed& feed, std::optional<Elsewhere> elsewhere);

    // Asks every camera whether its phone is connected and tells the watchers of a change. Called a few times
    // a second by the host's ticker.
    void PollConnections();

    // Wake-ups for cameras that come, go, connect or disconnect.
    void AddWatcher(Wakeup& wakeup);
    void RemoveWatcher(Wakeup& wakeup) noexcept;

protected:
    ~FeedTable() = default;

private:
    struct Entry {
        FeedPtr feed;
        platform::ComPtr<ICam> cam; // null while the camera is not in the component's table
        bool leaving = false;       // its removal waits for the end of a change
        std::uint64_t left =
            0; // which leave it was, counted over all cameras; 0: it is here, or about to come
    };
    void SignalWatchers(); // with m_mutex held
    Entry& EntryOf(const std::string& name);
    [[nodiscard]] platform::ComPtr<ICam> Leave(Entry& entry); // with m_mutex held
    void EndChange();
    void Forget();

    const Pictures m_pictures;
    CameraOwners* m_owners = nullptr;
    mutable std::mutex m_mutex; // everything below
    platform::ComPtr<IVideoSource> m_source;
    std::map<std::string, Entry> m_entries;
    std::uint32_t m_lastId = 0;
    std::uint64_t m_leaves = 0;     // so far
    std::uint64_t m_remembered = 0; // m_leaves when it was last looked for cameras to forget
    std::vector<TapMaker*> m_tapMakers;
    unsigned m_changes = 0; // that are going on
    std::vector<Wakeup*> m_watchers;
};
using FeedTablePtr = platform::ComPtr<platform::ComObject<FeedTable>>;

// The figures of cameras for programs: an array with an object for each. `withId` adds what the
// live page needs: the numbers that its stream uses, and what browsers that are cameras tell of themselves.
nlohmann::ordered_json CameraJson(const CameraFigures& figures, bool withId);
nlohmann::ordered_json CamerasJson(std::span<const FeedPtr> feeds, bool withId);

// The table as the subscriber of a source, for as long as this is there: no picture reaches a feed
// afterwards.
class FeedSubscription {
public:
    // Throws StartError.
    FeedSubscription(FeedTablePtr feeds, platform::ComPtr<IVideoSource> source);
    FeedSubscription(const FeedSubscription&) = delete;
    FeedSubscription& operator=(const FeedSubscription&) = delete;
    ~FeedSubscription();

private:
    const FeedTablePtr m_feeds;
    const platform::ComPtr<IVideoSource> m_source;
};

} // namespace host
