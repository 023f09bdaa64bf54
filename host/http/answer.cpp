#include "host/http/answer.h"

#include <cerrno>

#include <poll.h>
#include <sys/socket.h>

#include <boost/beast/http/status.hpp>

#include "host/base/json.h"

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

Answer Answer::Refusal(Form form, unsigned status, std::string_view line) {
    Answer answer = Text(status, line);
    if (form == Form::Json) {
        answer.type = "application/json";
        answer.body = "{\"text\":" + JsonString(line) + ",\"problems\":[]}";
    }
    return answer;
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

SendResult SendAll(int fd, std::string_view bytes, const Wakeup& stop, std::chrono::milliseconds stall) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK)
            return SendResult::Broken;
        switch (WaitFor({.socket = fd, .socketEvents = POLLOUT, .stop = &stop}, Clock::now() + stall)) {
        case Waited::Stopped:
            return SendResult::Stopped;
        case Waited::Timeout:
            return SendResult::Stalled;
        case Waited::Ready:
        case Waited::Woken:
            break;
        }
    }
    return SendResult::Sent;
}

} // namespace host
