// What the system knows of languages.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/export.h"

namespace platform {

// The abbreviated name of a language: its code in capitals, "ENU" for 1033. The language 0 has that of the
// system's default, which is English. Empty for a language that is not in the table.
MORROW_PLATFORM_API std::u16string_view AbbreviatedLanguageName(std::uint32_t languageId) noexcept;

// The two letters of ISO 639 of a language ("en" for 1033) and its own name for itself. Empty for a language
// that is not in the table.
MORROW_PLATFORM_API std::string_view LanguageCode(std::uint32_t languageId) noexcept;
MORROW_PLATFORM_API std::string_view LanguageName(std::uint32_t languageId) noexcept; // UTF-8

// The locale of the calling thread, which says in what manner numbers and dates are read and written. It is
// the system's default on a new thread, and no function of this layer goes by it: nothing here is written in
// the manner of a country.
inline constexpr std::uint32_t kLocaleSystemDefault = 2048;
MORROW_PLATFORM_API std::uint32_t ThreadLocale() noexcept;
MORROW_PLATFORM_API void SetThreadLocale(std::uint32_t locale) noexcept;

} // namespace platform
