// Tables of what strangers make records in are bounded.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <vector>

namespace host {

// Makes room for one more record in a table that holds `most` at most: what is over goes, and then what was
// silent longest. An eighth of the table is free afterwards, so that not each record that comes has all the
// others looked at: several thousand phones come at once when a host has been away.
template <class Key, class Record, class Less, class IsOver, class Newest>
void MakeRoom(std::map<Key, Record, Less>& table, std::size_t most, IsOver isOver, Newest newest) {
    if (table.size() < most)
        return;
    std::erase_if(table, [&](const auto& item) { return isOver(item.second); });
    const std::size_t left = most - most / 8;
    if (table.size() <= left)
        return;
    std::vector<typename std::map<Key, Record, Less>::iterator> oldest;
    oldest.reserve(table.size());
    for (auto item = table.begin(); item != table.end(); ++item)
        oldest.push_back(item);
    const auto behind = oldest.begin() + static_cast<std::ptrdiff_t>(table.size() - left);
    std::ranges::nth_element(oldest, behind, {},
                             [&](const auto& item) { return std::invoke(newest, item->second); });
    std::for_each(oldest.begin(), behind, [&](const auto& item) { table.erase(item); });
}

} // namespace host
