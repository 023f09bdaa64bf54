// What the bodies need. Included before a target opens its instruction set, so that no function of the
// library is compiled for it: the linker keeps one copy of those, which then must run everywhere.
#pragma once

#include "image/kernels/Kernels.h"
#include "image/kernels/Saturate.h"
#include "image/kernels/ScanTables.h"
#include "image/kernels/ZigZag.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <new>
