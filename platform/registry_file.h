// The registry's content, and its text in a file. For registry.cpp alone; registry.h tells of the format.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/registry.h"

namespace platform {

// The order of names without regard to the case of A to Z; a path comes right before the paths below it.
struct RegistryNameLess {
    using is_transparent = void;

    bool operator()(std::u16string_view a, std::u16string_view b) const noexcept {
        return std::ranges::lexicographical_compare(a, b, {}, Rank, Rank);
    }

private:
    static char16_t Rank(char16_t unit) noexcept {
        if (unit == u'\\')
            return 0;
        return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit - u'A' + u'a') : unit;
    }
};

class RegistryContent {
public:
    using Values = std::map<std::u16string, RegistryValue, RegistryNameLess>;
    // By path. A key's parents are there as well.
    using KeyMap = std::map<std::u16string, Values, RegistryNameLess>;

    [[nodiscard]] KeyMap& Keys(RegistryRoot root) noexcept { return m_roots[static_cast<std::size_t>(root)]; }
    [[nodiscard]] const KeyMap& Keys(RegistryRoot root) const noexcept {
        return m_roots[static_cast<std::size_t>(root)];
    }

    // The key, made with its parents where they are missing; null for a path that is none.
    Values* MakeKey(RegistryRoot root, std::u16string_view path);

    // Calls for each path below a key; below an empty one, for all.
    template <class Call>
    void ForEachBelow(RegistryRoot root, std::u16string_view key, Call call) const {
        const KeyMap& keys = Keys(root);
        for (auto at = key.empty() ? keys.begin() : keys.upper_bound(key); at != keys.end(); ++at) {
            const std::u16string_view path = at->first;
            if (!key.empty() && (path.size() <= key.size() || path[key.size()] != u'\\' ||
                                 RegistryNameLess{}(key, path.substr(0, key.size()))))
                break;
            call(at->first);
        }
    }

private:
    KeyMap m_roots[2];
};

// Whether a file can hold this text of a name or a value: whole characters, none of them a control character
// but tab and line ends.
bool IsRegistryText(std::u16string_view text) noexcept;

// Nothing for a text that is no registry, with ", line N: what" in `*wrong`.
std::optional<RegistryContent> ParseRegistry(std::string_view text, std::string* wrong);
std::string FormatRegistry(const RegistryContent& content);

} // namespace platform
