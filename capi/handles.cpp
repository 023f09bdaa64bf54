#include "capi/handles.h"

namespace capi {
namespace {

constexpr unsigned kPlaceBits = 24;
constexpr std::uint64_t kPlaceMask = (std::uint64_t{1} << kPlaceBits) - 1;

} // namespace

HandleTable& HandleTable::Get() {
    static HandleTable& table = *std::make_unique<HandleTable>().release();
    return table;
}

std::uint64_t HandleTable::Add(Kind kind, std::shared_ptr<void> object) {
    const std::lock_guard guard(m_mutex);
    if (m_free.empty()) {
        if (m_places.size() > kPlaceMask)
            return 0;
        m_free.reserve(m_places.size() + 1); // so that giving a place back never fails
        m_places.emplace_back();
        m_free.push_back(static_cast<std::uint32_t>(m_places.size() - 1));
    }
    const std::uint32_t index = m_free.back();
    m_free.pop_back();
    Place& place = m_places[index];
    place.object = std::move(object);
    place.kind = kind;
    place.lent = false;
    place.holds = 1;
    return ++place.use << kPlaceBits | index;
}

HandleTable::Place* HandleTable::At(Kind kind, std::uint64_t handle) {
    const std::uint64_t index = handle & kPlaceMask;
    if (index >= m_places.size())
        return nullptr;
    Place& place = m_places[index];
    return place.object && place.kind == kind && place.use == handle >> kPlaceBits ? &place : nullptr;
}

std::shared_ptr<void> HandleTable::Free(Place& place) {
    m_free.push_back(static_cast<std::uint32_t>(&place - m_places.data()));
    return std::move(place.object);
}

std::shared_ptr<void> HandleTable::Find(Kind kind, std::uint64_t handle) {
    const std::lock_guard guard(m_mutex);
    const Place* const place = At(kind, handle);
    return place != nullptr ? place->object : nullptr;
}

std::shared_ptr<void> HandleTable::Take(Kind kind, std::uint64_t handle) {
    const std::lock_guard guard(m_mutex);
    Place* const place = At(kind, handle);
    return place != nullptr ? Free(*place) : nullptr;
}

bool HandleTable::Hold(Kind kind, std::uint64_t handle) {
    const std::lock_guard guard(m_mutex);
    Place* const place = At(kind, handle);
    if (place == nullptr || place->holds == ~std::uint32_t{0})
        return false;
    ++place->holds;
    return true;
}

bool HandleTable::Drop(Kind kind, std::uint64_t handle) {
    std::shared_ptr<void> last; // let go of behind the lock
    const std::lock_guard guard(m_mutex);
    Place* const place = At(kind, handle);
    if (place == nullptr || (place->lent && place->holds == 1))
        return false;
    if (--place->holds == 0)
        last = Free(*place);
    return true;
}

void HandleTable::Lend(std::uint64_t handle) {
    const std::lock_guard guard(m_mutex);
    if (Place* const place = At(Kind::Frame, handle))
        place->lent = true;
}

void HandleTable::EndLoan(std::uint64_t handle) {
    std::shared_ptr<void> last;
    const std::lock_guard guard(m_mutex);
    Place* const place = At(Kind::Frame, handle);
    if (place == nullptr)
        return;
    place->lent = false;
    if (--place->holds == 0)
        last = Free(*place);
}

} // namespace capi
