// A test at every kernel level of the machine, level 4 with all its variants. What a machine lacks is said
// as skipped.
#pragma once

#include "image/ImageCodec.h"
#include "image/kernels/Kernels.h"

#include <gtest/gtest.h>

#include <string>

struct KernelVariant {
    const char* szName; // as people choose it
    const char* szTest;
    const char* szSet; // what then runs
};
inline constexpr KernelVariant kKernelVariants[] = {
    {"0", "Level0", "C++"},    {"1", "Level1", "SSE2"},       {"2", "Level2", "SSSE3"},
    {"3", "Level3", "SSE4.1"}, {"4-avx", "Level4Avx", "AVX"}, {"4-avx2", "Level4Avx2", "AVX2"},
    {"4", "Level4", "AVX-512"}};

// Leaves the process at level 0, with the codec started: its first use would choose another.
class AtKernelLevel : public testing::TestWithParam<KernelVariant> {
protected:
    void SetUp() override {
        g_nCodecStartState = ImageOk;
        const bool bWidest = std::string(GetParam().szSet) == "AVX-512";
        if (ippSelectVariant(GetParam().szName) != ippStsNoErr || (bWidest && ippWidestKernels() < 2))
            GTEST_SKIP() << "this machine has no " << GetParam().szSet;
        const char* szSet = "";
        ASSERT_EQ(ippxVariant(&szSet), ippStsNoErr);
        ASSERT_STREQ(szSet, GetParam().szSet) << "another variant runs than the one asked for";
    }
    void TearDown() override { static_cast<void>(ippSelectVariant("0")); }

    // What a function gives at level 0.
    template <typename Function>
    static auto AtLevelZero(Function function) {
        static_cast<void>(ippSelectVariant("0"));
        auto result = function();
        static_cast<void>(ippSelectVariant(GetParam().szName));
        return result;
    }
};

// For INSTANTIATE_TEST_SUITE_P: all of them, or those that can be held against level 0.
inline auto EveryKernelLevel() {
    return testing::ValuesIn(kKernelVariants);
}
inline auto KernelLevelsAboveZero() {
    return testing::ValuesIn(kKernelVariants + 1, std::end(kKernelVariants));
}
inline std::string KernelLevelName(const testing::TestParamInfo<KernelVariant>& level) {
    return level.param.szTest;
}
