// The texts of a midlet in the server's language.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Common/Utils/LocalizeEx.h"
#include "platform/status.h"

// Appends a manifest line, "key: text", in UTF-8, for each text of a midlet's section in the language file of
// the configured language, or that of the system's default for language 0. There is no other language to fall
// back on. S_OK, or, with the manifest as it was and one line reported:
//   E_FAIL              no archive of language files; a file that cannot be unpacked or read; no such section
//   E_UNEXPECTED        the archive does not open
//   E_ELEMENT_NOT_FOUND it has no file for the language
// One thread at a time, since archives have one last status for the process.
HRESULT Localize(std::string& strManifest, std::string_view section,
                 std::uint32_t nLanguage = GetConfiguredLanguage());

// The name of a language's file from the abbreviated name of the language ("ENU" gives "gui.eng.ini").
std::u16string LanguageFileName(std::u16string_view abbreviation);
