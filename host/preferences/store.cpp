#include "host/preferences/store.h"

#include <filesystem>
#include <random>
#include <utility>

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
    Preferences usual;
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
    const bool founded = IsFounded();
    // Another host may have set a camera that is new here already.
    const Preferences known = founded ? PreferencesFrom(m_shared->ValuesNow(), now) : now;
    std::map<std::string, CameraPreferences, std::less<>> followed;
    for (const std::string& camera : cameras)
        followed.insert_or_assign(camera, known.Of(camera));
    for (const auto& [camera, preferences] : now.cameras) {
        if (founded && !followed.contains(camera))
            m_left.push_back(camera);
    }
    now.cameras = std::move(followed);
    const bool same = now == *Now();
    if (m_cameras != cameras) {
        m_cameras = cameras;
        ++m_number;
    }
    if (!same)
        TakeOver(std::move(now));
}

void PreferenceStore::Share(std::shared_ptr<Store> store) {
    const std::lock_guard guard(m_mutex);
    m_shared.emplace(std::move(store));
}

bool PreferenceStore::IsFounded() const {
    return m_joined && m_shared && m_shared->Now().contains(PreferenceKey(""));
}

std::vector<std::string> PreferenceStore::Join(Joining how, PreferenceChange* change) {
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
    *change = {PreferenceChange::Result::Unshared, false, {}, {}};
    if (!m_shared || !m_shared->IsRead())
        return {};
    (void)m_shared->Refresh();
    const StoreMirror::Values here = PreferenceValues(*Now());
    const StoreMirror::Values there = m_shared->ValuesNow();
    const bool fresh = here == PreferenceValues(Preferences());
    if (!fresh && !there.empty() && how == Joining::Refuse) {
        auto differences = PreferenceDifferences(here, there);
        if (!differences.empty())
            return differences;
    }
    if (how == Joining::Merge) {
        std::string why;
        if (!m_shared->Add(lock, here, &why)) {
            Console::Get().Log("error", why);
            return {};
        }
    }
    m_joined = true;
    if (TakeShared())
        *change = {
            m_written ? PreferenceChange::Result::Done : PreferenceChange::Result::NotWritten, false, {}, {}};
    return {};
}

void PreferenceStore::FollowOthers() {
    const std::unique_lock changing(m_changing, std::try_to_lock);
    if (!changing)
        return;
    std::unique_lock lock(m_mutex, std::try_to_lock);
    if (!lock || !m_shared || !m_shared->IsRead())
        return;
    m_joined = true; // who could not join at the start has done so before that
    const bool others = !m_shared->Refresh().empty();
    StoreMirror::Values known;
    for (const std::string& camera : std::exchange(m_left, {})) {
        const auto found = m_shared->Now().find(PreferenceKey(camera));
        if (found != m_shared->Now().end() && !Now()->cameras.contains(camera))
            known.emplace(found->first, found->second.value);
    }
    if (!known.empty())
        (void)Put(lock, m_shared->ChangesBetween(known, {}));
    else if (others)
        (void)TakeShared();
}

PreferenceChange PreferenceStore::Put(std::unique_lock<std::mutex>& lock,
                                      const std::vector<Store::Change>& changes) {
    using enum PreferenceChange::Result;
    const auto store = m_shared->Source();
    lock.unlock();
    const auto outcomes = store->Write(changes);
    lock.lock();
    (void)m_shared->Settle(changes, outcomes);
    PreferenceChange change;
    bool reached = true;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        if (outcomes[i].result == Store::Result::Done)
            continue;
        change.conflicts.push_back(PreferenceCamera(changes[i].key));
        if (outcomes[i].result == Store::Result::Conflict)
            continue;
        if (reached)
            Console::Get().Log("error", outcomes[i].why);
        reached = false;
    }
    if (!TakeShared() || (!reached && change.conflicts.size() == changes.size()))
        change.result = Unshared;
    else if (!changes.empty() && change.conflicts.size() == changes.size())
        change.result = Outdated;
    else
        change.result = m_written ? Done : NotWritten;
    change.now = ReadingNow();
    return change;
}

bool PreferenceStore::TakeShared() {
    // Of a store that was lost nothing is taken over.
    if (!IsFounded())
        return false;
    Preferences next = PreferencesFrom(m_shared->ValuesNow(), *Now());
    std::map<std::string, CameraPreferences, std::less<>> followed;
    for (const std::string& camera : m_cameras)
        followed.insert_or_assign(camera, next.Of(camera));
    next.cameras = std::move(followed);
    if (next == *Now())
        return true;
    TakeOver(std::move(next));
    (void)Save();
    return true;
}

bool PreferenceStore::Save() {
    m_written = SUCCEEDED(platform::ReplaceFile(m_file, DocumentOf(*Now(), m_cameras, Secrets::Clear), 0600));
    return m_written;
}

PreferenceChange PreferenceStore::Write(std::string_view xml, std::string_view version) {
    using enum PreferenceChange::Result;
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
    if (!version.empty() && version != Version())
        return {Outdated, false, {}, {}};
    const auto present = Now();
    auto read = PreferencesIn(xml, *present, false);
    if (!read)
        return {NoDocument, false, {}, {}};
    if (!read->problems.empty())
        return {Unsound, false, std::move(read->problems), {}};
    const bool same = read->preferences == *present;
    if (!same && m_shared) {
        if (!IsFounded())
            return {Unshared, false, {}, {}};
        return Put(lock,
                   m_shared->ChangesBetween(PreferenceValues(*present), PreferenceValues(read->preferences)));
    }
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
