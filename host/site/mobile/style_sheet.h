// Style sheets applied here, for browsers that do it no longer.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host {

// The address that a document names as its style sheet, from its first xml-stylesheet instruction of type
// text/xsl; empty where there is none.
std::string StyleSheetOf(std::string_view document);

// The document as the style sheet has it, in the sheet's own output form. Nothing when one of the two cannot
// be read or the transformation fails. Neither can reach a file or the network. Any thread.
std::optional<std::string> ApplyStyleSheet(const std::string& document, const std::string& styleSheet);

} // namespace host
