#include "host/http/request.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/parser.hpp>

#include "host/http/beast_request.h"
#include "host/http/limits.h"
#include "platform/text.h"

namespace host {
namespace {

namespace http = boost::beast::http;
using platform::EqualsIgnoringCase;

// The parser knows lines that end in CR LF only; old phones end them in a line feed.
std::string WithFullLineEnds(std::string_view head) {
    std::string result;
    result.reserve(head.size() + 64);
    for (std::size_t i = 0; i < head.size(); ++i) {
        if (head[i] == '\n' && (i == 0 || head[i - 1] != '\r'))
            result += '\r';
        result += head[i];
    }
    return result;
}

// Cuts the target into path and query. A phone may send the path without its leading "/", a proxy the whole
// address.
bool SplitTarget(std::string_view target, Request& request) {
    if (target.starts_with("http://") || target.starts_with("https://")) {
        const auto slash = target.find('/', target.find("://") + 3);
        target = slash == std::string_view::npos ? "/" : target.substr(slash);
    }
    const auto hash = target.find('#');
    if (hash != std::string_view::npos)
        return false;
    const auto question = target.find('?');
    request.path = target.substr(0, question);
    if (question != std::string_view::npos)
        request.query = target.substr(question + 1);
    if (!request.path.starts_with('/'))
        request.path.insert(0, 1, '/');
    return true;
}

} // namespace

ParsedRequest ParseRequest(std::string head) {
    http::request_parser<http::empty_body> parser;
    parser.header_limit(kMaxHeadBytes * 2);
    // An upload has no end, and a phone may announce any length: what follows the head is not read here.
    parser.body_limit(std::numeric_limits<std::uint64_t>::max());
    const std::string text = WithFullLineEnds(head);
    boost::beast::error_code error;
    parser.put(boost::asio::buffer(text), error);
    if (error || !parser.is_header_done())
        return {std::nullopt, error == http::error::header_limit ? 431U : 400U};
    const auto& message = parser.get();
    if (message.target().size() > kMaxTargetBytes)
        return {std::nullopt, 414};
    if (message.count(http::field::host) > 1 || message.count(http::field::authorization) > 1)
        return {std::nullopt, 400};
    // Where a body in an unknown form ends nobody knows: what follows must not be taken for a request.
    if (const auto coding = message.find(http::field::transfer_encoding); coding != message.end()) {
        if (message.count(http::field::transfer_encoding) > 1 ||
            !EqualsIgnoringCase(coding->value(), "chunked"))
            return {std::nullopt, 501};
        if (message.count(http::field::content_length) > 0)
            return {std::nullopt, 400};
    }

    Request request;
    request.method = message.method_string();
    if (!SplitTarget(message.target(), request))
        return {std::nullopt, 400};
    request.keepAlive = message.keep_alive();
    const auto length = parser.content_length();
    request.chunked = message.chunked();
    request.bodySize = length ? *length : 0;
    request.hasBody = request.chunked || request.bodySize > 0;
    request.expectsContinue = EqualsIgnoringCase(message[http::field::expect], "100-continue");
    request.wantsWebSocket = EqualsIgnoringCase(message[http::field::upgrade], "websocket");
    request.lacksHost = message.version() >= 11 && message.count(http::field::host) == 0;
    request.fields = std::make_shared<const BeastRequest>(BeastRequest{parser.release()});
    request.head = std::move(head);
    return {std::move(request), 200};
}

std::optional<Request> RequestAs(const Credentials& credentials, std::string_view target,
                                 const Request& asked) {
    auto request =
        ParseRequest("GET " + std::string(target) + " HTTP/1.1\r\nHost: " + std::string(asked.Host()) +
                     "\r\nAuthorization: " + BasicAuthorization(credentials) + "\r\n\r\n")
            .request;
    if (request) {
        request->peer = asked.peer;
        request->secure = asked.secure;
    }
    return request;
}

std::string_view Request::Field(std::string_view name) const {
    return fields ? fields->message[name] : std::string_view();
}

std::string Request::AllOf(std::string_view name) const {
    std::string all;
    if (!fields)
        return all;
    const auto [first, end] = fields->message.equal_range(name);
    for (auto at = first; at != end; ++at)
        all.append(at == first ? "" : ",").append(at->value());
    return all;
}

std::optional<std::string> PercentDecode(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            const int byte = platform::HexByte(text.substr(i + 1));
            if (byte < 0)
                return std::nullopt;
            c = static_cast<char>(byte);
            i += 2;
        }
        if (c == '\0')
            return std::nullopt;
        result += c;
    }
    if (!platform::Utf8ToWideStrict(result))
        return std::nullopt;
    return result;
}

std::string PercentEncode(std::string_view text) {
    static constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
            c == '_' || c == '.' || c == '~') {
            result += c;
        } else {
            result += '%';
            result += kDigits[byte >> 4];
            result += kDigits[byte & 15];
        }
    }
    return result;
}

std::string_view QueryParameter(std::string_view query, std::string_view name) {
    while (!query.empty()) {
        const std::string_view part = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(part.size() + 1, query.size()));
        if (part.size() > name.size() && part.starts_with(name) && part[name.size()] == '=')
            return part.substr(name.size() + 1);
    }
    return {};
}

std::optional<std::string> FormValue(std::string_view form, std::string_view name) {
    std::string value(QueryParameter(form, name));
    for (char& c : value) {
        if (c == '+')
            c = ' ';
    }
    return PercentDecode(value);
}

std::vector<std::string> FormValues(std::string_view form, std::string_view name) {
    std::vector<std::string> values;
    while (!form.empty()) {
        const std::string_view part = form.substr(0, form.find('&'));
        form.remove_prefix(std::min(part.size() + 1, form.size()));
        const bool named = part.size() > name.size() && part.starts_with(name) && part[name.size()] == '=';
        if (auto value = named ? FormValue(part, name) : std::nullopt)
            values.push_back(*std::move(value));
    }
    return values;
}

bool IsLoopbackHost(std::string_view host) {
    const auto colon = host.rfind(':');
    const bool hasPort = colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos;
    const std::string_view name = hasPort ? host.substr(0, colon) : host;
    return EqualsIgnoringCase(name, "localhost") || name == "127.0.0.1" || name == "[::1]";
}

bool HasOwnOrigin(const Request& request) {
    const std::string_view scheme = request.secure ? "https://" : "http://";
    const std::string_view usual = request.secure ? ":443" : ":80";
    std::string_view origin = request.Field("Origin");
    std::string_view host = request.Host();
    if (!origin.starts_with(scheme) || host.empty())
        return false;
    origin.remove_prefix(scheme.size());
    for (std::string_view* const text : {&origin, &host}) {
        if (text->ends_with(usual))
            text->remove_suffix(usual.size());
    }
    return EqualsIgnoringCase(origin, host);
}

bool IsSameOrigin(std::string_view origin, std::string_view host) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (origin.starts_with(scheme))
            return !host.empty() && EqualsIgnoringCase(origin.substr(scheme.size()), host);
    }
    return false;
}

} // namespace host
