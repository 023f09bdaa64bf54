// A test at every kernel level of the machine, level 4 with both its variants; others are skipped.
#pragma once

#include "image/kernels/Kernels.h"

#include <gtest/gtest.h>

#include <string>

// The parameter is a level, or ippLevels for the wide variant of the highest. Leaves the process at level 0.
class AtKernelLevel : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        const bool bWide = GetParam() == ippLevels;
        const int nLevel = bWide ? ippLevels - 1 : GetParam();
        if (nLevel > ippLevelFromFeatures(ippGetFeatures()).nLevel || (bWide && !ippHasWideKernels()))
            GTEST_SKIP() << "this machine has no level " << GetParam();
        g_nKernelLevel = nLevel;
        g_nKernelWide = bWide ? 1 : 0;
    }
    void TearDown() override {
        g_nKernelLevel = 0;
        g_nKernelWide = 0;
    }
};

// For INSTANTIATE_TEST_SUITE_P.
inline auto EveryKernelLevel() {
    return testing::Range(0, ippLevels + 1);
}
inline std::string KernelLevelName(const testing::TestParamInfo<int>& level) {
    return level.param == ippLevels ? "Level4Wide" : "Level" + std::to_string(level.param);
}
