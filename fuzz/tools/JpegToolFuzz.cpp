// What morrowstream-jpeg reads by itself: the segments of a stream for info, and picture files for encode.

#include "fuzz/Fuzz.h"
#include "tools/jpeg/files.h"
#include "tools/jpeg/picture.h"
#include "tools/jpeg/stream.h"

namespace {

void ReadPicture(jpegtool::PictureFormat format, const jpegtool::Bytes& file) {
    try {
        const jpegtool::Source source = jpegtool::ParseNetpbm("x", format, file);
        const auto pixels = static_cast<std::size_t>(source.width) * static_cast<std::size_t>(source.height);
        const std::size_t channels = format == jpegtool::PictureFormat::Ppm ? 3 : 1;
        Require(source.width > 0 && source.height > 0 && source.samples.size() == channels * pixels);
    } catch (const jpegtool::FileError&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const jpegtool::StreamContent content = jpegtool::ReadStream({data, size});
    Require(content.scans.size() <= content.scanCount && content.endFound == content.fault.empty() &&
            content.bytesBehindEnd <= size);
    const jpegtool::Bytes file(data, data + size);
    ReadPicture(jpegtool::PictureFormat::Pgm, file);
    ReadPicture(jpegtool::PictureFormat::Ppm, file);
    return 0;
}
