#include "capi/feeds.h"

#include <utility>

#include "interfaces/ICamSettings.h"
#include "platform/text.h"

namespace capi {
namespace {

using platform::ComObject;

// Runs what may be short of memory, behind an interface.
template <class Work>
HRESULT StatusOfWork(Work work) noexcept {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_FAIL;
    }
}

} // namespace

void Subscriptions::Add(const SubscriptionPtr& subscription) {
    const std::lock_guard guard(m_mutex);
    m_table.emplace(subscription->camera, subscription);
    m_number.fetch_add(1, std::memory_order_release);
}

void Subscriptions::Remove(const Subscription& subscription) {
    SubscriptionPtr last; // let go of behind the lock
    const std::lock_guard guard(m_mutex);
    const auto [from, to] = m_table.equal_range(subscription.camera);
    for (auto at = from; at != to; ++at) {
        if (at->second.get() != &subscription)
            continue;
        last = std::move(at->second);
        m_table.erase(at);
        m_number.fetch_add(1, std::memory_order_release);
        return;
    }
}

std::vector<SubscriptionPtr> Subscriptions::Of(const std::string& camera) const {
    std::vector<SubscriptionPtr> found;
    const std::lock_guard guard(m_mutex);
    for (const std::string& name : {camera, std::string()}) {
        const auto [from, to] = m_table.equal_range(name);
        for (auto at = from; at != to; ++at)
            found.push_back(at->second);
    }
    return found;
}

std::vector<SubscriptionPtr> Subscriptions::TakeAll() {
    std::multimap<std::string, SubscriptionPtr> table;
    {
        const std::lock_guard guard(m_mutex);
        table.swap(m_table);
        m_number.fetch_add(1, std::memory_order_release);
    }
    std::vector<SubscriptionPtr> all;
    for (auto& [camera, subscription] : table)
        all.push_back(std::move(subscription));
    return all;
}

HRESULT CameraSink::OnVideoFrame(IVideoFrame* frame) {
    return StatusOfWork([&] {
        if (frame != nullptr)
            Deliver(*frame);
        return S_OK;
    });
}

void CameraSink::Deliver(IVideoFrame& frame) {
    ++m_frames;
    if (const std::uint64_t number = m_subscriptions->Number(); number != m_known) {
        m_to = m_subscriptions->Of(m_name);
        m_known = number;
    }
    if (m_to.empty() && !m_keeps)
        return;
    const auto held = std::make_shared<Frame>(frame, m_frames);
    if (m_keeps && held->HasPicture()) {
        kit::PicturePtr newest = PictureOf(held);
        const std::lock_guard guard(m_mutex);
        m_newest.swap(newest);
    }
    if (m_to.empty())
        return;
    HandleTable& handles = HandleTable::Get();
    const std::uint64_t handle = handles.Add(held);
    if (handle == 0)
        return; // somebody keeps sixteen million frames
    handles.Lend(handle);
    for (const SubscriptionPtr& subscription : m_to)
        subscription->callback(m_name.c_str(), handle);
    handles.EndLoan(handle);
}

kit::PicturePtr CameraSink::Newest() const {
    const std::lock_guard guard(m_mutex);
    return m_newest;
}

void CameraTable::Put(const std::string& name, Camera camera) {
    const std::lock_guard guard(m_mutex);
    m_cameras.insert_or_assign(name, std::move(camera));
}

CameraTable::Camera CameraTable::Take(const std::string& name) {
    const std::lock_guard guard(m_mutex);
    auto found = m_cameras.extract(name);
    return found ? std::move(found.mapped()) : Camera{};
}

CameraTable::Camera CameraTable::Find(const std::string& name) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_cameras.find(name);
    return found != m_cameras.end() ? found->second : Camera{};
}

bool CameraTable::IsConnected(const std::string& name) const {
    const auto settings = Find(name).cam.Query<ICamSettings>();
    SVariant connected;
    return settings && SUCCEEDED(settings->GetSetting(kCamSettingConnected, &connected)) &&
           connected.boolVal != 0;
}

HRESULT Subscriber::OnCamAdded(BSTR bstrName) {
    return StatusOfWork([&] {
        const std::string name = platform::ToUtf8(platform::ViewOf(bstrName));
        CameraTable::Camera camera;
        camera.sink = ComObject<CameraSink>::Create(name, m_subscriptions, m_keeps);
        HRESULT hr = camera.sink ? m_source->ConnectToCam(bstrName, camera.cam.Receive()) : E_OUTOFMEMORY;
        if (SUCCEEDED(hr))
            hr = camera.cam->Connect(camera.sink.Get());
        if (SUCCEEDED(hr))
            m_cameras->Put(name, std::move(camera));
        return hr;
    });
}

// Disconnect waits for a frame that is being delivered.
HRESULT Subscriber::OnCamRemoved(BSTR bstrName) {
    return StatusOfWork([&] {
        const CameraTable::Camera camera = m_cameras->Take(platform::ToUtf8(platform::ViewOf(bstrName)));
        if (!camera.cam)
            return S_OK;
        camera.sink->MarkGone();
        return camera.cam->Disconnect(camera.sink.Get());
    });
}

} // namespace capi
