// Takes what one camera sends: keeps its newest picture and its figures, and wakes those who wait for the
// next picture.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/base/wait.h"
#include "host/feed/meters.h"
#include "host/feed/picture_tap.h"
#include "host/feed/source.h"
#include "interfaces/ICam.h"
#include "kit/picture/picture.h"
#include "platform/com.h"

namespace host {

class PhoneSession;

// What a browser that is a camera tells of itself.
struct PhoneState {
    enum class Run { Running, Paused, Stopped };
    Run run = Run::Stopped;
    bool front = false; // the camera on the side of the screen
    // What it really sends.
    int width = 0;
    int height = 0;
    int rate = 0; // pictures a second
    // Whether its light is on; nothing where it has none.
    std::optional<bool> torch{};

    friend bool operator==(const PhoneState&, const PhoneState&) = default;
};

struct CameraFigures {
    std::uint32_t id = 0;
    std::string name; // UTF-8
    std::string type; // "320x240", or empty when it is not known
    std::string host; // that the phone is connected to, where it is another one; else empty
    bool connected = false;
    std::uint64_t frames = 0; // pictures that could be decoded
    std::uint64_t failed = 0; // and those that could not
    double fps = 0;
    int width = 0; // of the newest picture; 0 before the first
    int height = 0;
    std::optional<double> age;       // of the newest picture, seconds
    std::optional<PhoneState> phone; // of a browser that is this camera; nothing for other phones
};

// Measures what a camera's pictures cost, and how long its phone had to wait.
struct CameraMeters {
    // Processor time of the receiving thread for one picture, reading and decoding it: the mean of sixteen,
    // or of five seconds' where fewer come.
    Histogram decode;
    Histogram encode; // of one picture for browsers
    // From the request of the newest connection that brought a picture until that picture, the sign-in
    // included; 0 before the first.
    std::atomic<std::int64_t> firstPictureNanoseconds{0};
    // A phone is not read while its picture is worked on, and keeps credit for four pictures at least. Work
    // that takes longer than these last at its rate leaves it without: how often, and for how long in all.
    std::atomic<std::uint64_t> creditStalls{0};
    std::atomic<std::uint64_t> creditStallNanoseconds{0};
};

// What those who watch a camera get of a phone's pictures: what may be passed on of its own files, or every
// picture encoded anew.
enum class Pictures { PassedOn, Encoded };

// The sink of one camera. Its operation runs on the thread that receives the phone's frames, under the
// camera's lock: it takes the frame, signals and returns; nothing is copied or encoded there.
class CameraFeed : public platform::Implements<ICamSink> {
public:
    using Taps = std::vector<std::shared_ptr<PictureTap>>;

    // `owners` is null for a host by itself.
    CameraFeed(std::uint32_t id, std::string name, Pictures pictures = Pictures::PassedOn, Taps taps = {},
               const CameraOwners* owners = nullptr)
        : m_id(id), m_name(std::move(name)), m_pictures(pictures), m_taps(std::move(taps)), m_owners(owners) {
    }

    HRESULT OnVideoFrame(IVideoFrame* frame) override;

    [[nodiscard]] std::uint32_t Id() const noexcept { return m_id; }
    [[nodiscard]] const std::string& Name() const noexcept { return m_name; }
    // The newest picture; null before the first one. Whoever asks for it watches the camera.
    [[nodiscard]] kit::PicturePtr Newest() const;
    [[nodiscard]] bool HasPicture() const;
    // Whether somebody watches, or has within the last seconds, or it is recorded.
    [[nodiscard]] bool IsWatched(Clock::time_point now) const noexcept;
    [[nodiscard]] CameraFigures Figures() const;
    [[nodiscard]] const CameraMeters& Meters() const noexcept { return *m_meters; }

    // Whether somebody has looked within the last seconds, here or at another host.
    [[nodiscard]] bool IsLookedAt(Clock::time_point now) const noexcept;

