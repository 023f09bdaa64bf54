#include "kit/packer/frame_packer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace kit {
namespace {

constexpr int kWhole = 1000; // thousandths

// A decimal number: digits, or digits with a point among, before or behind them. No sign, no exponent, no
// blank.
std::optional<double> ParseNumber(std::string_view text) noexcept {
    const bool plain = std::ranges::all_of(text, [](char c) { return (c >= '0' && c <= '9') || c == '.'; });
    double value = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    if (!plain || end != text.data() + text.size())
        return std::nullopt;
    if (error ==
        std::errc::result_out_of_range) { // too large or too small for the type, which matters to nobody
        const bool large = text.substr(0, text.find('.')).find_first_not_of('0') != std::string_view::npos;
        return large ? std::numeric_limits<double>::max() : 0.0;
    }
    return error == std::errc{} ? std::optional(value) : std::nullopt;
}

struct Parameter {
    std::string_view name;
    double least;
    double most;
    void (*set)(PackerParameters&, double);
};

constexpr std::array<Parameter, 10> kParameters{{
    {"width", 16, 1920, [](PackerParameters& p, double v) { p.width = static_cast<int>(v); }},
    {"height", 16, 1920, [](PackerParameters& p, double v) { p.height = static_cast<int>(v); }},
    {"fps", 0.1, 25, [](PackerParameters& p, double v) { p.fps = v; }},
    {"flimit", 0, 0x7FFFFFFF,
     [](PackerParameters& p, double v) { p.frameLimit = static_cast<std::uint32_t>(v); }},
    {"quality", 1, 100, [](PackerParameters& p, double v) { p.quality = static_cast<int>(v); }},
    {"zx", 0, kWhole, [](PackerParameters& p, double v) { p.zoomX = static_cast<int>(v); }},
    {"zy", 0, kWhole, [](PackerParameters& p, double v) { p.zoomY = static_cast<int>(v); }},
    {"zw", 10, kWhole, [](PackerParameters& p, double v) { p.zoomWidth = static_cast<int>(v); }},
    {"zh", 10, kWhole, [](PackerParameters& p, double v) { p.zoomHeight = static_cast<int>(v); }},
    {"rotate", 0, 270, [](PackerParameters& p, double v) { p.quarterTurns = static_cast<int>(v) / 90; }},
}};

// One pair. False when it is refused.
bool Apply(std::string_view pair, PackerParameters& parameters) noexcept {
    const auto equals = pair.find('=');
    const std::string_view name = pair.substr(0, equals);
    const auto known = std::ranges::find(kParameters, name, &Parameter::name);
    if (known == kParameters.end())
        return true;
    if (equals == std::string_view::npos) {
        if (name != "rotate")
            return false;
        parameters.quarterTurns = 1;
        return true;
    }
    const auto value = ParseNumber(pair.substr(equals + 1));
    if (!value)
        return false;
    const double inRange = std::clamp(*value, known->least, known->most);
    if (name == "rotate" && (inRange != *value || static_cast<int>(inRange) % 90 != 0))
        return false; // there is no nearest turn
    known->set(parameters, inRange);
    return true;
}

} // namespace

std::optional<PackerParameters> ParsePackerParameters(std::string_view text) noexcept {
    PackerParameters parameters;
    while (!text.empty()) {
        const auto end = text.find('&');
        if (!Apply(text.substr(0, end), parameters))
            return std::nullopt;
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    parameters.zoomX = std::min(parameters.zoomX, kWhole - parameters.zoomWidth);
    parameters.zoomY = std::min(parameters.zoomY, kWhole - parameters.zoomHeight);
    return parameters;
}

} // namespace kit
