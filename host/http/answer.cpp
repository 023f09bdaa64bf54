#include "host/http/answer.h"

#include <boost/beast/http/status.hpp>
#include <nlohmann/json.hpp>

namespace host {
namespace {

// The headers of every answer; those of its own come on top.
std::map<std::string, std::string> CommonHeaders() {
    return {{"Server", "Morrowstream"},
            {"X-Content-Type-Options", "nosniff"},
            {"Referrer-Policy", "no-referrer"},
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
    return form == Form::Json ? Json(status, {{"text", line}, {"problems", nlohmann::ordered_json::array()}})
                              : Text(status, line);
}

std::string Serialize(const Answer& answer, const AnswerOptions& options) {
    auto headers = CommonHeaders();
    const bool noContent = answer.status == 304;
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

std::string EscapeHtml(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += static_cast<unsigned char>(c) < 32 || c == 127 ? ' ' : c;
        }
    }
    return result;
}

} // namespace host
