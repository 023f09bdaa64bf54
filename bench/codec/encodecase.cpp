#include "bench/codec/cases.h"

#include "bench/codec/peer.h"
#include "image/ImageCodec.h"

namespace bench {
namespace {

// Streams further than this from the peer's in total size or squared error are no result to be timed. The
// report shows both, so that a reader can hold them to less.
constexpr double kMostDifference = 0.1;

class OurEncoder {
public:
    OurEncoder(Size size, int quality) : m_size(size), m_quality(quality) {
        m_out.resize(static_cast<std::size_t>(size.width + 16) * static_cast<std::size_t>(size.height + 16) *
                         3 +
                     4096);
    }

    bool Encode(const Planes& planes) {
        const auto& p = planes.planes;
        const auto capacity = static_cast<std::int32_t>(m_out.size());
        if (p.size() == 1)
            return EncodeJpegGrey(p[0].Row(0), m_size.width, m_size.height, m_quality, m_out.data(), capacity,
                                  &m_length, p[0].stride) == ImageOk;
        return EncodeJpegYV12(p[0].Row(0), p[2].Row(0), p[1].Row(0), m_size.width, m_size.height, m_quality,
                              m_out.data(), capacity, &m_length, p[0].stride) == ImageOk;
    }
    PeerEncoder::Stream Stream() const { return {m_out.data(), static_cast<std::size_t>(m_length)}; }

private:
    Size m_size;
    int m_quality;
    Bytes m_out;
    std::int32_t m_length = 0;
};

// Sizes and errors of a set's streams, one side's.
struct Totals {
    double bytes = 0;
    double squaredError = 0;

    void Add(PeerEncoder::Stream stream, const Planes& source, PeerDecoder& decoder, Planes& decoded) {
        bytes += static_cast<double>(stream.size);
        decoder.Decode(Bytes(stream.data, stream.data + stream.size), decoded);
        for (std::size_t c = 0; c < source.planes.size(); ++c) {
            const Plane& wanted = source.planes[c];
            for (int y = 0; y < wanted.height; ++y) {
                for (int x = 0; x < wanted.width; ++x) {
                    const int error = wanted.Row(y)[x] - decoded.planes[c].Row(y)[x];
                    squaredError += error * error;
                }
            }
        }
    }
};

// What is wrong with our streams, or nothing.
std::string CheckEncoders(const Case& work, const std::vector<Planes>& frames, OurEncoder& ours,
                          PeerEncoder& peer, Result& result) {
    PeerDecoder decoder;
    Planes decoded(work.size, work.sampling);
    Totals ourTotals, peerTotals;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (!ours.Encode(frames[i]))
            return "frame " + std::to_string(i) + " was not encoded";
        ourTotals.Add(ours.Stream(), frames[i], decoder, decoded);
        peerTotals.Add(peer.Encode(frames[i]), frames[i], decoder, decoded);
    }
    result.bytes = ourTotals.bytes / static_cast<double>(frames.size());
    result.sizeRatio = ourTotals.bytes / peerTotals.bytes;
    if (result.sizeRatio > 1 + kMostDifference || result.sizeRatio < 1 - kMostDifference)
        return "size is " + std::to_string(result.sizeRatio) + " of the peer's";
    result.errorRatio = ourTotals.squaredError / peerTotals.squaredError;
    if (result.errorRatio > 1 + kMostDifference)
        return "squared error is " + std::to_string(result.errorRatio) + " of the peer's";
    return {};
}

} // namespace

void RunEncode(const Case& work, const std::string& frameFolder, double seconds, Result& result) {
    const FrameFile file(frameFolder, work.size);
    std::vector<Planes> frames;
    for (std::size_t i = 0; i < file.Count(); ++i)
        frames.push_back(file.Read(i, work.sampling));
    result.frames = frames.size();
    OurEncoder ours(work.size, work.quality);
    PeerEncoder accurate(work.size, work.sampling, work.quality, false);
    PeerEncoder fast(work.size, work.sampling, work.quality, false, PeerTransform::Fast);
    result.fault = CheckEncoders(work, frames, ours, accurate, result);
    if (!result.fault.empty())
        return;
    const FrameWork encode = [&](std::size_t i) { ours.Encode(frames[i]); };
    for (PeerEncoder* const peer : {&accurate, &fast}) {
        const Timing timing =
            MeasurePair(frames.size(), seconds / 2, encode, [&](std::size_t i) { peer->Encode(frames[i]); });
        if (!result.timing || timing.ratio < result.timing->ratio) {
            result.timing = timing;
            result.peer = peer == &fast ? "peer (fast)" : "peer";
        }
    }
}

} // namespace bench
