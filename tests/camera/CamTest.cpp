// A camera, and the frames that it makes of what its phone says.

#include "camera/Cam.h"

#include <cstring>
#include <future>
#include <string>

#include <gtest/gtest.h>

#include "camera/VideoFrame.h"
#include "platform/picture_limit.h"
#include "platform/threads.h"
#include "support/Jpeg.h"
#include "support/NoThreads.h"
#include "support/RecordingCamSink.h"
#include "support/RecordingLog.h"
#include "support/TcpPair.h"
#include "support/Wait.h"
#include "support/Wire.h"

namespace {

using namespace support;

platform::ComPtr<CVideoFrame> Decode(std::string_view jpeg, const SArrival& arrival = {}) {
    auto frame = CVideoFrame::Create();
    auto bytes = std::make_unique<std::uint8_t[]>(jpeg.size());
    std::memcpy(bytes.get(), jpeg.data(), jpeg.size());
    EXPECT_EQ(S_OK, frame->Init(std::move(bytes), static_cast<std::uint32_t>(jpeg.size()), arrival));
    return frame;
}

// What a frame lends: its file, its block (empty if it has none) and its time of arrival.
struct Lent {
    explicit Lent(const platform::ComPtr<IVideoFrame>& frame) {
        const auto picture = frame.Query<IReceivedPicture>();
        const std::uint8_t* bytes = nullptr;
        std::uint32_t size = 0;
        EXPECT_EQ(S_OK, picture->GetFile(&bytes, &size));
        file.assign(bytes, bytes + size);
        if (SUCCEEDED(picture->GetFrameBlock(&bytes, &size)))
            block.assign(bytes, bytes + size);
        EXPECT_EQ(S_OK, picture->GetArrival(&monotonic, &utc));
    }
    std::string file, block;
    std::int64_t monotonic = 0, utc = 0;
};

// Of two copies: each call gives one of its own.
std::string Content(IVideoFrame& frame) {
    std::uint8_t* copies[2] = {};
    std::uint32_t size = 0;
    std::string contents[2];
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(S_OK, frame.GetFrameContent(&copies[i], &size));
        contents[i].assign(copies[i], copies[i] + size);
    }
    EXPECT_NE(copies[0], copies[1]);
    EXPECT_EQ(contents[0], contents[1]);
    for (auto* const copy : copies)
        CoTaskMemFree(copy);
    return contents[0];
}

TEST(VideoFrame, HoldsTheFrameBlock) {
    const std::tuple<int, int, std::uint32_t> rows[] = {{320, 240, 115200}, {5, 5, 37}, {101, 3, 454}};
    for (const auto& [width, height, size] : rows) {
        const std::string block = Content(*Decode(RedJpeg(width, height)));
        const BITMAPINFOHEADER header{40, width, height, 3, 12, 0x32315659, size, 0, 0, 0, 0};
        ASSERT_EQ(40 + size, block.size());
        EXPECT_EQ(0, std::memcmp(&header, block.data(), 40));
        const int luma = width * height, chroma = width / 2 * (height / 2);
        const int planes[][3] = {
            {40, luma, kRedY}, {40 + luma, chroma, kRedCr}, {40 + luma + luma / 4, chroma, kRedCb}};
        for (const auto& [begin, count, value] : planes) {
            for (int i = begin; i < begin + count; ++i)
                ASSERT_NEAR(value, static_cast<unsigned char>(block[i]), 2) << i;
        }
    }
    const BITMAPINFOHEADER grey{40, 160, 120, 1, 8, 0, 19200, 0, 0, 0, 0};
    const std::string block = Content(*Decode(MakeJpeg(160, 120, false)));
    ASSERT_EQ(40U + 19200, block.size());
    EXPECT_EQ(0, std::memcmp(&grey, block.data(), 40));
}

TEST(VideoFrame, AnswersForWhatItLacks) {
    auto& log = RecordingLog::Fresh();
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
    const std::uint8_t* lent = nullptr;
    std::int64_t time = 0;
    EXPECT_EQ(E_UNEXPECTED, undecoded->GetFrameBlock(nullptr, nullptr));
    EXPECT_EQ(E_POINTER, frame->GetFrameBlock(&lent, nullptr));
    EXPECT_EQ(E_POINTER, frame->GetFile(nullptr, &size));
    EXPECT_EQ(E_POINTER, frame->GetArrival(&time, nullptr));
    const Lent half(undecoded);
    EXPECT_TRUE(half.file == good.substr(0, good.size() / 2) && half.block.empty());
    platform::SetPictureLimit(16 * 16 - 1);
    EXPECT_EQ(E_UNEXPECTED, Decode(good)->GetFrameContent(&bytes, &size));
    for (const int limit : {16 * 16, 1 << 26}) {
        platform::SetPictureLimit(limit);
        EXPECT_EQ(40U + 384, Content(*Decode(good)).size());
    }
}

class Cam : public testing::Test {
protected:
    Cam() { m_cam->m_bstrName = platform::Bstr(u"yard"); }
    ~Cam() override {
        m_cam = nullptr;
        m_phone.far.Close();
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
    }

