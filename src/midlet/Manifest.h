// The manifest of a personal midlet archive: all that a phone must know, since nothing is set up on it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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
