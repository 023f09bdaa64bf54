#include "host/preferences/store.h"

#include <filesystem>
#include <random>
#include <utility>

#include "host/base/damaged_copy.h"
#include "host/base/start_error.h"
#include "host/log/console.h"
#include "host/preferences/document.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace host {
namespace {

Preferences ReadPreferencesFile(const std::string& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error) || std::filesystem::file_size(file, error) == 0)
        return {};
    // A file that cannot be read is not damaged, and a start without it would end in its loss.
    const auto content = platform::ReadWholeFile(file);
    if (!content)
        throw StartError("the file " + file + " cannot be read: " + platform::DescribeLastError());
    const Preferences usual;
    auto read = PreferencesIn(*content, usual, true);
    if (read && read->problems.empty())
        return std::move(read->preferences);
    Console& console = Console::Get();
    console.Say("The file of the preferences is damaged: starting with what can be read. It is kept as " +
                KeepDamagedCopy(file, *content));
    if (!read) {
        console.Log("error", "preferences: nothing of it can be read: it is no document of preferences");
        return usual;
    }
    for (const SettingsProblem& problem : read->problems)
        console.Log("error", "preferences: " + Printable(problem.path) + ": " + problem.text);
    return std::move(read->preferences);
}

} // namespace

std::string PreferenceStore::FileBeside(const std::string& settingsFile) {
    return std::filesystem::path(settingsFile).replace_filename("Preferences.xml").string();
}

PreferenceStore::PreferenceStore(std::string file)
    : m_file(std::move(file)), m_run(std::to_string(std::random_device{}())),
      m_now(std::make_shared<const Preferences>(ReadPreferencesFile(m_file))) {
    for (const auto& [camera, preferences] : m_now->cameras)
        m_cameras.push_back(camera);
}

std::shared_ptr<const Preferences> PreferenceStore::Now() const {
    const std::lock_guard guard(m_nowMutex);
    return m_now;
}

std::string PreferenceStore::Version() const {
    return "\"" + m_run + "-" + std::to_string(m_number) + "\"";
}

PreferenceReading PreferenceStore::ReadingNow() const {
    return {DocumentOf(*Now(), m_cameras, Secrets::Concealed), Version()};
}

PreferenceReading PreferenceStore::Read() const {
    const std::lock_guard guard(m_mutex);
    return ReadingNow();
}

void PreferenceStore::TakeOver(Preferences now) {
    const auto next = std::make_shared<const Preferences>(std::move(now));
    const auto former = Now();
    ++m_number;
    {
        const std::lock_guard guard(m_nowMutex);
        m_now = next;
    }
    for (const Listener& listener : m_listeners)
        listener(*former, *next);
}

void PreferenceStore::Follow(const std::vector<std::string>& cameras) {
    const std::lock_guard guard(m_mutex);
    Preferences now = *Now();
    std::map<std::string, CameraPreferences, std::less<>> followed;
    for (const std::string& camera : cameras)
        followed.insert_or_assign(camera, now.Of(camera));
    now.cameras = std::move(followed);
    const bool same = now == *Now();
    if (m_cameras != cameras) {
        m_cameras = cameras;
        ++m_number;
    }
    if (!same)
        TakeOver(std::move(now));
}

bool PreferenceStore::Save() {
    m_written = SUCCEEDED(platform::ReplaceFile(m_file, DocumentOf(*Now(), m_cameras, Secrets::Clear), 0600));
    return m_written;
}

PreferenceChange PreferenceStore::Write(std::string_view xml, std::string_view version) {
    using enum PreferenceChange::Result;
    const std::lock_guard guard(m_mutex);
    if (!version.empty() && version != Version())
        return {Outdated, false, {}, {}};
    const auto present = Now();
    auto read = PreferencesIn(xml, *present, false);
    if (!read)
        return {NoDocument, false, {}, {}};
    if (!read->problems.empty())
        return {Unsound, false, std::move(read->problems), {}};
    const bool same = read->preferences == *present;
    if (!same) {
        TakeOver(std::move(read->preferences));
        (void)Save();
    }
    return {m_written ? Done : NotWritten, same, {}, ReadingNow()};
}

bool PreferenceStore::WriteWhatIsLeft() {
    const std::lock_guard guard(m_mutex);
    if (m_written)
        return true;
    if (Save())
        Console::Get().Log("message", "the preferences are written to disk now");
    return m_written;
}

} // namespace host
