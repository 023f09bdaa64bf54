#include "bench/codec/cases.h"

#include "bench/codec/peer.h"
#include "image/ImageCodec.h"

#include <algorithm>
#include <cstdlib>

namespace bench {
namespace {

struct Format {
    const char* name;
    Sampling sampling;
    bool progressive;
};
constexpr Format kFormats[] = {{"420", Sampling::S420, false},
                               {"422", Sampling::S422, false},
                               {"444", Sampling::S444, false},
                               {"grey", Sampling::Grey, false},
                               {"progressive", Sampling::S420, true}};
constexpr Size kSizes[] = {{160, 120}, {320, 240}, {640, 480}, {1920, 1080}};
constexpr int kQualities[] = {75, 90};

std::int32_t Length(const Bytes& jpeg) {
    return static_cast<std::int32_t>(jpeg.size());
}

std::vector<Bytes> MakeStreams(const Case& work, const std::string& frameFolder) {
    const FrameFile file(frameFolder, work.size);
    PeerEncoder encoder(work.size, work.sampling, work.quality, work.progressive);
    std::vector<Bytes> streams;
    for (std::size_t i = 0; i < file.Count(); ++i) {
        const PeerEncoder::Stream stream = encoder.Encode(file.Read(i, work.sampling));
        streams.emplace_back(stream.data, stream.data + stream.size);
    }
    return streams;
}

double MeanBytes(const std::vector<Bytes>& streams) {
    double sum = 0;
    for (const Bytes& jpeg : streams)
        sum += static_cast<double>(jpeg.size());
    return sum / static_cast<double>(streams.size());
}

// Both decoders with the planes that they fill, used for every frame of a set.
class Decoders {
public:
    explicit Decoders(const Case& work)
        : m_ours(work.size, OutputSampling(work.sampling)), m_coded(work.size, work.sampling),
          m_halved(work.size, OutputSampling(work.sampling)) {}

    bool Ours(const Bytes& jpeg) {
        std::vector<Plane>& p = m_ours.planes;
        if (p.size() == 1)
            return DecodeJpegGrey(jpeg.data(), Length(jpeg), p[0].Row(0), p[0].stride) == ImageOk;
        return DecodeJpegYV12(jpeg.data(), Length(jpeg), p[0].Row(0), p[0].stride, p[2].Row(0), p[2].stride,
                              p[1].Row(0), p[1].stride) == ImageOk;
    }

    // The peer stops at its own planes; 4:2:2 and 4:4:4 are halved behind it.
    void Peer(const Bytes& jpeg) {
        m_peer.Decode(jpeg, m_coded);
        if (m_coded.sampling == Sampling::S422 || m_coded.sampling == Sampling::S444) {
            for (std::size_t c = 1; c < 3; ++c)
                HalveChroma(m_coded.planes[c], m_coded.sampling, m_halved.planes[c]);
        }
    }

    // The largest difference of a sample in what the two made of the last stream.
    int Difference() const {
        const bool halved = m_coded.sampling == Sampling::S422 || m_coded.sampling == Sampling::S444;
        int worst = 0;
        for (std::size_t c = 0; c < m_ours.planes.size(); ++c) {
            const Plane& ours = m_ours.planes[c];
            const Plane& peer = halved && c > 0 ? m_halved.planes[c] : m_coded.planes[c];
            for (int y = 0; y < ours.height; ++y) {
                for (int x = 0; x < ours.width; ++x)
                    worst = std::max(worst, std::abs(ours.Row(y)[x] - peer.Row(y)[x]));
            }
        }
        return worst;
    }

private:
    static Sampling OutputSampling(Sampling coded) {
        return coded == Sampling::Grey ? Sampling::Grey : Sampling::S420;
    }

    PeerDecoder m_peer;
    Planes m_ours;
    Planes m_coded;
    Planes m_halved;
};

// What is wrong with our decoding of the set, or nothing.
std::string CheckDecoders(Decoders& decoders, const std::vector<Bytes>& streams) {
    for (std::size_t i = 0; i < streams.size(); ++i) {
        const std::string which = "frame " + std::to_string(i);
        if (!decoders.Ours(streams[i]))
            return which + " was not decoded";
        decoders.Peer(streams[i]);
        if (const int difference = decoders.Difference(); difference > 1)
            return which + " differs by " + std::to_string(difference) + " from the peer's planes";
    }
    return {};
}

// The facade encodes grey and YV12 alone; its frame block is looked at for what phones send.
bool Has(Work work, const Format& format) {
    const bool frame = format.sampling == Sampling::S420 && !format.progressive;
    return work == Work::Decode || frame || (work == Work::Encode && format.sampling == Sampling::Grey);
}

} // namespace

std::string Case::Name() const {
    const char* const verb = work == Work::Encode       ? "encode"
                             : work == Work::FrameBlock ? "frameblock"
                                                        : "decode";
    return std::string(verb) + "/" + format + "/" + std::to_string(size.width) + "x" +
           std::to_string(size.height) + "/q" + std::to_string(quality);
}

std::vector<Case> AllCases() {
    std::vector<Case> cases;
    for (const Work work : {Work::Decode, Work::Encode, Work::FrameBlock}) {
        for (const Format& format : kFormats) {
            if (!Has(work, format))
                continue;
            for (const Size size : kSizes) {
                for (const int quality : kQualities)
                    cases.push_back({work, format.name, format.sampling, format.progressive, size, quality});
            }
        }
    }
    return cases;
}

Result Run(const Case& work, const std::string& frameFolder, double seconds) {
    Result result;
    result.name = work.Name();
    if (work.work == Work::Encode) {
        RunEncode(work, frameFolder, seconds, result);
        return result;
    }
    const std::vector<Bytes> streams = MakeStreams(work, frameFolder);
    result.frames = streams.size();
    result.bytes = MeanBytes(streams);
    Decoders decoders(work);
    result.fault = CheckDecoders(decoders, streams);
    if (!result.fault.empty())
        return result;
    const FrameWork planes = [&](std::size_t i) { decoders.Ours(streams[i]); };
    if (work.work == Work::Decode) {
        result.peer = "peer";
        result.timing =
            MeasurePair(streams.size(), seconds, planes, [&](std::size_t i) { decoders.Peer(streams[i]); });
    } else {
        result.peer = "planes";
        const FrameWork block = [&](std::size_t i) {
            static_cast<void>(DecodeToFrameBlock(streams[i].data(), Length(streams[i])));
        };
        result.timing = MeasurePair(streams.size(), seconds, block, planes);
    }
    return result;
}

} // namespace bench
