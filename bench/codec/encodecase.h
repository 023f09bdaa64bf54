// The cases that make streams from planes.
#pragma once

#include "bench/codec/cases.h"

namespace bench {

// Fills fault, timing, peer, bytes and the two ratios. Each of the peer's transforms is timed against ours,
// and the one that is faster stands in the result.
void RunEncode(const Case& work, const std::string& frameFolder, double seconds, Result& result);

} // namespace bench
