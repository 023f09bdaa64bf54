// Pictures of any size as JPEG, and frame blocks that nobody should believe.

#include <gtest/gtest.h>

#include <vector>

#include "kit/picture/picture.h"
#include "support/Frames.h"
#include "support/Jpeg.h"

namespace kit {
namespace {

using support::MakeBlock;

const std::uint8_t* Bytes(const std::string& block) {
    return reinterpret_cast<const std::uint8_t*>(block.data());
}

TEST(Picture, OfAnySizeDecodesToThatSizeAndItsColour) {
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 2},   {1, 9},     {9, 1},
                                         {3, 5}, {17, 16}, {159, 121}, {320, 240}};
    for (const auto& [width, height] : sizes) {
        for (const bool grey : {false, true}) {
            const std::string block = MakeBlock(width, height, grey, 120, 200, 60);
            PlaneLayout layout;
            ASSERT_TRUE(ReadLayout(Bytes(block), block.size(), &layout));
            const support::DecodedJpeg decoded = support::DecodeJpeg(EncodeJpeg(Bytes(block), layout));
            ASSERT_EQ(std::pair(decoded.width, decoded.height), std::pair(width, height)) << grey;
            // ITU-T T.871: R = Y + 1.402 (Cr - 128), B = Y + 1.772 (Cb - 128). A picture of less than two
            // columns or rows has no chroma of its own.
            const bool colour = !grey && width > 1 && height > 1;
            for (std::size_t i = 0; i < decoded.rgb.size(); i += 3) {
                ASSERT_NEAR(decoded.rgb[i], colour ? 221 : 120, 4) << width << 'x' << height << ' ' << i;
                ASSERT_NEAR(decoded.rgb[i + 2], colour ? 0 : 120, 4) << width << 'x' << height << ' ' << i;
            }
        }
    }
    const support::DecodedJpeg placeholder = support::DecodeJpeg(DrawPlaceholder(-5, 100000));
    EXPECT_EQ(std::pair(placeholder.width, placeholder.height), std::pair(16, 4096));
}

TEST(Picture, LayoutOfAHostileBlockIsRefused) {
    const std::string good = MakeBlock(6, 4);
    const auto with = [](std::string block, std::size_t at, std::uint32_t value, std::size_t size = 4) {
        std::memcpy(&block[at], &value, size);
        return block;
    };
    const std::string cases[] = {
        good,
        good + "x",
        good.substr(0, good.size() - 1),
        good.substr(0, 39),
        with(good, 4, 0),
        with(good, 8, 0xFFFFFFFC),                // a negative height
        with(good, 4, 0x7FFFFFFF),                // a huge width
        with(with(good, 4, 0x10000), 8, 0x10000), // sizes whose product is small in 32 bits
        with(good, 16, 0),                        // grey with the bits of colour
        with(good, 14, 8, 2),                     // colour with the bits of grey
        with(good, 16, 0x30323449),               // another compression
    };
    for (const std::string& block : cases) {
        // A copy of just that size, so that reading behind it is noticed.
        const std::vector<std::uint8_t> exact(block.begin(), block.end());
        PlaneLayout layout;
        EXPECT_EQ(ReadLayout(exact.data(), exact.size(), &layout), block.starts_with(good))
            << testing::PrintToString(block.substr(0, 20));
    }
}

} // namespace
} // namespace kit
