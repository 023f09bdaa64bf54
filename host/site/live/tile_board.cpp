#include "host/site/live/tile_board.h"

#include <charconv>

namespace host {
namespace {

constexpr std::size_t kMostShown = 4096;

// The next number of a list separated by single blanks; nothing for anything else.
template <class Number>
std::optional<Number> TakeNumber(std::string_view& text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{})
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (!text.empty() && !(text.front() == ' ' && text.size() > 1))
        return std::nullopt;
    if (!text.empty())
        text.remove_prefix(1);
    return value;
}

} // namespace

void TileBoard::SetFeeds(const std::vector<FeedPtr>& feeds) {
    std::set<std::uint32_t> present;
    for (const FeedPtr& feed : feeds) {
        present.insert(feed->Id());
        if (!m_tiles.contains(feed->Id()))
            m_tiles.emplace(feed->Id(), Tile{feed, FeedWatch(feed, m_wakeup), 0, false, {}});
    }
    std::erase_if(m_tiles, [&](const auto& item) { return !present.contains(item.first); });
}

bool TileBoard::OnMessage(std::string_view message) {
    if (message.starts_with("ack "))
        return OnAck(message.substr(4));
    if (message == "show" || message.starts_with("show "))
        return OnShow(message.size() > 5 ? message.substr(5) : std::string_view{});
    return false;
}

bool TileBoard::OnAck(std::string_view arguments) {
    const auto id = TakeNumber<std::uint32_t>(arguments);
    const auto sequence = TakeNumber<std::uint32_t>(arguments);
    if (!id || !sequence || !arguments.empty())
        return false;
    // A picture of a camera that left meanwhile is nobody's fault.
    const auto tile = m_tiles.find(*id);
    if (tile != m_tiles.end() && static_cast<std::uint32_t>(tile->second.sent) == *sequence)
        tile->second.inFlight = false;
    return true;
}

bool TileBoard::OnShow(std::string_view arguments) {
    std::set<std::uint32_t> shown;
    while (!arguments.empty()) {
        const auto id = TakeNumber<std::uint32_t>(arguments);
        if (!id || shown.size() >= kMostShown)
            return false;
        shown.insert(*id);
    }
    m_shown = std::move(shown);
    return true;
}

std::optional<TileBoard::Outgoing> TileBoard::Next(Clock::time_point now) {
    auto tile = m_tiles.upper_bound(m_lastTurn);
    for (std::size_t looked = 0; looked < m_tiles.size(); ++looked, ++tile) {
        if (tile == m_tiles.end())
            tile = m_tiles.begin();
        auto& [id, state] = *tile;
        if (state.inFlight || !IsShown(id))
            continue;
        kit::PicturePtr picture = state.feed->Newest();
        if (!picture || picture->Sequence() == state.sent)
            continue;
        if (state.sent != 0)
            m_counters.skipped += picture->Sequence() - state.sent - 1;
        state.sent = picture->Sequence();
        state.inFlight = true;
        state.sentAt = now;
        m_lastTurn = id;
        return Outgoing{id, std::move(picture)};
    }
    return std::nullopt;
}

bool TileBoard::IsOverdue(Clock::time_point now) const {
    for (const auto& [id, tile] : m_tiles) {
        if (tile.inFlight && now - tile.sentAt > m_ackDeadline)
            return true;
    }
    return false;
}

} // namespace host
