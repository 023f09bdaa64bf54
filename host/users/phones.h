// Browsers that are a camera: each of them is bound to one.
//
// A phone's cookie holds its secret. The phone hangs on the camera's password: once the camera has another
// one, or is gone, so is the phone.
#pragma once

#include "host/base/wait.h"
#include "host/users/secret_table.h"

namespace host {

// Thread-safe.
class Phones {
public:
    // What a request tells of who sends it.
    struct Sender {
        std::string address;
        std::string_view agent{}; // what the browser calls itself
    };
    struct Known {
        std::string id; // the hash of its number
        std::string camera;
    };
    // A phone is good until it is revoked; no browser keeps a cookie for longer than this.
    static constexpr std::chrono::days kCookieLife{400};
    using Time = SecretRecord::Time;
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

    // `digestOf` is called with the lock held, and calls nothing
    // here.
    Phones(std::shared_ptr<Store> store, DigestOf digestOf);
    // In a file of the data folder; empty: in memory alone.
    static std::shared_ptr<Store> InFile(std::string path) {
        return SecretTable<Phone>::InFile(std::move(path));
    }
    Phones(const Phones&) = delete;
    Phones& operator=(const Phones&) = delete;

    // Makes one, for requests under TLS or for those in clear; returns what the cookie holds.
    std::string Begin(const std::string& camera, bool secure, const Sender& sender,
                      Time now = SecretRecord::Now());
    // Nothing where there is no such phone (any more). It counts as a contact.
    std::optional<Known> Find(std::string_view number, bool secure, const Sender& sender,
                              Time now = SecretRecord::Now());
    // Whether it is good still, by the camera's present password.
    bool IsGood(std::string_view id) { return m_table.IsGood(id, SecretRecord::Now()); }
    // False where there was none of that hash.
    bool End(std::string_view id) { return m_table.End(id); }
    // Ends those whose camera has changed: to be called twice a second.
    void Sweep(Time now = SecretRecord::Now()) { m_table.Sweep(now); }
    // Writes when each was last heard of; false when that was not possible.
    bool Save() { return m_table.Save(); }
    // By camera, and then as they were made.
    [[nodiscard]] std::vector<Listed> List() const;

    // Signals the wake-up when the phone ends; until this is let go of it counts as heard of. Null where
    // there is no such phone any more. The wake-up lives longer than what is returned.
    using Held = std::shared_ptr<const void>;
    [[nodiscard]] Held Hold(std::string_view id, Wakeup& wakeup) {
        return m_table.Hold(id, [&wakeup] { wakeup.Signal(); });
    }

private:
    struct Phone : SecretRecord {
        static constexpr std::string_view kTitle =
            "# Browsers that are a camera: hash of the phone's number, camera, digest of the camera's "
            "password, "
            "way, made, last contact, address, what the browser calls itself.";
        static std::optional<Phone> Read(std::span<const std::string> fields);
        [[nodiscard]] std::string Line() const;
        [[nodiscard]] const std::string& Owner() const { return camera; }

        std::string camera;
        bool secure = false;
        std::string address;
        std::string agent;
    };

    const DigestOf m_digestOf;
    SecretTable<Phone> m_table;
};

} // namespace host
