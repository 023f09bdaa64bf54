#include "host/site/settings/pages.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string>

#include "host/log/console.h"
#include "host/settings/language.h"
#include "host/site/monitor/report.h"
#include "host/site/pages.h"
#include "host/users/password.h"

namespace host {
namespace {

constexpr std::string_view kRoot = "/settings";
constexpr std::string_view kState = "/settings/state";
constexpr std::string_view kDocument = "/settings/document";
constexpr std::string_view kSecret = "/settings/secret";
constexpr std::string_view kLanguage = "/settings/language";

bool IsPage(std::string_view path) {
    return path == kRoot || path == "/settings/";
}

bool IsChange(const Request& request) {
    return request.method == "PUT";
}

Answer Told(unsigned status, std::string_view text, const std::vector<SettingsProblem>& problems = {}) {
    Answer answer;
    answer.status = status;
    answer.type = "application/json";
    answer.headers["Cache-Control"] = "no-store";
    answer.body = "{\"text\":" + JsonString(text) + ",\"problems\":[";
    for (const SettingsProblem& problem : problems) {
        answer.body += &problem == problems.data() ? "" : ",";
        answer.body += "{\"path\":" + JsonString(problem.path) + ",\"key\":" + JsonString(problem.key) +
                       ",\"text\":" + JsonString(problem.text) + "}";
    }
    answer.body += "]}";
    return answer;
}

// Whether a page of another site asks. Programs say nothing of where they come from; browsers do.
bool IsForeign(const Request& request) {
    if (const auto origin = request.Field("Origin"); !origin.empty() && !IsSameOrigin(origin, request.Host()))
        return true;
    const auto site = request.Field("Sec-Fetch-Site");
    return !site.empty() && site != "same-origin" && site != "none";
}

bool HasToken(const Request& request, const Services& services) {
    return EqualInConstantTime(request.Field("X-Settings-Token"), services.pageToken);
}

Answer StateAnswer(const Services& services) {
    Answer answer;
    answer.type = "application/json";
    answer.headers["Cache-Control"] = "no-store";
    answer.body = "{\"token\":" + JsonString(services.pageToken) + ",\"language\":{\"active\":" +
                  JsonString(services.language.empty() ? "en" : services.language) +
                  ",\"configured\":" + JsonString(ConfiguredLanguage()) + ",\"choices\":[";
    for (const Language& language : Languages()) {
        answer.body += answer.body.ends_with('[') ? "" : ",";
        answer.body +=
            "{\"code\":" + JsonString(language.code) + ",\"name\":" + JsonString(language.name) + "}";
    }
    answer.body += "]}}";
    return answer;
}

Answer DocumentAnswer(SettingsReading reading) {
    Answer answer;
    answer.type = "text/xml; charset=utf-8";
    answer.headers["Cache-Control"] = "no-store";
    answer.headers["ETag"] = std::move(reading.version);
    answer.body = std::move(reading.xml);
    return answer;
}

Answer ReadAnswer(const Services& services) {
    auto reading = services.settings.Read();
    return reading ? DocumentAnswer(std::move(*reading)) : Told(503, "The component gives no settings.");
}

Answer SecretAnswer(const Request& request, const Services& services) {
    std::string_view digits = request.query;
    constexpr std::string_view kName = "number=";
    std::size_t number = 0;
    if (digits.starts_with(kName))
        digits.remove_prefix(kName.size());
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc{} || end != digits.data() + digits.size())
        return Told(400, "The number of the password is missing.");
    const auto password = services.settings.Password(number, request.Field("If-Match"));
    if (!password)
        return Told(412, "The settings are not those any more that this password belongs to.");
    Answer answer;
    answer.headers["Cache-Control"] = "no-store";
    answer.body = *password;
    return answer;
}

void LogChange(const Request& request, std::string_view what) {
    const auto who = ParseBasic(request.Field("Authorization"));
    Console::Get().Log("message", std::string(what) + " by \"" + (who ? Printable(who->login) : "") +
                                      "\" from " + request.peer.text);
}

Answer WriteAnswer(const Request& request, std::string_view body, const Services& services) {
    using enum SettingsChange::Result;
    const std::string_view version = request.Field("If-Match");
    if (version.empty())
        return Told(428, "Which version of the settings was edited? Send its ETag as If-Match.");
    SettingsChange change = services.settings.Write(body, version);
    switch (change.result) {
    case Outdated:
        return Told(412, "The settings have been changed since this document was read.");
    case NoDocument:
        return Told(400,
                    "This is no settings document: it is not well-formed, or has unknown password marks.");
    case Unsound:
        return Told(422, "Some values cannot be stored.", change.problems);
    case NotReady:
        return Told(503, "The component gives no settings.");
    case Refused: {
        std::array<char, 16> code{};
        std::snprintf(code.data(), code.size(), "0x%08X", static_cast<unsigned>(change.status));
        return Told(500, "The component refuses these settings (" + std::string(code.data()) + ").");
    }
    case Done:
    case NotWritten:
        break;
    }
    LogChange(request, "settings changed");
    Answer answer = DocumentAnswer(std::move(change.now));
    if (change.result == NotWritten) {
        Console::Get().Log("error",
                           "the settings could not be written to disk: the change is lost at the end");
        answer.headers["X-Settings-Written"] = "no";
    }
    return answer;
}

Answer LanguageAnswer(const Request& request, std::string_view body) {
    const HRESULT hr = SetConfiguredLanguage(body);
    if (hr == E_INVALIDARG)
        return Told(422, "The server has no texts in this language.");
    if (FAILED(hr))
        return Told(500, "The language could not be stored.");
    LogChange(request, "language set to " + std::string(body));
    return Told(200, "The language takes effect at the next start.");
}

} // namespace

bool IsSettingsPath(std::string_view path) {
    return path == kRoot || path.starts_with("/settings/");
}

std::optional<Answer> RefuseSettings(const Request& request, const Services& services) {
    const bool change = IsChange(request);
    const bool changeable = request.path == kDocument || request.path == kLanguage;
    if (!(change ? changeable : request.method == "GET" || request.method == "HEAD")) {
        Answer answer = Told(405, "This cannot be done with the settings.");
        answer.headers["Allow"] = changeable ? "GET, HEAD, PUT" : "GET, HEAD";
        return answer;
    }
    if (!IsPage(request.path) && IsForeign(request)) {
        services.counters.Refuse(Refusal::ForeignHost);
        return Told(403, "The settings are for the page of this server.");
    }
    if ((change || request.path == kSecret) && !HasToken(request, services)) {
        services.counters.Refuse(Refusal::Forbidden);
        return Told(403, "The token of the page is missing, or is one of an earlier run of the server.");
    }
    if (change && request.chunked)
        return Told(411, "Tell the length of the document.");
    if (request.bodySize > kMaxBodyBytes || (!change && request.hasBody))
        return Told(413, "The settings have at most " + std::to_string(kMaxBodyBytes) + " bytes.");
    return std::nullopt;
}

Answer SettingsAnswer(const Request& request, std::string_view body, const Services& services) {
    if (IsPage(request.path))
        return NamedAsset("settings/index.html", request);
    if (request.path == kState)
        return StateAnswer(services);
    if (request.path == kDocument)
        return IsChange(request) ? WriteAnswer(request, body, services) : ReadAnswer(services);
    if (request.path == kSecret)
        return SecretAnswer(request, services);
    if (request.path == kLanguage && IsChange(request))
        return LanguageAnswer(request, body);
    return Told(404, "There is nothing here.");
}

} // namespace host
