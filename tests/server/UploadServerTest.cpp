#include "server/UploadServer.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/ComponentTest.h"
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
    static constexpr char kNoSuchName[] = "no such name";
    static constexpr char kNoClass[] = "TRASSDO: SUCCEEDED(hr(0x80040154:'Class not registered'))\n";
    static constexpr char kNoClassReason[] = "0x80040154, (Class not registered)";
};

TEST_F(UploadServer, IsOneObjectWhileAnybodyHoldsIt) {
    Start();
    EXPECT_EQ(u"mobile", m_host.script.word);
    auto second = CreateServer();
    EXPECT_EQ(m_server.Get(), second.Get());
    EXPECT_TRUE(m_server.Query<IInfo>() && m_server.Query<IConfiguration>() &&
                m_server.Query<IVideoSource>());
    EXPECT_FALSE(m_server.Query<IWebHandler>());
    ASSERT_EQ(S_OK, support::AddCamera(m_server.Get(), u"yard", u"320x240", u""));

    // What survives from one life to the next is what the settings hold.
    Stop();
    const auto cam = CameraOf(*second.Query<IVideoSource>().Get(), Bstr(u"yard"));
    EXPECT_TRUE(cam);
    second = nullptr;
    Start();
    const auto other = CameraOf(*m_source.Get(), Bstr(u"yard"));
    EXPECT_TRUE(other && other.Get() != cam.Get());
    Stop();
    support::ForgetSettings();
    Start();
    EXPECT_FALSE(CameraOf(*m_source.Get(), Bstr(u"yard")));
}

TEST_F(UploadServer, IsNotMadeWithoutItsWebHost) {
    m_host.script.registerResult = E_FAIL;
    EXPECT_FALSE(CreateServer(E_FAIL));
    EXPECT_EQ(m_log.Texts(), (Lines{kUnspecified}));
    m_log.Clear();
    platform::RevokeClassFactory(kWebHandlerHostClass);
    EXPECT_FALSE(CreateServer(REGDB_E_CLASSNOTREG));
    EXPECT_EQ(1U, m_log.Lines().size());
    void* object = &object;
    EXPECT_EQ(CLASS_E_NOAGGREGATION,
              platform::CoCreateInstance(kUploadServerClass, reinterpret_cast<IUnknown*>(this),
                                         platform::kContextAll, IUploadServer::iid, &object));
    EXPECT_EQ(nullptr, object);
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
    EXPECT_EQ(E_UNEXPECTED, m_source->Subscribe(sink.Get()));
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
                     "TRASSDO: !m_spVideoSourceSink\n", "TRASSDO: m_spVideoSourceSink==pVideoSourceSink\n"}));
}

