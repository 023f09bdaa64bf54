// The descriptor of a midlet's archive, which a phone reads before it fetches the archive itself.
#pragma once

#include <optional>
#include <string>

namespace host {

// The text of a .jad (MIDP 2.0, "MIDlet Suite Packaging") for an archive that will come from `url`: what the
// archive's manifest says of the suite, word for word, since a phone compares the two, and the archive's
// exact size. In UTF-8, lines end in CR LF. Nothing for bytes that are no archive with a manifest, or when
// the manifest does not tell what a descriptor must.
std::optional<std::string> DescribeArchive(const std::string& archive, const std::string& url);

} // namespace host
