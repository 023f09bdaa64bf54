#include "host/site/pages.h"

#include <array>
#include <cstdint>
#include <cstdio>

#include "host/site/assets.h"
#include "host/site/monitor/metrics.h"
#include "host/site/monitor/report.h"

namespace host {
namespace {

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
    if (request.Field("If-None-Match").find(answer.headers["ETag"]) != std::string::npos)
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
    constexpr std::string_view kAssets = "/assets/";
    std::string_view name = path == "/" ? "live/index.html" : "";
    if (path.starts_with(kAssets))
        name = path.substr(kAssets.size());
    if (const Asset* asset = FindAsset(name))
        return AssetAnswer(*asset, request);
    return Answer::Text(404, "There is nothing here.");
}

Answer NamedAsset(std::string_view name, const Request& request) {
    return AssetAnswer(*FindAsset(name), request);
}

} // namespace host
