#include "host/site/api/message.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "host/log/console.h"

namespace host {
namespace {

// A list of versions, as If-Match and If-None-Match have it: whether this one is in it, or any would do. A
// version with the weak mark counts where `weak` says so.
bool Names(std::string_view list, std::string_view version, bool weak) {
    while (!list.empty()) {
        const auto comma = list.find(',');
        std::string_view one = Trimmed(list.substr(0, comma));
        list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
        if (weak && one.starts_with("W/"))
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

ApiCondition ReadCondition(const Request& request, bool exists, const std::string& present) {
    const std::string match = request.AllOf("If-Match");
    const std::string none = request.AllOf("If-None-Match");
    // A version of the list is a good one for what is only to come into it.
    if (Trimmed(match) == "*")
        return exists ? ApiCondition{} : ApiCondition{{}, Answer::Text(412, "It is not there.")};
    if (!match.empty())
        return Names(match, present, false) ? ApiCondition{present} : ApiCondition{{}, ApiOutdated()};
    if (!none.empty() && exists && Names(none, present, true))
        return {{}, Answer::Text(412, "It is there already.")};
    return {};
}

Answer ApiOutdated() {
    return Answer::Text(412, "This has changed since the version in If-Match was read.");
}

Answer ApiUnshared() {
    return Answer::Text(503, "The other hosts of the cluster cannot be reached: nothing was changed.");
}

Answer ApiAnswer(const Request& request, const ApiJson& json, const std::string& version, unsigned status) {
    const bool reads = request.method == "GET" || request.method == "HEAD";
    const std::string has = request.AllOf("If-None-Match");
    const bool same = reads && !has.empty() && Names(has, version, true);
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
