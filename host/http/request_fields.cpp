#include "host/http/request.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "platform/text.h"

namespace host {
namespace {

using platform::EqualsIgnoringCase;

// The text up to the separator, which goes with it.
std::string_view Take(std::string_view& text, char separator) noexcept {
    const std::size_t at = text.find(separator);
    const std::string_view piece = text.substr(0, at);
    text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
    return Trimmed(piece);
}

// "0.7", at most three decimals; anything else is no weight.
double WeightOf(std::string_view text) noexcept {
    if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1') ||
        (text.size() > 1 && text[1] != '.'))
        return 0;
    double weight = text[0] - '0';
    double unit = 0.1;
    for (const char digit : text.substr(std::min<std::size_t>(2, text.size()))) {
        if (digit < '0' || digit > '9')
            return 0;
        weight += (digit - '0') * unit;
        unit /= 10;
    }
    return std::min(weight, 1.0);
}

// Takes the weight from the parameters behind a range; 1 without one.
double TakeWeight(std::string_view parameters) noexcept {
    double weight = 1;
    while (!parameters.empty()) {
        std::string_view value = Take(parameters, ';');
        if (EqualsIgnoringCase(Take(value, '='), "q"))
            weight = WeightOf(Trimmed(value));
    }
    return weight;
}

// 3 for the type itself, 2 for "type/*", 1 for "*/*", 0 for another one.
int Closeness(std::string_view range, std::string_view type) noexcept {
    if (EqualsIgnoringCase(range, type))
        return 3;
    if (range == "*/*")
        return 1;
    const std::size_t slash = type.find('/');
    return range.ends_with("/*") &&
                   EqualsIgnoringCase(range.substr(0, range.size() - 1), type.substr(0, slash + 1))
               ? 2
               : 0;
}

double BestOf(std::string_view accept, std::initializer_list<std::string_view> types) noexcept {
    double best = 0;
    for (const std::string_view type : types)
        best = std::max(best, QualityOf(accept, type));
    return best;
}

} // namespace

std::string_view Trimmed(std::string_view text) noexcept {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

double QualityOf(std::string_view accept, std::string_view type) noexcept {
    if (Trimmed(accept).empty())
        return 1;
    int closest = 0;
    double quality = 0;
    while (!accept.empty()) {
        std::string_view part = Take(accept, ',');
        const int closeness = Closeness(Take(part, ';'), type);
        if (closeness <= closest)
            continue;
        closest = closeness;
        quality = TakeWeight(part);
    }
    return quality;
}

std::string_view PreferredLanguage(std::string_view accept, std::span<const std::string_view> languages,
                                   std::string_view usual) noexcept {
    std::string_view best = usual;
    double quality = 0;
    while (!accept.empty()) {
        std::string_view part = Take(accept, ',');
        std::string_view range = Take(part, ';');
        const std::string_view primary = Take(range, '-');
        const auto known = std::ranges::find_if(
            languages, [&](std::string_view code) { return EqualsIgnoringCase(code, primary); });
        const double weight = TakeWeight(part);
        if (weight <= quality || (known == languages.end() && primary != "*"))
            continue;
        quality = weight;
        best = known != languages.end() ? *known : usual;
    }
    return best;
}

bool PrefersHtml(std::string_view accept) noexcept {
    return BestOf(accept, {"text/html", "application/xhtml+xml", "application/vnd.wap.xhtml+xml"}) >
           BestOf(accept, {"text/xml", "application/xml"});
}

std::optional<Credentials> ParseBasic(std::string_view authorization) {
    const auto blank = authorization.find(' ');
    if (blank == std::string_view::npos || !EqualsIgnoringCase(authorization.substr(0, blank), "Basic"))
        return std::nullopt;
    std::string_view encoded = authorization.substr(blank);
    while (encoded.starts_with(' '))
        encoded.remove_prefix(1);
    while (encoded.ends_with(' '))
        encoded.remove_suffix(1);
    const auto text = platform::DecodeBase64(encoded);
    if (!text || text->find('\0') != std::string::npos)
        return std::nullopt;
    const auto colon = text->find(':');
    if (colon == std::string::npos || !platform::Utf8ToWideStrict(*text))
        return std::nullopt;
    return Credentials{text->substr(0, colon), text->substr(colon + 1)};
}

std::string BasicAuthorization(const Credentials& credentials) {
    return "Basic " + platform::Base64(credentials.login + ":" + credentials.password);
}

} // namespace host
