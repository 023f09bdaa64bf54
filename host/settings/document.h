// The settings document, as the host reads, checks and changes it.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/settings_problem.h"
#include "host/base/store_mirror.h"
#include "host/users/cameras.h"
#include "kit/settings/document.h"
#include "platform/configdoc/configdoc.h"

namespace host {

using kit::AttributeOf;
using kit::ElementAt;
using kit::NameOf;
using kit::ReadCamera;
using kit::SelectElements;
using kit::ValueOf;

// What is to become of one camera.
struct CameraChange {
    std::string name;
    bool remove = false;
    // What is not given stays as it is; a new camera has the usual type and no password.
    std::optional<std::string> type{};
    std::optional<std::string> password{};
};

// With what an editor in a browser needs besides. Threads and failures are those of its base.
class SettingsDocument : public kit::SettingsDocument {
public:
    // Nothing for a text that is no document.
    static std::optional<SettingsDocument> Parse(std::u16string_view text);
    // Nothing for a file that is none, or cannot be read.
    static std::optional<SettingsDocument> Read(const std::string& path);

    // --- Passwords ---------------------------------------------------------------------------------------
    // They stay at home: in the document for a browser each one that is not empty is a row of dots with an
    // attribute `stored`, the number of the password. A document that comes back has the mark still where the
    // password is to stay as it was, also under another name.
    [[nodiscard]] std::vector<std::u16string> Passwords() const;
    void ConcealPasswords();
    // Undoes that with the passwords of the document that was concealed. False for a mark that is none of
    // these.
    bool RestorePasswords(const std::vector<std::u16string>& passwords);
    // Whether a camera has such a mark.
    static bool IsMarked(IConfigElement& item);
    // Gives each element concerned an attribute `kept` with the key of what is wrong, for a page to show.
    void Mark(const std::vector<SettingsProblem>& problems);

    // Carries out changes in their order. What cannot be done (a camera to remove is not there) and what
    // `check(camera, isNew)` has words against is left out and told, with the number of the change in the
    // path:
    // "/changes/3".
    std::vector<SettingsProblem>
    Apply(std::span<const CameraChange> changes,
          const std::function<std::string(const CameraChange& change, bool isNew)>& check);

private:
    explicit SettingsDocument(kit::SettingsDocument document) : kit::SettingsDocument(std::move(document)) {}
};

// --- Checks before a document is handed over ---
//
// The component takes of a document what it can read, and leaves out the rest without a word.

// Finds what the component would not read as it stands there: another root, a list with another key, values
// without their type or in pieces, elements that it does not know, names that are missing or stand there
// twice. `served` is a document that the component gave: its elements, and its pattern of a new camera, are
// what there is to know.
std::vector<SettingsProblem> FindUnreadable(const SettingsDocument& document, const SettingsDocument& served);

// Finds names and passwords that no phone could sign in with. `isTaken` tells which names cannot be signed in
// to. A value that stands in `present` already is somebody's, and stays.
std::vector<SettingsProblem> FindUnusable(const SettingsDocument& document, const SettingsDocument* present,
                                          const std::function<bool(std::string_view)>& isTaken);

// Finds where `taken`, which the component gave, differs from what it was given. A part that `given` does not
// have stays as it was and is not looked at.
std::vector<SettingsProblem> FindDifferences(const SettingsDocument& given, const SettingsDocument& taken);

// --- As hosts share them ---
//
// Entries of a store: one for each camera, and one for the address that phones are told.

// Of what there is in a document. A name that cannot be a key has none.
StoreMirror::Values SharedValues(const kit::SettingsDocument& document);
// Gives the document these values: cameras that have none leave, an address without one stays. Values that
// cannot be read are passed over.
void PutSharedValues(SettingsDocument& document, const StoreMirror::Values& values);
// The camera that a key is of; empty for the address.
std::string SharedCamera(std::string_view key);

// A line for each key whose values differ, for a person: "the camera \"yard\" has another password there".
// What differs in a password is not told.
std::vector<std::string> SharedDifferences(const StoreMirror::Values& here, const StoreMirror::Values& there);

} // namespace host
