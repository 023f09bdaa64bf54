#include "host/http/answer.h"

#include <cerrno>

#include <poll.h>
#include <sys/socket.h>

#include <boost/beast/core/buffer_traits.hpp>
#include <boost/beast/core/buffers_range.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/serializer.hpp>

#include "host/base/json.h"

namespace host {
namespace {

namespace http = boost::beast::http;

void SetCommonHeaders(http::fields& fields) {
    fields.set(http::field::server, "Morrowstream");
    fields.set("X-Content-Type-Options", "nosniff");
    fields.set("Referrer-Policy", "no-referrer");
    fields.set("Content-Security-Policy", "default-src 'self'; img-src 'self' blob: data:; "
                                          "object-src 'none'; base-uri 'none'; form-action 'self'; "
                                          "frame-ancestors 'self'");
}

// The head alone, as Beast writes it.
std::string HeadText(const http::response<http::empty_body>& message) {
    http::response_serializer<http::empty_body> serializer(message);
    std::string text;
    boost::beast::error_code error;
    while (!serializer.is_header_done() && !error) {
        serializer.next(error, [&](boost::beast::error_code&, const auto& buffers) {
            for (const auto& buffer : boost::beast::buffers_range_ref(buffers))
                text.append(static_cast<const char*>(buffer.data()), buffer.size());
            serializer.consume(boost::beast::buffer_bytes(buffers));
        });
    }
    return text;
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
    http::response<http::empty_body> message(static_cast<http::status>(answer.status), 11);
    SetCommonHeaders(message);
    const bool noContent = answer.status == 304;
    if (!noContent)
        message.set(http::field::content_type, answer.type);
    for (const auto& [name, value] : answer.headers)
        message.set(name, value);
    message.keep_alive(options.keepAlive && !options.openEnded);
    if (!options.openEnded && !noContent)
        message.content_length(answer.body.size());
    std::string bytes = HeadText(message);
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
