// What the codec asks of the heap: how often, and what becomes of a picture when the answer is no. The
// program is linked so that every allocation of the codec's own code comes through here.

#include "image/ImageCodec.h"
#include "image/JpegSamples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr int kNever = -1;
bool s_bArmed = false;
int s_nAsked = 0;
int s_nRefuse = kNever; // the allocation that is refused, counted from 0
std::size_t s_nRefusedBytes = 0;

// What memory holds that somebody else has used before.
constexpr std::uint8_t kOthers = 0xEE;

bool IsRefused(std::size_t nBytes) {
    if (!s_bArmed || s_nAsked++ != s_nRefuse)
        return false;
    s_nRefusedBytes = nBytes;
    return true;
}

} // namespace

// What the linker puts in place of the allocations (its option --wrap).
extern "C" {
void* __real_malloc(std::size_t nBytes);
void* __real_calloc(std::size_t nCount, std::size_t nBytes);
void* __real__Znwm(std::size_t nBytes);
void* __real__Znam(std::size_t nBytes);
void* __real__ZnwmSt11align_val_t(std::size_t nBytes, std::align_val_t nAlignment);

void* __wrap_malloc(std::size_t nBytes) {
    void* const pBytes = IsRefused(nBytes) ? nullptr : __real_malloc(nBytes);
    return pBytes && s_bArmed ? std::memset(pBytes, kOthers, nBytes) : pBytes;
}
void* __wrap_calloc(std::size_t nCount, std::size_t nBytes) {
    return IsRefused(nCount * nBytes) ? nullptr : __real_calloc(nCount, nBytes);
}
void* __wrap__Znwm(std::size_t nBytes) {
    return IsRefused(nBytes) ? throw std::bad_alloc() : __real__Znwm(nBytes);
}
void* __wrap__Znam(std::size_t nBytes) {
    return IsRefused(nBytes) ? throw std::bad_alloc() : __real__Znam(nBytes);
}
void* __wrap__ZnwmSt11align_val_t(std::size_t nBytes, std::align_val_t nAlignment) {
    return IsRefused(nBytes) ? throw std::bad_alloc() : __real__ZnwmSt11align_val_t(nBytes, nAlignment);
}
}

