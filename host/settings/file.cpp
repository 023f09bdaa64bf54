#include "host/settings/file.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "host/base/start_error.h"
#include "host/log/console.h"
#include "host/settings/document.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/text.h"

namespace host {
namespace {

// A file can be damaged in as many places as it has cameras.
constexpr std::size_t kMostLines = 20;

// Empty when all of the file is served.
std::vector<std::string> FindLost(const std::string& file, const SettingsDocument& served) {
    const auto document = SettingsDocument::Read(file);
    if (!document)
        return {"nothing of it can be read: it is no well-formed document"};
    std::vector<std::string> lost;
    for (const SettingsProblem& problem : FindUnreadable(*document, served))
        lost.push_back(problem.path + ": " + problem.text);
    const auto cameras = served.Cameras();
    for (const CameraEntry& camera : document->Cameras()) {
        if (!camera.name.empty() && std::ranges::find(cameras, camera) == cameras.end())
            lost.push_back("the camera \"" + camera.name + "\" is not served as it stands there");
    }
    if (const auto host = document->Host(); host && host != served.Host())
        lost.push_back("the host address \"" + *host + "\" is not served");
    if (lost.size() > kMostLines) {
        const std::string more = "and " + std::to_string(lost.size() - kMostLines) + " more";
        lost.resize(kMostLines);
        lost.push_back(more);
    }
    return lost;
}

} // namespace

std::optional<DamagedSettings> KeepIfDamaged(const std::string& file, const SettingsDocument& served) {
    std::error_code error;
    if (!std::filesystem::exists(file, error) || std::filesystem::file_size(file, error) == 0)
        return std::nullopt;
    // A file that cannot be read is not damaged, and a start without it would end in its loss.
    const auto content = platform::ReadWholeFile(file);
    if (!content)
        throw StartError("the settings file " + file + " cannot be read: " + platform::DescribeLastError());
    std::vector<std::string> lost = FindLost(file, served);
    if (lost.empty())
        return std::nullopt;
    return DamagedSettings{KeepDamagedCopy(file, *content), std::move(lost)};
}

PhoneAddress::PhoneAddress(std::string file) : m_file(std::move(file)) {
    std::istringstream lines(platform::ReadWholeFile(m_file).value_or(""));
    for (std::string line; std::getline(lines, line);)
        m_entered.push_back(line);
}

bool PhoneAddress::EnterInto(SettingsDocument& document) {
    const std::string stands = document.Host().value_or("");
    const bool ours = stands.empty() || IsOwn(stands);
    if (m_own.empty() || !ours || stands == m_own)
        return false;
    // Before the settings are stored, and with the one that stands there still: whatever a crash leaves
    // behind is known for the host's own.
    Remember(stands.empty() ? std::vector{m_own} : std::vector{m_own, stands});
    document.SetHost(m_own);
    return true;
}

bool PhoneAddress::IsOwn(const std::string& address) const {
    return std::ranges::find(m_entered, address) != m_entered.end();
}

void PhoneAddress::LetGo() {
    if (!m_entered.empty())
        Remember({});
}

void PhoneAddress::Remember(std::vector<std::string> entered) {
    m_entered = std::move(entered);
    m_written = false;
    if (!Save())
        Console::Get().Log("error", "cannot write " + m_file +
                                        ": a start before there is room takes the address that phones are "
                                        "told for a person's");
}

bool PhoneAddress::Save() {
    if (m_written)
        return true;
    std::string content;
    for (const std::string& address : m_entered)
        content += address + "\n";
    m_written = SUCCEEDED(platform::ReplaceFile(m_file, content, 0600));
    return m_written;
}

} // namespace host
