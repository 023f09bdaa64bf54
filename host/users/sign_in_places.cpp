#include "host/users/sign_in_places.h"

#include <functional>

#include "host/base/text_table.h"
#include "host/users/make_room.h"
#include "platform/files.h"

namespace host {

SignInPlaces::SignInPlaces(std::string path) : m_path(std::move(path)) {
    const auto content = m_path.empty() ? std::nullopt : platform::ReadWholeFile(m_path);
    if (!content)
        return;
    const Time now = Now();
    for (const TextLine& line : ReadTextTable(*content)) {
        if (line.fields.size() != 3)
            continue;
        const auto when = SecondsIn(line.fields[2]);
        if (when && *when <= now && now - *when < kKnownFor)
            m_places.insert_or_assign({line.fields[0], line.fields[1]}, *when);
    }
}

void SignInPlaces::Note(std::string_view login, std::string_view address, Time now) {
    const std::lock_guard guard(m_mutex);
    const std::pair key{std::string(login), std::string(address)};
    const auto found = m_places.find(key);
    if (found != m_places.end() && now - found->second < kExactness)
        return;
    if (found == m_places.end())
        MakeRoom(
            m_places, kMostPlaces, [now](const Time& when) { return now - when >= kKnownFor; },
            std::identity{});
    m_places.insert_or_assign(key, now);
    m_changed = true;
}

bool SignInPlaces::Knows(std::string_view login, std::string_view address, Time now) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_places.find({std::string(login), std::string(address)});
    return found != m_places.end() && now - found->second < kKnownFor;
}

bool SignInPlaces::Save() {
    std::string content = "# From where logins have signed in: login, address, Unix seconds.\n";
    {
        const std::lock_guard guard(m_mutex);
        if (!m_changed || m_path.empty())
            return true;
        for (const auto& [place, when] : m_places)
            content += place.first + '\t' + place.second + '\t' + SecondsOf(when) + '\n';
        m_changed = false;
    }
    // Outside the lock: a slow disk holds up no sign-in.
    const bool written = SUCCEEDED(platform::ReplaceFile(m_path, content, 0600));
    if (!written) {
        const std::lock_guard guard(m_mutex);
        m_changed = true;
    }
    return written;
}

} // namespace host
