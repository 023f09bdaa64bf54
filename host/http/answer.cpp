#include "host/http/answer.h"

#include <array>
#include <cstdio>
#include <ctime>

#include <boost/beast/http/status.hpp>
#include <nlohmann/json.hpp>

#include "platform/text.h"

namespace host {
namespace {

// The headers of every answer; those of its own come on top.
std::map<std::string, std::string> CommonHeaders() {
    return {{"Server", "Morrowstream"},
            {"Date", HttpDate()},
            {"Cross-Origin-Resource-Policy", "same-origin"},
            {"X-Content-Type-Options", "nosniff"},
            {"Referrer-Policy", "same-origin"},
            {"Content-Security-Policy", "default-src 'self'; img-src 'self' blob: data:; "
                                        "object-src 'none'; base-uri 'none'; form-action 'self'; "
                                        "frame-ancestors 'self'"}};
}

} // namespace

Answer Answer::Text(unsigned status, std::string_view line) {
    Answer answer;
    answer.status = status;
    answer.body = std::string(line) + "\n";
    answer.headers["Cache-Control"] = "no-store";
    if (status >= 400)
        answer.refusal = line;
    return answer;
}

Answer Answer::Json(unsigned status, const nlohmann::ordered_json& json) {
    Answer answer;
    answer.status = status;
    answer.type = "application/json";
    answer.body = JsonText(json);
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

Answer Answer::Refusal(Form form, unsigned status, std::string_view line) {
    if (form != Form::Json) // problem details are made on the way out
        return Text(status, line);
    Answer answer = Json(status, {{"text", line}, {"problems", nlohmann::ordered_json::array()}});
    answer.refusal = line;
    return answer;
}

Answer Answer::Problem(Answer refusal) {
    if (refusal.refusal.empty())
        return refusal;
    Answer answer =
        Json(refusal.status, {{"type", "about:blank"},
                              {"title", boost::beast::http::obsolete_reason(
                                            static_cast<boost::beast::http::status>(refusal.status))},
                              {"status", refusal.status},
                              {"detail", refusal.refusal}});
    answer.type = "application/problem+json";
    answer.headers.merge(refusal.headers);
    answer.refusal = std::move(refusal.refusal);
    return answer;
}

std::string Serialize(const Answer& answer, const AnswerOptions& options) {
    auto headers = CommonHeaders();
    const bool noContent = answer.status == 304 || answer.status == 204;
    if (!noContent)
        headers["Content-Type"] = answer.type;
    for (const auto& [name, value] : answer.headers)
        headers[name] = value;
    if (!options.keepAlive || options.openEnded)
        headers["Connection"] = "close";
    if (!options.openEnded && !noContent)
        headers["Content-Length"] = std::to_string(answer.body.size());
    std::string bytes = "HTTP/1.1 " + std::to_string(answer.status) + ' ';
    bytes.append(boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(answer.status)));
    for (const auto& [name, value] : headers)
        bytes.append("\r\n").append(name).append(": ").append(value);
    bytes += "\r\n\r\n";
    if (!options.headOnly && !noContent)
        bytes += answer.body;
    return bytes;
}

std::string JsonText(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string HttpDate() {
    static constexpr std::array<const char*, 7> kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr std::array<const char*, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    std::tm time{};
    ::gmtime_r(&now, &time);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d GMT",
                  kDays[static_cast<std::size_t>(time.tm_wday)], time.tm_mday,
                  kMonths[static_cast<std::size_t>(time.tm_mon)], time.tm_year + 1900, time.tm_hour,
                  time.tm_min, time.tm_sec);
    return text.data();
}

std::string EscapeHtml(std::string_view text) {
    std::u16string result;
    for (const char16_t c : platform::FromUtf8(text)) {
        // HTML has no name for the apostrophe in the versions that old phones read.
        if (const auto entity = platform::EntityOf(c); !entity.empty() && c != u'\'')
            result += entity;
        else
            result += platform::IsControl(c) ? u' ' : c;
    }
    return platform::ToUtf8(result);
}

} // namespace host
