// A camera, and the frames that it makes of what its phone says.

#include "camera/Cam.h"

#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "camera/VideoFrame.h"
#include "platform/clock.h"
#include "platform/threads.h"
#include "support/Jpeg.h"
#include "support/RecordingCamSink.h"
#include "support/RecordingLog.h"
#include "support/TcpPair.h"
#include "support/Wait.h"
#include "support/Wire.h"

namespace {

using support::Eventually;
using support::Frame;
using support::Lines;
using support::MakeJpeg;
using support::RecordingCamSinkObject;
using support::RecordingLog;
using support::TcpPair;

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
    EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: m_pBuff\n", "TRASSDO: pBitmap && pdwSize\n",
                                  "TRASSDO: pBitmap && pdwSize\n"}));
    std::uint32_t tag = 7;
    EXPECT_EQ(S_OK, frame->GetFrameTag(&tag));
    EXPECT_EQ(0U, tag);
    EXPECT_EQ(E_NOTIMPL, frame->Reserved());
}

class Cam : public testing::Test {
protected:
    Cam() : m_log(RecordingLog::Fresh()), m_cam(CCam::Create()), m_sink(RecordingCamSinkObject::Create()) {
        m_cam->m_bstrName = platform::Bstr(u"yard");
        m_cam->m_bstrPassword = platform::Bstr(u"demo");
    }
    ~Cam() override {
        m_cam = nullptr;
        m_phone.far.Close();
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
    }

    // A phone whose pictures are whole files in each body.
    void ConnectPhone() {
        m_phone.far.Send(support::AuthRecord("demo") + support::StreamHeader(""));
        ASSERT_EQ(S_OK, m_cam->Init(m_phone.Adopt(), "demo"));
        ASSERT_EQ(std::string("\0\n", 2), m_phone.far.Receive(2));
    }
    // Sends frames until the loop grants ten more, which it does behind the sixth and the sixteenth.
    void SendToGrant(const std::string& body, int count) {
        for (int i = 0; i < count; ++i)
            m_phone.far.Send(Frame(body));
        ASSERT_EQ(support::kGrant, m_phone.far.Receive(1));
    }
    // Whether this rate, and no other, was reported.
    bool Tells(const std::string& rate) const {
        return m_log.Texts({"FPS"}) == Lines{"FPS: cam yard fps: " + rate + "\n"};
    }
    long IsConnected() {
        SVariant value;
        EXPECT_EQ(S_OK, m_cam->GetSetting(kCamSettingConnected, &value));
        EXPECT_EQ(VT_BOOL, value.vt);
        return value.boolVal;
    }
    std::uint32_t SinkReferences() {
        m_sink->AddRef();
        return m_sink->Release();
    }

    RecordingLog& m_log;
    platform::ComPtr<CCam> m_cam;
    platform::ComPtr<RecordingCamSinkObject> m_sink;
    TcpPair m_phone;
};

TEST_F(Cam, HasOneSinkAtATime) {
    const auto other = RecordingCamSinkObject::Create();
    EXPECT_EQ(S_FALSE, m_cam->Disconnect(m_sink.Get()));
    EXPECT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    EXPECT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    EXPECT_EQ(2U, SinkReferences());
    EXPECT_EQ(E_UNEXPECTED, m_cam->Connect(other.Get()));
    EXPECT_EQ(E_UNEXPECTED, m_cam->Disconnect(other.Get()));
    EXPECT_EQ(2U, SinkReferences());
    EXPECT_EQ(S_OK, m_cam->Disconnect(m_sink.Get()));
    EXPECT_EQ(1U, SinkReferences());
    EXPECT_EQ(S_OK, m_cam->Connect(other.Get()));
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: !m_spCamSink\n", "TRASSDO: m_spCamSink==pCamSink\n"}));
}

TEST_F(Cam, AnswersForItsInterfacesAndItsName) {
    const platform::ComPtr<ICam> cam(m_cam);
    EXPECT_TRUE(cam.Query<IUnknown>() && cam.Query<IInfo>() && cam.Query<ICamSettings>() &&
                cam.Query<IConfiguration>());
    BSTR name = nullptr;
    EXPECT_EQ(S_OK, m_cam->GetName(&name));
    EXPECT_EQ(platform::Bstr(u"yard"), platform::Bstr::Adopt(name));
    m_cam->m_bstrName = nullptr;
    EXPECT_EQ(S_OK, m_cam->GetName(&name));
    EXPECT_EQ(nullptr, name);
    EXPECT_EQ(E_POINTER, m_cam->GetName(nullptr));
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: szName\n"}));
    SVariant value;
    value.vt = 99;
    EXPECT_EQ(E_NOTIMPL, m_cam->GetSetting(2, &value));
    EXPECT_EQ(99, value.vt);
    EXPECT_EQ(E_NOTIMPL, cam.Query<IConfiguration>()->GetContent(nullptr, nullptr, nullptr));
}

