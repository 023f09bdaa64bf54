// The files of the page, which the program carries within itself.
#pragma once

#include <span>
#include <string_view>

namespace host {

struct Asset {
    std::string_view name; // "live/app.js"
    std::string_view content;
};
// Generated from host/page when the program is built.
std::span<const Asset> Assets() noexcept;

// Null when there is no such file.
const Asset* FindAsset(std::string_view name) noexcept;
std::string_view AssetType(std::string_view name) noexcept;

} // namespace host
