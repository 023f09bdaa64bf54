// Keeps the host's preferences: in a file beside the component's settings, in force from the moment of a
// change.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/settings_problem.h"
#include "host/base/store_mirror.h"
#include "host/preferences/preferences.h"

namespace host {

struct PreferenceReading {
    std::string xml;     // UTF-8; passwords concealed
    std::string version; // changes with the preferences; of this run of the host
};

struct PreferenceChange {
    enum class Result {
        Done,
        NotWritten, // in force, but not on disk: the next start knows nothing of it
        Outdated,   // the preferences are not those that the change was made to any more
        Unshared,   // the store that hosts share could not be reached: nothing was changed
        NoDocument,
        Unsound // see `problems`: nothing of it was taken
    };
    Result result = Result::Done;
    bool same = false; // nothing was to be changed
    std::vector<SettingsProblem> problems{};
    PreferenceReading now{}; // with Done and NotWritten
    // With Done and NotWritten, where hosts share the preferences: cameras whose preferences another host has
    // changed at the same time, and are what that host wants; an empty name is what is no camera's.
    std::vector<std::string> conflicts{};
};

// Changes come one behind the other. Any thread, unless it says otherwise.
//
// Where hosts share the preferences, a change is put into the store first, camera by camera; the file
// follows.
//
// Locks: m_changing is held by who changes something, also while it waits for the store, and stands before
// m_mutex. m_mutex is held while a file is written and listeners are called; they may ask for Now, and must
// not change anything here. A second one guards the pointer that Now copies.
class PreferenceStore {
public:
    // Beside the component's settings file.
    static std::string FileBeside(const std::string& settingsFile);

    // Reads the file, which need not be there. What cannot be read of it has its default; the file is then
    // kept beside it (".damaged"), and that is said. Throws StartError when it cannot be read or kept.
    explicit PreferenceStore(std::string file);

    // Never null; what it points to does not change. Waits for nothing but the copy of a pointer.
    [[nodiscard]] std::shared_ptr<const Preferences> Now() const;

    // Called behind each change that is one, by the thread that makes it. Before there are several threads.
    using Listener = std::function<void(const Preferences& former, const Preferences& now)>;
    void Listen(Listener listener) { m_listeners.push_back(std::move(listener)); }

    // The cameras of the component's settings, in its order. One that is new has the defaults; one that is
    // gone leaves. Nothing of it has to be written by itself: the next start is told again.
    void Follow(const std::vector<std::string>& cameras);

    // The preferences are those of the store from now on; with what is told of it as Settings has it.
    void Share(std::shared_ptr<Store> store);
    std::vector<std::string> Join(Joining how, PreferenceChange* change);
    void FollowOthers();

    // The document for an editor.
    [[nodiscard]] PreferenceReading Read() const;
    // Takes a document that was read, edited, in place of the preferences of that version; of any version
    // where it is empty. What the document does not have stays as it is.
    PreferenceChange Write(std::string_view xml, std::string_view version);

    // Whether the last change is on disk.
    [[nodiscard]] bool IsWritten() const noexcept { return m_written; }
    // Tries again to write what could not be written. False while it cannot.
    bool WriteWhatIsLeft();

private:
    // With m_mutex held, all of them.
    void TakeOver(Preferences now);
    PreferenceChange Put(std::unique_lock<std::mutex>& lock, const std::vector<Store::Change>& changes);
    [[nodiscard]] bool TakeShared();
    [[nodiscard]] bool IsFounded() const;
    bool Save();
    [[nodiscard]] PreferenceReading ReadingNow() const;
    [[nodiscard]] std::string Version() const;

    const std::string m_file;
    const std::string m_run; // of a version: no other run of the host has the same
    std::vector<Listener> m_listeners;
    std::mutex m_changing;
    mutable std::mutex m_mutex; // everything below
    std::optional<StoreMirror> m_shared;
    bool m_joined = false;
    std::vector<std::string> m_left;    // cameras that are gone, and the store may know still
    std::vector<std::string> m_cameras; // in the order of the component's settings
    std::uint64_t m_number = 1;         // of the version
    std::atomic<bool> m_written{true};
    mutable std::mutex m_nowMutex; // the line below; nothing is called under it
    std::shared_ptr<const Preferences> m_now;
};

// --- As hosts share them ---
//
// Entries of a store: one for each camera that is set to something, and one for all that is no camera's.

StoreMirror::Values PreferenceValues(const Preferences& preferences);
// `present` with what stands in the values; of a camera that has none, the usual ones. A value of a newer
// host that means nothing here is passed over.
Preferences PreferencesFrom(const StoreMirror::Values& values, Preferences present);
// The key of a camera's, that of all that is no camera's for an empty name, and the camera of a key; empty
// for what is no camera's.
std::string PreferenceKey(std::string_view camera);
std::string PreferenceCamera(std::string_view key);
// A line for each key whose values differ, for a person.
std::vector<std::string> PreferenceDifferences(const StoreMirror::Values& here,
                                               const StoreMirror::Values& there);

} // namespace host
