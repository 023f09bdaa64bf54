// Makes a personal midlet archive: a template with a manifest for one request.
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

// Gives the bytes of the finished archive. Of the query, "JarName", "login" and "password" are read; a
// missing one counts as empty. `host` goes into the manifest; szFormat is that of BuildManifest.
//
// Gives nothing, and logs one line, for:
//   - a JarName that is no plain file name: with a separator or a control character, a leading "-" or ".", or
//     over 100 code units; a login or password with a control character, which no request can carry back and
//     which would make lines of its own in a manifest. Refused before anything is written.
//   - a file that cannot be written, an archive tool that cannot be started or that does not end within ten
//     seconds. Files that were written stay until the next build overwrites them, or the process ends.
// An archive that cannot be read at the end is not reported. A tool that ends without having done its work
// leaves the template's own manifest, and that archive comes back.
//
// The files in the temporary folder have the same names in each build, so the caller lets one build run at a
// time.
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
