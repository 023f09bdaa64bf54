#include "host/bridge/phone_talk.h"

#include <utility>

namespace host {
namespace {

constexpr std::size_t kMostUnanswered = 2;
// A page that takes no answers, and goes on asking.
constexpr std::size_t kMostMessages = 64;
// No page has news for the live pages more often.
constexpr std::chrono::milliseconds kStateDistance{200};
// How long whoever replaced an upload may take to say so.
constexpr std::chrono::seconds kReplacedWithin{1};
// A page that begins again and again costs the component a thread each time.
constexpr std::chrono::seconds kUploadDistance{1};
// A phone that is locked runs no script: it is gone after a while, and paused all the same.
constexpr std::chrono::hours kPausedFor{1};

} // namespace

PhoneTalk::PhoneTalk(const BridgeParts& parts, BrowserPhones& others, Phones::Known phone,
                     std::string address, Clock::time_point now)
    : m_parts(parts), m_others(others), m_phone(std::move(phone)), m_address(std::move(address)),
      m_mailbox(others.Enter(m_phone.id)), m_held(parts.phones.Hold(m_phone.id, m_mailbox->wakeup)),
      m_heard(now) {}

PhoneTalk::~PhoneTalk() {
    EndUpload();
    m_others.Leave(m_phone.id, m_mailbox);
}

bool PhoneTalk::OnText(std::string_view text, Clock::time_point now) {
    const auto message = ReadPageMessage(text);
    if (!message || m_messages.size() >= kMostMessages)
        return false;
    m_heard = now;
    if (const auto* const ping = std::get_if<PagePing>(&*message)) {
        Say(PongMessage(*ping));
        return true;
    }
    m_state = std::get<PhoneState>(*message);
    m_stateIsNew = true;
    if (m_state->run == PhoneState::Run::Stopped)
        EndUpload();
    return true;
}

bool PhoneTalk::OnPicture(const PagePicture& picture, Clock::time_point now) {
    if (!m_state || m_pictures.size() >= kMostUnanswered || m_messages.size() >= kMostMessages)
        return false;
    m_heard = now;
    if (Runs() && !m_ended)
        m_pictures.push_back({picture.number, std::string(picture.jpeg)});
    else // on its way while the page paused
        Say(AckMessage(picture.number, true));
    return true;
}

void PhoneTalk::BeginUpload(Clock::time_point now) {
    m_nextUpload = now + kUploadDistance;
    UploadLink::Outcome outcome{};
    m_upload = UploadLink::Begin(m_parts, m_phone.camera, m_address, now, &outcome);
    if (!m_upload)
        return End(outcome == UploadLink::Outcome::Denied ? kEnded : kComeAgain);
    ++m_uploads;
    m_uploadEnded.reset();
    m_others.Begin(m_phone.camera, m_mailbox);
}

void PhoneTalk::EndUpload() {
    for (const Picture& picture : m_pictures)
        Say(AckMessage(picture.number, true));
    m_pictures.clear();
    m_saidReady = false;
    if (!m_upload)
        return;
    m_others.End(m_phone.camera, m_mailbox);
    const std::uint64_t session = m_upload->Session();
    m_upload.reset();
    const FeedPtr feed = m_parts.feeds.Find(m_phone.camera);
    if (!feed)
        return;
    const bool pauses = Pauses() && m_parts.phones.IsGood(m_phone.id);
    m_parts.feeds.SetPhone(*feed.Get(), session, pauses ? m_state : std::nullopt, Clock::now() + kPausedFor);
    if (pauses)
        m_others.LeavePause({m_phone.id, m_phone.camera, session});
}

void PhoneTalk::End(Code code) {
    if (m_ended)
        return;
    m_ended = code;
    EndUpload();
}

// To begin an upload and to ask whether there is one takes locks of the component; whether a phone is good
// still is looked up where its file is written.
bool PhoneTalk::MayWait(Clock::time_point now) const noexcept {
    if (m_ended)
        return false;
    const bool begins = Runs() && !m_upload && now >= m_nextUpload;
    const bool asks = m_stateIsNew && !m_upload && Pauses();
    return begins || asks || m_woken || m_mailbox->wakeup.IsSet() || (m_upload && m_upload->HasEnded());
}

void PhoneTalk::Step(Clock::time_point now) {
    if (m_ended)
        return;
    if (std::exchange(m_woken, false) || m_mailbox->wakeup.IsSet()) {
        m_mailbox->wakeup.Clear();
        if (m_mailbox->IsReplaced())
            return End(kReplaced);
        if (!m_parts.phones.IsGood(m_phone.id))
            return End(kEnded);
        for (std::string message = m_mailbox->TakeControl(); !message.empty();
             message = m_mailbox->TakeControl())
            Say(std::move(message));
    }
    if (!m_held)
        return End(kEnded);
    if (now - m_heard > kMostSilence)
        return End(kSilent);
    // A pause is none of another phone's business: a page that comes back pausing replaces nobody.
    if (Runs() && !m_upload && now >= m_nextUpload)
        BeginUpload(now);
    if (m_upload) {
        Move();
        if (m_upload->HasEnded())
            return LookAtEnd(now);
        TellWatched(now);
    }
    TellFeed(now);
}

std::string PhoneTalk::Next() {
    if (m_messages.empty())
        return {};
    std::string message = std::move(m_messages.front());
    m_messages.pop_front();
    return message;
}

// Pictures go on one at a time: what the page hears of one tells it how fast the way is.
void PhoneTalk::Move() {
    m_upload->Step();
    if (m_upload->IsReady() && !std::exchange(m_saidReady, true))
        Say(ReadyMessage(m_phone.camera));
    while (!m_pictures.empty()) {
        Picture& first = m_pictures.front();
        if (!first.sending) {
            if (!m_upload->TakesPicture())
                return;
            m_upload->Send(first.jpeg);
            first.sending = true;
        }
        if (!m_upload->IsSent() || m_upload->HasEnded())
            return;
        Say(AckMessage(first.number, false));
        m_pictures.pop_front();
    }
}

// The component has ended the upload, or somebody has through it.
void PhoneTalk::LookAtEnd(Clock::time_point now) {
    if (!m_uploadEnded)
        m_uploadEnded = now;
    const FeedPtr feed = m_parts.feeds.Find(m_phone.camera);
    if (!feed || !m_parts.phones.IsGood(m_phone.id))
        return End(kEnded);
    if (feed->SessionNumber() != m_upload->Session())
        return End(kReplaced);
    if (m_upload->SentRubbish())
        return End(kFault);
    if (now - *m_uploadEnded > kReplacedWithin)
        End(kComeAgain);
}

void PhoneTalk::TellWatched(Clock::time_point now) {
    const FeedPtr feed = m_parts.feeds.Find(m_phone.camera);
    const bool watched = feed && feed->IsWatched(now);
    if (m_watched == watched)
        return;
    m_watched = watched;
    Say(WatchedMessage(watched));
}

void PhoneTalk::TellFeed(Clock::time_point now) {
    if (!m_stateIsNew || now - m_stateTold < kStateDistance)
        return;
    m_stateIsNew = false;
    m_stateTold = now;
    const FeedPtr feed = m_parts.feeds.Find(m_phone.camera);
    if (!feed)
        return;
    if (m_upload) {
        m_toldPause = false;
        m_parts.feeds.SetPhone(*feed.Get(), m_upload->Session(), m_state);
    } else if (Pauses() ? !m_parts.feeds.IsReceiving(m_phone.camera) : m_toldPause) {
        m_toldPause = Pauses();
        m_parts.feeds.SetPhone(*feed.Get(), feed->SessionNumber(), m_toldPause ? m_state : std::nullopt,
                               now + kPausedFor);
    }
}

} // namespace host