TEST_F(Cam, TellsWhetherAPhoneIsConnected) {
    EXPECT_EQ(0, IsConnected());
    ConnectPhone();
    EXPECT_EQ(1, IsConnected());
    m_phone.far.Close();
    EXPECT_TRUE(Eventually([&] { return IsConnected() == 0; }));
}

TEST_F(Cam, DeliversDecodedFramesToItsSink) {
    const std::string picture = MakeJpeg(320, 240);
    ASSERT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    ConnectPhone();
    m_phone.far.Send(Frame(MakeJpeg(160, 120, false)));
    m_phone.far.Send(Frame(picture.substr(0, 100)));
    m_phone.far.Send(Frame(""));
    SendToGrant(picture, 3);
    EXPECT_EQ(m_sink->Calls(), (std::vector<long>{40 + 19200, 0, 0, 40 + 115200, 40 + 115200, 40 + 115200}));
}

TEST_F(Cam, JoinsTheHeaderAndTheBody) {
    const std::string picture = MakeJpeg(32, 32);
    ASSERT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    m_phone.far.Send(support::AuthRecord("demo") + support::StreamHeader(picture.substr(0, 607)) +
                     Frame(picture.substr(607)));
    ASSERT_EQ(S_OK, m_cam->Init(m_phone.Adopt(), "demo"));
    EXPECT_TRUE(Eventually([&] { return m_sink->Count() == 1; }));
    EXPECT_EQ(m_sink->Calls(), (std::vector<long>{40 + 32 * 32 * 3 / 2}));
}

TEST_F(Cam, DropsFramesWithoutASinkAndReportsTheRateWithOne) {
    const std::string picture = MakeJpeg(16, 16);
    ConnectPhone();
    platform::AdvanceClockForTesting(100);
    SendToGrant(picture, 6);
    EXPECT_EQ(m_log.Texts({"FPS"}), Lines());
    ASSERT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    // The first frame ends a period that is long over; the clock may tick once meanwhile.
    SendToGrant(picture, 10);
    EXPECT_TRUE(Tells("0.010000") || Tells("0.009901"));
    // Nine frames are counted so far. Four seconds are no period yet, eight are one.
    m_log.Clear();
    platform::AdvanceClockForTesting(3);
    SendToGrant(picture, 10);
    EXPECT_EQ(m_log.Texts({"FPS"}), Lines());
    platform::AdvanceClockForTesting(5);
    SendToGrant(picture, 10);
    EXPECT_TRUE(Tells("2.500000") || Tells("2.222222"));
    EXPECT_EQ(30U, m_sink->Count());
}

TEST_F(Cam, ASinkThatFailsStaysConnected) {
    ASSERT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    m_sink->m_result = E_FAIL;
    ConnectPhone();
    SendToGrant(MakeJpeg(16, 16), 6);
    EXPECT_EQ(6U, m_sink->Count());
    const auto texts = m_log.Texts({"TRASSDO"});
    EXPECT_EQ(texts, Lines(6, "TRASSDO: SUCCEEDED(hr(0x80004005:'Unspecified error'))\n"));
}

TEST_F(Cam, ASinkMayDisconnectItselfAndNoFrameFollowsADisconnect) {
    // And it may wait for somebody who asks for the camera's name.
    std::future<HRESULT> asked;
    m_sink->m_onFrame = [&](IVideoFrame*) {
        asked = std::async(std::launch::async, [&] {
            platform::Bstr name;
            return m_cam->GetName(name.Receive());
        });
        EXPECT_EQ(std::future_status::ready, asked.wait_for(std::chrono::seconds(20)));
        EXPECT_EQ(S_OK, m_cam->Disconnect(m_sink.Get()));
    };
    ASSERT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    ConnectPhone();
    SendToGrant(MakeJpeg(16, 16), 6);
    EXPECT_EQ(1U, m_sink->Count());
    EXPECT_EQ(1U, SinkReferences());
}

TEST_F(Cam, AFrameOutlivesItsCamera) {
    platform::ComPtr<IVideoFrame> kept;
    m_sink->m_onFrame = [&](IVideoFrame* frame) { kept = platform::ComPtr<IVideoFrame>(frame); };
    ASSERT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    ConnectPhone();
    SendToGrant(MakeJpeg(16, 16), 6);
    m_cam->CloseConnection();
    m_cam = nullptr;
    ASSERT_TRUE(platform::WaitForWorkItems(20000));
    EXPECT_EQ(1U, SinkReferences());
    std::uint8_t* bytes = nullptr;
    std::uint32_t size = 0;
    EXPECT_EQ(S_OK, kept->GetFrameContent(&bytes, &size));
    EXPECT_EQ(40U + 384, size);
    CoTaskMemFree(bytes);
}

} // namespace
