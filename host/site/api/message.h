// What the operations of the interface have in common: reading a body, conditions, answers.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/site/api/pages.h"

namespace host {

using ApiJson = nlohmann::ordered_json;

// One thing that is wrong with a body.
struct ApiProblem {
    std::string pointer; // to it in the body (RFC 6901)
    std::string text;
};
// 422, with all of them.
Answer ApiUnsound(const std::vector<ApiProblem>& problems);

// A body: one JSON object whose members are known texts, or not there.
class ApiBody {
public:
    // Whatever members the object has.
    explicit ApiBody(const ApiCall& call);
    ApiBody(const ApiCall& call, std::initializer_list<std::string_view> known);

    // What to answer in place of going on. Nothing while all is well.
    [[nodiscard]] std::optional<Answer> Refused() const;
    // A member; nothing where it is missing, or is wrong and has been noted so.
    std::optional<std::string> Text(std::string_view name) { return TextOf(m_json, "", name); }
    // The same of an object within the body.
    std::optional<std::string> TextOf(const ApiJson& object, const std::string& pointer,
                                      std::string_view name);
    void ExpectOnly(const ApiJson& object, const std::string& pointer,
                    std::initializer_list<std::string_view> known);
    // A word of a list.
    template <class Value, class From>
    std::optional<Value> Word(std::string_view name, From from, std::string_view choices) {
        const auto text = Text(name);
        const auto value = text ? from(*text) : std::nullopt;
        if (text && !value)
            Note('/' + std::string(name), "this is one of " + std::string(choices));
        return value;
    }
    void Note(std::string pointer, std::string text) {
        m_problems.push_back({std::move(pointer), std::move(text)});
    }
    [[nodiscard]] const ApiJson& Json() const { return m_json; }

private:
    std::optional<Answer> m_refused;
    ApiJson m_json = ApiJson::object();
    std::vector<ApiProblem> m_problems;
};

// The text of a name in the path; nothing for what is none.
std::optional<std::string> ApiName(const ApiCall& call);
// Whether a change may go on (RFC 9110, section 13): `exists` tells whether what the path names is there,
// `present` is the version of all. With an answer where it may not; `version` is the one that the change is
// for, empty for any.
struct ApiCondition {
    std::string version{};
    std::optional<Answer> refused{};
};
ApiCondition ReadCondition(const Request& request, bool exists, const std::string& present);
Answer ApiOutdated();
Answer ApiUnshared(); // the other hosts of a cluster cannot be told

// JSON with its version; 304 where the request has that already.
Answer ApiAnswer(const Request& request, const ApiJson& json, const std::string& version,
                 unsigned status = 200);
Answer ApiDone(); // 204

// Moments as the interface has them (RFC 3339): "2026-01-31T08:05:00Z".
std::string ApiTime(std::chrono::sys_seconds time);

} // namespace host
