// The packer's parameters, as any phone may write them: a text that is taken gives values in range, and a
// packer with them makes a picture of a small source.

#include <vector>

#include "fuzz/Fuzz.h"
#include "kit/packer/frame_packer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto parsed = kit::ParsePackerParameters(AsText(data, size));
    if (!parsed)
        return 0;
    kit::PackerParameters p = *parsed;
    const auto in = [](auto value, auto least, auto most) { return value >= least && value <= most; };
    Require(in(p.width, 16, 1920) && in(p.height, 16, 1920) && in(p.fps, 0.1, 25.0) &&
            in(p.quality, 1, 100) && in(p.zoomX, 0, 1000) && in(p.zoomY, 0, 1000) &&
            in(p.zoomWidth, 10, 1000 - p.zoomX) && in(p.zoomHeight, 10, 1000 - p.zoomY) &&
            in(p.quarterTurns, 0, 3));
    p.width = 16 + p.width % 64; // a large picture shows nothing more
    p.height = 16 + p.height % 64;
    kit::PackerCounters counters;
    kit::FramePacker packer(p, counters);
    // Just as large as the planes: sides from the text's length, odd ones included.
    const int width = static_cast<int>(size % 37);
    const int height = static_cast<int>(size / 37 % 29);
    const std::vector<std::uint8_t> samples(
        static_cast<std::size_t>(width * height + 2 * (width * height / 4)), 77);
    Require(!packer.Pack({kit::SourcePlanes::Form::Yv12, width, height, samples.data()}).jpeg.empty());
    return 0;
}
