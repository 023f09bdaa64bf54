// The feeds of all cameras: the host's subscriber of the component's video source.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/feed/camera_feed.h"
#include "interfaces/IVideoSource.h"
#include "platform/com.h"

namespace host {

// A camera that leaves and comes back under its name (a change of the settings does that to every camera)
// gets its old feed again, with its number and its figures.
//
// Locks: OnCamAdded and OnCamRemoved come with the component's server lock held and take m_mutex; nothing
// calls the component with m_mutex held.
class FeedTable : public IVideoSourceSink {
public:
    HRESULT OnCamAdded(BSTR bstrName) override;
    HRESULT OnCamRemoved(BSTR bstrName) override;

    // The source to connect to the cameras of. Before Subscribe; null lets go of it, after Unsubscribe.
    void SetSource(platform::ComPtr<IVideoSource> source);
    // The type of a camera, before it is added.
    void SetType(const std::string& name, const std::string& type);

    // Null when there is no camera of that name.
    [[nodiscard]] FeedPtr Find(const std::string& name) const;
    // In the order of their names.
    [[nodiscard]] std::vector<FeedPtr> List() const;
    [[nodiscard]] std::vector<CameraFigures> Figures() const;

    // Asks every camera whether its phone is connected and tells the watchers of a change. Called a few times
    // a second by the host's ticker.
    void PollConnections();

    // Wake-ups for cameras that come, go, connect or disconnect.
    void AddWatcher(Wakeup& wakeup);
    void RemoveWatcher(Wakeup& wakeup) noexcept;

protected:
    ~FeedTable() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        return platform::QueryTable<IVideoSourceSink>(this, interfaceId, object);
    }

private:
    struct Entry {
        FeedPtr feed;
        platform::ComPtr<ICam> cam; // null while the camera is not in the component's table
    };
    void SignalWatchers(); // with m_mutex held
    Entry& EntryOf(const std::string& name);

    mutable std::mutex m_mutex; // everything below
    platform::ComPtr<IVideoSource> m_source;
    std::map<std::string, Entry> m_entries;
    std::uint32_t m_lastId = 0;
    std::vector<Wakeup*> m_watchers;
};
using FeedTablePtr = platform::ComPtr<platform::ComObject<FeedTable>>;

} // namespace host
