// Answers the settings page.
//
// Refusals are JSON: {"text":...,"problems":[{"path":...,"key":...,"text":...}]}.
#pragma once

#include <string>
#include <string_view>

#include "host/events/event_log.h"
#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/preferences/store.h"
#include "host/settings/settings.h"
#include "host/tls/certificates.h"
#include "host/users/authenticator.h"

namespace host {

struct SettingsPages {
    Settings& settings;
    EventLog& events;
    PreferenceStore& preferences;
    const std::string language;       // the code of the one that the server speaks since its start
    const std::string pageToken;      // for the pages that send changes
    const Certificates* certificates; // null: TLS is not spoken

    // /settings/state: JSON with the token that changes need, the languages, and what
    // devices that come to trust this server are compared with.
    [[nodiscard]] Answer State() const;
    // /settings/document: the settings document, passwords concealed; its version is the ETag.
    [[nodiscard]] Answer Document() const;
    // Takes an edited document in place of the version in If-Match and answers with the settings as they are
    // then.
    [[nodiscard]] Answer PutDocument(const Request& request, const SignIn& by, std::string_view body) const;
    // /settings/preferences: the same of the host's own settings.
    [[nodiscard]] Answer Preferences() const;
    [[nodiscard]] Answer PutPreferences(const Request& request, const SignIn& by,
                                        std::string_view body) const;
    // /settings/secret?number=N: the password behind mark N of the version in If-Match.
    [[nodiscard]] Answer Secret(const Request& request) const;
    // /settings/language: the code of the language from the next start on.
    [[nodiscard]] Answer PutLanguage(const Request& request, const SignIn& by, std::string_view body) const;
};

} // namespace host
