#include "host/feed/feed_table.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <nlohmann/json.hpp>

#include "host/base/start_error.h"
#include "interfaces/ICamSettings.h"
#include "platform/text.h"

namespace host {

using platform::ComObject;
using platform::ComPtr;

namespace {

constexpr std::size_t kRemembered = 500; // cameras that are gone: four kilobytes each

// Nothing from a camera that does not tell.
std::optional<bool> AskConnected(const ComPtr<ICam>& cam) {
    const auto settings = cam.Query<ICamSettings>();
    SVariant value;
    if (!settings || settings->GetSetting(kCamSettingConnected, &value) != S_OK || value.vt != VT_BOOL)
        return std::nullopt;
    return value.boolVal != 0;
}

} // namespace

FeedTable::Entry& FeedTable::EntryOf(const std::string& name) {
    Entry& entry = m_entries[name];
    if (!entry.feed) {
        CameraFeed::Taps taps;
        for (TapMaker* const maker : m_tapMakers) {
            if (auto tap = maker->TapOf(name))
                taps.push_back(std::move(tap));
        }
        entry.feed = ComObject<CameraFeed>::Create(++m_lastId, name, m_pictures, std::move(taps), m_owners);
    }
    return entry;
}

void FeedTable::AddTapMaker(TapMaker& maker) {
    const std::lock_guard guard(m_mutex);
    m_tapMakers.push_back(&maker);
}

HRESULT FeedTable::OnCamAdded(BSTR bstrName) {
    // The source makes this call and so lives through it. A reference would be given back under the server's
    // lock, while the lock that guards the server's references goes before that one.
    IVideoSource* source = nullptr;
    {
        const std::lock_guard guard(m_mutex);
        source = m_source.Get();
    }
    ComPtr<ICam> cam;
    if (!source || FAILED(source->ConnectToCam(bstrName, cam.Receive())) || !cam)
        return E_FAIL;
    ComPtr<ICam> before; // let go of outside the lock
    FeedPtr feed;
    {
        const std::lock_guard guard(m_mutex);
        Entry& entry = EntryOf(platform::ToUtf8(platform::ViewOf(bstrName)));
        entry.leaving = false;
        entry.left = 0;
        if (entry.cam.Get() == cam.Get())
            return S_OK;
        before = std::exchange(entry.cam, cam);
        feed = entry.feed;
        SignalWatchers();
    }
    if (before)
        (void)before->Disconnect(feed.Get());
    return cam->Connect(feed.Get());
}

HRESULT FeedTable::OnCamRemoved(BSTR bstrName) {
    ComPtr<ICam> cam;
    FeedPtr feed;
    {
        const std::lock_guard guard(m_mutex);
        const auto found = m_entries.find(platform::ToUtf8(platform::ViewOf(bstrName)));
        if (found == m_entries.end())
            return S_FALSE;
        if (m_changes > 0) {
            found->second.leaving = true;
            return S_OK;
        }
        feed = found->second.feed;
        cam = Leave(found->second);
        SignalWatchers();
    }
    const HRESULT status = cam ? cam->Disconnect(feed.Get()) : S_FALSE;
    feed->LetGo();
    Forget();
    return status;
}

ComPtr<ICam> FeedTable::Leave(Entry& entry) {
    if (entry.cam)
        entry.left = ++m_leaves;
    entry.feed->SetConnected(false);
    return std::exchange(entry.cam, nullptr);
}

// Now and then, so that it costs a leave next to nothing.
void FeedTable::Forget() {
    std::vector<FeedPtr> forgotten; // freed outside the lock
    const std::lock_guard guard(m_mutex);
    if (m_leaves - m_remembered <= kRemembered)
        return;
    m_remembered = m_leaves;
    std::erase_if(m_entries, [&](const auto& item) {
        const Entry& entry = item.second;
        const bool goes =
            entry.left != 0 && entry.left + kRemembered <= m_leaves && !entry.feed->HasWatchers();
        if (goes)
            forgotten.push_back(entry.feed);
        return goes;
    });
}

FeedTable::Change::Change(FeedTable& table) : m_table(table) {
    const std::lock_guard guard(m_table.m_mutex);
    ++m_table.m_changes;
}

FeedTable::Change::~Change() {
    m_table.EndChange();
}

void FeedTable::EndChange() {
    std::vector<Entry> gone;
    {
        const std::lock_guard guard(m_mutex);
        if (--m_changes > 0)
            return;
        for (auto& [name, entry] : m_entries) {
            if (!std::exchange(entry.leaving, false))
                continue;
            gone.push_back(entry);
            (void)Leave(entry);
        }
        if (!gone.empty())
            SignalWatchers();
    }
    for (const Entry& entry : gone) {
        (void)entry.cam->Disconnect(entry.feed.Get());
        entry.feed->LetGo();
    }
    Forget();
}

void FeedTable::SetSource(ComPtr<IVideoSource> source) {
    std::vector<FeedPtr> ended;
    {
        const std::lock_guard guard(m_mutex);
        std::swap(m_source, source);
        for (const auto& [name, entry] : m_entries) {
            if (!m_source)
                ended.push_back(entry.feed);
        }
    }
    for (const FeedPtr& feed : ended)
        feed->LetGo();
}

void FeedTable::SetType(const std::string& name, const std::string& type) {
    const std::lock_guard guard(m_mutex);
    Entry& entry = EntryOf(name);
    entry.left = 0; // it is about to come
    entry.feed->SetType(type);
}

void FeedTable::SetOwners(CameraOwners& owners) {
    m_owners = &owners;
}

void FeedTable::Claim(const std::string& camera) const {
    if (m_owners != nullptr)
        m_owners->Claim(camera);
}

FeedPtr FeedTable::Find(const std::string& name) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_entries.find(name);
    return found != m_entries.end() && found->second.cam ? found->second.feed : nullptr;
}

