// The language of the server's texts, as it is configured for the next start.
//
// Any thread may call any of these.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/status.h"

namespace kit {

struct Language {
    std::string code; // "ru"
    std::string name; // "Русский"
};

// The languages that the component in this process has texts in.
std::vector<Language> Languages();
// Their codes, for a message: "en, es, ...".
std::string LanguageCodes();

// Empty when none is configured, or one that there are no texts in; the texts are then English.
std::string ConfiguredLanguage();
// E_INVALIDARG for a language that there are no texts in; else the status of the registry.
HRESULT SetConfiguredLanguage(std::string_view code);

// Text of one byte a character is taken for that of the configured language from here on; without one, it
// stays as it is.
void ApplyConfiguredLanguage();

} // namespace kit
