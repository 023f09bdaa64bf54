// Numbers on the wire.
#pragma once

#include <cstddef>
#include <cstdint>

namespace host {

// A number as the bytes of its size, the lowest first.
template <class Number>
void PutLittleEndian(std::uint8_t* to, Number value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        to[i] = static_cast<std::uint8_t>(value >> (8 * i) & 0xFF);
}

} // namespace host
