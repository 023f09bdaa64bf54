#include "host/settings/document.h"

#include <charconv>
#include <optional>
#include <set>
#include <utility>

#include "host/log/console.h"

namespace host {
namespace {

constexpr std::string_view kAddressKey = "address";
constexpr std::string_view kCameraPrefix = "camera/";

// The length of the type, the type, the password.
std::string CameraValue(const CameraEntry& camera) {
    return std::to_string(camera.type.size()) + ':' + camera.type + camera.password;
}

std::optional<CameraEntry> CameraFromValue(std::string_view key, std::string_view value) {
    std::size_t length = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), length);
    const auto digits = static_cast<std::size_t>(end - value.data());
    if (!key.starts_with(kCameraPrefix) || error != std::errc{} || digits == value.size() ||
        value[digits] != ':' || length > value.size() - digits - 1)
        return std::nullopt;
    value.remove_prefix(digits + 1);
    return CameraEntry{SharedCamera(key), std::string(value.substr(0, length)),
                       std::string(value.substr(length))};
}

std::string DifferenceLine(std::string_view key, const std::string* here, const std::string* there) {
    if (key == kAddressKey)
        return "phones are told the address " +
               (there != nullptr ? "\"" + Printable(*there) + "\"" : "none") + " there, and " +
               (here != nullptr ? "\"" + Printable(*here) + "\"" : "none") + " here";
    const std::string camera = "the camera \"" + Printable(SharedCamera(key)) + "\"";
    if (here == nullptr)
        return camera + " is not here";
    if (there == nullptr)
        return camera + " is not there";
    const auto mine = CameraFromValue(key, *here);
    const auto theirs = CameraFromValue(key, *there);
    const bool type = mine && theirs && mine->type != theirs->type;
    const bool password = !mine || !theirs || mine->password != theirs->password;
    return camera + " has another " +
           (type && password ? "type and another password"
            : type           ? "type"
                             : "password") +
           " there";
}

} // namespace

std::string SharedCamera(std::string_view key) {
    return std::string(key.starts_with(kCameraPrefix) ? key.substr(kCameraPrefix.size()) : "");
}

StoreMirror::Values SharedValues(const kit::SettingsDocument& document) {
    StoreMirror::Values values;
    if (const auto address = document.Host(); address && !address->empty())
        values.emplace(kAddressKey, *address);
    for (const CameraEntry& camera : document.Cameras()) {
        std::string key = std::string(kCameraPrefix) + camera.name;
        if (!camera.name.empty() && key.size() <= Store::kMaxKeyBytes)
            values.emplace(std::move(key), CameraValue(camera)); // the first one of each name
    }
    return values;
}

void PutSharedValues(SettingsDocument& document, const StoreMirror::Values& values) {
    std::vector<CameraEntry> cameras;
    std::set<std::string, std::less<>> names;
    for (const auto& [key, value] : values) {
        if (auto camera = CameraFromValue(key, value)) {
            names.insert(camera->name);
            cameras.push_back(*std::move(camera));
        }
    }
    std::vector<CameraChange> gone;
    for (const CameraEntry& camera : document.Cameras()) {
        if (!names.contains(camera.name))
            gone.push_back({.name = camera.name, .remove = true});
    }
    (void)document.Apply(gone, [](const CameraChange&, bool) { return std::string(); });
    (void)document.PutAll(cameras);
    const auto address = values.find(kAddressKey);
    if (address != values.end() && document.Host() && document.Host() != address->second)
        document.SetHost(address->second);
}

std::vector<std::string> SharedDifferences(const StoreMirror::Values& here,
                                           const StoreMirror::Values& there) {
    std::vector<std::string> lines;
    StoreMirror::Values all = there;
    all.insert(here.begin(), here.end());
    for (const auto& [key, value] : all) {
        if (key != kAddressKey && !key.starts_with(kCameraPrefix))
            continue;
        const auto mine = here.find(key);
        const auto theirs = there.find(key);
        const std::string* const own = mine != here.end() ? &mine->second : nullptr;
        const std::string* const other = theirs != there.end() ? &theirs->second : nullptr;
        const bool differ = own == nullptr || other == nullptr || *own != *other;
        // Where nobody here has said an address, theirs is welcome.
        if (differ && (own != nullptr || key != kAddressKey))
            lines.push_back(DifferenceLine(key, own, other));
    }
    return lines;
}

} // namespace host
