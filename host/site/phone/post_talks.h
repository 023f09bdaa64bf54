// Phones that send by requests, one picture each.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "host/base/wait.h"
#include "host/bridge/phone_talk.h"

namespace host {

// Keeps what a phone has begun from one of its requests to the next. Thread-safe.
class PostTalks {
public:
    // A phone that sends no request for so long has gone.
    static constexpr std::chrono::seconds kMostSilence{15};

    // One request: the page's state, if it tells one, and a picture, if there is one. Returns once the
    // component has the picture, or the end of it is told. The talk is made where there is none.
    using Make = std::function<std::unique_ptr<PhoneTalk>()>;
    struct Post {
        const std::string& phone;
        std::optional<std::string> state;
        std::optional<PagePicture> picture;
    };
    // Nothing while another request of the phone is being answered.
    std::optional<nlohmann::ordered_json> Answer(const Post& post, const Make& make, const Wakeup& stop,
                                                 std::chrono::milliseconds patience);
    void Sweep();

private:
    struct Entry {
        std::mutex mutex; // held while a request is being answered
        std::unique_ptr<PhoneTalk> talk;
        Clock::time_point last = Clock::now(); // request; under the mutex
    };
    using EntryPtr = std::shared_ptr<Entry>;

    std::mutex m_mutex;
    std::map<std::string, EntryPtr> m_entries; // by phone; under m_mutex
};

} // namespace host
