#include "camera/VideoFrame.h"

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Jpeg.h"
#include "support/RecordingLog.h"

namespace {

using support::MakeJpeg;
using testing::ElementsAre;

platform::ComPtr<CVideoFrame> Decode(std::string_view jpeg) {
    auto frame = CVideoFrame::Create();
    EXPECT_EQ(S_OK, frame->Init(reinterpret_cast<const std::uint8_t*>(jpeg.data()),
                                static_cast<std::uint32_t>(jpeg.size())));
    return frame;
}

// Of two copies: each call gives one of its own.
std::vector<std::uint8_t> Content(CVideoFrame& frame) {
    std::uint8_t* bytes[2] = {};
    std::uint32_t size = 0;
    for (auto& copy : bytes)
        EXPECT_EQ(S_OK, frame.GetFrameContent(&copy, &size));
    EXPECT_NE(bytes[0], bytes[1]);
    EXPECT_EQ(0, std::memcmp(bytes[0], bytes[1], size));
    std::vector<std::uint8_t> copy(bytes[0], bytes[0] + size);
    for (auto* const copied : bytes)
        CoTaskMemFree(copied);
    return copy;
}

TEST(VideoFrame, HoldsTheFrameBlock) {
    struct Row {
        int width, height;
        bool colour;
        std::uint32_t imageSize;
        std::uint16_t planes, bits;
        std::string_view compression;
    };
    using namespace std::string_view_literals;
    const Row rows[] = {
        {160, 120, false, 19200, 1, 8, "\0\0\0\0"sv},
        {320, 240, true, 115200, 3, 12, "YV12"},
        {5, 5, true, 37, 3, 12, "YV12"},
        {101, 3, true, 454, 3, 12, "YV12"},
    };
    for (const Row& row : rows) {
        const auto block = Content(*Decode(MakeJpeg(row.width, row.height, row.colour)));
        ASSERT_EQ(40 + row.imageSize, block.size());
        BITMAPINFOHEADER header;
        std::memcpy(&header, block.data(), sizeof header);
        EXPECT_EQ(40U, header.biSize);
        EXPECT_EQ(row.width, header.biWidth);
        EXPECT_EQ(row.height, header.biHeight);
        EXPECT_EQ(row.planes, header.biPlanes);
        EXPECT_EQ(row.bits, header.biBitCount);
        EXPECT_EQ(row.compression, std::string_view(reinterpret_cast<const char*>(&block[16]), 4));
        EXPECT_EQ(row.imageSize, header.biSizeImage);
        EXPECT_EQ(std::vector<std::uint8_t>(16, 0),
                  std::vector<std::uint8_t>(block.begin() + 24, block.begin() + 40));
    }
}

TEST(VideoFrame, AnswersForWhatItLacks) {
    auto& log = support::RecordingLog::Fresh();
    const std::string good = MakeJpeg(16, 16);
    std::uint8_t* bytes = nullptr;
    std::uint32_t size = 0;
    // Without content that comes first, whatever the arguments are.
    const auto undecoded = Decode(std::string_view(good).substr(0, good.size() / 2));
    EXPECT_EQ(E_UNEXPECTED, undecoded->GetFrameContent(nullptr, nullptr));
    const auto frame = Decode(good);
    EXPECT_EQ(E_POINTER, frame->GetFrameContent(nullptr, &size));
    EXPECT_EQ(E_POINTER, frame->GetFrameContent(&bytes, nullptr));
    EXPECT_THAT(log.Texts(), ElementsAre("TRASSDO: m_pBuff\n", "TRASSDO: pBitmap && pdwSize\n",
                                         "TRASSDO: pBitmap && pdwSize\n"));
    std::uint32_t tag = 7;
    EXPECT_EQ(S_OK, frame->GetFrameTag(&tag));
    EXPECT_EQ(0U, tag);
    EXPECT_EQ(E_NOTIMPL, frame->Reserved());
}

} // namespace
