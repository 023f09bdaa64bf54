// The settings document, as the host reads and changes it.
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

// Something in a document that the host cannot work with.
struct SettingsProblem {
    std::string path; // XPath of the element: "/config/cams/item[3]/Name"
    std::string key;  // a word of the page's own texts: "mustBeUnique"
    std::string text; // the same in English, for programs
};

// Belongs to one thread at a time. Operations throw std::runtime_error when the library refuses what it
// promises to do.
class SettingsDocument {
public:
    // Nothing for a text that is no document.
    static std::optional<SettingsDocument> Parse(std::u16string_view text);
    // Whether a file is a document of settings of which every camera can be read.
    static bool IsDocumentFile(const std::string& path);

    [[nodiscard]] std::u16string Text() const;

    // --- Passwords ---------------------------------------------------------------------------------------
    // They stay at home: in the document for a browser each one that is not empty is a row of dots with an
    // attribute `stored`, the number of the password. A document that comes back has the mark still where the
    // password is to stay as it was, also under another name.
    [[nodiscard]] std::vector<std::u16string> Passwords() const;
    void ConcealPasswords();
    // Undoes that with the passwords of the document that was concealed. False for a mark that is none of
    // these.
    bool RestorePasswords(const std::vector<std::u16string>& passwords);

    // --- Cameras -----------------------------------------------------------------------------------------
    [[nodiscard]] std::vector<CameraEntry> Cameras() const;
    // What the sign-in of a phone asks of names and passwords, and what would lose a camera.
    // `isTaken` tells which names cannot be signed in to.
    [[nodiscard]] std::vector<SettingsProblem>
    Check(const std::function<bool(std::string_view)>& isTaken) const;
    // Gives a camera its type and password; adds it, as a copy of what stands in `addcam`, when it is not
    // there. False when all was so already.
    bool Put(const CameraEntry& camera);
    // Removes a camera that is still exactly this one. False when there is none.
    bool RemoveIfSame(const CameraEntry& camera);
    // What phones are told as the server's address, "ADDR:PORT". False, and nothing done, when somebody has
    // said one already.
    bool OfferHost(std::string_view address);

private:
    using ElementPtr = platform::ComPtr<IConfigElement>;

    SettingsDocument(platform::ComPtr<IConfigDocument> document, ElementPtr root)
        : m_document(std::move(document)), m_root(std::move(root)) {}
    [[nodiscard]] std::vector<ElementPtr> Select(const char16_t* expression) const;
    // With what stands in it; null when there is no such camera.
    [[nodiscard]] ElementPtr FindCamera(std::string_view name, CameraEntry* found) const;

    platform::ComPtr<IConfigDocument> m_document;
    ElementPtr m_root;
};

} // namespace host
