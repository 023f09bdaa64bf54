#include "host/site/recordings/export.h"

#include <algorithm>

namespace host {

double ExportState::Done() const noexcept {
    if (end == End::Whole)
        return 1;
    const auto length = static_cast<double>(std::max<UnixMs>(span.end - span.begin, 1));
    return std::clamp(static_cast<double>(time - span.begin) / length, 0.0, 1.0);
}

void ExportState::Finish(End how) noexcept {
    endedAt = Clock::now().time_since_epoch().count();
    end = how;
}

bool ExportTable::IsNumber(std::string_view number) noexcept {
    return number.size() == 32 && number.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

ExportPtr ExportTable::Begin(std::string_view number, TimeSpan span) {
    const std::lock_guard guard(m_mutex);
    Sweep();
    const auto [place, isNew] = m_exports.try_emplace(std::string(number));
    if (!isNew)
        return nullptr;
    place->second = std::make_shared<ExportState>(span);
    return place->second;
}

ExportPtr ExportTable::Find(std::string_view number) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_exports.find(number);
    return found != m_exports.end() ? found->second : nullptr;
}

void ExportTable::Sweep() {
    const auto oldest = (Clock::now() - kKept).time_since_epoch().count();
    std::erase_if(m_exports, [&](const auto& entry) {
        return entry.second->end != ExportState::End::None && entry.second->endedAt < oldest;
    });
}

} // namespace host
