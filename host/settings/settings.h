// Reads and changes the settings of the component.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/feed/feed_table.h"
#include "host/settings/document.h"
#include "host/settings/file.h"
#include "host/users/authenticator.h"
#include "interfaces/IConfiguration.h"
#include "platform/com.h"

namespace host {

// A document for a browser: UTF-8, its passwords concealed.
struct SettingsReading {
    std::string xml;
    std::string version; // changes with the settings; of this run of the host
};

struct SettingsChange {
    enum class Result {
        Done,
        NotWritten, // in force, but not on disk: the next start knows nothing of it
        Outdated,   // the settings are not those that the change was made to any more
        Unshared,   // the store that hosts share could not be reached: nothing was changed
        NoDocument,
        Unsound, // see `problems`: it would be taken in part, or was, and the former settings are back
        Refused, // by the component, with `status`
        NotReady // there is no component
    };
    Result result = Result::NotReady;
    HRESULT status = S_OK;
    bool addressEntered = false; // the host's own, see SetOwnAddress
    std::vector<SettingsProblem> problems{};
    SettingsReading now{}; // with Done and NotWritten: the settings as the component has taken them
    std::vector<CameraEntry> cameras{}; // of ChangeCameras, with Done and NotWritten: as they are then
    // With Done and NotWritten, where hosts share the settings: cameras that another host has changed at the
    // same time. They are as that host wants them; an empty name is the address.
    std::vector<std::string> conflicts{};
};

// Changes come one behind the other. Any thread.
//
// Where hosts share the settings, the store has what holds: a change is put there first, camera by camera,
// and what comes of it is handed to the component, which writes its file; the file follows, as the last known
// state.
//
// Locks: m_changing is held by who changes something, also while it waits for the store, and stands before
// m_mutex. m_mutex is held while the component is called, which takes its own lock and calls the feeds, and
// while the listener is; none of these calls this object.
class Settings {
public:
    // Both outlive the object; the authenticator is told of every camera. `file` is the component's settings
    // file: it is looked at only, to see whether a change was written. Beside it, with ".address" behind its
    // name, stands which address in it is the host's own.
    Settings(Authenticator& authenticator, FeedTable& feeds, std::string file);

    // Called with the cameras' names, in the order of the settings, when they are read and behind each change
    // of them, under m_mutex. Before there are several threads.
    using CameraListener = std::function<void(const std::vector<std::string>& names)>;
    void Listen(CameraListener listener) { m_listener = std::move(listener); }

    // Null lets go of it; nothing can be read or changed then. Reads the cameras.
    void SetConfiguration(platform::ComPtr<IConfiguration> configuration);

    // The cameras and the address are those of the store from now on. Before there are several threads, and
    // with the component.
    void Share(std::shared_ptr<Store> store);
    // Whether the store has told what is in it.
    [[nodiscard]] bool IsShared();
    // Whether a store has settings of somebody.
    [[nodiscard]] static bool IsFounded(const StoreMirror& store);
    // Behind that. A store that nobody has founded gets the settings as they are here with Merge alone, and a
    // host without cameras takes what is there. Otherwise returns what differs, a line each, where there is
    // something and it is not said what is to become of it: nothing has changed then. `change` tells whether
    // it went well.
    std::vector<std::string> Join(Joining how, SettingsChange* change);
    // Takes over what other hosts have changed since: to be called some times a second, so that what comes
    // together is one change of the component.
    void Follow();

    // Where phones reach this server. Every change from then on leaves an address in the settings: this one
    // where none stands, or one that the host entered while it listened elsewhere.
    void SetOwnAddress(std::string address);

    // Nothing when there is no component, or it gives no document.
    std::optional<SettingsReading> Read();
    // Takes a document that was read, edited, in place of the settings of that version.
    SettingsChange Write(std::string_view xml, std::string_view version);
    // The password behind a mark. Nothing for another version than the present one, or without such a mark.
    std::optional<std::string> Password(std::size_t number, std::string_view version);
    // Why the host should get no traffic, in a line; empty when all is well. Any thread; waits for nothing.
    [[nodiscard]] std::string Trouble() const;
    // What phones are told to connect to, "HOST" or "HOST:PORT". Any thread; waits for nothing.
    [[nodiscard]] std::string ToldHost() const;
    // Whether the last change is on disk. Any thread; waits for nothing.
    [[nodiscard]] bool IsWritten() const noexcept { return m_written; }
    // Tries again to write what could not be written: now and then, and at the end. False while it cannot.
    bool WriteWhatIsLeft();
    // The cameras as they are, with their passwords, and the version of the settings.
    struct CameraReading {
        std::vector<CameraEntry> cameras;
        std::string version;
    };
    std::optional<CameraReading> Cameras();
    // Carries out all of the changes as one, or none of them. `isMeant` is asked before, with what is to be
    // changed, and may say that it is Outdated; it calls nothing of this object. The problems tell the number
    // of the change. `now` has the version alone where nothing was to be changed.
    SettingsChange ChangeCameras(std::span<const CameraChange> changes,
                                 const std::function<bool(const CameraReading&)>& isMeant);
    // A change of the host's own. `edit` returns whether there is anything to store. What it puts there is
    // not checked.
    SettingsChange Edit(const std::function<bool(SettingsDocument&)>& edit);

private:
    // With m_mutex held, all of them.
    std::optional<std::u16string> Get();
    // Puts into the shared store what a document changes, without the lock, and takes what is in it then.
    SettingsChange Set(std::unique_lock<std::mutex>& lock, const SettingsDocument& document,
                       const SettingsDocument& former);
    SettingsChange Put(std::unique_lock<std::mutex>& lock, const std::vector<Store::Change>& changes,
                       const SettingsDocument* wanted = nullptr);
    // Hands over what is in the store; with the cameras in the order of `wanted`.
    SettingsChange TakeShared(const SettingsDocument* wanted = nullptr);
    // Hands a document over so that, whatever comes of it, all of it is in force or all of the former one.
    SettingsChange SetHere(const SettingsDocument& document, const SettingsDocument& former);
    // The settings as they are then; nothing when the component gives none.
    std::optional<SettingsDocument> PutBack(const SettingsDocument& former);
    // For a browser, with marks where no phone could sign in.
    SettingsReading ReadingOf(SettingsDocument document, const std::u16string& text);
    const std::string& VersionOf(const std::u16string& text);
    void Adopt(const SettingsDocument& document);
    [[nodiscard]] bool IsTaken(std::string_view name) const { return m_authenticator.IsTaken(name); }

    Authenticator& m_authenticator;
    FeedTable& m_feeds;
    CameraListener m_listener;
    const std::string m_file;
    const std::string m_run; // of a version: no other run of the host has the same
    std::mutex m_changing;
    std::mutex m_mutex; // everything below
    std::optional<StoreMirror> m_shared;
    bool m_owed = false; // what came of others is to be taken over once more
    PhoneAddress m_address;
    std::atomic<bool> m_there{false};  // there is a component
    std::atomic<bool> m_written{true}; // the last change is on disk
    platform::ComPtr<IConfiguration> m_configuration;
    std::u16string m_text; // as it was last seen
    std::uint64_t m_number = 0;
    std::string m_version;
    mutable std::mutex m_hostMutex; // the line below; nothing is called under it
    std::string m_toldHost;
};

} // namespace host
