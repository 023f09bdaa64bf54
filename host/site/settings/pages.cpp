#include "host/site/settings/pages.h"

#include <charconv>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "host/http/request.h"
#include "host/log/console.h"
#include "kit/settings/language.h"
#include "platform/messages.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

Answer Told(unsigned status, std::string_view text, const std::vector<SettingsProblem>& problems = {}) {
    Json told{{"text", text}, {"problems", Json::array()}};
    for (const SettingsProblem& problem : problems)
        told["problems"].push_back({{"path", problem.path}, {"key", problem.key}, {"text", problem.text}});
    return Answer::Json(status, told);
}

Answer DocumentAnswer(std::string xml, std::string version) {
    Answer answer;
    answer.type = "text/xml; charset=utf-8";
    answer.headers["Cache-Control"] = "no-store";
    answer.headers["ETag"] = std::move(version);
    answer.body = std::move(xml);
    return answer;
}

void SayUnwritten(Answer& answer, std::string_view what) {
    Console::Get().Log("error", std::string(what) +
                                    " could not be written to disk; this is tried again every few seconds");
    answer.headers["X-Settings-Written"] = "no";
}

Answer NoVersion() {
    return Told(428, "Which version of the settings was edited? Send its ETag as If-Match.");
}

Answer Changed() {
    return Told(412, "The settings have been changed since this document was read.");
}

Answer NotShared() {
    return Told(503,
                "The other hosts of the cluster cannot be reached: nothing was changed. Try again later.");
}

// Cameras that another host has changed at the same time: all else stands.
void SayConflicts(Answer& answer, const std::vector<std::string>& cameras) {
    std::string names;
    for (const std::string& camera : cameras)
        names += (names.empty() ? "" : ",") + PercentEncode(camera);
    if (!cameras.empty())
        answer.headers["X-Settings-Conflicts"] = names;
}

} // namespace

Answer SettingsPages::State() const {
    Json choices = Json::array();
    for (const kit::Language& choice : kit::Languages())
        choices.push_back({{"code", choice.code}, {"name", choice.name}});
    Json trust;
    if (certificates != nullptr) {
        const auto authority = certificates->GetAuthority();
        trust = {{"fingerprint", authority.fingerprint},
                 {"own", !authority.certificate.empty()},
                 {"replaced", authority.replaced}};
    }
    return Answer::Json(200, {{"token", pageToken},
                              {"language",
                               {{"active", language.empty() ? "en" : language},
                                {"configured", kit::ConfiguredLanguage()},
                                {"choices", std::move(choices)}}},
                              {"trust", std::move(trust)},
                              {"written", settings.IsWritten() && preferences.IsWritten()}});
}

Answer SettingsPages::Document() const {
    auto reading = settings.Read();
    return reading ? DocumentAnswer(std::move(reading->xml), std::move(reading->version))
                   : Told(503, "The component gives no settings.");
}

Answer SettingsPages::Secret(const Request& request) const {
    std::string_view digits = request.query;
    constexpr std::string_view kName = "number=";
    std::size_t number = 0;
    if (digits.starts_with(kName))
        digits.remove_prefix(kName.size());
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc{} || end != digits.data() + digits.size())
        return Told(400, "The number of the password is missing.");
    const auto password = settings.Password(number, request.Field("If-Match"));
    if (!password)
        return Told(412, "The settings are not those any more that this password belongs to.");
    Answer answer;
    answer.headers["Cache-Control"] = "no-store";
    answer.body = *password;
    return answer;
}

Answer SettingsPages::PutDocument(const Request& request, const SignIn& by, std::string_view body) const {
    using enum SettingsChange::Result;
    const std::string_view version = request.Field("If-Match");
    if (version.empty())
        return NoVersion();
    SettingsChange change = settings.Write(body, version);
    switch (change.result) {
    case Outdated:
        return Changed();
    case NoDocument:
        return Told(400,
                    "This is no settings document: it is not well-formed, or has unknown password marks.");
    case Unsound:
        return Told(422, "Some values cannot be stored.", change.problems);
    case NotReady:
        return Told(503, "The component gives no settings.");
    case Unshared:
        return NotShared();
    case Refused:
        return Told(500,
                    "The component refuses these settings: " + platform::DescribeStatus(change.status) + ".");
    case Done:
    case NotWritten:
        break;
    }
    TellChange(events, EventKind::SettingsChanged, request, by, "settings changed");
    Answer answer = DocumentAnswer(std::move(change.now.xml), std::move(change.now.version));
    SayConflicts(answer, change.conflicts);
    if (change.result == NotWritten)
        SayUnwritten(answer, "the settings");
    return answer;
}

Answer SettingsPages::Preferences() const {
    PreferenceReading reading = preferences.Read();
    return DocumentAnswer(std::move(reading.xml), std::move(reading.version));
}

Answer SettingsPages::PutPreferences(const Request& request, const SignIn& by, std::string_view body) const {
    using enum PreferenceChange::Result;
    const std::string_view version = request.Field("If-Match");
    if (version.empty())
        return NoVersion();
    PreferenceChange change = preferences.Write(body, version);
    switch (change.result) {
    case Outdated:
        return Changed();
    case NoDocument:
        return Told(400, "This is no document of preferences, or it is not well-formed.");
    case Unsound:
        return Told(422, "Some values cannot be stored.", change.problems);
    case Unshared:
        return NotShared();
    case Done:
    case NotWritten:
        break;
    }
    if (!change.same)
        TellChange(events, EventKind::SettingsChanged, request, by, "preferences changed");
    Answer answer = DocumentAnswer(std::move(change.now.xml), std::move(change.now.version));
    SayConflicts(answer, change.conflicts);
    if (change.result == NotWritten)
        SayUnwritten(answer, "the preferences");
    return answer;
}

Answer SettingsPages::PutLanguage(const Request& request, const SignIn& by, std::string_view body) const {
    const HRESULT hr = kit::SetConfiguredLanguage(body);
    if (hr == E_INVALIDARG)
        return Told(422, "The server has no texts in this language.");
    if (FAILED(hr))
        return Told(500, "The language could not be stored.");
    TellChange(events, EventKind::SettingsChanged, request, by, "language set to " + std::string(body));
    return Told(200, "The language takes effect at the next start.");
}

} // namespace host