std::vector<FeedPtr> FeedTable::List() const {
    std::vector<FeedPtr> feeds;
    const std::lock_guard guard(m_mutex);
    feeds.reserve(m_entries.size());
    for (const auto& [name, entry] : m_entries) {
        if (entry.cam)
            feeds.push_back(entry.feed);
    }
    return feeds;
}

std::vector<CameraFigures> FeedTable::Figures() const {
    std::vector<CameraFigures> all;
    for (const FeedPtr& feed : List())
        all.push_back(feed->Figures());
    return all;
}

bool FeedTable::IsReceiving(const std::string& name) const {
    ComPtr<ICam> cam;
    {
        const std::lock_guard guard(m_mutex);
        if (const auto found = m_entries.find(name); found != m_entries.end())
            cam = found->second.cam;
    }
    return cam && AskConnected(cam).value_or(false);
}

void FeedTable::SetPhone(CameraFeed& feed, std::uint64_t session, std::optional<PhoneState> phone,
                         Clock::time_point until) {
    if (!feed.SetPhone(session, phone, until))
        return;
    const std::lock_guard guard(m_mutex);
    SignalWatchers();
}

void FeedTable::SetElsewhere(CameraFeed& feed, std::optional<Elsewhere> elsewhere) {
    if (!feed.SetElsewhere(std::move(elsewhere)))
        return;
    const std::lock_guard guard(m_mutex);
    SignalWatchers();
}

void FeedTable::PollConnections() {
    std::vector<Entry> present;
    {
        const std::lock_guard guard(m_mutex);
        present.reserve(m_entries.size());
        for (const auto& [name, entry] : m_entries) {
            if (entry.cam)
                present.push_back(entry);
        }
    }
    bool changed = false;
    for (const Entry& entry : present) {
        if (const auto connected = AskConnected(entry.cam))
            changed = entry.feed->SetConnected(*connected) || changed;
    }
    if (changed) {
        const std::lock_guard guard(m_mutex);
        SignalWatchers();
    }
}

void FeedTable::AddWatcher(Wakeup& wakeup) {
    const std::lock_guard guard(m_mutex);
    m_watchers.push_back(&wakeup);
}

void FeedTable::RemoveWatcher(Wakeup& wakeup) noexcept {
    const std::lock_guard guard(m_mutex);
    m_watchers.erase(std::ranges::find(m_watchers, &wakeup));
}

void FeedTable::SignalWatchers() {
    for (Wakeup* watcher : m_watchers)
        watcher->Signal();
}

namespace {

nlohmann::ordered_json PhoneJson(const std::optional<PhoneState>& phone) {
    if (!phone)
        return nullptr;
    constexpr std::array<std::string_view, 3> kRuns{"running", "paused", "stopped"};
    nlohmann::ordered_json json{{"state", kRuns[static_cast<std::size_t>(phone->run)]},
                                {"facing", phone->front ? "user" : "environment"},
                                {"width", phone->width},
                                {"height", phone->height},
                                {"rate", phone->rate},
                                {"torch", nullptr}};
    if (phone->torch)
        json["torch"] = *phone->torch;
    return json;
}

} // namespace

nlohmann::ordered_json CameraJson(const CameraFigures& figures, bool withId) {
    auto camera = nlohmann::ordered_json::object();
    if (withId)
        camera["id"] = figures.id;
    camera["name"] = figures.name;
    camera["type"] = figures.type;
    camera["connected"] = figures.connected;
    if (!figures.host.empty())
        camera["host"] = figures.host;
    camera["frames"] = figures.frames;
    camera["failed"] = figures.failed;
    camera["fps"] = std::round(figures.fps * 100) / 100;
    camera["width"] = figures.width;
    camera["height"] = figures.height;
    if (figures.age)
        camera["age"] = std::round(*figures.age * 1000) / 1000;
    else
        camera["age"] = nullptr;
    if (withId)
        camera["phone"] = PhoneJson(figures.phone);
    return camera;
}

nlohmann::ordered_json CamerasJson(std::span<const FeedPtr> feeds, bool withId) {
    auto cameras = nlohmann::ordered_json::array();
    for (const FeedPtr& feed : feeds)
        cameras.push_back(CameraJson(feed->Figures(), withId));
    return cameras;
}

FeedSubscription::FeedSubscription(FeedTablePtr feeds, ComPtr<IVideoSource> source)
    : m_feeds(std::move(feeds)), m_source(std::move(source)) {
    m_feeds->SetSource(m_source);
    if (FAILED(m_source->Subscribe(m_feeds.Get()))) {
        m_feeds->SetSource(nullptr);
        throw StartError("subscribing to the component failed");
    }
}

FeedSubscription::~FeedSubscription() {
    (void)m_source->Unsubscribe(m_feeds.Get());
    m_feeds->SetSource(nullptr);
}

} // namespace host
