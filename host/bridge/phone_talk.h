// A phone's page and the component, brought together.
//
// The page sends over a WebSocket, or one request a picture; what comes of its messages is the same. The
// upload begins once the page says that it runs, and ends with the object, or when the page stops. A page
// that only pauses stays its camera.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/wait.h"
#include "host/bridge/browser_phones.h"
#include "host/bridge/page_message.h"
#include "host/bridge/upload_link.h"
#include "host/feed/camera_feed.h"
#include "host/users/phones.h"

namespace host {

// One thread at a time.
class PhoneTalk {
public:
    // How it ends, as the close code of a WebSocket tells.
    using Code = std::uint16_t;
    static constexpr Code kSilent = 1001;
    static constexpr Code kFault = 1008;
    static constexpr Code kComeAgain = 1012;
    static constexpr Code kReplaced = 4001; // another phone is the camera now
    static constexpr Code kEnded = 4003;    // this phone is no camera any more

    // A page that says nothing for so long has gone.
    static constexpr std::chrono::seconds kMostSilence{20};
    // How often Step is to be called while nothing happens.
    static constexpr std::chrono::milliseconds kTick{200};

    // The phone is one that was found good. Another talk of it ends.
    PhoneTalk(const BridgeParts& parts, BrowserPhones& others, Phones::Known phone, std::string address,
              Clock::time_point now = Clock::now());
    PhoneTalk(const PhoneTalk&) = delete;
    PhoneTalk& operator=(const PhoneTalk&) = delete;
    ~PhoneTalk();

    // A message of the page. False for one that no page of this host sends.
    bool OnText(std::string_view text, Clock::time_point now);
    // A picture. At most two may be without an answer.
    bool OnPicture(const PagePicture& picture, Clock::time_point now);

    // It says something that is no message.
    void Hear(Clock::time_point now) noexcept { m_heard = now; }
    // The signal has come, and was cleared.
    void Wake() noexcept { m_woken = true; }

    // Does what can be done by now; never waits for the component's pictures, but where MayWait says so for
    // its locks, or for what is written to a disk.
    [[nodiscard]] bool MayWait(Clock::time_point now) const noexcept;
    void Step(Clock::time_point now);
    // The next message for the page; empty without one.
    std::string Next();
    // Once it has ended, why. The messages before that are still to be had.
    [[nodiscard]] std::optional<Code> Ended() const noexcept { return m_ended; }

    // Signalled when there is something to do.
    [[nodiscard]] Wakeup& Signal() noexcept { return m_mailbox->wakeup; }
    // The component's side, which is read, and written while something waits for that; -1 without an upload
    // that goes on.
    [[nodiscard]] int Fd() const noexcept { return m_upload && !m_upload->HasEnded() ? m_upload->Fd() : -1; }
    [[nodiscard]] bool AwaitsWrite() const noexcept { return m_upload && !m_upload->IsSent(); }
    // Counts the uploads that there were: the descriptor of each is another one.
    [[nodiscard]] unsigned Uploads() const noexcept { return m_uploads; }
    // Whether the component has asked for pictures.
    [[nodiscard]] bool IsReady() const noexcept { return m_saidReady; }
    // Pictures without an answer.
    [[nodiscard]] std::size_t Unanswered() const noexcept { return m_pictures.size(); }

private:
    struct Picture {
        std::uint32_t number = 0;
        std::string jpeg;
        bool sending = false;
    };

    void BeginUpload(Clock::time_point now);
    void EndUpload();
    void LookAtEnd(Clock::time_point now);
    void Move();
    void TellWatched(Clock::time_point now);
    void TellFeed(Clock::time_point now);
    [[nodiscard]] bool Runs() const { return m_state && m_state->run == PhoneState::Run::Running; }
    [[nodiscard]] bool Pauses() const { return m_state && m_state->run == PhoneState::Run::Paused; }
    void End(Code code);
    void Say(std::string message) { m_messages.push_back(std::move(message)); }

    const BridgeParts m_parts;
    BrowserPhones& m_others;
    const Phones::Known m_phone;
    const std::string m_address;
    const BrowserPhones::MailboxPtr m_mailbox;
    const Phones::Held m_held;
    std::unique_ptr<UploadLink> m_upload;
    unsigned m_uploads = 0;
    Clock::time_point m_nextUpload{};               // none begins before
    std::optional<Clock::time_point> m_uploadEnded; // why is not known yet
    bool m_saidReady = false;
    bool m_woken = false;
    std::optional<PhoneState> m_state; // what the page said last
    bool m_stateIsNew = false;
    Clock::time_point m_stateTold; // to the camera's feed
    bool m_toldPause = false;      // without an upload
    std::optional<bool> m_watched; // what the page was told
    Clock::time_point m_heard;
    std::deque<Picture> m_pictures;
    std::deque<std::string> m_messages;
    std::optional<Code> m_ended;
};

} // namespace host
