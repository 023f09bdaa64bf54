// Answers to requests, and writing them.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace host {

// The form of a refusal.
enum class Form {
    Text,    // a line
    Json,    // {"text":...,"problems":[]}
    Problem, // of RFC 9457
};

struct Answer {
    unsigned status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string body;
    std::map<std::string, std::string> headers; // beyond those that every answer has
    std::string refusal{};                      // the line of one

    static Answer Text(unsigned status, std::string_view line);
    // Caches keep nothing of it.
    static Answer Json(unsigned status, const nlohmann::ordered_json& json);
    // Problem details (RFC 9457) in place of a refusal's line; other answers stay as they are.
    static Answer Problem(Answer refusal);
    static Answer Refusal(Form form, unsigned status, std::string_view line);
};

struct AnswerOptions {
    bool keepAlive = false;
    bool headOnly = false;  // the answer to a HEAD request: the length is told, the body is not sent
    bool openEnded = false; // no length: the body follows until the connection closes
};
// The whole answer as bytes for the socket, with the security headers that every answer carries.
std::string Serialize(const Answer& answer, const AnswerOptions& options);

// JSON as text. Bytes that are no UTF-8 become replacement characters.
std::string JsonText(const nlohmann::ordered_json& json);

// Now, as the field Date has it (RFC 9110, 5.6.7): "Sun, 06 Nov 1994 08:49:37 GMT".
std::string HttpDate();

// A text as it stands in an HTML page, also in an attribute between double quotes. Control characters, and
// those that turn the direction of what stands around them, become blanks.
std::string EscapeHtml(std::string_view text);

} // namespace host
