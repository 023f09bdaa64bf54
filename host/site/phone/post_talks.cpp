#include "host/site/phone/post_talks.h"

#include <vector>

#include <poll.h>

namespace host {
namespace {

using Json = nlohmann::ordered_json;

// A page asks again soon when its upload has not begun by then.
constexpr std::chrono::seconds kBeginsWithin{1};

void TakeMessages(PhoneTalk& talk, Json* messages) {
    for (std::string message = talk.Next(); !message.empty(); message = talk.Next())
        messages->push_back(Json::parse(message));
}

// False when the stop signal has come.
bool Wait(PhoneTalk& talk, const Wakeup& stop) {
    const auto events = static_cast<short>(talk.AwaitsWrite() ? POLLIN | POLLOUT : POLLIN);
    return WaitFor({.socket = talk.Fd(), .socketEvents = events, .wakeup = &talk.Signal(), .stop = &stop},
                   Clock::now() + PhoneTalk::kTick) != Waited::Stopped;
}

// Goes on until the picture has an answer. The code of the end, if it has come.
std::optional<PhoneTalk::Code> Converse(PhoneTalk& talk, const PostTalks::Post& post, const Wakeup& stop,
                                        std::chrono::milliseconds patience, Json* messages) {
    const auto begun = Clock::now();
    if ((post.state && !talk.OnText(*post.state, begun)) ||
        (post.picture && !talk.OnPicture(*post.picture, begun)))
        return PhoneTalk::kFault;
    talk.Hear(begun);
    for (;;) {
        const auto now = Clock::now();
        talk.Step(now);
        TakeMessages(talk, messages);
        if (talk.Ended())
            return talk.Ended();
        const bool waits = talk.Fd() >= 0 && !talk.IsReady() && now - begun < kBeginsWithin;
        if (talk.Unanswered() == 0 && !waits)
            return std::nullopt;
        if (now - begun > patience || !Wait(talk, stop))
            return PhoneTalk::kComeAgain;
    }
}

} // namespace

std::optional<Json> PostTalks::Answer(const Post& post, const Make& make, const Wakeup& stop,
                                      std::chrono::milliseconds patience) {
    EntryPtr entry;
    {
        const std::lock_guard guard(m_mutex);
        EntryPtr& known = m_entries[post.phone];
        if (!known)
            known = std::make_shared<Entry>();
        entry = known;
    }
    const std::unique_lock turn(entry->mutex, std::try_to_lock);
    if (!turn)
        return std::nullopt;
    if (!entry->talk)
        entry->talk = make();
    Json messages = Json::array();
    const auto ended = Converse(*entry->talk, post, stop, patience, &messages);
    entry->last = Clock::now();
    if (ended) {
        entry->talk.reset(); // the next request begins another one
        messages.push_back({{"type", "closed"}, {"code", *ended}});
    }
    return messages;
}

void PostTalks::Sweep() {
    std::vector<EntryPtr> gone; // let go of outside the lock
    const auto now = Clock::now();
    const std::lock_guard guard(m_mutex);
    for (auto at = m_entries.begin(); at != m_entries.end();) {
        const std::unique_lock turn(at->second->mutex, std::try_to_lock);
        if (turn && at->second->talk)
            at->second->talk->Step(now); // a phone that was revoked ends now
        if (turn && now - at->second->last > kMostSilence) {
            gone.push_back(std::move(at->second));
            at = m_entries.erase(at);
        } else {
            ++at;
        }
    }
}

} // namespace host
