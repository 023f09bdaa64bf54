#include "host/motion/watch.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>
#include <vector>

#include "image/FrameBlock.h"
#include "image/ImageCodec.h"

namespace host {
namespace {

std::chrono::sys_time<std::chrono::milliseconds> MotionClock() {
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

} // namespace

class MotionWatch::Tap final : public PictureTap {
public:
    Tap(std::string camera, std::shared_ptr<const Tell> tell)
        : m_camera(std::move(camera)), m_tell(std::move(tell)) {}

    void OnPicture(const kit::PicturePtr& picture, std::uint64_t /*connection*/) noexcept override {
        try {
            const std::lock_guard guard(m_mutex);
            if (!m_settings.on || !m_detector.Wants(picture->Arrival()))
                return;
            const kit::PlaneLayout& layout = picture->Layout();
            const int columns = std::min(layout.width, MotionGrid::kMostColumns);
            const int rows = std::min(layout.height, MotionGrid::kMostRows);
            std::array<std::uint16_t, std::size_t{MotionGrid::kMostColumns} * MotionGrid::kMostRows> cells;
            const std::uint8_t* const luma = picture->Block().data() + sizeof(BITMAPINFOHEADER);
            if (MeanOfCells(luma, layout.width, layout.height, layout.width, columns, rows, cells.data()) !=
                ImageOk)
                return; // larger than any camera's
            const auto count = static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
            Follow(m_detector.Look({columns, rows, std::span(cells).first(count)}, picture->Arrival()));
        } catch (const std::exception&) {
            m_detector.Reset(); // no memory: it begins anew with a later picture
        }
    }

    void Set(MotionSettings settings) {
        const std::lock_guard guard(m_mutex);
        m_settings = std::move(settings);
        m_detector.SetSensitivity(m_settings.sensitivity);
        m_detector.SetMask(m_settings.mask);
        if (!m_settings.on) {
            m_detector.Reset();
            Follow(false);
        }
    }

    void Tick(Clock::time_point now) {
        const std::lock_guard guard(m_mutex);
        Follow(m_detector.Wait(now));
    }

private:
    // With m_mutex held, so that the end is not told before the begin.
    void Follow(bool moves) {
        if (moves == m_moves)
            return;
        m_moves = moves;
        const auto now = MotionClock();
        if (moves)
            m_began = now;
        (*m_tell)({m_camera, moves, now, moves ? std::chrono::milliseconds{} : now - m_began,
                   m_detector.Largest()});
    }

    const std::string m_camera;
    const std::shared_ptr<const Tell> m_tell;
    std::mutex m_mutex; // all below
    MotionSettings m_settings;
    MotionDetector m_detector;
    bool m_moves = false; // as it was told
    std::chrono::sys_time<std::chrono::milliseconds> m_began;
};

std::shared_ptr<PictureTap> MotionWatch::TapOf(const std::string& camera) {
    const std::lock_guard guard(m_mutex);
    return m_taps.FindOrMake(camera, [&] {
        auto tap = std::make_shared<Tap>(camera, m_tell);
        tap->Set(SettingsOf(camera));
        return tap;
    });
}

void MotionWatch::SetCameras(std::map<std::string, MotionSettings, std::less<>> cameras) {
    const std::lock_guard guard(m_mutex);
    m_cameras = std::move(cameras);
    m_taps.ForEach([this](const std::string& camera, const auto& tap) { tap->Set(SettingsOf(camera)); });
}

void MotionWatch::Tick(Clock::time_point now) {
    const std::lock_guard guard(m_mutex);
    m_taps.ForEach([now](const std::string&, const auto& tap) { tap->Tick(now); });
}

MotionSettings MotionWatch::SettingsOf(const std::string& camera) const {
    const auto found = m_cameras.find(camera);
    return found != m_cameras.end() ? found->second : MotionSettings{};
}

} // namespace host
