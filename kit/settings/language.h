// The language of the server's texts, as it is configured for the next start.
//
// Any thread may call any of these.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kit/export.h"
#include "platform/status.h"

namespace kit {

struct Language {
    std::string code; // "ru"
    std::string name; // "Русский"
};

// The languages that the component in this process has texts in.
MORROW_KIT_API std::vector<Language> Languages();
// Their codes, for a message: "en, es, ...".
MORROW_KIT_API std::string LanguageCodes();

// Empty when none is configured, or one that there are no texts in; the texts are then English.
MORROW_KIT_API std::string ConfiguredLanguage();
// E_INVALIDARG for a language that there are no texts in; else the status of the registry.
MORROW_KIT_API HRESULT SetConfiguredLanguage(std::string_view code);

// Text of one byte a character is taken for that of the configured language from here on; without one, it
// stays as it is.
MORROW_KIT_API void ApplyConfiguredLanguage();

} // namespace kit
