// The settings over the web: the page, and what it asks for.
//
//   GET /settings                 the page
//   GET /settings/state           JSON: the token for the requests below, and the languages
//   GET /settings/document        the settings document, passwords concealed; its version is the ETag
//   PUT /settings/document        takes an edited document in place of the version in If-Match and
//                                 answers with the settings as they are then
//   GET /settings/secret?number=N the password behind mark N of the version in If-Match
//   PUT /settings/language        the code of the language from the next start on
//
// A browser sends the sign-in along with whatever a page of another site makes it ask for. So all but the
// page are refused to requests that come from elsewhere, and changes and passwords need the token, in
// X-Settings-Token, which only a page of this host can read.
//
// What went wrong is told in JSON: {"text":...,"problems":[{"path":...,"key":...,"text":...}]}.
#pragma once

#include <optional>
#include <string_view>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/services.h"

namespace host {

[[nodiscard]] bool IsSettingsPath(std::string_view path);
// Why a request of an administrator goes no further; asked before its body is read.
[[nodiscard]] std::optional<Answer> RefuseSettings(const Request& request, const Services& services);
// The rest, with the body.
[[nodiscard]] Answer SettingsAnswer(const Request& request, std::string_view body, const Services& services);

} // namespace host
