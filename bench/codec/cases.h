// The cases of the comparison: what is done to which set of frames.
#pragma once

#include "bench/codec/frames.h"
#include "bench/codec/report.h"

#include <string>
#include <vector>

namespace bench {

enum class Work {
    Decode,     // a stream to planes, against the peer
    Encode,     // planes to a stream, against the peer
    FrameBlock, // a stream to a frame block (probe, block, decode), against our own plain decode to planes
};

struct Case {
    Work work = Work::Decode;
    const char* format = "420";
    Sampling sampling = Sampling::S420;
    bool progressive = false;
    Size size;
    int quality = 75;

    std::string Name() const; // for example decode/420/320x240/q75
};

std::vector<Case> AllCases();

// Makes the set of streams, compares what both sides make of every one of them, and times them if they agree.
Result Run(const Case& work, const std::string& frameFolder, double seconds);

// Of a case that makes streams from planes: fills fault, timing, peer, bytes and the two ratios. Each of the
// peer's transforms is timed against ours, and the one that is faster stands in the result.
void RunEncode(const Case& work, const std::string& frameFolder, double seconds, Result& result);

} // namespace bench
