// What a client would rather have.
#pragma once

#include <string_view>

namespace host {

// How much a client wants a media type, from the value of its Accept line (RFC 9110, 12.5.1): 1 at the most,
// 0 for one that it does not take. What names the type itself counts before "type/*", and that before "*/*".
// Without a line everything is welcome. Parts that make no sense are passed over.
double QualityOf(std::string_view accept, std::string_view type) noexcept;

// Whether a page goes out as HTML. Browsers ask for it by name; who takes anything (curl, a phone's midlet)
// gets the XML that the page is.
bool PrefersHtml(std::string_view accept) noexcept;

} // namespace host
