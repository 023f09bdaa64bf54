// info: what a stream holds, one "key: value" a line.

#include <algorithm>
#include <cstdio>

#include "tools/jpeg/commands.h"
#include "tools/jpeg/files.h"
#include "tools/jpeg/picture.h"
#include "tools/jpeg/stream.h"

namespace jpegtool {
namespace {

constexpr std::size_t kShownScans = 12;
constexpr std::size_t kShownComment = 120;

std::string Number(auto value) {
    return std::to_string(value);
}

// Joins what `text` makes of each item.
std::string Join(const auto& items, const char* separator, auto text) {
    std::string joined;
    for (const auto& item : items)
        joined += (joined.empty() ? "" : separator) + text(item);
    return joined.empty() ? "none" : joined;
}

std::string FrameType(const Frame& frame) {
    const int n = frame.marker - 0xC0;
    std::string text = n == 0       ? "baseline"
                       : n % 4 == 1 ? "extended sequential"
                       : n % 4 == 2 ? "progressive"
                                    : "lossless";
    if (n > 8)
        text += ", arithmetic coding";
    if (n > 4 && n != 9 && n != 10 && n != 11)
        text += ", hierarchical";
    return text + " (SOF" + Number(n) + "), " + Number(frame.precision) + " bits a sample";
}

std::string SamplingName(const Frame& frame) {
    const auto& c = frame.components;
    if (c.size() == 1)
        return "one component";
    if (c.size() < 3)
        return "other";
    for (std::size_t i = 1; i < c.size(); ++i) {
        const FrameComponent& wanted = i == 3 ? c[0] : c[1];
        if (c[i].h != wanted.h || c[i].v != wanted.v)
            return "other";
    }
    if (c[1].h != 1 || c[1].v != 1)
        return "other";
    struct Name {
        int h, v;
        const char* text;
    };
    for (const Name& name :
         {Name{1, 1, "4:4:4"}, {2, 1, "4:2:2"}, {2, 2, "4:2:0"}, {1, 2, "4:4:0"}, {4, 1, "4:1:1"}}) {
        if (c[0].h == name.h && c[0].v == name.v)
            return name.text;
    }
    return "other";
}

std::string Colour(const StreamContent& content) {
    const std::size_t count = content.frame->components.size();
    const int transform = content.adobeTransform.value_or(-1);
    std::string text = count == 1                     ? "grey"
                       : count == 3 && transform == 0 ? "RGB"
                       : count == 3 && transform < 2  ? "YCbCr"
                       : count == 4 && transform == 2 ? "YCCK"
                       : count == 4 && transform == 0 ? "CMYK"
                                                      : "unknown";
    if (content.jfif)
        text += ", JFIF " + Number(content.jfif->first) + "." + Number(content.jfif->second);
    if (transform >= 0)
        text += ", Adobe transform " + Number(transform);
    return text + (content.exif ? ", Exif" : "");
}

std::string ScanText(const Scan& scan) {
    return "[" + Join(scan.components, " ", [](int id) { return Number(id); }) + "] " + Number(scan.ss) +
           ".." + Number(scan.se) + " " + Number(scan.ah) + "," + Number(scan.al);
}

// On one line, and nothing that a terminal would act on.
std::string Printable(const std::string& text) {
    std::string shown;
    for (const char c : text.substr(0, text.find_last_not_of('\0') + 1)) {
        if (shown.size() == kShownComment)
            return shown + "...";
        shown += c >= ' ' && c <= '~' ? c : '.';
    }
    return shown;
}

void Line(const char* key, const std::string& value) {
    std::printf("%s: %s\n", key, value.c_str());
}

void PrintFrame(const StreamContent& content) {
    const Frame& frame = *content.frame;
    Line("size", Number(frame.width) + "x" + Number(frame.height));
    Line("frame", FrameType(frame));
    Line("sampling", SamplingName(frame) + " (" + Join(frame.components, ", ", [](const FrameComponent& c) {
                         return Number(c.id) + ": " + Number(c.h) + "x" + Number(c.v) + " with table " +
                                Number(c.quantTable);
                     }) + ")");
    Line("colour", Colour(content));
    Line("progressive", frame.marker % 4 == 2 ? "yes" : "no");
    if (content.frames > 1)
        Line("frame headers", Number(content.frames));
}

void PrintTables(const StreamContent& content) {
    Line("restart interval",
         content.restartInterval == 0 ? "none" : Number(content.restartInterval) + " MCUs");
    Line("quantisation tables", Join(content.quantTables, ", ", [](const auto& table) {
             return Number(table.first) + " (" + Number(table.second) + " bits)";
         }));
    Line("Huffman tables", Join(content.huffmanTables, ", ", [](const auto& table) {
             return std::string(table.first.first == 0 ? "DC " : "AC ") + Number(table.first.second) + " (" +
                    Number(table.second) + " codes)";
         }));
    std::vector<Scan> shown = content.scans;
    shown.resize(std::min(shown.size(), kShownScans));
    Line("scans", Number(content.scanCount) + ": " + Join(shown, ", ", ScanText) +
                      (content.scanCount > shown.size() ? ", ..." : ""));
}

// False when no engine takes the stream.
bool PrintStream(const std::string& path, const Bytes& stream) {
    const StreamContent content = ReadStream(stream);
    Line("file", path);
    Line("bytes", Number(stream.size()));
    if (!content.startFound || !content.frame) {
        Complain(path + (content.startFound ? ": a JPEG stream without a frame header" : ": no JPEG stream"));
        return false;
    }
    PrintFrame(content);
    PrintTables(content);
    if (content.comment)
        Line("comment", Printable(*content.comment));
    Line("end", !content.endFound ? content.fault
                : content.bytesBehindEnd == 0
                    ? "end-of-image marker"
                    : Number(content.bytesBehindEnd) + " bytes behind the end-of-image marker");
    const Verdict verdict = ChooseEngine(stream);
    Line("engine", verdict.engine + ": " + verdict.reason);
    if (verdict.engine == "none")
        Complain(path + ": " + verdict.reason);
    return verdict.engine != "none";
}

} // namespace

int RunInfo(const Options& options) {
    int status = kExitDone;
    for (const std::string& path : options.inputs) {
        try {
            if (!PrintStream(path, ReadFile(path)))
                status = kExitFailed;
        } catch (const FileError& error) {
            Complain(error.what());
            status = kExitFailed;
        }
        if (path != options.inputs.back())
            std::printf("\n");
    }
    return status;
}

} // namespace jpegtool
