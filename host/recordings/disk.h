// What recordings need of a disk. Tests put one in its place that is full, small or slow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/scope.h"

namespace host {

// Any thread.
class Disk {
public:
    Disk() = default;
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;
    virtual ~Disk() = default;

    struct Space {
        std::uint64_t free = 0; // for this process, bytes
        std::uint64_t total = 0;
    };
    // Nothing where the system does not say.
    [[nodiscard]] virtual std::optional<Space> SpaceAt(const std::string& path) const;
    // A file that was not there before, mode 0600. Without one errno says why.
    virtual platform::Descriptor Create(const std::string& path);
    // All of it, at that place. False with errno.
    virtual bool Write(int file, std::uint64_t position, std::span<const std::uint8_t> bytes);
    // True when it is gone, also when it was not there. False with errno.
    virtual bool Remove(const std::string& path);
};

} // namespace host
