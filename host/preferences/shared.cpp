#include "host/preferences/store.h"

#include <optional>

#include "host/log/console.h"
#include "host/preferences/values.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::string_view kGeneralKey = "general";
constexpr std::string_view kPreferencesPrefix = "camera/";

// A line for each value: its place in the document, a tab, its text, which has no line ends.
struct WriteLines {
    std::string& text;
    template <class Value>
    void operator()(const char16_t* path, const Value& value) const {
        text += platform::ToUtf8(path) + '\t' + TextOfValue(value) + '\n';
    }
};

struct ReadLines {
    std::string_view text;
    template <class Value>
    void operator()(const char16_t* path, Value& value) const {
        const std::string begins = platform::ToUtf8(path) + '\t';
        for (std::string_view rest = text; !rest.empty();) {
            const auto end = std::min(rest.find('\n'), rest.size());
            const std::string_view line = rest.substr(0, end);
            if (line.starts_with(begins))
                (void)ValueFromText(line.substr(begins.size()), value);
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
};

} // namespace

std::string PreferenceKey(std::string_view camera) {
    return camera.empty() ? std::string(kGeneralKey) : std::string(kPreferencesPrefix).append(camera);
}

std::string PreferenceCamera(std::string_view key) {
    return std::string(key.starts_with(kPreferencesPrefix) ? key.substr(kPreferencesPrefix.size()) : "");
}

StoreMirror::Values PreferenceValues(const Preferences& preferences) {
    StoreMirror::Values values;
    VisitGeneral(preferences, WriteLines{values[std::string(kGeneralKey)]});
    for (const auto& [name, camera] : preferences.cameras) {
        if (camera != CameraPreferences() && !name.empty() &&
            name.size() + kPreferencesPrefix.size() <= Store::kMaxKeyBytes)
            VisitCamera(camera, WriteLines{values[PreferenceKey(name)]});
    }
    return values;
}

Preferences PreferencesFrom(const StoreMirror::Values& values, Preferences present) {
    if (const auto general = values.find(kGeneralKey); general != values.end())
        VisitGeneral(present, ReadLines{general->second});
    present.cameras.clear();
    for (const auto& [key, text] : values) {
        if (const std::string camera = PreferenceCamera(key); !camera.empty())
            VisitCamera(present.cameras[camera], ReadLines{text});
    }
    return present;
}

std::vector<std::string> PreferenceDifferences(const StoreMirror::Values& here,
                                               const StoreMirror::Values& there) {
    std::vector<std::string> lines;
    StoreMirror::Values all = there;
    all.insert(here.begin(), here.end());
    for (const auto& [key, value] : all) {
        const auto mine = here.find(key);
        const auto theirs = there.find(key);
        if (mine != here.end() && theirs != there.end() && mine->second == theirs->second)
            continue;
        const std::string camera = PreferenceCamera(key);
        lines.push_back(camera.empty()
                            ? "the preferences differ"
                            : "the preferences of the camera \"" + Printable(camera) + "\" differ");
    }
    return lines;
}

} // namespace host
