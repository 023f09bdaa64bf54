// The settings document, as the host reads, checks and changes it.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/users/cameras.h"
#include "platform/configdoc/configdoc.h"

namespace host {

// Something in a document that cannot be stored, or that a phone cannot use.
struct SettingsProblem {
    std::string path; // XPath of the element: "/config/cams/item[3]/Name"
    std::string key;  // a word of the page's own texts: "mustBeUnique"
    std::string text; // the same in English, for programs
};

// Belongs to one thread at a time. Operations throw std::runtime_error when the library refuses what it
// promises to do.
class SettingsDocument {
public:
    using ElementPtr = platform::ComPtr<IConfigElement>;

    // Nothing for a text that is no document.
    static std::optional<SettingsDocument> Parse(std::u16string_view text);
    // Nothing for a file that is none, or cannot be read.
    static std::optional<SettingsDocument> Read(const std::string& path);

    [[nodiscard]] std::u16string Text() const;
    [[nodiscard]] IConfigElement& Root() const { return *m_root; }

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

    // --- Cameras and the host's address ------------------------------------------------------------------
    [[nodiscard]] std::vector<CameraEntry> Cameras() const;
    // Gives a camera its type and password; adds it, as a copy of what stands in `addcam`, when it is not
    // there. False when all was so already.
    bool Put(const CameraEntry& camera);
    // Removes a camera that is still exactly this one. False when there is none.
    bool RemoveIfSame(const CameraEntry& camera);
    // The server's address as phones are told it, "ADDR:PORT"; nothing without such an element.
    [[nodiscard]] std::optional<std::string> Host() const;
    void SetHost(std::string_view address);

private:
    SettingsDocument(platform::ComPtr<IConfigDocument> document, ElementPtr root)
        : m_document(std::move(document)), m_root(std::move(root)) {}
    // With what stands in it; null when there is no such camera.
    [[nodiscard]] ElementPtr FindCamera(std::string_view name, CameraEntry* found) const;

    platform::ComPtr<IConfigDocument> m_document;
    ElementPtr m_root;
};

// An item of `cams`; empty texts for what it does not have.
CameraEntry ReadCamera(IConfigElement& item);

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

// --- Elements ---

// Selects by the expression; nodes that are no elements are left out.
std::vector<SettingsDocument::ElementPtr> SelectElements(IConfigElement& element, const char16_t* expression);
// The first of them; null without one.
SettingsDocument::ElementPtr ElementAt(IConfigElement& element, const char16_t* path);
std::u16string NameOf(IConfigNode& node);
std::u16string ValueOf(IConfigNode& node);
// Nothing without such an attribute.
std::optional<std::u16string> AttributeOf(IConfigElement& element, const char16_t* name);

} // namespace host
