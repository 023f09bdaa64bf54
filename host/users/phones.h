// Browsers that are a camera: each of them is bound to one.
//
// A phone's cookie holds a random number of 256 bits; the file of the data folder (0600, replaced whole) has
// its hash alone, so who reads the file is nobody's phone. Beside it stands a digest of the camera's
// password: once the camera has another one, or is gone, so is the phone.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/wait.h"

namespace host {

// Thread-safe.
class Phones {
public:
    using Time = std::chrono::sys_seconds;
    // A phone is good until it is revoked; no browser keeps a cookie for longer than this.
    static constexpr std::chrono::days kCookieLife{400};
    // More of one camera, and the one that was silent for the longest time ends.
    static constexpr std::size_t kMostOfCamera = 64;

    // What a request tells of who sends it.
    struct Sender {
        std::string address;
        std::string_view agent{}; // what the browser calls itself
    };
    struct Known {
        std::string id; // the hash of its number
        std::string camera;
    };
    struct Listed {
        Known phone;
        Time made;
        Time lastContact;
        std::string address;
        std::string agent;
        bool live = false; // held now
    };
    // What the present password of a camera is, in a digest; empty where no phone can be this camera.
    using DigestOf = std::function<std::string(const std::string& camera)>;

    // Reads the file; empty: nothing is kept. `digestOf` is called with the lock held, and calls nothing
    // here.
    Phones(std::string path, DigestOf digestOf);

    // Makes one, for requests under TLS or for those in clear; returns what the cookie holds.
    std::string Begin(const std::string& camera, bool secure, const Sender& sender, Time now = Now());
    // Nothing where there is no such phone (any more). It counts as a contact.
    std::optional<Known> Find(std::string_view number, bool secure, const Sender& sender, Time now = Now());
    // Whether it is good still, by the camera's present password.
    bool IsGood(std::string_view id);
    // False where there was none of that hash.
    bool End(std::string_view id);
    // Ends those whose camera has changed: to be called twice a second.
    void Sweep(Time now = Now());
    // Writes when each was last heard of; false when that was not possible.
    bool Save();
    // By camera, and then as they were made.
    [[nodiscard]] std::vector<Listed> List() const;

    // Signals the wake-up when the phone ends; until this is let go of it counts as heard of. Null where
    // there is no such phone any more. The wake-up lives longer than what is returned.
    using Held = std::shared_ptr<const void>;
    [[nodiscard]] Held Hold(std::string_view id, Wakeup& wakeup);

private:
    struct Phone {
        std::string camera;
        std::string digest;
        bool secure = false;
        Time made{};
        Time contact{};
        std::string address{};
        std::string agent{};
        std::vector<Wakeup*> held{};
    };
    using Map = std::map<std::string, Phone, std::less<>>; // by the hash of the number

    static Time Now() { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); }
    // With the mutex held, all of them.
    void Read();
    [[nodiscard]] bool IsOver(const Phone& phone) const;
    Map::iterator Erase(Map::iterator phone);
    void MakeRoomFor(const std::string& camera);
    bool Write();

    const std::string m_path;
    const DigestOf m_digestOf;
    std::shared_ptr<std::mutex> m_mutex = std::make_shared<std::mutex>(); // everything below
    std::shared_ptr<Map> m_phones = std::make_shared<Map>(); // what is held may outlive the object
    bool m_changed = false;
};

} // namespace host
