#include "server/UploadServer.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/threads.h"
#include "support/ComponentClasses.h"
#include "support/FakeWebHost.h"
#include "support/RecordingLog.h"
#include "support/RecordingVideoSink.h"
#include "support/Settings.h"
#include "support/TcpPair.h"
#include "support/Wait.h"
#include "support/Wire.h"

namespace {

using platform::Bstr;
using platform::ComPtr;
using support::Eventually;
using support::RecordingLog;
using support::RecordingVideoSinkObject;
using support::TcpPair;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnspecified[] = "TRASSDO: SUCCEEDED(hr(0x80004005:'Unspecified error'))\n";

ComPtr<IUploadServer> CreateServer(HRESULT expected = S_OK) {
    ComPtr<IUploadServer> server;
    EXPECT_EQ(expected, platform::CoCreateInstance(kUploadServerClass, nullptr, platform::kContextAll,
                                                   IUploadServer::iid, server.ReceiveVoid()));
    return server;
}

class UploadServer : public testing::Test {
protected:
    UploadServer() : m_log(RecordingLog::Fresh()), m_locks(platform::ModuleLock::Count()) {
        support::ForgetSettings();
        EXPECT_EQ(S_OK, support::RegisterComponentClasses());
    }
    ~UploadServer() override {
        m_source = nullptr;
        m_server = nullptr;
        m_host.script.handler = nullptr;
        support::RevokeComponentClasses();
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
        EXPECT_EQ(0U, platform::OpenSocketCount());
        EXPECT_LE(platform::ModuleLock::Count(), m_locks);
    }
    void Start(std::initializer_list<const char16_t*> cameras = {}) {
        m_server = CreateServer();
        m_source = m_server.Query<IVideoSource>();
        ASSERT_TRUE(m_source);
        for (const char16_t* name : cameras)
            ASSERT_EQ(S_OK, support::AddCamera(m_server.Get(), name, u"320x240", u"demo"));
    }
    HRESULT Connect(const char16_t* name, SOCKET socket, std::int32_t upload = 1) {
        return m_server->OnConnection(Bstr(name).Get(), socket, upload, 0, nullptr);
    }

