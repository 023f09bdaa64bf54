// What the segments of a JPEG stream say (T.81 annex B), whoever may be able to decode it.
//
// Takes bytes of any content: what cannot be read ends the walk, with a word about where and why.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace jpegtool {

struct FrameComponent {
    int id = 0;
    int h = 0;
    int v = 0;
    int quantTable = 0;
};

struct Frame {
    int marker = 0; // 0xC0 to 0xCF
    int precision = 0;
    int width = 0;
    int height = 0;
    std::vector<FrameComponent> components;
};

struct Scan {
    std::vector<int> components; // identifiers
    int ss = 0, se = 0, ah = 0, al = 0;
};

struct StreamContent {
    bool startFound = false;
    std::optional<Frame> frame; // the first one
    int frames = 0;
    std::vector<Scan> scans; // the first ones
    std::size_t scanCount = 0;
    std::map<int, int> quantTables;                   // bits of an entry, by identifier
    std::map<std::pair<int, int>, int> huffmanTables; // number of codes, by class and identifier
    int restartInterval = 0;                          // of the first scan, in MCUs
    std::optional<std::pair<int, int>> jfif;          // version
    std::optional<int> adobeTransform;
    bool exif = false;
    std::optional<std::string> comment; // the last one
    bool endFound = false;
    std::size_t bytesBehindEnd = 0;
    std::string fault; // empty: the walk met the end-of-image marker
};

StreamContent ReadStream(std::span<const std::uint8_t> stream);

} // namespace jpegtool
