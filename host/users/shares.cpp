#include "host/users/shares.h"

#include "host/users/authenticator.h"

namespace host {
namespace {

using CountMap = std::map<std::string, std::size_t>;

std::size_t CountOf(const CountMap& counts, const std::string& key) {
    const auto found = counts.find(key);
    return found != counts.end() ? found->second : 0;
}

void GiveBack(CountMap& counts, const std::string& key) {
    if (const auto found = counts.find(key); --found->second == 0)
        counts.erase(found);
}

} // namespace

Shares::Share Shares::Take(const std::string& login, const std::string& address) {
    const std::lock_guard guard(m_counts->mutex);
    if ((!login.empty() && CountOf(m_counts->logins, login) >= m_perLogin) ||
        CountOf(m_counts->addresses, address) >= m_perAddress)
        return nullptr;
    ++m_counts->logins[login];
    ++m_counts->addresses[address];
    return {this, [counts = m_counts, login, address](const void*) {
                const std::lock_guard ending(counts->mutex);
                GiveBack(counts->logins, login);
                GiveBack(counts->addresses, address);
            }};
}

std::optional<Answer> TakeShare(Shares& from, const Request& request, std::string_view login,
                                Counters& counters, Shares::Share* share) {
    *share = from.Take(std::string(login), request.peer.key);
    if (*share)
        return std::nullopt;
    counters.Refuse(Refusal::TooManyStreams);
    LogRefusal(request, login, {}, "has as many streams, or archives in work, as it may");
    Answer answer =
        Answer::Text(429, "This login, or this address, has as many of these at a time as it may.");
    answer.headers.emplace("Retry-After", "5");
    return answer;
}

} // namespace host
