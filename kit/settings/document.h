// The settings of the component: the document that it keeps them in, and the way in and out.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "interfaces/IConfiguration.h"
#include "kit/export.h"
#include "platform/com.h"
#include "platform/configdoc/configdoc.h"
#include "platform/status.h"

namespace kit {

struct CameraEntry {
    std::string name; // UTF-8, like the others; also the login of the camera's phone
    std::string type; // "320x240" or "160x120"
    std::string password;
    friend bool operator==(const CameraEntry&, const CameraEntry&) = default;
};

// docs/configuration.md has the document's form. Belongs to one thread at a time. Operations throw
// std::runtime_error when the library refuses what it promises to do.
class MORROW_KIT_API SettingsDocument {
public:
    using ElementPtr = platform::ComPtr<IConfigElement>;

    // Nothing for a text that is no document.
    static std::optional<SettingsDocument> Parse(std::u16string_view text);
    // Nothing for a file that is none, or cannot be read.
    static std::optional<SettingsDocument> Read(const std::string& path);

    [[nodiscard]] std::u16string Text() const;
    [[nodiscard]] IConfigElement& Root() const { return *m_root; }

    [[nodiscard]] std::vector<CameraEntry> Cameras() const;
    // Nothing when there is no camera of that name.
    [[nodiscard]] std::optional<CameraEntry> Camera(std::string_view name) const;
    // Gives a camera its type and password; adds it, as a copy of what stands in `addcam`, when it is not
    // there. False when all was so already.
    bool Put(const CameraEntry& camera);
    // The same for each of them, with one look at what is there: for thousands of cameras.
    bool PutAll(std::span<const CameraEntry> cameras);
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
MORROW_KIT_API CameraEntry ReadCamera(IConfigElement& item);

// --- The component's settings ---

// Where the component keeps them below the common data folder. The file's folder must be there.
MORROW_KIT_API std::string SettingsFile(const std::string& commonData);

// The document as it stands; nothing when the component gives none.
MORROW_KIT_API std::optional<std::u16string> GetSettings(IConfiguration& configuration);
// Hands a document over. The answer, which is the settings as they are then, comes in `now`. The status and
// what it says of the settings are those of IConfiguration::SetContent.
MORROW_KIT_API HRESULT SetSettings(IConfiguration& configuration, std::u16string_view document,
                                   std::u16string* now);

// --- Elements ---

// Selects by the expression; nodes that are no elements are left out.
MORROW_KIT_API std::vector<SettingsDocument::ElementPtr> SelectElements(IConfigElement& element,
                                                                        const char16_t* expression);
// The first of them; null without one.
MORROW_KIT_API SettingsDocument::ElementPtr ElementAt(IConfigElement& element, const char16_t* path);
MORROW_KIT_API std::u16string NameOf(IConfigNode& node);
MORROW_KIT_API std::u16string ValueOf(IConfigNode& node);
MORROW_KIT_API void SetValue(IConfigNode& node, std::u16string_view value);
// Nothing without such an attribute.
MORROW_KIT_API std::optional<std::u16string> AttributeOf(IConfigElement& element, const char16_t* name);
MORROW_KIT_API void SetAttribute(IConfigElement& element, const char16_t* name, std::u16string_view value);

} // namespace kit
