#include "host/site/assets.h"

#include <algorithm>
#include <array>
#include <utility>

namespace host {

const Asset* FindAsset(std::string_view name) noexcept {
    const auto assets = Assets();
    const auto found = std::ranges::find(assets, name, &Asset::name);
    return found != assets.end() ? &*found : nullptr;
}

std::string_view AssetType(std::string_view name) noexcept {
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

} // namespace host
