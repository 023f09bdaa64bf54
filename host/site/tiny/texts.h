// What the small pages say, in every language of the server.
#pragma once

#include <array>
#include <string_view>

namespace host {

struct TinyTexts {
    std::string_view language; // its code
    std::string_view title;
    std::string_view nothing; // no camera to watch
    std::string_view back;    // to the list
    std::string_view every;   // "Refresh, seconds:"
    std::string_view size;
    std::string_view noPicture;
    std::string_view unknown; // there is no such camera
};

inline constexpr std::size_t kTinyLanguages = 7;
// The codes, in the order of the texts. English is the first.
const std::array<std::string_view, kTinyLanguages>& TinyLanguageCodes() noexcept;
// Those of a language; English for one that there are no texts in.
const TinyTexts& TinyTextsOf(std::string_view language) noexcept;

} // namespace host
