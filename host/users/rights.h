// Which cameras somebody sees.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace host {

using CameraNames = std::set<std::string, std::less<>>;

// What a page asks before it shows anything of a camera. Who does not see a camera gets the answer that
// everybody gets where there is none, byte for byte. Cheap to copy; any thread.
class Rights {
public:
    Rights() = default; // sees none
    static Rights OfAll() {
        Rights rights;
        rights.m_all = true;
        return rights;
    }
    static Rights Of(CameraNames names) {
        Rights rights;
        rights.m_names = std::make_shared<const CameraNames>(std::move(names));
        return rights;
    }

    [[nodiscard]] bool Sees(std::string_view camera) const {
        return m_all || (m_names && m_names->contains(camera));
    }
    // Cameras to come as well. Figures of the whole server are for those alone.
    [[nodiscard]] bool SeesAll() const noexcept { return m_all; }

    friend bool operator==(const Rights& one, const Rights& other) {
        const auto names = [](const Rights& rights) {
            return rights.m_names ? *rights.m_names : CameraNames();
        };
        return one.m_all == other.m_all && names(one) == names(other);
    }

private:
    bool m_all = false;
    std::shared_ptr<const CameraNames> m_names; // null: none, or all
};

} // namespace host
