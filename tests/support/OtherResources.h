// Resources of the test's own in the place of the module's.
#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Common/Utils/LocalizeEx.h"
#include "platform/resources.h"
#include "tools/rescomp/resources.h"

namespace support {

// The module's image is another one for the life of the object.
class OtherResources {
public:
    explicit OtherResources(std::vector<rescomp::Resource> resources)
        : m_real(platform::ModuleBytes(ThisModule()).begin(), platform::ModuleBytes(ThisModule()).end()) {
        Write(rescomp::BuildImage(std::move(resources)));
    }
    OtherResources(const OtherResources&) = delete;
    OtherResources& operator=(const OtherResources&) = delete;
    ~OtherResources() { Write(m_real); }

private:
    static void Write(const std::string& image) {
        const platform::WritableMemory memory(platform::ModuleBytes(ThisModule()));
        if (memory.Bytes().size() < image.size())
            throw std::length_error("an image that does not fit into the module's");
        std::memcpy(memory.Bytes().data(), image.data(), image.size());
    }
    const std::string m_real;
};

// A neutral resource, as the list of such an image takes it.
inline rescomp::Resource Neutral(const char16_t* type, std::uint16_t number, std::string bytes) {
    return {{type}, {number}, 0, 0, std::move(bytes)};
}

} // namespace support
