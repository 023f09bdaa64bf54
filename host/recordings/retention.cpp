#include "host/recordings/retention.h"

#include <algorithm>

namespace host {
namespace {

using Kind = RetentionStep::Kind;

RetentionLimits::Camera OwnLimits(const RecordedCamera& camera, const RetentionLimits& limits) {
    RetentionLimits::Camera own;
    // A camera that is gone has no settings; those of its name are another one's.
    if (const auto found = limits.cameras.find(camera.name);
        camera.removed == 0 && found != limits.cameras.end())
        own = found->second;
    if (own.days == 0)
        own.days = limits.days;
    return own;
}

// For what is over its bytes.
std::optional<RetentionStep> Shrink(Index& index, std::int64_t camera, const Index::Bytes& bytes,
                                    std::uint64_t limit) {
    if (limit == 0 || bytes.all <= limit)
        return std::nullopt;
    if (const auto oldest = index.Oldest(camera, false))
        return RetentionStep{Kind::Remove, *oldest, {}};
    // To end what is being written only helps where something else than that is to have the room.
    if (bytes.kept >= limit)
        return std::nullopt;
    if (const auto oldest = index.Oldest(camera, true))
        return RetentionStep{Kind::End, *oldest, {}};
    return std::nullopt;
}

std::string Megabytes(std::uint64_t bytes) {
    return std::to_string(bytes / 1'000'000) + " MB";
}

} // namespace

RetentionStep NextRetentionStep(Index& index, const std::vector<RecordedCamera>& cameras,
                                const RetentionLimits& limits, UnixMs now,
                                const std::optional<Disk::Space>& space, bool paused) {
    for (const RecordedCamera& camera : cameras) {
        const RetentionLimits::Camera own = OwnLimits(camera, limits);
        if (own.days > 0) {
            const auto oldest = index.Oldest(camera.id, false);
            if (oldest && oldest->end < now - own.days * kDayMs)
                return {Kind::Remove, *oldest, {}};
        }
        if (const auto step = Shrink(index, camera.id, index.BytesOf(camera.id), own.bytes))
            return *step;
    }
    const Index::Bytes all = index.BytesOfAll();
    if (const auto step = Shrink(index, 0, all, limits.bytes))
        return *step;
    if (limits.bytes != 0 && all.kept >= limits.bytes)
        return {Kind::Pause, {}, "recordings that are kept take all of the " + Megabytes(limits.bytes)};
    if (!space)
        return {};
    const std::uint64_t floor = std::max(
        space->total / 100 * static_cast<std::uint64_t>(std::max(limits.freePercent, 0)), limits.freeBytes);
    if (space->free < floor) {
        if (const auto oldest = index.Oldest(0, false))
            return {Kind::Remove, *oldest, {}};
    }
    if (space->free < (paused ? floor + floor / 50 : floor))
        return {Kind::Pause,
                {},
                "the disk has " + Megabytes(space->free) + " left, and " + Megabytes(floor) +
                    " shall stay free"};
    return {};
}

} // namespace host
