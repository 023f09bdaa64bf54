// What is looked at before a parser sees a document. Private to this folder.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Can an XML document hold this text? Valid UTF-8 without control characters but tab, line feed and carriage
// return, and without U+FFFE and U+FFFF.
bool IsXmlText(std::string_view utf8) noexcept;

// Is it a name that an element or an attribute may have, with or without a prefix?
bool IsXmlName(std::string_view utf8) noexcept;

// The wide text in UTF-8; nothing when it is no text that XML can hold.
std::optional<std::string> XmlTextOf(std::u16string_view text);

// Walks once through a document in UTF-8 and says whether a parser may have it: within the limits of
// configdoc.h, text as above, no document type, no entity but the five of XML, only references to characters
// that XML can hold. What it does not look at is whether tags match; that is the parser's work.
bool IsHarmless(std::string_view document) noexcept;

} // namespace platform
