#include "host/site/recordings/byte_range.h"

#include <algorithm>
#include <charconv>

namespace host {
namespace {

std::optional<std::uint64_t> WholeNumber(std::string_view text) noexcept {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

} // namespace

AskedRange ReadRange(std::string_view value, std::uint64_t size) noexcept {
    constexpr std::string_view kBytes = "bytes=";
    const auto dash = value.find('-');
    if (!value.starts_with(kBytes) || dash == std::string_view::npos)
        return {};
    const std::string_view from = value.substr(kBytes.size(), dash - kBytes.size());
    const std::string_view to = value.substr(dash + 1);
    const auto first = WholeNumber(from);
    const auto last = WholeNumber(to);
    if ((!first && !from.empty()) || (!last && !to.empty()) || (!first && !last))
        return {};
    if (!first) // so many at the end
        return *last == 0 || size == 0 ? AskedRange{false, {}}
                                       : AskedRange{true, ByteRange{size - std::min(*last, size), size - 1}};
    if (last && *last < *first)
        return {};
    if (*first >= size)
        return {false, {}};
    return {true, ByteRange{*first, std::min(last.value_or(size - 1), size - 1)}};
}

} // namespace host
