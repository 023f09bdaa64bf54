// libjpeg-turbo by its planar interface: one handle for all frames, planes in and out without a copy between.
// Its errors end the program: it meets sound streams and planes alone.
#pragma once

#include "bench/codec/frames.h"

#include <memory>

namespace bench {

enum class PeerTransform { Accurate, Fast };

class PeerDecoder {
public:
    PeerDecoder();
    ~PeerDecoder();
    // Planes of the stream's size and sampling.
    void Decode(const Bytes& jpeg, Planes& planes);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

class PeerEncoder {
public:
    PeerEncoder(Size size, Sampling sampling, int quality, bool progressive,
                PeerTransform transform = PeerTransform::Accurate);
    ~PeerEncoder();
    // The stream stands in the encoder's own memory until the next call.
    struct Stream {
        const std::uint8_t* data;
        std::size_t size;
    };
    Stream Encode(const Planes& planes);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace bench