    void ConnectPhone(std::string_view header = {}) {
        m_phone.far.Send(AuthRecord("demo") + StreamHeader(header));
        ASSERT_EQ(S_OK, m_cam->Init(m_phone.Adopt(), "demo"));
        ASSERT_EQ(std::string("\0\n", 2), m_phone.far.Receive(2));
    }
    // Sends frames until the loop grants ten more, which it does behind the sixth and the sixteenth.
    void SendToGrant(const std::string& body, int count) {
        for (int i = 0; i < count; ++i)
            m_phone.far.Send(Frame(body));
        ASSERT_EQ(kGrant, m_phone.far.Receive(1));
    }
    // Whether this rate, and no other, was reported.
    bool Tells(const std::string& rate) const {
        for (const auto& line : m_log.Lines())
            EXPECT_TRUE(line.channel != "FPS" || line.function == "CCam::OnFrame") << line.function;
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

    RecordingLog& m_log = RecordingLog::Fresh();
    platform::ComPtr<CCam> m_cam = CCam::Create();
    platform::ComPtr<RecordingCamSinkObject> m_sink = RecordingCamSinkObject::Create();
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
    platform::Bstr name;
    EXPECT_EQ(S_OK, cam.Query<IInfo>()->GetName(name.Receive()));
    EXPECT_EQ(u"yard", name.View());
    EXPECT_EQ(E_POINTER, m_cam->GetName(nullptr));
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: szName\n"}));
    EXPECT_EQ(E_NOTIMPL, m_cam->GetSetting(2, nullptr)); // which leaves the value alone
    EXPECT_EQ(E_NOTIMPL, cam.Query<IConfiguration>()->GetContent(nullptr, nullptr, nullptr));
}

// Pictures whose first 607 bytes come once; what cannot be decoded is a frame without content, and a sink
// that fails stays connected.
TEST_F(Cam, DeliversDecodedFramesToItsSink) {
    const std::string picture = MakeJpeg(320, 240);
    platform::ComPtr<IVideoFrame> kept;
    m_sink->m_onFrame = [&](IVideoFrame* frame) { kept = platform::ComPtr<IVideoFrame>(frame); };
    const SArrival before = SArrival::Now();
    m_sink->m_result = E_FAIL;
    ASSERT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    EXPECT_EQ(0, IsConnected());
    ConnectPhone(picture.substr(0, 607));
    EXPECT_EQ(1, IsConnected());
    m_phone.far.Send(Frame(picture.substr(607, 100)) + Frame("") + Frame(picture));
    SendToGrant(picture.substr(607), 3);
    EXPECT_EQ(m_sink->Calls(), (std::vector<long>{0, 0, 0, 40 + 115200, 40 + 115200, 40 + 115200}));
    m_phone.far.Close();
    EXPECT_TRUE(Eventually([&] { return IsConnected() == 0; }));
    auto lines = m_log.Lines();
    std::erase_if(lines, [](const auto& line) { return line.function != "CCam::OnFrame"; });
    ASSERT_EQ(6U, lines.size());
    for (const auto& line : lines)
        EXPECT_EQ("SUCCEEDED(hr(0x80004005:'Unspecified error'))\n", line.text);
    m_cam = nullptr;
    ASSERT_TRUE(platform::WaitForWorkItems(20000));
    EXPECT_EQ(1U, SinkReferences());
    // The frame outlives its camera, with what it lends.
    const Lent lent(kept);
    EXPECT_EQ(picture, lent.file);
    EXPECT_EQ(40U + 115200, lent.block.size());
    EXPECT_EQ(Content(*kept.Get()), lent.block);
    const SArrival after = SArrival::Now();
    EXPECT_TRUE(before.nMonotonic < lent.monotonic && lent.monotonic < after.nMonotonic);
    EXPECT_TRUE(before.nUtc <= lent.utc && lent.utc <= after.nUtc);
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

// Within its call a sink may disconnect itself, be let go of by everybody else, and wait for somebody who
// asks for the camera's name; who disconnects it on another thread waits for the call's end. No frame
// follows.
TEST_F(Cam, HoldsItsLockAndTheSinkOverItsCall) {
    std::future<HRESULT> named, disconnected;
    int calls = 0;
    m_sink->m_onFrame = [&, sink = m_sink.Get()](IVideoFrame*) {
        named = std::async(std::launch::async, [&] {
            platform::Bstr name;
            return m_cam->GetName(name.Receive());
        });
        disconnected = std::async(std::launch::async, [&] { return m_cam->Disconnect(sink); });
        EXPECT_EQ(std::future_status::ready, named.wait_for(std::chrono::seconds(20)));
        EXPECT_EQ(std::future_status::timeout, disconnected.wait_for(std::chrono::milliseconds(100)));
        EXPECT_EQ(S_OK, m_cam->Disconnect(sink));
        m_sink = nullptr;
        ++calls;
    };
    ASSERT_EQ(S_OK, m_cam->Connect(m_sink.Get()));
    ConnectPhone();
    SendToGrant(MakeJpeg(16, 16), 6);
    EXPECT_EQ(S_FALSE, disconnected.get());
    EXPECT_EQ(1, calls);
}

// In a process of its own, where no thread of the pool waits for work.
void ConnectWithoutAThread() {
    const auto cam = CCam::Create();
    TcpPair phone;
    phone.far.Send(AuthRecord("demo"));
    HRESULT hr = S_OK;
    WithoutThreads([&] { hr = cam->Init(phone.Adopt(), "demo"); });
    EXPECT_TRUE(FAILED(hr));
    EXPECT_FALSE(cam->IsConnected());
    EXPECT_EQ(1U, platform::OpenSocketCount()) << "the socket stays the caller's";
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(CamDeathTest, IsNotConnectedWithoutAThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(ConnectWithoutAThread(), testing::ExitedWithCode(0), "");
}

} // namespace
