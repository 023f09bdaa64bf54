#include "server/ParseQuery.h"

#include <algorithm>

QueryMap ParseQuery(std::u16string_view text) {
    QueryMap oQuery;
    while (!text.empty()) {
        const std::u16string_view piece = text.substr(0, text.find(u'&'));
        text.remove_prefix(std::min(piece.size() + 1, text.size()));
        const std::u16string_view key = piece.substr(0, piece.find(u'='));
        if (!key.empty())
            oQuery.insert_or_assign(std::u16string(key),
                                    std::u16string(piece.substr(std::min(key.size() + 1, piece.size()))));
    }
    return oQuery;
}
