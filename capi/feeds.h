// The cameras as the component has them now, and who gets their frames.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "capi/calls.h"
#include "capi/frames.h"
#include "interfaces/ICam.h"
#include "interfaces/IVideoSource.h"
#include "kit/picture/picture.h"
#include "platform/com.h"

namespace capi {

class Subscriptions;

struct Subscription {
    static constexpr Kind kKind = Kind::Subscription;
    static constexpr const char* kName = "subscription";

    Subscription(std::string name, morrow_frame_callback function, void* payload)
        : camera(std::move(name)), callback(function, payload) {}

    const std::string camera; // empty: every one
    Callback<morrow_frame_callback> callback;
    std::weak_ptr<Subscriptions> place;
    std::uint64_t handle = 0; // set before anybody else has the object
};
using SubscriptionPtr = std::shared_ptr<Subscription>;

// Who wants frames. Any thread.
class Subscriptions {
public:
    void Add(const SubscriptionPtr& subscription);
    void Remove(const Subscription& subscription);
    // Those of one camera and those of every one.
    [[nodiscard]] std::vector<SubscriptionPtr> Of(const std::string& camera) const;
    // All of them, which are gone from here then.
    std::vector<SubscriptionPtr> TakeAll();
    // Changes with what Of gives. Read before it.
    [[nodiscard]] std::uint64_t Number() const noexcept { return m_number.load(std::memory_order_acquire); }

private:
    mutable std::mutex m_mutex; // the table
    std::multimap<std::string, SubscriptionPtr> m_table;
    std::atomic<std::uint64_t> m_number{1};
};

// One camera's frames, on the thread that receives them.
class CameraSink : public platform::Implements<ICamSink> {
public:
    // With `keeps` the newest picture stays here, for those who watch.
    CameraSink(std::string name, std::shared_ptr<Subscriptions> subscriptions, bool keeps)
        : m_name(std::move(name)), m_subscriptions(std::move(subscriptions)), m_keeps(keeps) {}

    HRESULT OnVideoFrame(IVideoFrame* frame) override;

    // Null before the first picture.
    [[nodiscard]] kit::PicturePtr Newest() const;
    // The camera has left the settings.
    void MarkGone() noexcept { m_gone.store(true, std::memory_order_relaxed); }
    [[nodiscard]] bool IsGone() const noexcept { return m_gone.load(std::memory_order_relaxed); }

protected:
    ~CameraSink() = default;

private:
    void Deliver(IVideoFrame& frame);

    const std::string m_name;
    const std::shared_ptr<Subscriptions> m_subscriptions;
    const bool m_keeps;
    // Under the camera's lock, which is held around every frame.
    std::uint64_t m_frames = 0;
    std::uint64_t m_known = 0; // the number of what follows
    std::vector<SubscriptionPtr> m_to;
    mutable std::mutex m_mutex; // the next line
    kit::PicturePtr m_newest;
    std::atomic<bool> m_gone{false};
};
using CameraSinkPtr = platform::ComPtr<platform::ComObject<CameraSink>>;

// The cameras that there are, by name. Any thread. Holds no reference to the component once the cameras are
// gone.
class CameraTable {
public:
    struct Camera {
        platform::ComPtr<ICam> cam;
        CameraSinkPtr sink;
    };

    void Put(const std::string& name, Camera camera);
    // Empty pointers where there is none.
    Camera Take(const std::string& name);
    [[nodiscard]] Camera Find(const std::string& name) const;
    // Whether a phone sends; false for a camera that is not there.
    [[nodiscard]] bool IsConnected(const std::string& name) const;

private:
    mutable std::mutex m_mutex; // comes behind the component's locks; nothing is called under it
    std::map<std::string, Camera> m_cameras;
};

// The host's subscriber: connects a sink to each camera.
class Subscriber : public platform::Implements<IVideoSourceSink> {
public:
    Subscriber(platform::ComPtr<IVideoSource> source, std::shared_ptr<CameraTable> cameras,
               std::shared_ptr<Subscriptions> subscriptions, bool keeps)
        : m_source(std::move(source)), m_cameras(std::move(cameras)),
          m_subscriptions(std::move(subscriptions)), m_keeps(keeps) {}

    HRESULT OnCamAdded(BSTR bstrName) override;
    HRESULT OnCamRemoved(BSTR bstrName) override;

protected:
    ~Subscriber() = default;

private:
    const platform::ComPtr<IVideoSource> m_source;
    const std::shared_ptr<CameraTable> m_cameras;
    const std::shared_ptr<Subscriptions> m_subscriptions;
    const bool m_keeps;
};

} // namespace capi
