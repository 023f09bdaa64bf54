// Keeps the host's preferences: in a file beside the component's settings, in force from the moment of a
// change.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/settings_problem.h"
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
        NoDocument,
        Unsound // see `problems`: nothing of it was taken
    };
    Result result = Result::Done;
    bool same = false; // nothing was to be changed
    std::vector<SettingsProblem> problems{};
    PreferenceReading now{}; // with Done and NotWritten
};

// Changes come one behind the other. Any thread, unless it says otherwise.
//
// Locks: m_mutex is held while a file is written and listeners are called; they may ask for Now, and must not
// change anything here. A second one guards the pointer that Now copies.
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
    bool Save();
    [[nodiscard]] PreferenceReading ReadingNow() const;
    [[nodiscard]] std::string Version() const;

    const std::string m_file;
    const std::string m_run; // of a version: no other run of the host has the same
    std::vector<Listener> m_listeners;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_cameras; // in the order of the component's settings
    std::uint64_t m_number = 1;         // of the version
    std::atomic<bool> m_written{true};
    mutable std::mutex m_nowMutex; // the line below; nothing is called under it
    std::shared_ptr<const Preferences> m_now;
};

} // namespace host
