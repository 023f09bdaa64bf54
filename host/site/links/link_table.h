// Links by which a phone gets its midlet without a password being typed.
//
// A link stands for one camera. Its token, 128 random bits, is all that protects the camera's password, which
// the archive behind the link holds: so a link is good for one archive, for ten minutes, and until it is
// revoked.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/wait.h"

namespace host {

// Thread-safe. Nothing is done while the lock is held but looking up and changing an entry.
class LinkTable : public std::enable_shared_from_this<LinkTable> {
public:
    static constexpr std::chrono::minutes kLifetime{10};
    static constexpr std::size_t kMostLinks = 4096;

    struct Link {
        std::string token; // 32 hexadecimal digits
        std::string camera;
        Clock::time_point until;
    };

    // The one use of a link, which is nobody else's meanwhile. Unless it is told that the archive has
    // arrived, the link is good again afterwards: a phone whose connection broke may try once more.
    class Delivery {
    public:
        Delivery(std::shared_ptr<LinkTable> table, Link link)
            : m_table(std::move(table)), m_link(std::move(link)) {}
        Delivery(Delivery&& other) noexcept = default;
        Delivery& operator=(Delivery&&) = delete;
        ~Delivery();

        [[nodiscard]] const std::string& Camera() const noexcept { return m_link.camera; }
        void Done() noexcept { m_done = true; }

    private:
        std::shared_ptr<LinkTable> m_table; // null when moved from
        Link m_link;
        bool m_done = false;
    };

    // Nothing when there are too many already.
    std::optional<Link> Make(const std::string& camera, Clock::time_point now = Clock::now());
    // Nothing for a link that never was, is used, revoked or too old. One that is being used is found.
    [[nodiscard]] std::optional<Link> Find(std::string_view token,
                                           Clock::time_point now = Clock::now()) const;
    // Nothing in the cases of Find, and while somebody else is using it.
    std::optional<Delivery> Use(std::string_view token, Clock::time_point now = Clock::now());
    // False when there was none. One that is being used goes to its end.
    bool Revoke(std::string_view token);

private:
    struct Entry {
        Link link;
        bool inUse = false;
    };
    void End(const std::string& token, bool used) noexcept;

    mutable std::mutex m_mutex;
    std::map<std::string, Entry, std::less<>> m_links; // by token; under m_mutex
};

} // namespace host
