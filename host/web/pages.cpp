#include "host/web/pages.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "host/web/assets.h"
#include "host/web/report.h"
#include "platform/text.h"

namespace host {
namespace {

using platform::Bstr;

// FNV-1a: tells versions of a file apart, nothing more.
std::string EntityTag(std::string_view content) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : content)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    std::array<char, 24> tag{};
    std::snprintf(tag.data(), tag.size(), "\"%016llx\"", static_cast<unsigned long long>(hash));
    return tag.data();
}

Answer AssetAnswer(const Asset& asset, const Request& request) {
    Answer answer;
    answer.type = AssetType(asset.name);
    answer.headers["ETag"] = EntityTag(asset.content);
    // A page of an older host must not run against a newer one.
    answer.headers["Cache-Control"] = "no-cache";
    if (request.ifNoneMatch.find(answer.headers["ETag"]) != std::string::npos)
        answer.status = 304;
    else
        answer.body = asset.content;
    return answer;
}

Answer NoPicture(std::string_view line) {
    Answer answer = Answer::Text(503, line);
    answer.headers.emplace("Retry-After", "2");
    return answer;
}

Answer SnapshotAnswer(const Request& request, const Services& services) {
    const FeedPtr feed = FeedOfPath(request.path, "/snapshot/", ".jpg", services);
    if (!feed)
        return Answer::Text(404, "There is no camera of that name.");
    const PicturePtr picture = feed->Newest();
    if (!picture)
        return NoPicture("This camera has sent no picture yet.");
    if (Clock::now() - picture->Arrival() > services.limits.snapshotAge)
        return NoPicture("The last picture of this camera is too old to be called live.");
    Answer answer;
    answer.type = "image/jpeg";
    answer.body = picture->Jpeg();
    answer.headers["Cache-Control"] = "no-store";
    return answer.body.empty() ? NoPicture("This picture cannot be encoded.") : answer;
}

Answer TextAnswer(std::string_view type, std::string text) {
    Answer answer;
    answer.type = type;
    answer.body = std::move(text);
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

std::string LastContentType(const std::string& head) {
    // A line is put in front, since the first one is taken for the request line.
    const std::string lines = "\n" + head;
    const std::string_view type = HeaderValue(lines, "content-type");
    const bool control =
        std::ranges::any_of(type, [](char c) { return static_cast<unsigned char>(c) < 32 || c == 127; });
    return control ? std::string() : std::string(type);
}

unsigned StatusOf(HRESULT hr) {
    switch (hr) {
    case E_NOTIMPL:
        return 501;
    case E_INVALIDARG:
        return 400;
    case E_ACCESSDENIED:
        return 403;
    case E_ELEMENT_NOT_FOUND:
        return 404;
    default:
        return 500;
    }
}

} // namespace

FeedPtr FeedOfPath(std::string_view path, std::string_view prefix, std::string_view suffix,
                   const Services& services) {
    if (path.size() <= prefix.size() + suffix.size() || !path.starts_with(prefix) || !path.ends_with(suffix))
        return nullptr;
    path.remove_prefix(prefix.size());
    path.remove_suffix(suffix.size());
    const auto name = PercentDecode(path);
    return name ? services.feeds.Find(*name) : nullptr;
}

Answer PageAnswer(const Request& request, const Services& services) {
    const std::string_view path = request.path;
    if (path == "/health")
        return TextAnswer("application/json", HealthJson(services));
    if (path == "/metrics")
        return TextAnswer("text/plain; version=0.0.4; charset=utf-8", MetricsText(services));
    if (path.starts_with("/snapshot/"))
        return SnapshotAnswer(request, services);
    std::string_view name = path == "/" ? "index.html" : path.substr(1);
    if (name.starts_with("assets/"))
        name.remove_prefix(7);
    if (const Asset* asset = FindAsset(name))
        return AssetAnswer(*asset, request);
    return Answer::Text(404, "There is nothing here.");
}

Answer NamedAsset(std::string_view name, const Request& request) {
    return AssetAnswer(*FindAsset(name), request);
}

Answer HandlerAnswer(const Request& request, IWebHandler& handler) {
    const std::string path = request.path.substr(1) + (request.query.empty() ? "" : "?" + request.query);
    Bstr body;
    // The handler replaces the head without freeing the one that it was given.
    const Bstr givenHead(platform::ToWide(request.head));
    BSTR rawHead = givenHead.Get();
    const HRESULT hr = handler.Request(platform::FromUtf8(path).c_str(), body.Receive(), &rawHead);
    const Bstr head = rawHead == givenHead.Get() ? Bstr() : Bstr::Adopt(rawHead);
    if (FAILED(hr))
        return Answer::Text(StatusOf(hr), hr == E_NOTIMPL ? "This is not there yet." : "The request failed.");
    Answer answer;
    answer.body = body.Bytes();
    answer.headers["Cache-Control"] = "no-store";
    answer.type = LastContentType(platform::ToNarrow(head.View()));
    if (answer.type.empty())
        answer.type = "application/octet-stream";
    return answer;
}

} // namespace host
