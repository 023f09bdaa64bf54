// decode and encode: a stream to a picture file, and back.

#include <algorithm>

#include "image/jpegenc/JpegEncoder.h"
#include "tools/jpeg/commands.h"
#include "tools/jpeg/files.h"
#include "tools/jpeg/picture.h"

namespace jpegtool {
namespace {

// Writes one stream into `out`; the status, and on success the length.
JpegStatus WriteStream(const Source& source, const Options& options, Bytes& out, std::int32_t& length) {
    CJPEGEncoder encoder;
    const std::int32_t width = source.width, height = source.height;
    const std::uint8_t* const samples = source.samples.data();
    const std::int64_t pixels = std::int64_t{width} * height;
    const std::int64_t chroma = std::int64_t{width / 2} * (height / 2);
    // The engine takes half the stride of Y for chroma, which is the width of a chroma row here.
    const PlanarSource planes{samples, samples + pixels, samples + pixels + chroma};
    JpegStatus status = JPEG_OK;
    JpegColor colour = JC_YCBCR;
    switch (source.format) {
    case PictureFormat::Pgm:
        colour = JC_GRAY;
        status = encoder.SetSource(samples, width, height, 1, width, JC_GRAY);
        break;
    case PictureFormat::Ppm:
        status = encoder.SetSource(samples, width, height, 3, 3 * width, JC_RGB);
        break;
    case PictureFormat::Yuv:
        status = encoder.SetSource(&planes, width, height, 1, width, JC_YCBCR420_PLANAR);
        break;
    }
    const JpegSampling sampling = options.sampling == Sampling::S444   ? JS_444
                                  : options.sampling == Sampling::S422 ? JS_422
                                                                       : JS_420;
    if (status == JPEG_OK)
        status = encoder.SetParams(options.quality, colour == JC_GRAY ? JS_444 : sampling, colour,
                                   options.progressive, options.restartInterval);
    length = static_cast<std::int32_t>(out.size());
    if (status == JPEG_OK)
        status = options.progressive ? encoder.WriteImageProgressive(out.data(), &length)
                                     : encoder.WriteImage(out.data(), &length);
    return status;
}

// Most streams are far smaller than their pictures, and none is larger than `most`; in between a second
// attempt with more room is cheaper than room for the worst each time.
Bytes EncodeSource(const std::string& path, const Source& source, const Options& options) {
    const std::size_t pixels =
        static_cast<std::size_t>(source.width) * static_cast<std::size_t>(source.height);
    const std::size_t most = std::min<std::size_t>(std::size_t{1} << 20 | pixels * 16, kLargestFile);
    for (std::size_t room = std::min(pixels * 2 + (std::size_t{1} << 16), most);;
         room = std::min(room * 4, most)) {
        Bytes out(room);
        std::int32_t length = 0;
        const JpegStatus status = WriteStream(source, options, out, length);
        if (status == JPEG_OK) {
            out.resize(static_cast<std::size_t>(length));
            return out;
        }
        const bool roomMayHelp = status == JPEG_BUFFER_EXHAUSTED || status == JPEG_INTERNAL_ERROR;
        if (!roomMayHelp || room == most)
            throw FileError(path + ": the encoder gave up with status " +
                            std::to_string(static_cast<int>(status)));
    }
}

} // namespace

int RunDecode(const Options& options) {
    const PictureFormat format = FormatOfName(options.output);
    const std::string& path = options.inputs[0];
    const Bytes stream = ReadFile(path);
    const auto outcome = Decode(stream, options.engine);
    if (const std::string* const reason = std::get_if<std::string>(&outcome))
        throw FileError(path + ": " + *reason);
    WritePicture(options.output, format, std::get<Picture>(outcome));
    return kExitDone;
}

int RunEncode(const Options& options) {
    const std::string& path = options.inputs[0];
    if (!options.output.ends_with(".jpg") && !options.output.ends_with(".jpeg"))
        throw UsageError("\"" + options.output + "\" ends neither in .jpg nor in .jpeg");
    if (options.sampling && FormatOfName(path) != PictureFormat::Ppm)
        throw UsageError("--sampling is for .ppm files; a .yuv file is 4:2:0, a .pgm file has no chroma");
    WriteFile(options.output, EncodeSource(path, ReadSource(path, options.size), options));
    return kExitDone;
}

} // namespace jpegtool