TEST_F(UploadServer, FindsCamerasByExactName) {
    Start({u"yard"});
    ComPtr<ICam> cam;
    EXPECT_EQ(S_OK, m_source->ConnectToCam(Bstr(u"yard").Get(), cam.Receive()));
    ICam* untouched = cam.Get();
    for (const char16_t* name : {u"Yard", u"yard ", u""})
        EXPECT_EQ(E_FAIL, m_source->ConnectToCam(Bstr(name).Get(), &untouched));
    EXPECT_EQ(E_FAIL, m_source->ConnectToCam(nullptr, &untouched));
    EXPECT_EQ(cam.Get(), untouched);
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
    struct Row {
        const char16_t* name;
        std::string record;
        Lines middle;
        std::string reason;
        HRESULT status;
        std::int32_t upload = 1;
    };
    const Row rows[] = {
        {u"shed", "", {}, kNoSuchName, E_ACCESSDENIED},
        {u"", "", {}, kNoSuchName, E_ACCESSDENIED},
        {u"yard",
         support::AuthRecord("Demo"),
         {"TRASSDO: SAuthResponce::erSuccess==oAuthResponce.nResponce\n",
          "TRASSDO: SUCCEEDED(hr(0x80070005:'Access is denied.'))\n"},
         "0x80070005, (Access is denied.)",
         E_ACCESSDENIED},
        {u"yard/x?y", "", {kNoClass}, kNoClassReason, REGDB_E_CLASSNOTREG, 0}, // there is no state tree
    };
    for (const Row& row : rows) {
        const std::string name = platform::ToUtf8(row.name);
        SCOPED_TRACE(name);
        m_log.Clear();
        TcpPair pair;
        pair.far.Send(row.record);
        EXPECT_EQ(row.status, Connect(row.name, pair.Adopt(), row.upload));
        EXPECT_TRUE(pair.far.IsClosed());
        EXPECT_EQ(Told(name, row.middle, row.reason), m_log.Texts());
        EXPECT_EQ(0U, platform::OpenSocketCount());
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
    const std::pair<const char16_t*, int> rows[] = {
        {u"mobile/video", 1}, {u"mobile/video/yard", 1}, {u"x/mobile/video", 1}, {u"mobile/config", 0},
        {u"mobile", 0},       {u"Mobile/video", 0},      {u"mobile/Video/x", 0}, {nullptr, 0},
    };
    for (const auto& [path, expected] : rows) {
        std::int32_t stream = 7;
        EXPECT_EQ(S_OK, m_host.script.handler->IsStreamPath(path, &stream));
        EXPECT_EQ(expected, stream);
    }
    std::uint32_t process = 0;
    EXPECT_EQ(S_OK, m_host.script.handler->GetHandlerProcessId(&process));
    EXPECT_EQ(platform::CurrentProcessId(), process);
    EXPECT_EQ(E_POINTER, m_host.script.handler->Request(u"mobile", nullptr, nullptr));
}

TEST_F(UploadServer, TakesConnectionsFromTheWebServer) {
    Start();
    struct Row {
        const char16_t* path;
        const char16_t* head;
        HRESULT status;
        Lines lines; // none: the socket stays the caller's
    };
    const Row rows[] = {
        {u"mobile/video/abc//", u"POST /x HTTP/1.1\r\n\r\n", E_ACCESSDENIED, Told("abc", {}, kNoSuchName)},
        {u"mobile/video///a/b", u"POST /x HTTP/1.1\n\n", E_ACCESSDENIED, Told("a/b", {}, kNoSuchName)},
        {u"mobile/video", u"post / HTTP/1.1\r\nA: b\r\n\r\n", REGDB_E_CLASSNOTREG,
         Told("", {kNoClass}, kNoClassReason)},
        {u"m", u"POST\r\n\r\n", E_ACCESSDENIED, Told("", {}, kNoSuchName)},
        {u"mobile/video/abc", u"POST /x\r\nno colon\r\n\r\n", E_INVALIDARG, {}},
        {u"mobile/video/abc", u"POST /x\r\nA: b\r\n", E_INVALIDARG, {}},
        {u"mobile/video/abc", nullptr, E_INVALIDARG, {}},
    };
    const auto process = [&](const Row& row, bool closed) {
        m_log.Clear();
        TcpPair pair;
        const SOCKET socket = pair.Adopt();
        const Bstr head = row.head == nullptr ? Bstr() : Bstr(row.head);
        EXPECT_EQ(row.status, m_host.script.handler->Process(row.path, socket, head.Get()));
        EXPECT_EQ(closed ? platform::kSocketError : 0, platform::closesocket(socket));
        EXPECT_EQ(row.lines, m_log.Texts());
        if (row.status != E_INVALIDARG) {
            EXPECT_EQ(row.head, m_host.script.head);
        }
    };
    for (const Row& row : rows)
        process(row, !row.lines.empty());
    m_host.script.authResult = E_FAIL;
    process({u"mobile/video/abc", u"POST /x\r\n\r\n", E_FAIL, {kUnspecified}}, false);
}

} // namespace
