// From where logins have signed in.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace host {

// Who has signed in from an address within the last 30 days is heard there also while somebody else at that
// address guesses passwords. Kept in a file of the data folder, so that it is true after a start as well: a
// line each, login, address, Unix seconds, separated by tabs. Thread-safe.
class SignInPlaces {
public:
    using Time = std::chrono::sys_seconds;
    static constexpr std::chrono::days kKnownFor{30};

    // Reads the file; a line that makes no sense is passed over, and goes with the next Save. Without a path
    // nothing is kept.
    explicit SignInPlaces(std::string path = {});

    void Note(std::string_view login, std::string_view address, Time now = Now());
    [[nodiscard]] bool Knows(std::string_view login, std::string_view address, Time now = Now()) const;

    // Writes what has changed; false when that was not possible, and it is to be tried again.
    bool Save();

private:
    // More places than that, and the oldest ones go. A host's phones have one each.
    static constexpr std::size_t kMostPlaces = 32768;
    // As exact as the file is: a place that is in daily use is written once a day.
    static constexpr std::chrono::days kExactness{1};

    static Time Now() {
        return std::chrono::time_point_cast<std::chrono::seconds>(std::chrono::system_clock::now());
    }

    const std::string m_path;
    mutable std::mutex m_mutex;                                   // everything below
    std::map<std::pair<std::string, std::string>, Time> m_places; // by login and address
    bool m_changed = false;
};

} // namespace host
