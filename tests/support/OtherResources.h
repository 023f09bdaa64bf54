// Resources of the test's own in the place of the module's.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/resources.h"
#include "tools/rescomp/image_writer.h"

namespace support {

// The module's resources are away for the life of the object.
class OtherResources {
public:
    explicit OtherResources(std::vector<rescomp::Resource> resources)
        : m_real(platform::ModuleBytes(platform::ResourceInstances().at(0))),
          m_image(rescomp::BuildImage(std::move(resources))) {
        platform::RemoveResourceInstance(m_real.data());
        platform::AddResourceInstance(Bytes());
    }
    OtherResources(const OtherResources&) = delete;
    OtherResources& operator=(const OtherResources&) = delete;
    ~OtherResources() {
        platform::RemoveResourceInstance(Bytes().data());
        platform::AddResourceInstance(m_real);
    }

private:
    [[nodiscard]] std::span<const std::uint8_t> Bytes() const {
        return {reinterpret_cast<const std::uint8_t*>(m_image.data()), m_image.size()};
    }
    const std::span<const std::uint8_t> m_real;
    const std::string m_image;
};

// A neutral resource, as the list of such an image takes it.
inline rescomp::Resource Neutral(const char16_t* type, std::uint16_t number, std::string bytes) {
    return {{type}, {number}, 0, 0, std::move(bytes)};
}

} // namespace support
