// What one login and one address may have of something that costs.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/counters.h"
#include "host/http/answer.h"
#include "host/http/limits.h"
#include "host/http/request.h"

namespace host {

// Counts who holds how many; a share goes back with the last copy of its pointer, which may outlive the
// object. Thread-safe.
class Shares {
public:
    using Share = std::shared_ptr<const void>;

    Shares(std::size_t perLogin, std::size_t perAddress)
        : m_perLogin(perLogin), m_perAddress(perAddress), m_counts(std::make_shared<Counts>()) {}

    // Null when the login or the address has all it may. An empty login is nobody's and has no limit of its
    // own.
    Share Take(const std::string& login, const std::string& address);

private:
    struct Counts {
        std::mutex mutex; // everything below
        std::map<std::string, std::size_t> logins;
        std::map<std::string, std::size_t> addresses;
    };

    const std::size_t m_perLogin;
    const std::size_t m_perAddress;
    const std::shared_ptr<Counts> m_counts;
};

// All of them there are.
struct ShareTable {
    explicit ShareTable(const Limits& limits)
        : viewers(limits.maxViewersPerLogin, limits.maxViewersPerAddress),
          streams(limits.maxStreamsPerLogin, limits.maxStreamsPerAddress),
          archives(limits.maxArchivesPerLogin, limits.maxArchivesPerAddress) {}
    Shares viewers;
    Shares streams;
    Shares archives;
};

// Takes a share for the sender of a request, or returns what to answer to one who has all that he may.
std::optional<Answer> TakeShare(Shares& from, const Request& request, std::string_view login,
                                Counters& counters, Shares::Share* share);

} // namespace host