    // A phone has been let in, from that address, whose request came then. Its first picture may be here
    // already. `upload` is its connection, for EndUpload.
    struct Session {
        std::uint64_t number = 0;
        std::string before; // the address of the phone before it; empty for the first one
    };
    Session SessionBegan(Clock::time_point asked, std::string address,
                         const std::shared_ptr<PhoneSession>& upload = nullptr);
    // Closes the connection of the newest phone, if it is still there.
    void EndUpload();

    // --- While another host has the phone ---

    // Nothing: none has. True when that changes what is shown of the camera.
    bool SetElsewhere(std::optional<Elsewhere> elsewhere);
    [[nodiscard]] bool IsElsewhere() const;
    [[nodiscard]] std::string HostElsewhere() const; // the host's name; empty: it is not
    // A picture that the other host has sent: for those who look, and for nobody else. Pictures are shown in
    // the order of these calls.
    void Show(kit::HeldFrame held, const kit::PlaneLayout& layout);

    // Of the newest one; 0 before the first.
    [[nodiscard]] std::uint64_t SessionNumber() const;
    // What the phone of that session tells; nothing once it has ended. With `until` it stands no longer than
    // that. False where another session has begun since.
    bool SetPhone(std::uint64_t session, std::optional<PhoneState> phone,
                  Clock::time_point until = Clock::time_point::max());

    // FeedWatch calls these; a wake-up is signalled for each new picture while it is on the list.
    void AddWatcher(Wakeup& wakeup);
    void RemoveWatcher(Wakeup& wakeup) noexcept;
    [[nodiscard]] bool HasWatchers() const;

    // The feed table keeps these.
    void SetType(std::string type);
    // Forgets the newest picture, and with it the component's frame, once the camera is gone.
    void LetGo();
    // True when that changes something.
    bool SetConnected(bool connected) noexcept { return m_connected.exchange(connected) != connected; }
    // What it was told last.
    [[nodiscard]] bool IsConnected() const noexcept { return m_connected; }

protected:
    ~CameraFeed() = default;

private:
    enum class From { Phone, OtherHost };
    kit::PicturePtr Take(kit::HeldFrame held, const kit::PlaneLayout& layout, From from);
    // After each picture that could be decoded.
    void Account(Clock::time_point arrival);
    void Measure(Clock::time_point now);

    const std::uint32_t m_id;
    const std::string m_name;
    const Pictures m_pictures;
    const Taps m_taps;
    const CameraOwners* const m_owners;
    const std::shared_ptr<CameraMeters> m_meters = std::make_shared<CameraMeters>();
    std::atomic<bool> m_connected{false};
    mutable std::atomic<Clock::rep> m_watched{0}; // when somebody last asked for a picture; 0: nobody has

    mutable std::mutex m_mutex; // the members below
    std::string m_type;
    kit::PicturePtr m_newest;
    std::uint64_t m_sequence = 0; // of the newest picture, whoever sent it
    std::uint64_t m_frames = 0;
    std::uint64_t m_failed = 0;
    RateMeter m_rate;
    std::optional<Clock::time_point> m_asked; // of a session that has had no picture yet
    std::string m_address;                    // of the newest session's phone
    std::uint64_t m_session = 0;
    std::weak_ptr<PhoneSession> m_upload; // of the newest session
    std::optional<Elsewhere> m_elsewhere;
    std::optional<PhoneState> m_phone; // of the newest session
    Clock::time_point m_phoneUntil;
    std::vector<Wakeup*> m_watchers;
};
using FeedPtr = platform::ComPtr<CameraFeed>;

// Signals a wake-up for each new picture of a camera, for as long as it lives.
class FeedWatch {
public:
    FeedWatch(FeedPtr feed, Wakeup& wakeup);
    FeedWatch(FeedWatch&&) noexcept = default;
    FeedWatch& operator=(FeedWatch&&) = delete;
    ~FeedWatch();

private:
    FeedPtr m_feed;
    Wakeup* m_wakeup;
};

} // namespace host
