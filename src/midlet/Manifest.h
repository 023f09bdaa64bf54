// The manifest of a personal midlet archive: all that a phone must know, since nothing is set up on it. The
// texts of its user interface come from a language file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Utils/LocalizeEx.h"
#include "platform/status.h"

// All texts are bytes in the calling thread's code page. The texts of the user interface are UTF-8 whatever
// that page is, so one manifest can hold two encodings.
struct SManifestValues {
    std::string strJarName;
    std::string strLogin;
    std::string strPassword; // stands in the manifest as it is
    std::string strHost;     // where phones connect to: host and port
    // The camera's picture size for an upload midlet, "320x240". Null makes it a viewing midlet, an empty
    // text does not.
    const char* szFormat = nullptr;
};

// Writes the manifest's lines, each ended by carriage return and line feed, in an order that does not depend
// on the values. A line can have any length; nothing is escaped or wrapped. Line ends and zero bytes in a
// value are left out, so that no value can add a line. If the texts of the user interface cannot be read,
// which Localize logs, the manifest has none of them.
std::string BuildManifest(const SManifestValues& oValues);

// Appends a manifest line, "key: text", in UTF-8, for each text of a midlet's section in the language file of
// the configured language, or that of the system's default for language 0. There is no other language to fall
// back on. S_OK, or, with the manifest as it was and one line reported:
//   E_FAIL              no archive of language files; a file that cannot be unpacked or read; no such section
//   E_UNEXPECTED        the archive does not open
//   E_ELEMENT_NOT_FOUND it has no file for the language
// One thread at a time, since archives have one last status for the process.
HRESULT Localize(std::string& strManifest, std::string_view section,
                 std::uint32_t nLanguage = GetConfiguredLanguage());

// A language file of the midlets: sections of keys with their texts.
//
//     [Sendora]
//     ; a comment, up to the end of its line
//     alert_ok=OK
//
// White space is blank, tab, carriage return and line feed. A text cannot hold "[", "]" or ";", and no part
// holds tabs or line ends: they are left out of names and keys, tabs of texts. Blanks stay everywhere but in
// front of a name or key.
struct CIniNode {
    std::string strName;
    std::string strValue;            // of a key
    std::vector<CIniNode> oChildren; // in the order of their first appearance

    // Finds the child with exactly that name, or appends one. The reference is valid until the next child is
    // appended.
    CIniNode& Child(std::string_view name);
};

// Holds the root; its children are the sections, and their children the keys.
class CIniTree {
public:
    // Fills the tree from a text, which ends at its first zero byte. A section or key that comes again goes
    // on the old one, a key with the new text. False for a text that does not begin with a section, or ends
    // within a section's name or a key; the tree then holds what came before.
    [[nodiscard]] bool LoadIni(std::string_view text);

    [[nodiscard]] CIniNode& Root() noexcept { return m_oRoot; }

private:
    CIniNode m_oRoot;
};
