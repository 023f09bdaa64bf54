#include "host/site/api/message.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "host/log/console.h"

namespace host {
namespace {

// A line of If-Match or If-None-Match: whether it names the version. Weak marks make no difference here.
bool Names(std::string_view line, std::string_view version) {
    while (!line.empty()) {
        const auto comma = line.find(',');
        std::string_view one = Trimmed(line.substr(0, comma));
        line.remove_prefix(comma == std::string_view::npos ? line.size() : comma + 1);
        if (one.starts_with("W/"))
            one.remove_prefix(2);
        if (one == version || one == "*")
            return true;
    }
    return false;
}

bool IsJson(std::string_view type) {
    return Trimmed(type.substr(0, type.find(';'))) == "application/json";
}

} // namespace

Answer ApiUnsound(const std::vector<ApiProblem>& problems) {
    Answer answer = Answer::Problem(Answer::Text(422, "Some values cannot be taken."));
    auto json = ApiJson::parse(answer.body);
    json["problems"] = ApiJson::array();
    for (const ApiProblem& problem : problems)
        json["problems"].push_back({{"pointer", problem.pointer}, {"text", problem.text}});
    answer.body = JsonText(json);
    answer.refusal.clear(); // it is said already
    return answer;
}

ApiBody::ApiBody(const ApiCall& call) {
    if (!IsJson(call.request.Field("Content-Type"))) {
        m_refused = Answer::Text(415, "A body has the Content-Type application/json.");
        return;
    }
    ApiJson json = ApiJson::parse(call.body, nullptr, false);
    if (json.is_discarded() || !json.is_object()) {
        m_refused = Answer::Text(400, "A body is one JSON object.");
        return;
    }
    m_json = std::move(json);
}

ApiBody::ApiBody(const ApiCall& call, std::initializer_list<std::string_view> known) : ApiBody(call) {
    ExpectOnly(m_json, "", known);
}

std::optional<Answer> ApiBody::Refused() const {
    if (m_refused)
        return m_refused;
    return m_problems.empty() ? std::nullopt : std::optional(ApiUnsound(m_problems));
}

void ApiBody::ExpectOnly(const ApiJson& object, const std::string& pointer,
                         std::initializer_list<std::string_view> known) {
    for (const auto& [name, value] : object.items()) {
        if (std::ranges::find(known, name) == known.end())
            Note(pointer, "there is no member \"" + Printable(name) + "\"");
    }
}

std::optional<std::string> ApiBody::TextOf(const ApiJson& object, const std::string& pointer,
                                           std::string_view name) {
    const auto found = object.find(name);
    if (found == object.end())
        return std::nullopt;
    if (found->is_string())
        return found->get<std::string>();
    Note(pointer + '/' + std::string(name), "this is a text");
    return std::nullopt;
}

std::optional<std::string> ApiName(const ApiCall& call) {
    return PercentDecode(call.name);
}

ApiCondition ReadCondition(const Request& request, bool exists) {
    const std::string_view match = Trimmed(request.Field("If-Match"));
    const std::string_view none = Trimmed(request.Field("If-None-Match"));
    if ((match == "*" && !exists) || (!none.empty() && exists))
        return {{}, Answer::Text(412, exists ? "It is there already." : "It is not there.")};
    return {match == "*" ? std::string() : std::string(match), std::nullopt};
}

Answer ApiOutdated() {
    return Answer::Text(412, "This has changed since the version in If-Match was read.");
}

Answer ApiAnswer(const Request& request, const ApiJson& json, const std::string& version, unsigned status) {
    const bool reads = request.method == "GET" || request.method == "HEAD";
    const std::string_view has = request.Field("If-None-Match");
    const bool same = reads && !has.empty() && Names(has, version);
    Answer answer = Answer::Json(same ? 304 : status, json);
    // To be asked for each time, but not to be sent each time.
    answer.headers["Cache-Control"] = "no-cache, private";
    answer.headers["ETag"] = version;
    return answer;
}

Answer ApiDone() {
    Answer answer;
    answer.status = 204;
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

std::string ApiTime(std::chrono::sys_seconds time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 40> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

} // namespace host
