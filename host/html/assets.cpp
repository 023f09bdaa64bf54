#include "host/html/page.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

#include "host/html/texts.h"

namespace host {

using namespace std::string_view_literals;

namespace {

std::string_view TypeOf(std::string_view name) noexcept {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 9> kTypes{{
        {".html", "text/html; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".ico", "image/x-icon"},
        {".json", "application/json"},
        {".webmanifest", "application/manifest+json"},
        {".woff2", "font/woff2"},
    }};
    for (const auto& [ending, type] : kTypes) {
        if (name.ends_with(ending))
            return type;
    }
    return "application/octet-stream";
}

// FNV-1a: tells versions of a file apart, nothing more.
std::string EntityTag(std::string_view content) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : content)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    std::array<char, 24> tag{};
    std::snprintf(tag.data(), tag.size(), "\"%016llx\"", static_cast<unsigned long long>(hash));
    return tag.data();
}

Answer Tagged(std::string_view name, std::string content, const Request& request) {
    Answer answer;
    answer.type = TypeOf(name);
    answer.headers["ETag"] = EntityTag(content);
    // A page of an older host must not run against a newer one.
    answer.headers["Cache-Control"] = "no-cache";
    const auto known = request.Field("If-None-Match");
    if (known == "*" || known.find(answer.headers["ETag"]) != std::string::npos)
        answer.status = 304;
    else
        answer.body = std::move(content);
    return answer;
}

} // namespace

std::string_view AssetOf(std::string_view name) noexcept {
    const auto assets = Assets();
    const auto asset = std::ranges::find(assets, name, &Asset::name);
    return asset == assets.end() ? std::string_view{} : asset->content;
}

Answer PageAnswer(std::string_view name, const Request& request, std::string_view usual,
                  std::string_view account) {
    const std::string_view language = LanguageOf(request.Field("Accept-Language"), usual);
    std::string page(AssetOf(name));
    for (const auto& [place, text] : {std::pair{"{head}"sv, AssetOf("shared/head.html")},
                                      {"{lang}"sv, language},
                                      {"{account}"sv, account},
                                      {"{needsScript}"sv, TextOf(language, Word::NeedsScript)},
                                      {"{smallPages}"sv, TextOf(language, Word::SmallPages)}}) {
        if (const auto at = page.find(place); at != std::string::npos)
            page.replace(at, place.size(), text);
    }
    Answer answer = Tagged(name, std::move(page), request);
    answer.headers["Content-Language"] = language;
    answer.headers["Vary"] = "Accept-Language, Cookie";
    return answer;
}

Answer AssetAnswer(std::string_view name, const Request& request) {
    const auto assets = Assets();
    const auto asset = std::ranges::find(assets, name, &Asset::name);
    if (asset == assets.end())
        return Answer::Text(404, "There is nothing here.");
    return Tagged(name, std::string(asset->content), request);
}

} // namespace host
