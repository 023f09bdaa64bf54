// A personal midlet archive: a template with a manifest for one request.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"

// A request's query, ordered by code units of the keys.
using QueryMap = std::map<std::u16string, std::u16string, std::less<>>;

// The templates, resources of the type "JAR".
inline constexpr std::uint16_t kUploadMidlet = 201;
inline constexpr std::uint16_t kViewingMidlet = 206;

// The finished archive's bytes. Of the query, "JarName", "login" and "password" are read; what is missing is
// empty. `host` goes into the manifest; szFormat as for BuildManifest.
//
// Nothing comes back, and one line was reported, for:
//   - a JarName that is no plain file name: with a separator or a control character, a leading "-" or ".", or
//     over 100 code units; a login or password with a control character, which no request can carry back and
//     which would make lines of its own in a manifest. Refused before anything is written.
//   - a file that cannot be written, the archive tool that cannot be started or does not end within 10
//   seconds.
//     What was written stays until the next build overwrites it, or the process ends.
// An archive that cannot be read at the end is not reported. A tool that ends without having done its work
// leaves the template's own manifest, and that archive comes back.
//
// The files in the temporary folder have the same names in each build: one build at a time, which is the
// caller's to see to.
std::optional<std::string> MakeJar(std::uint16_t nResource, const QueryMap& params, std::u16string_view host,
                                   const char* szFormat);

// The longest command line, in UTF-16 code units.
inline constexpr std::size_t kCommandLineLimit = 259;

// Runs the program that a command line names, without a shell, and waits for it. S_OK when it ended in time,
// whatever it has to say about its work. Else a failure: 0x8007007A for a line over the limit, the system's
// error for a program that cannot be started, 0x80070102 for one that took longer. That one is ended, with
// all that it started: left alone, it could still write into the archive that the next build makes under the
// same name.
HRESULT RunProcess(std::u16string_view commandLine, std::uint32_t nTimeout, const std::string& strFolder);
