#include "tools/jpeg/picture.h"

#include "image/CodecParts.h"
#include "image/jpegdec/JpegDecoder.h"
#include "image/kernels/Level.h"
#include "tools/jpeg/files.h"

namespace jpegtool {
namespace {

using Outcome = std::variant<Picture, std::string>;

std::int32_t Length(Stream stream) {
    return static_cast<std::int32_t>(stream.size());
}

// What a status of the primary engine means to somebody who has only the file.
std::string StatusText(JpegStatus status) {
    switch (status) {
    case JPEG_OK:
        return "no fault";
    case JPEG_NOT_SUPPORTED:
        return "a kind of stream, a sampling or a size that is not supported";
    case JPEG_INTERNAL_ERROR:
        return "damaged data";
    case JPEG_BUFFER_EXHAUSTED:
        return "the stream ends too early";
    case JPEG_BAD_HUFFMAN_SEGMENT:
        return "a Huffman table that is bad or missing";
    case JPEG_BAD_QUANT_SEGMENT:
        return "a quantisation table that is bad or missing";
    case JPEG_BAD_SCAN_SEGMENT:
        return "a bad scan header";
    case JPEG_BAD_SEGMENT_LENGTH:
        return "a segment whose length does not match its content";
    case JPEG_BAD_COMPONENT_ID:
        return "a scan of a component that the frame does not have";
    case JPEG_BAD_FRAME_SEGMENT:
        return "a bad frame header";
    }
    return "status " + std::to_string(static_cast<int>(status));
}

const char* ColourText(JpegColor colour) {
    switch (colour) {
    case JC_GRAY:
        return "grey";
    case JC_RGB:
        return "RGB";
    case JC_YCBCR:
        return "YCbCr";
    case JC_CMYK:
        return "CMYK";
    case JC_YCCK:
        return "YCCK";
    default:
        return "of an unknown colour model";
    }
}

// The primary decoder with a stream's header read.
struct Primary {
    explicit Primary(Stream stream) {
        status = decoder.SetSource(stream.data(), Length(stream));
        if (status == JPEG_OK)
            status = decoder.ReadHeader(width, height, channels, colour, sampling);
    }
    bool IsGrey() const { return channels == 1 && colour == JC_GRAY; }
    bool IsYCbCr() const { return channels == 3 && colour == JC_YCBCR; }
    // The rule by which the facade leaves a stream with this engine.
    bool Takes() const { return status == JPEG_OK && (IsGrey() || IsYCbCr()); }
    // Why it does not.
    std::string Refusal() const {
        if (status != JPEG_OK)
            return StatusText(status);
        return std::string("the stream is ") + ColourText(colour);
    }

    CJPEGDecoder decoder;
    JpegStatus status = JPEG_OK;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t channels = 0;
    JpegColor colour = JC_UNKNOWN;
    JpegSampling sampling = JS_444;
};

Outcome DecodePrimary(Stream stream) {
    Primary primary(stream);
    if (!primary.Takes())
        return "the primary engine does not take it: " + primary.Refusal();
    Picture picture(primary.IsGrey() ? ImageKindGrey : ImageKindYV12, primary.width, primary.height);
    JpegStatus status = JPEG_OK;
    PlanarDestination planes{};
    if (primary.IsGrey()) {
        status = primary.decoder.SetDestination(picture.Y(), primary.width, primary.width, primary.height, 1,
                                                JC_GRAY);
    } else {
        const std::int64_t chroma = picture.ChromaWidth();
        planes = {picture.Y(), picture.Cb(), picture.Cr(), primary.width, chroma, chroma};
        status = primary.decoder.SetDestination(&planes, primary.width, primary.width, primary.height, 3,
                                                JC_YCBCR420_PLANAR);
    }
    if (status == JPEG_OK)
        status = primary.decoder.ReadData();
    if (status != JPEG_OK)
        return "the primary engine cannot decode it: " + StatusText(status);
    return picture;
}

Outcome DecodeFallback(Stream stream) {
    std::int32_t width = 0, height = 0;
    ImageKind kind{};
    if (ProbeJpegFallback(stream.data(), Length(stream), width, height, kind) != ImageOk)
        return "the fallback engine cannot read its header";
    Picture picture(kind, width, height);
    const std::int32_t chroma = picture.ChromaWidth();
    const std::int32_t result =
        kind == ImageKindGrey ? DecodeJpegGreyFallback(stream.data(), Length(stream), picture.Y(), width)
                              : DecodeJpegYV12Fallback(stream.data(), Length(stream), picture.Y(), width,
                                                       picture.Cr(), chroma, picture.Cb(), chroma);
    if (result == ImageNoMemory)
        return "no memory for the fallback engine";
    if (result != ImageOk)
        return "the fallback engine cannot decode it";
    return picture;
}

Outcome DecodeFacade(Stream stream) {
    if (FrameBlock block = DecodeToFrameBlock(stream.data(), Length(stream)))
        return Picture(std::move(block));
    // The facade gives no reason: find it with the engine that the stream met.
    Primary primary(stream);
    Outcome again = primary.Takes() ? DecodePrimary(stream) : DecodeFallback(stream);
    std::string* const reason = std::get_if<std::string>(&again);
    if (!reason)
        return std::string("no memory for its frame");
    return primary.Takes() ? *reason
                           : *reason + ", and the primary engine does not take it: " + primary.Refusal();
}

} // namespace

namespace {

// "4 (AVX2)": the level and the variant of it that runs.
std::string RunningLevel() {
    const char* set = "";
    ippxVariant(&set);
    return std::to_string(g_nKernelLevel) + " (" + set + ")";
}

std::string s_best; // as start-up chose it

} // namespace

void StartKernels(const std::string& level) {
    ippStaticInit();
    g_nCodecStartState = ImageOk;
    s_best = RunningLevel();
    if (level.empty())
        return;
    const IppStatus status = ippSelectVariant(level.c_str());
    if (status == ippStsFeatureNotThere)
        throw UsageError("this processor has no level " + level + "; its best one is " + s_best);
    if (status != ippStsNoErr)
        throw platform::WrongValue("--level", "a number from 0 to 4, 4-avx or 4-avx2", level);
}

std::string LevelText() {
    return "kernel level " + RunningLevel() + ", best level " + s_best;
}

Verdict ChooseEngine(Stream stream) {
    const Primary primary(stream);
    if (primary.Takes()) {
        if (primary.sampling == JS_OTHER)
            return {"none",
                    "the primary engine takes the header, and the data only at 4:4:4, 4:2:2 and 4:2:0"};
        return {"primary",
                std::string("it reads the header, and the stream is ") + ColourText(primary.colour)};
    }
    std::int32_t width = 0, height = 0;
    ImageKind kind{};
    const bool fallback = ProbeJpegFallback(stream.data(), Length(stream), width, height, kind) == ImageOk;
    return {fallback ? "fallback" : "none",
            "the primary engine does not take it: " + primary.Refusal() +
                (fallback ? "" : ", and the fallback engine cannot read its header")};
}

Outcome Decode(Stream stream, Engine engine) {
    switch (engine) {
    case Engine::Primary:
        return DecodePrimary(stream);
    case Engine::Fallback:
        return DecodeFallback(stream);
    case Engine::Facade:
        break;
    }
    return DecodeFacade(stream);
}

} // namespace jpegtool
