// The component's settings, read and changed one call behind the other.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "interfaces/IConfiguration.h"
#include "kit/settings/document.h"
#include "platform/com.h"

namespace capi {

// Operations throw Failure. Any thread; m_mutex is held while the component is called, which takes its own
// locks.
class Settings {
public:
    // `file` is the component's: it is looked at only, to see whether a change was written. Throws Failure
    // for one that the component does not serve as it stands: the first change would overwrite what is left
    // out.
    Settings(platform::ComPtr<IConfiguration> configuration, std::string file);

    [[nodiscard]] std::string Text();
    [[nodiscard]] std::vector<kit::CameraEntry> Cameras();
    // Takes a document in place of the settings: all of it or, with MORROW_INVALID, nothing.
    void Set(std::string_view xml);
    // The same for a change of the present ones.
    void Edit(const std::function<void(kit::SettingsDocument&)>& edit);
    // Waits for nothing but a change of this table.
    [[nodiscard]] std::optional<std::string> PasswordOf(const std::string& camera) const;
    // An answer of the component besides: the archives.
    std::string Content(const std::string& path);
    // Nothing can be read or changed from here on.
    void Forget();

private:
    // With m_mutex held.
    kit::SettingsDocument Present();
    void Hand(const kit::SettingsDocument& document, const kit::SettingsDocument& former);
    void Adopt(const std::vector<kit::CameraEntry>& cameras);

    const std::string m_file;
    std::mutex m_mutex; // the next line, and one change at a time
    platform::ComPtr<IConfiguration> m_configuration;
    mutable std::mutex m_passwordMutex; // the next line; nothing is called under it
    std::map<std::string, std::string> m_passwords;
};

// A name from outside, of a camera or a source. Throws Failure.
std::string NameOf(const char* name, const char* what);

} // namespace capi