namespace {

using namespace samples;

const Kind kKinds[] = {
    {"Grey", {.nComponents = 1, .nH = 1, .nV = 1}},
    {"S420", {}},
    {"S422", {.nV = 1}},
    {"Progressive", {.bProgressive = true}},
    {"GreyProgressive", {.nComponents = 1, .nH = 1, .nV = 1, .bProgressive = true}},
    {"Separate", {.bSeparateScans = true}},
    {"Rgb", {.nH = 1, .nV = 1, .bRgb = true}},
    {"RgbProgressive", {.nH = 1, .nV = 1, .bProgressive = true, .bRgb = true}},
};

enum class Operation { Probe, FrameBlock, YV12, Grey, EncodeYV12, EncodeGrey };

using Memory = testing::TestWithParam<Kind>;
INSTANTIATE_TEST_SUITE_P(All, Memory, testing::ValuesIn(kKinds), KindName<testing::TestParamInfo<Kind>>);

// The result of an operation on a square picture; a missing block counts as unreadable.
std::int32_t Perform(Operation eOperation, const Bytes& jpeg, int nSide) {
    static Bytes s_planes[3], s_out;
    for (Bytes& plane : s_planes)
        plane.resize(nSide * nSide);
    s_out.resize(s_planes[0].size() * 2 + 4096);
    const auto nSize = static_cast<std::int32_t>(jpeg.size());
    const auto nRoom = static_cast<std::int32_t>(s_out.size());
    std::uint8_t* const pY = s_planes[0].data();
    std::int32_t nWidth = 0, nHeight = 0, nBytes = 0, nResult = ImageOk;
    ImageKind eKind{};
    s_nAsked = 0;
    s_bArmed = true;
    switch (eOperation) {
    case Operation::Probe:
        nResult = ProbeJpeg(jpeg.data(), nSize, nWidth, nHeight, eKind);
        break;
    case Operation::FrameBlock:
        nResult = DecodeToFrameBlock(jpeg.data(), nSize) ? ImageOk : ImageUnreadable;
        break;
    case Operation::YV12:
        nResult = DecodeJpegYV12(jpeg.data(), nSize, pY, nSide, s_planes[1].data(), nSide / 2,
                                 s_planes[2].data(), nSide / 2);
        break;
    case Operation::Grey:
        nResult = DecodeJpegGrey(jpeg.data(), nSize, pY, nSide);
        break;
    case Operation::EncodeYV12:
        nResult = EncodeJpegYV12(pY, s_planes[1].data(), s_planes[2].data(), nSide, nSide, 75, s_out.data(),
                                 nRoom, &nBytes, 0);
        break;
    case Operation::EncodeGrey:
        nResult = EncodeJpegGrey(pY, nSide, nSide, 75, s_out.data(), nRoom, &nBytes, 0);
        break;
    }
    s_bArmed = false;
    return nResult;
}

std::vector<Operation> Operations(const Recipe& recipe) {
    std::vector<Operation> all = {Operation::Probe, Operation::FrameBlock, Operation::YV12};
    if (!recipe.bRgb) // which has no luma
        all.push_back(Operation::Grey);
    all.push_back(recipe.nComponents == 1 ? Operation::EncodeGrey : Operation::EncodeYV12);
    return all;
}

// Nothing is allocated for a block or a row: a hundred times as many ask the heap no more often. The frame
// block of the large picture comes from the pool.
TEST_P(Memory, IsNotAskedForByBlocks) {
    const Bytes small = Encode(GetParam().Sized(32, 32)), large = Encode(GetParam().Sized(320, 320));
    for (const Operation eOperation : Operations(GetParam().recipe)) {
        ASSERT_EQ(Perform(eOperation, large, 320), ImageOk); // tables are kept from here on
        ASSERT_EQ(Perform(eOperation, small, 32), ImageOk);
        const int nSmall = s_nAsked;
        ASSERT_EQ(Perform(eOperation, large, 320), ImageOk);
        EXPECT_EQ(s_nAsked, eOperation == Operation::FrameBlock ? nSmall - 1 : nSmall)
            << static_cast<int>(eOperation);
        EXPECT_LT(s_nAsked, 80);
    }
}

// Ends in the middle of its data. Rows that fail want memory of their own.
Bytes CutShort(Bytes jpeg) {
    jpeg.resize(jpeg.size() - (jpeg.size() - FindMarker(jpeg, 0xDA)) / 2);
    jpeg.insert(jpeg.end(), {0xFF, 0xD9});
    return jpeg;
}

// Each allocation refused in its turn: a clean failure, and the same picture as ever once there is memory
// again. The temporary of the fallback into planes alone has a code of its own.
TEST_P(Memory, RefusedAnywhereIsAFailure) {
    constexpr int kSide = 48;
    const Bytes whole = Encode(GetParam().Sized(kSide, kSide));
    std::vector<std::pair<Operation, Bytes>> all;
    for (const Operation eOperation : Operations(GetParam().recipe))
        all.emplace_back(eOperation, whole);
    if (!GetParam().recipe.bProgressive)
        all.emplace_back(Operation::FrameBlock, CutShort(whole));
    for (const auto& [eOperation, jpeg] : all) {
        SCOPED_TRACE(static_cast<int>(eOperation));
        const bool bEncode = eOperation == Operation::EncodeYV12 || eOperation == Operation::EncodeGrey;
        int nTemporaries = 0;
        for (s_nRefuse = 0;; ++s_nRefuse) {
            const std::int32_t nResult = Perform(eOperation, jpeg, kSide);
            if (s_nAsked <= s_nRefuse) {
                EXPECT_EQ(nResult, ImageOk);
                break;
            }
            const bool bTemporary = nResult == ImageNoMemory;
            nTemporaries += bTemporary ? 1 : 0;
            EXPECT_TRUE(bTemporary || nResult == (bEncode ? ImageEncodeFailed : ImageUnreadable))
                << s_nRefuse << ' ' << nResult;
            EXPECT_TRUE(!bTemporary || s_nRefusedBytes >= 3 * kSide * kSide) << s_nRefusedBytes;
        }
        s_nRefuse = kNever;
        const bool bFallback = GetParam().recipe.bRgb || GetParam().recipe.bSeparateScans;
        EXPECT_EQ(nTemporaries, bFallback && eOperation == Operation::YV12 ? 1 : 0);
    }
}

// Whatever the memory of a frame block held, the block has samples and zeros alone: the bytes that decoding
// into cleared planes gives.
TEST_P(Memory, NothingOfOthersIsShown) {
    for (const auto& [nWidth, nHeight] : {std::pair{48, 48}, {47, 48}, {48, 33}, {2, 9}, {320, 320}}) {
        const Bytes whole = Encode(GetParam().Sized(nWidth, nHeight));
        for (const Bytes& jpeg : {whole, CutShort(whole)}) {
            SCOPED_TRACE(testing::Message() << nWidth << 'x' << nHeight << ' ' << jpeg.size());
            const auto nSize = static_cast<std::int32_t>(jpeg.size());
            const int nLuma = nWidth * nHeight;
            if (FrameBlock used = FrameBlock::Allocate(static_cast<std::uint32_t>(nLuma * 3 / 2)))
                std::fill_n(used.get(), used.size(), kOthers); // the pool's next one
            s_bArmed = true;
            const FrameBlock block = DecodeToFrameBlock(jpeg.data(), nSize);
            s_bArmed = false;
            Bytes planes(static_cast<std::size_t>(nLuma) * 2);
            std::uint8_t* const pCr = planes.data() + nLuma;
            const std::int32_t nResult = DecodeJpegYV12(jpeg.data(), nSize, planes.data(), nWidth, pCr,
                                                        nWidth / 2, pCr + nLuma / 4, nWidth / 2);
            ASSERT_EQ(nResult == ImageOk, static_cast<bool>(block));
            EXPECT_TRUE(!block || std::equal(block.Planes(), block.get() + block.size(), planes.begin()));
        }
    }
}

// Of 64 freed blocks of a megabyte 31 wait for others of their size, which get them all zero; another size
// makes itself room among them.
TEST(FrameBlockPool, HoldsThirtyTwoMegabytesAndNothingOfAPicture) {
    std::vector<FrameBlock> blocks;
    blocks.reserve(64);
    const auto allocate = [&](int nBlocks, std::uint32_t nImageBytes) {
        blocks.clear();
        s_nAsked = 0;
        s_bArmed = true;
        while (nBlocks-- > 0)
            blocks.push_back(FrameBlock::Allocate(nImageBytes));
        s_bArmed = false;
        for (FrameBlock& block : blocks) {
            EXPECT_EQ(std::count(block.get(), block.get() + block.size(), 0), block.size());
            std::fill_n(block.get(), block.size(), kOthers);
        }
        return s_nAsked;
    };
    EXPECT_EQ(allocate(64, 1 << 20), 64);
    EXPECT_EQ(allocate(64, 1 << 20), 64 - 31);
    EXPECT_EQ(allocate(2, 5 << 20), 2);
    EXPECT_EQ(allocate(2, 5 << 20), 0);
    EXPECT_EQ(allocate(64, 1 << 20), 64 - 21);
    EXPECT_EQ(allocate(1, 40 << 20), 1);
    EXPECT_EQ(allocate(1, 40 << 20), 1) << "larger than the pool";
    EXPECT_EQ(allocate(3, 115'200), 3);
    EXPECT_EQ(allocate(3, 115'200), 0) << "that of 320x240 would end its heap";
    EXPECT_EQ(allocate(3, 60'000), 3);
    EXPECT_EQ(allocate(3, 60'000), 3) << "small ones are the heap's";
}

} // namespace
