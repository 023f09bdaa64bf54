// What a client would rather have.
#pragma once

#include <span>
#include <string_view>

namespace host {

// How much a client wants a media type, from the value of its Accept line (RFC 9110, 12.5.1): 1 at the most,
// 0 for one that it does not take. What names the type itself counts before "type/*", and that before "*/*".
// Without a line everything is welcome. Parts that make no sense are passed over.
double QualityOf(std::string_view accept, std::string_view type) noexcept;

// Whether a page goes out as HTML. Browsers ask for it by name; who takes anything (curl, a phone's midlet)
// gets the XML that the page is.
bool PrefersHtml(std::string_view accept) noexcept;

// The language among those (codes of two letters) that a client wants most, from the value of its
// Accept-Language line (RFC 9110, 12.5.4): "ru-RU" is Russian as well, "*" stands for `usual`, of equals the
// first one counts. `usual` where nothing fits.
std::string_view PreferredLanguage(std::string_view accept, std::span<const std::string_view> languages,
                                   std::string_view usual) noexcept;

} // namespace host
