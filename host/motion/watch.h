// Looks for movement in what cameras send.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/base/shared_table.h"
#include "host/base/wait.h"
#include "host/feed/picture_tap.h"
#include "host/motion/detector.h"

namespace host {

struct MotionSettings {
    bool on = false;
    int sensitivity = 5;
    MotionDetector::Mask mask{};
};

// Movement of a camera that begins or ends.
struct MotionNews {
    const std::string& camera;
    bool begins;
    std::chrono::sys_time<std::chrono::milliseconds> when; // the picture's arrival
    std::chrono::milliseconds lasted;                      // of one that ends
    MotionDetector::Place place;                           // of one that begins
};

// Pictures are looked at on the thread that receives them, five a second of a camera at the most.
// Thread-safe.
class MotionWatch : public TapMaker {
public:
    // Called on the thread that receives the camera's pictures, under the camera's lock, or by those who call
    // here; it waits for nothing and calls nothing here. What is told of a camera is told in order.
    using Tell = std::function<void(const MotionNews&)>;

    explicit MotionWatch(Tell tell) : m_tell(std::make_shared<const Tell>(std::move(tell))) {}

    std::shared_ptr<PictureTap> TapOf(const std::string& camera) override;
    // From now on; cameras that are not named are not looked at.
    void SetCameras(std::map<std::string, MotionSettings, std::less<>> cameras);
    // Movement ends where no picture comes any more: to be called a few times a second.
    void Tick(Clock::time_point now = Clock::now());

private:
    class Tap;
    [[nodiscard]] MotionSettings SettingsOf(const std::string& camera) const; // with m_mutex held

    const std::shared_ptr<const Tell> m_tell; // the taps', too, which live as long as their feeds
    std::mutex m_mutex;                       // the two below
    SharedTable<Tap> m_taps;                  // by camera
    std::map<std::string, MotionSettings, std::less<>> m_cameras;
};

} // namespace host