    RecordingLog& m_log;
    support::WebHostClass m_host;
    const std::int32_t m_locks; // the class above is an object of this module too
    ComPtr<IUploadServer> m_server;
    ComPtr<IVideoSource> m_source;
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
    m_host.script.handler = nullptr;
    m_source = nullptr;
    m_server = nullptr;
    ComPtr<ICam> cam;
    EXPECT_EQ(S_OK, second.Query<IVideoSource>()->ConnectToCam(Bstr(u"yard").Get(), cam.Receive()));
    second = nullptr;
    ComPtr<ICam> other;
    Start();
    EXPECT_EQ(S_OK, m_source->ConnectToCam(Bstr(u"yard").Get(), other.Receive()));
    EXPECT_NE(cam.Get(), other.Get());
    other = nullptr;
    m_host.script.handler = nullptr;
    m_source = nullptr;
    m_server = nullptr;
    support::ForgetSettings();
    Start();
    EXPECT_EQ(E_FAIL, m_source->ConnectToCam(Bstr(u"yard").Get(), other.Receive()));
}

TEST_F(UploadServer, IsNotMadeWithoutItsWebHost) {
    m_host.script.registerResult = E_FAIL;
    EXPECT_FALSE(CreateServer(E_FAIL));
    EXPECT_THAT(m_log.Texts(), ElementsAre(kUnspecified));
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
    sink->m_onAdded = [&](BSTR name) {
        ComPtr<ICam> cam;
        EXPECT_EQ(S_OK, m_source->ConnectToCam(name, cam.Receive()));
    };
    EXPECT_EQ(S_FALSE, m_source->Unsubscribe(sink.Get()));
    EXPECT_EQ(S_FALSE, m_source->Unsubscribe(nullptr));
    EXPECT_EQ(S_OK, m_source->Subscribe(sink.Get()));
    // UTF-16 code units: a surrogate comes before U+FFFD.
    EXPECT_THAT(sink->Take(), ElementsAre("+Gate", "+yard", "+\U0001F4F7", "+\uFFFD"));
    EXPECT_EQ(E_UNEXPECTED, m_source->Subscribe(other.Get()));
    EXPECT_EQ(E_UNEXPECTED, m_source->Subscribe(sink.Get()));
    EXPECT_EQ(S_FALSE, m_source->Unsubscribe(other.Get()));
    EXPECT_THAT(other->Take(), IsEmpty());
    EXPECT_EQ(S_OK, m_source->RemoveCam(Bstr(u"Gate").Get()));
    sink->m_removedResult = E_PENDING;
    EXPECT_EQ(E_PENDING, m_source->RemoveCam(Bstr(u"yard").Get()));
    EXPECT_EQ(E_FAIL, m_source->RemoveCam(Bstr(u"yard").Get()));
    EXPECT_THAT(sink->Take(), ElementsAre("-Gate", "-yard"));
    EXPECT_EQ(S_OK, m_source->Unsubscribe(sink.Get()));
    EXPECT_THAT(sink->Take(), ElementsAre("-\U0001F4F7", "-\uFFFD"));
    EXPECT_EQ(S_OK, m_source->RemoveCam(Bstr(u"\uFFFD").Get()));
    EXPECT_EQ(S_OK, m_source->NoOperation(nullptr));
    EXPECT_THAT(m_log.Texts(),
                ElementsAre("TRASSDO: m_spVideoSourceSink==pVideoSourceSink\n",
                            "TRASSDO: !m_spVideoSourceSink\n", "TRASSDO: !m_spVideoSourceSink\n",
                            "TRASSDO: m_spVideoSourceSink==pVideoSourceSink\n"));
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
    EXPECT_THAT(m_log.Texts(), ElementsAre("TRASSDO: ppCam\n", "TRASSDO: szName\n"));
    Bstr name;
    EXPECT_EQ(S_OK, m_server.Query<IInfo>()->GetName(name.Receive()));
    EXPECT_EQ(u"Mobile", name.View());
}

// Every way that a connection can go: status, lines, and what becomes of the socket.
TEST_F(UploadServer, PlacesOrRejectsConnections) {
    Start({u"yard"});
    struct Row {
        const char* what;
        const char16_t* name;
        std::int32_t upload;
        std::string record;
        HRESULT status;
        std::vector<std::string> lines;
    };
    const std::string denied = "(Access is denied.)\n";
    const Row rows[] = {
        {"unknown name",
         u"shed",
         1,
         "",
         E_ACCESSDENIED,
         {"mobile: connection of shed\n", "mobile: connection of shed rejected: no such name\n"}},
        {"empty name",
         u"",
         1,
         "",
         E_ACCESSDENIED,
         {"mobile: connection of \n", "mobile: connection of  rejected: no such name\n"}},
        {"wrong password",
         u"yard",
         1,
         support::AuthRecord("Demo"),
         E_ACCESSDENIED,
         {"mobile: connection of yard\n", "TRASSDO: SAuthResponce::erSuccess==oAuthResponce.nResponce\n",
          "TRASSDO: SUCCEEDED(hr(0x80070005:'Access is denied.'))\n",
          "mobile: connection of yard rejected: 0x80070005, " + denied}},
        {"viewing without a state tree",
         u"yard/x?y",
         0,
         "",
         REGDB_E_CLASSNOTREG,
         {"mobile: connection of yard/x?y\n", "TRASSDO: SUCCEEDED(hr(0x80040154:'Class not registered'))\n",
          "mobile: connection of yard/x?y rejected: 0x80040154, (Class not registered)\n"}},
    };
    for (const Row& row : rows) {
        m_log.Clear();
        TcpPair pair;
        pair.far.Send(row.record);
        EXPECT_EQ(row.status, Connect(row.name, pair.Adopt(), row.upload)) << row.what;
        EXPECT_TRUE(pair.far.IsClosed()) << row.what;
        EXPECT_EQ(row.lines, m_log.Texts()) << row.what;
        EXPECT_EQ(0U, platform::OpenSocketCount()) << row.what;
    }
    m_log.Clear();
    EXPECT_EQ(E_INVALIDARG, Connect(u"yard", INVALID_SOCKET));
    EXPECT_THAT(m_log.Texts(),
                ElementsAre("mobile: connection of yard\n", "TRASSDO: hSocket && INVALID_SOCKET!=hSocket\n",
                            "TRASSDO: SUCCEEDED(hr(0x80070057:'The parameter is incorrect.'))\n",
                            "mobile: connection of yard rejected: 0x80070057, (The parameter is "
                            "incorrect.)\n"));
}

TEST_F(UploadServer, AStartedUploadEndsWithItsCamera) {
    Start({u"yard"});
    TcpPair pair;
    pair.far.Send(support::AuthRecord("demo") + support::StreamHeader(""));
    EXPECT_EQ(S_FALSE, Connect(u"yard", pair.Adopt()));
    EXPECT_EQ(std::string("\0\n", 2), pair.far.Receive(2));
    EXPECT_THAT(m_log.Texts({"mobile"}),
                testing::UnorderedElementsAre("mobile: connection of yard\n",
                                              "mobile: upload for yard started\n", "mobile: Start\n"));
    ComPtr<ICam> held;
    EXPECT_EQ(S_OK, m_source->ConnectToCam(Bstr(u"yard").Get(), held.Receive()));
    EXPECT_EQ(S_OK, m_source->RemoveCam(Bstr(u"yard").Get()));
    EXPECT_TRUE(pair.far.IsClosed()) << "although somebody still holds the camera";
}

TEST_F(UploadServer, UploadsEndWithTheServer) {
    Start({u"yard"});
    TcpPair pair;
    pair.far.Send(support::AuthRecord("demo"));
    EXPECT_EQ(S_FALSE, Connect(u"yard", pair.Adopt()));
    m_host.script.handler = nullptr;
    m_source = nullptr;
    m_server = nullptr;
    EXPECT_TRUE(pair.far.IsClosed());
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
        HRESULT auth;
        HRESULT status;
        bool closed;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {u"mobile/video/abc//",
         u"POST /x HTTP/1.1\r\n\r\n",
         S_OK,
         E_ACCESSDENIED,
         true,
         {"mobile: connection of abc\n", "mobile: connection of abc rejected: no such name\n"}},
        {u"mobile/video///a/b",
         u"POST /x HTTP/1.1\n\n",
         S_OK,
         E_ACCESSDENIED,
         true,
         {"mobile: connection of a/b\n", "mobile: connection of a/b rejected: no such name\n"}},
        {u"mobile/video",
         u"post / HTTP/1.1\r\nA: b\r\n\r\n",
         S_OK,
         REGDB_E_CLASSNOTREG,
         true,
         {"mobile: connection of \n", "TRASSDO: SUCCEEDED(hr(0x80040154:'Class not registered'))\n",
          "mobile: connection of  rejected: 0x80040154, (Class not registered)\n"}},
        {u"m",
         u"POST\r\n\r\n",
         S_OK,
         E_ACCESSDENIED,
         true,
         {"mobile: connection of \n", "mobile: connection of  rejected: no such name\n"}},
        {u"mobile/video/abc", u"POST /x\r\nno colon\r\n\r\n", S_OK, E_INVALIDARG, false, {}},
        {u"mobile/video/abc", u"POST /x\r\nA: b\r\n", S_OK, E_INVALIDARG, false, {}},
        {u"mobile/video/abc", nullptr, S_OK, E_INVALIDARG, false, {}},
        {u"mobile/video/abc", u"POST /x\r\n\r\n", E_FAIL, E_FAIL, false, {kUnspecified}},
    };
    for (const Row& row : rows) {
        m_log.Clear();
        m_host.script.authResult = row.auth;
        TcpPair pair;
        const SOCKET socket = pair.Adopt();
        const Bstr head = row.head == nullptr ? Bstr() : Bstr(row.head);
        EXPECT_EQ(row.status, m_host.script.handler->Process(row.path, socket, head.Get()));
        EXPECT_EQ(row.closed ? platform::kSocketError : 0, platform::closesocket(socket));
        EXPECT_EQ(row.lines, m_log.Texts());
        if (row.status != E_INVALIDARG) {
            EXPECT_EQ(row.head, m_host.script.head);
        }
    }
}

} // namespace
