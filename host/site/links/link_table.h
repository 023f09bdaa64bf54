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
#include <span>
#include <string>
#include <string_view>

#include "host/base/store.h"
#include "host/base/wait.h"

namespace host {

// Where hosts share the store, a link is good once among them all: who cannot tell the store of it cannot use
// it, make it or revoke it.
//
// Thread-safe. Nothing is done while the lock is held but looking up and changing an entry; what is told to
// the store is told without it.
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

    // One that ends with the host.
    static std::shared_ptr<Store> InMemory();
    explicit LinkTable(std::shared_ptr<Store> store = InMemory());
    LinkTable(const LinkTable&) = delete;
    LinkTable& operator=(const LinkTable&) = delete;

    // Nothing when there are too many already, or the store does not take it.
    std::optional<Link> Make(const std::string& camera, Clock::time_point now = Clock::now());
    // Nothing for a link that never was, is used, revoked or too old. One that is being used is found.
    [[nodiscard]] std::optional<Link> Find(std::string_view token,
                                           Clock::time_point now = Clock::now()) const;
    // Nothing in the cases of Find, and while somebody else is using it.
    std::optional<Delivery> Use(std::string_view token, Clock::time_point now = Clock::now());
    // One that is being used goes to its end. False when the store does not take it: it may still be good.
    bool Revoke(std::string_view token);

private:
    struct Entry {
        Link link;
        bool inUse = false;
        Store::Revision revision = 0;
    };
    void Take(std::span<const Store::Update> updates);
    void End(const std::string& token, bool used);
    bool Remove(const std::string& token, Store::Revision revision);

    const std::shared_ptr<Store> m_store;
    mutable std::mutex m_mutex;
    std::map<std::string, Entry, std::less<>> m_links; // by token; this and the line below under m_mutex
    Clock::time_point m_firstEnd = Clock::time_point::max(); // no link is too old before that
    Store::Watching m_watching;
};

} // namespace host
