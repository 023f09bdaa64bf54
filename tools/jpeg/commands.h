// One function a command. Each returns the exit status, prints what was asked for on the standard output and
// a line for each refusal on the standard error. They throw UsageError and FileError for what ends the
// command.
#pragma once

#include "tools/jpeg/options.h"

namespace jpegtool {

int RunInfo(const Options& options);
int RunDecode(const Options& options);
int RunEncode(const Options& options);
int RunBench(const Options& options);

} // namespace jpegtool
