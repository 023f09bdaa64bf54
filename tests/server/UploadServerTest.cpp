// The server object: its life, its cameras, and how connections find them.

#include "server/UploadServer.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "interfaces/ICamSettings.h"
#include "support/ComponentTest.h"
#include "support/ConfigText.h"
#include "support/Jpeg.h"
#include "support/RecordingCamSink.h"
#include "support/RecordingVideoSink.h"
#include "support/TcpPair.h"
#include "support/Wire.h"

namespace {

using platform::Bstr;
using platform::ComPtr;
using support::CameraOf;
using support::CreateServer;
using support::Lines;
using support::RecordingVideoSinkObject;
using support::TcpPair;

constexpr char kNoClass[] = "TRASSDO: SUCCEEDED(hr(0x80040154:'Class not registered'))\n";
constexpr char kUnspecified[] = "TRASSDO: SUCCEEDED(hr(0x80004005:'Unspecified error'))\n";

class UploadServer : public support::ComponentTest {
protected:
    void Start(std::initializer_list<const char16_t*> cameras = {}) {
        ComponentTest::Start();
        for (const char16_t* name : cameras)
            ASSERT_EQ(S_OK, support::AddCamera(m_server.Get(), name, u"320x240", u"demo"));
    }
    // A connection is told of first and last.
    static Lines Told(const std::string& name, Lines middle, const std::string& reason) {
        middle.insert(middle.begin(), "mobile: connection of " + name + "\n");
        middle.push_back("mobile: connection of " + name + " rejected: " + reason + "\n");
        return middle;
    }
};

TEST_F(UploadServer, IsNotMadeWithoutItsWebHost) {
    m_host.script.registerResult = E_FAIL;
    EXPECT_FALSE(CreateServer(E_FAIL));
    EXPECT_EQ(m_log.Texts(), (Lines{kUnspecified}));
    platform::RevokeClassFactory(kWebHandlerHostClass);
    EXPECT_FALSE(CreateServer(REGDB_E_CLASSNOTREG));
    EXPECT_EQ(m_log.Texts(), (Lines{kUnspecified, kNoClass}));
}

TEST_F(UploadServer, TellsItsSubscriberOfCamerasInOrder) {
    Start({u"yard", u"Gate", u"\uFFFD", u"\U0001F4F7"});
    const auto sink = RecordingVideoSinkObject::Create();
    const auto other = RecordingVideoSinkObject::Create();
    // A sink may connect from inside its call.
    sink->m_onAdded = [&](BSTR name) { EXPECT_TRUE(CameraOf(*m_source.Get(), Bstr::CopyOf(name))); };
    EXPECT_EQ(S_FALSE, m_source->Unsubscribe(sink.Get()));
    EXPECT_EQ(S_FALSE, m_source->Unsubscribe(nullptr));
    EXPECT_EQ(S_OK, m_source->Subscribe(sink.Get()));
    // UTF-16 code units: a surrogate comes before U+FFFD.
    EXPECT_EQ(sink->Take(), (Lines{"+Gate", "+yard", "+\U0001F4F7", "+\uFFFD"}));
    EXPECT_EQ(E_UNEXPECTED, m_source->Subscribe(other.Get()));
    EXPECT_EQ(S_FALSE, m_source->Unsubscribe(other.Get()));
    EXPECT_EQ(other->Take(), Lines());
    EXPECT_EQ(S_OK, m_source->RemoveCam(Bstr(u"Gate").Get()));
    sink->m_removedResult = E_PENDING;
    EXPECT_EQ(E_PENDING, m_source->RemoveCam(Bstr(u"yard").Get()));
    EXPECT_EQ(E_FAIL, m_source->RemoveCam(Bstr(u"yard").Get()));
    EXPECT_EQ(sink->Take(), (Lines{"-Gate", "-yard"}));
    EXPECT_EQ(S_OK, m_source->Unsubscribe(sink.Get()));
    EXPECT_EQ(sink->Take(), (Lines{"-\U0001F4F7", "-\uFFFD"}));
    EXPECT_EQ(S_OK, m_source->RemoveCam(Bstr(u"\uFFFD").Get()));
    EXPECT_EQ(S_OK, m_source->NoOperation(nullptr));
    EXPECT_EQ(m_log.Texts(),
              (Lines{"TRASSDO: m_spVideoSourceSink==pVideoSourceSink\n", "TRASSDO: !m_spVideoSourceSink\n",
                     "TRASSDO: m_spVideoSourceSink==pVideoSourceSink\n"}));
}

TEST_F(UploadServer, FindsCamerasByExactName) {
    Start({u"yard"});
    const auto cam = CameraOf(*m_source.Get(), Bstr(u"yard"));
    ICam* untouched = cam.Get();
    for (const char16_t* name : {u"Yard", u"yard ", u""})
        EXPECT_EQ(E_FAIL, m_source->ConnectToCam(Bstr(name).Get(), &untouched));
    EXPECT_TRUE(cam && cam.Get() == untouched);
    EXPECT_EQ(E_POINTER, m_source->ConnectToCam(nullptr, nullptr));
    EXPECT_EQ(E_POINTER, m_server.Query<IInfo>()->GetName(nullptr));
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: ppCam\n", "TRASSDO: szName\n"}));
    Bstr name;
    EXPECT_EQ(S_OK, m_server.Query<IInfo>()->GetName(name.Receive()));
    EXPECT_EQ(u"Mobile", name.View());
}

// Every way that a connection can go: status, lines, and what becomes of the socket.
TEST_F(UploadServer, PlacesOrRejectsConnections) {
    Start({u"yard"});
    const std::string kNoSuchName = "no such name";
    const std::string kNoClassReason = "0x80040154, (Class not registered)"; // there is no state tree
    const char16_t post[] = u"POST /x HTTP/1.1\r\n\r\n";
    struct Row {
        const char16_t* path;
        const char16_t* head;
        HRESULT status;
        Lines lines; // two and more: the socket is closed; else it stays the caller's
        HRESULT auth = S_OK;
    };
    const Row rows[] = {
        {u"mobile/video/abc//", post, E_ACCESSDENIED, Told("abc", {}, kNoSuchName)},
        {u"mobile/video///a/b", u"POST /x HTTP/1.1\n\n", E_ACCESSDENIED, Told("a/b", {}, kNoSuchName)},
        {u"m", u"POST\r\n\r\n", E_ACCESSDENIED, Told("", {}, kNoSuchName)},
        {u"mobile/video/yard", post, E_ACCESSDENIED,
         Told("yard",
              {"TRASSDO: SAuthResponce::erSuccess==oAuthResponce.nResponce\n",
               "TRASSDO: SUCCEEDED(hr(0x80070005:'Access is denied.'))\n"},
              "0x80070005, (Access is denied.)")},
        {u"mobile/video", u"post / HTTP/1.1\r\nA: b\r\n\r\n", REGDB_E_CLASSNOTREG,
         Told("", {kNoClass}, kNoClassReason)},
        {u"mobile/video/yard", u"POST /x\r\nno colon\r\n\r\n", E_INVALIDARG, {}},
        {u"mobile/video/yard", nullptr, E_INVALIDARG, {}},
        {u"mobile/video/yard", post, E_FAIL, {kUnspecified}, E_FAIL},
    };
    for (const Row& row : rows) {
        m_log.Clear();
        m_host.script.authResult = row.auth;
        TcpPair pair;
        pair.far.Send(support::AuthRecord("Demo"));
        const SOCKET socket = pair.Adopt();
        const Bstr head = row.head == nullptr ? Bstr() : Bstr(row.head);
        platform::SetLastError(0);
        EXPECT_EQ(row.status, m_host.script.handler->Process(row.path, socket, head.Get()));
        EXPECT_NE(platform::kSocketNotASocket, platform::LastSocketError()) << "it is closed twice";
        EXPECT_EQ(row.lines.size() > 1 ? 0U : 1U, platform::OpenSocketCount());
        platform::closesocket(socket);
        EXPECT_EQ(row.lines, m_log.Texts());
        if (row.status != E_INVALIDARG) {
            EXPECT_EQ(row.head, m_host.script.head);
        }
    }
    m_log.Clear();
    EXPECT_EQ(E_INVALIDARG, Connect(u"yard", INVALID_SOCKET));
    EXPECT_EQ(Told("yard",
                   {"TRASSDO: hSocket && INVALID_SOCKET!=hSocket\n",
                    "TRASSDO: SUCCEEDED(hr(0x80070057:'The parameter is incorrect.'))\n"},
                   "0x80070057, (The parameter is incorrect.)"),
              m_log.Texts());
}

TEST_F(UploadServer, AStartedUploadEndsWithItsCameraOrTheServer) {
    Start({u"yard", u"gate"});
    TcpPair pair;
    pair.far.Send(support::AuthRecord("demo") + support::StreamHeader(""));
    EXPECT_EQ(S_FALSE, Connect(u"yard", pair.Adopt()));
    EXPECT_EQ(std::string("\0\n", 2), pair.far.Receive(2));
    Lines told = m_log.Texts({"mobile"});
    std::ranges::sort(told); // two threads tell
    EXPECT_EQ(told, (Lines{"mobile: Start\n", "mobile: connection of yard\n",
                           "mobile: upload for yard started\n"}));
    const auto held = CameraOf(*m_source.Get(), Bstr(u"yard"));
    EXPECT_EQ(S_OK, m_source->RemoveCam(Bstr(u"yard").Get()));
    EXPECT_TRUE(pair.far.IsClosed()) << "although somebody still holds the camera";
    TcpPair other;
    other.far.Send(support::AuthRecord("demo"));
    EXPECT_EQ(S_FALSE, Connect(u"gate", other.Adopt()));
    Stop();
    EXPECT_TRUE(other.far.IsClosed());
}

TEST_F(UploadServer, KnowsStreamsByTheirPath) {
    Start();
    EXPECT_EQ(u"mobile", m_host.script.word);
    const std::pair<const char16_t*, int> rows[] = {
        {u"mobile/video", 1}, {u"x/mobile/video", 1}, {u"mobile/config", 0},
        {u"Mobile/video", 0}, {u"mobile/Video/x", 0}, {nullptr, 0},
    };
    for (const auto& [path, expected] : rows) {
        std::int32_t stream = 7;
        EXPECT_EQ(S_OK, m_host.script.handler->IsStreamPath(path, &stream));
        EXPECT_EQ(expected, stream);
    }
    std::uint32_t process = 0;
    EXPECT_EQ(S_OK, m_host.script.handler->GetHandlerProcessId(&process));
    EXPECT_EQ(static_cast<std::uint32_t>(::getpid()), process);
    EXPECT_EQ(E_POINTER, m_host.script.handler->Request(u"mobile", nullptr, nullptr));
}

std::u16string CameraName(int number) {
    return u"cam" + platform::FromUtf8(std::to_string(number));
}

// Cameras come and go, by sets and by removals, under phones that stream into them, a subscriber that
// connects to each of them, and clients that ask. Nobody is left hanging, no document is torn, nothing leaks.
TEST_F(UploadServer, CamerasComeAndGoUnderStreamingPhones) {
    Start();
    constexpr int kCameras = 4;
    const std::string picture = support::MakeJpeg(64, 48);
    const auto camSink = support::RecordingCamSinkObject::Create();
    const auto videoSink = RecordingVideoSinkObject::Create();
    videoSink->m_onAdded = [&](BSTR name) {
        if (const auto cam = CameraOf(*m_source.Get(), Bstr::CopyOf(name)))
            cam->Connect(camSink.Get());
    };
    ASSERT_EQ(S_OK, m_source->Subscribe(videoSink.Get()));
    // Two sets of two cameras each, told apart by their passwords.
    std::u16string documents[2];
    for (int n = 0; n < 2; ++n) {
        const std::u16string password = n == 0 ? u"one" : u"two";
        documents[n] = u"<config><cams KeyXPath='Name/text()'>" +
                       support::CameraItem(CameraName(2 * n), u"160x120", password) +
                       support::CameraItem(CameraName(2 * n + 1), u"160x120", password) + u"</cams></config>";
    }

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kCameras; ++i) {
        threads.emplace_back([&, i] {
            while (!stop) {
                TcpPair pair;
                pair.far.Send(support::AuthRecord(i < 2 ? "one" : "two") + support::StreamHeader(""));
                if (FAILED(Connect(CameraName(i), pair.Adopt())))
                    continue;
                for (int n = 0; n < 20 && !stop; ++n) {
                    if (!pair.far.Send(support::Frame(picture)))
                        break;
                }
            }
        });
    }
    threads.emplace_back([&] {
        while (!stop) {
            for (int i = 0; i < kCameras; ++i) {
                const auto cam = CameraOf(*m_source.Get(), Bstr(CameraName(i)));
                if (!cam)
                    continue;
                SVariant value;
                EXPECT_EQ(S_OK, cam.Query<ICamSettings>()->GetSetting(kCamSettingConnected, &value));
                cam->Disconnect(camSink.Get());
                cam->Connect(camSink.Get());
            }
            const std::string text = support::TextOf(support::Get(*m_configuration.Get(), u"config").body);
            EXPECT_FALSE(support::Has(text, ">one<") && support::Has(text, ">two<")) << text;
            EXPECT_TRUE(text.ends_with("</config>"));
        }
    });
    for (int n = 0; n < 150; ++n) {
        EXPECT_EQ(S_OK, support::Set(*m_configuration.Get(), Bstr(documents[n % 2])).status);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (n % 3 == 0)
            m_source->RemoveCam(Bstr(CameraName(n % kCameras)).Get());
        if (n % 10 == 0) {
            EXPECT_EQ(S_OK, m_source->Unsubscribe(videoSink.Get()));
            EXPECT_EQ(S_OK, m_source->Subscribe(videoSink.Get()));
        }
    }
    stop = true;
    for (auto& thread : threads)
        thread.join();
    EXPECT_GT(camSink->Count(), 0U);
    EXPECT_EQ(S_OK, m_source->Unsubscribe(videoSink.Get()));
}

} // namespace
