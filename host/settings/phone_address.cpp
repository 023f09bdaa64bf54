#include "host/settings/phone_address.h"

#include <algorithm>
#include <sstream>

#include "host/log/console.h"
#include "platform/files.h"

namespace host {

PhoneAddress::PhoneAddress(std::string file) : m_file(std::move(file)) {
    std::istringstream lines(platform::ReadWholeFile(m_file).value_or(""));
    for (std::string line; std::getline(lines, line);)
        m_entered.push_back(line);
}

bool PhoneAddress::EnterInto(SettingsDocument& document) {
    const std::string stands = document.Host().value_or("");
    const bool ours = stands.empty() || std::ranges::find(m_entered, stands) != m_entered.end();
    if (m_own.empty() || !ours || stands == m_own)
        return false;
    // Before the settings are stored, and with the one that stands there still: whatever a crash leaves
    // behind is known for the host's own.
    Remember(stands.empty() ? std::vector{m_own} : std::vector{m_own, stands});
    document.SetHost(m_own);
    return true;
}

void PhoneAddress::LetGo() {
    if (!m_entered.empty())
        Remember({});
}

void PhoneAddress::Remember(std::vector<std::string> entered) {
    std::string content;
    for (const std::string& address : entered)
        content += address + "\n";
    if (FAILED(platform::ReplaceFile(m_file, content, 0600)))
        Console::Get().Log("error",
                           "cannot write " + m_file +
                               ": the next start takes the address that phones are told for a person's");
    m_entered = std::move(entered);
}

} // namespace host
