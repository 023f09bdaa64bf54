#include "host/feed/camera_feed.h"

#include <algorithm>

#include "host/feed/phone_session.h"
#include "host/log/console.h"

namespace host {

namespace {

// A phone that keeps to its grants may send so many pictures at any time.
constexpr double kLeastCredit = 4;
// Who takes a picture now and then watches in between.
constexpr std::chrono::seconds kWatchedFor{10};

// The processor time of this thread when it was asked for last, and whose picture the thread had then: what
// it has worked since went into handing that one on, and into reading and decoding those that came after it.
// To ask is a call of the system, and a dear one, so it is done for many pictures at once.
struct Asked {
    std::uint32_t feed = 0;
    std::uint32_t pictures = 0; // since
    std::chrono::nanoseconds worked{0};
    Clock::time_point at;
};
thread_local Asked t_asked;
constexpr std::uint32_t kAskedAfterPictures = 16;
constexpr std::chrono::seconds kAskedAfter{5}; // where fewer come

} // namespace

HRESULT CameraFeed::OnVideoFrame(IVideoFrame* frame) {
    if (m_owners != nullptr && m_owners->Slept(Clock::now())) {
        // Another host may have the camera by now, and its picture would be an old one.
        if (const PhoneSession* const session = PhoneSession::OfThread())
            session->End();
        return S_OK;
    }
    kit::HeldFrame held = frame != nullptr ? kit::HeldFrame::Of(*frame) : kit::HeldFrame{};
    kit::PlaneLayout layout;
    const bool decoded = kit::ReadLayout(held.block.data(), held.block.size(), &layout);
    PhoneSession* const session = PhoneSession::OfThread();
    if (decoded) {
        if (m_pictures == Pictures::Encoded)
            held.file = {};
        const kit::PicturePtr picture = Take(std::move(held), layout, From::Phone);
        for (const auto& tap : m_taps)
            tap->OnPicture(picture, session != nullptr ? session->Number() : 0);
        Account(picture->Arrival());
    } else {
        const std::lock_guard guard(m_mutex);
        ++m_failed;
    }
    if (session != nullptr && session->CountPicture(decoded)) {
        Console::Get().Log("error", std::to_string(PhoneSession::kMostUndecodable) +
                                        " pictures in a row could not be decoded: the upload is ended");
        session->End();
    }
    return S_OK;
}

kit::PicturePtr CameraFeed::Take(kit::HeldFrame held, const kit::PlaneLayout& layout, From from) {
    kit::PicturePtr old; // freed outside the lock
    const std::lock_guard guard(m_mutex);
    // The picture may outlive this feed, and is encoded when somebody asks for it.
    auto encoded = [meters = m_meters](std::chrono::nanoseconds time) { meters->encode.Observe(time); };
    old = std::exchange(m_newest, std::make_shared<const kit::Picture>(++m_sequence, std::move(held), layout,
                                                                       std::move(encoded)));
    if (from == From::Phone) {
        ++m_frames;
        m_rate.Add(m_newest->Arrival());
        if (const auto asked = std::exchange(m_asked, std::nullopt))
            m_meters->firstPictureNanoseconds = (m_newest->Arrival() - *asked).count();
    }
    for (Wakeup* watcher : m_watchers)
        watcher->Signal();
    return m_newest;
}

void CameraFeed::Show(kit::HeldFrame held, const kit::PlaneLayout& layout) {
    if (!IsElsewhere())
        return; // the phone has come here meanwhile
    (void)Take(std::move(held), layout, From::OtherHost);
}

void CameraFeed::LetGo() {
    kit::PicturePtr old;
    const std::lock_guard guard(m_mutex);
    old = std::exchange(m_newest, nullptr);
}

void CameraFeed::Measure(Clock::time_point now) {
    const bool goesOn = t_asked.feed == m_id; // else the thread may have worked on something else
    if (goesOn && ++t_asked.pictures < kAskedAfterPictures && now - t_asked.at < kAskedAfter)
        return;
    const auto worked = kit::ThreadTime();
    if (goesOn)
        m_meters->decode.Observe(worked - t_asked.worked, t_asked.pictures);
    t_asked = {m_id, 0, worked, now};
}

void CameraFeed::Account(Clock::time_point arrival) {
    const auto now = Clock::now();
    Measure(now);
    double rate = 0;
    {
        const std::lock_guard guard(m_mutex);
        rate = m_rate.PerSecond(now);
    }
    const double held = std::chrono::duration<double>(now - arrival).count();
    if (rate > 0 && held * rate > kLeastCredit) {
        ++m_meters->creditStalls;
        m_meters->creditStallNanoseconds += static_cast<std::uint64_t>((held - kLeastCredit / rate) * 1e9);
    }
}

CameraFeed::Session CameraFeed::SessionBegan(Clock::time_point asked, std::string address,
                                             const std::shared_ptr<PhoneSession>& upload) {
    const std::lock_guard guard(m_mutex);
    m_upload = upload;
    if (m_newest && m_newest->Arrival() >= asked)
        m_meters->firstPictureNanoseconds = (m_newest->Arrival() - asked).count();
    else
        m_asked = asked;
    m_phone.reset();
    return {++m_session, std::exchange(m_address, std::move(address))};
}

void CameraFeed::EndUpload() {
    std::shared_ptr<PhoneSession> upload;
    {
        const std::lock_guard guard(m_mutex);
        upload = m_upload.lock();
    }
    if (upload)
        upload->End();
}

bool CameraFeed::SetElsewhere(std::optional<Elsewhere> elsewhere) {
    const std::lock_guard guard(m_mutex);
    const bool changed = m_elsewhere.has_value() != elsewhere.has_value() ||
                         (elsewhere && elsewhere->node != m_elsewhere->node);
    m_elsewhere = std::move(elsewhere);
    return changed;
}

std::string CameraFeed::HostElsewhere() const {
    const std::lock_guard guard(m_mutex);
    return m_elsewhere ? m_elsewhere->node : std::string();
}

bool CameraFeed::IsElsewhere() const {
    const std::lock_guard guard(m_mutex);
    return m_elsewhere.has_value();
}

std::uint64_t CameraFeed::SessionNumber() const {
    const std::lock_guard guard(m_mutex);
    return m_session;
}

bool CameraFeed::SetPhone(std::uint64_t session, std::optional<PhoneState> phone, Clock::time_point until) {
    const std::lock_guard guard(m_mutex);
    if (session != m_session)
        return false;
    m_phone = phone;
    m_phoneUntil = until;
    return true;
}

kit::PicturePtr CameraFeed::Newest() const {
    m_watched = Clock::now().time_since_epoch().count();
    const std::lock_guard guard(m_mutex);
    return m_newest;
}

bool CameraFeed::HasPicture() const {
    const std::lock_guard guard(m_mutex);
    return m_newest != nullptr;
}

bool CameraFeed::IsWatched(Clock::time_point now) const noexcept {
    return std::ranges::any_of(m_taps, [](const auto& tap) { return tap->Watches(); }) || IsLookedAt(now);
}

bool CameraFeed::IsLookedAt(Clock::time_point now) const noexcept {
    const Clock::rep watched = m_watched;
    return watched != 0 && now - Clock::time_point(Clock::duration(watched)) < kWatchedFor;
}

CameraFigures CameraFeed::Figures() const {
    const auto now = Clock::now();
    CameraFigures figures;
    figures.id = m_id;
    figures.name = m_name;
    figures.connected = m_connected.load();
    const std::lock_guard guard(m_mutex);
    figures.type = m_type;
    figures.frames = m_frames;
    figures.failed = m_failed;
    figures.fps = m_rate.PerSecond(now);
    if (m_elsewhere) {
        figures.connected = true;
        figures.host = m_elsewhere->node;
        figures.frames = m_elsewhere->frames;
        figures.failed = m_elsewhere->failed;
        figures.fps = m_elsewhere->fps;
    }
    if (now < m_phoneUntil)
        figures.phone = m_phone;
    if (m_newest) {
        figures.width = m_newest->Layout().width;
        figures.height = m_newest->Layout().height;
        figures.age = std::max(0.0, std::chrono::duration<double>(now - m_newest->Arrival()).count());
    }
    return figures;
}

void CameraFeed::SetType(std::string type) {
    const std::lock_guard guard(m_mutex);
    m_type = std::move(type);
}

void CameraFeed::AddWatcher(Wakeup& wakeup) {
    const std::lock_guard guard(m_mutex);
    m_watchers.push_back(&wakeup);
}

void CameraFeed::RemoveWatcher(Wakeup& wakeup) noexcept {
    const std::lock_guard guard(m_mutex);
    m_watchers.erase(std::ranges::find(m_watchers, &wakeup));
}

bool CameraFeed::HasWatchers() const {
    const std::lock_guard guard(m_mutex);
    return !m_watchers.empty();
}

FeedWatch::FeedWatch(FeedPtr feed, Wakeup& wakeup) : m_feed(std::move(feed)), m_wakeup(&wakeup) {
    m_feed->AddWatcher(*m_wakeup);
}

FeedWatch::~FeedWatch() {
    if (m_feed) // not moved from
        m_feed->RemoveWatcher(*m_wakeup);
}

} // namespace host
