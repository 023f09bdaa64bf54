// Viewing connections as the server object takes them in, one and many at a time.

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/ComponentTest.h"
#include "support/TcpPair.h"
#include "support/ViewingStage.h"

namespace {

using namespace support;
using platform::ComPtr;

class ViewingIntake : public ComponentTest {
protected:
    ViewingIntake() {
        Start();
        const BITMAPINFOHEADER header{40, 0, 0, 1, 8, 0, 0, 0, 0, 0, 0};
        m_stage.original.assign(reinterpret_cast<const char*>(&header), sizeof header);
    }
    ~ViewingIntake() override {
        Stop();
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
        m_stage.nodes.erase(kWebServerNode);
        EXPECT_TRUE(m_stage.nodes.empty()) << "a thread's argument is left";
    }
    void Publish(ComPtr<IUnknown> value) {
        const std::lock_guard guard(m_stage.mutex); // let go of before the former value
        std::swap(m_stage.nodes[kWebServerNode], value);
    }
    HRESULT View(const char16_t* name, TcpPair& pair, std::string_view credentials = "key") {
        return Connect(name, pair.Adopt(), 0, credentials);
    }

    Stage m_stage;
};

// Every way that a connection can be turned away, and then one that is not: nothing of a failure is kept.
TEST_F(ViewingIntake, ResolvesTheSourceOrRejects) {
    const ComPtr<IUnknown> other = platform::ComObject<NSProcessStateTree::CThreadArgumentValue>::Create();
    const std::string denied = "TRASSDO: SUCCEEDED(hr(0x80070005:'Access is denied.'))\n";
    struct Row {
        const char* failing;
        const char16_t* name;
        HRESULT status;
        std::string assertion;
        bool published = true; // a web server, or a value of another kind
        const char* credentials = "key";
    };
    const Row rows[] = {
        {"create tree", u"yard", E_ACCESSDENIED, denied, false},
        {"GetNode", u"yard", E_ACCESSDENIED, denied, false},
        {"GetValue", u"yard", E_ACCESSDENIED, denied, false},
        {"", u"yard", E_NOINTERFACE, "TRASSDO: m_spWebServer\n", false},
        {"OpenContent", u"yard", E_ACCESSDENIED, denied},
        {"", u"yard", E_ACCESSDENIED, denied, true, "wrong"},
        {"", u"no content", E_NOINTERFACE, "TRASSDO: spXmlConfig\n"},
    };
    m_stage.nodes[u"other"] = other;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.failing);
        const std::string name = platform::ToUtf8(row.name);
        m_log.Clear();
        m_stage.failing = row.failing;
        Publish(row.published ? m_stage.Make("web server") : other);
        TcpPair pair;
        EXPECT_EQ(row.status, View(row.name, pair, row.credentials));
        EXPECT_TRUE(pair.far.IsClosed());
        EXPECT_EQ(m_log.Texts(), (Lines{"mobile: connection of " + name + "\n", row.assertion,
                                        "mobile: connection of " + name + " rejected: " +
                                            (row.status == E_ACCESSDENIED
                                                 ? "0x80070005, (Access is denied.)\n"
                                                 : "0x80004002, (No such interface supported)\n")}));
        for (const auto& line : m_log.Lines())
            EXPECT_EQ("CUploadServer::OnConnection", line.function);
    }
    m_stage.nodes.erase(u"other");
    m_stage.failing = "";
    m_log.Clear();
    EXPECT_EQ(E_POINTER, Connect(u"yard", 0, 0));
    EXPECT_EQ("TRASSDO: hSocket && pXmlConfig\n", m_log.Texts().at(1));
    for (const std::int32_t size : {-1, 1}) {
        TcpPair unreadable;
        EXPECT_EQ(E_INVALIDARG, m_server->OnConnection(nullptr, unreadable.Adopt(), 0, size, nullptr));
        EXPECT_TRUE(unreadable.far.IsClosed());
    }
}

TEST_F(ViewingIntake, KeyAndParametersComeFromTheName) {
    Publish(m_stage.Make("web server"));
    const std::tuple<const char16_t*, const char*, const char*> rows[] = {
        {u"abc/def?x=1", "OpenContent abc", "Init def?x=1"},
        {u"", "OpenContent", "Init"},
        {u"%D0%B4?width=1%20", "OpenContent \u0434", "Init width=1%20"},
    };
    for (const auto& [name, open, init] : rows) {
        TcpPair pair;
        EXPECT_EQ(S_OK, View(name, pair));
        EXPECT_EQ("HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\npiece", pair.far.Receive(1000));
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
        for (const char* call : {open, init, "GetParams in the apartment", "video?original key"})
            EXPECT_NE(std::ranges::count(m_stage.calls, call), 0) << call;
        m_stage.calls.clear();
        EXPECT_PRED2(Has, m_log.Texts({"mobile"}).at(1),
                     "starting Packeter for " + platform::ToUtf8(name) + "\n");
        m_log.Clear();
    }
}

// Many first connections at once: all are served, also when the source vanishes under some, others leave, and
// the server object is released while they run.
TEST_F(ViewingIntake, ManyViewersStartAndEndTogether) {
    Publish(m_stage.Make("web server"));
    m_stage.endless = true;
    constexpr int kViewers = 16;
    TcpPair pairs[kViewers];
    std::vector<std::jthread> hosts;
    for (TcpPair& pair : pairs)
        hosts.emplace_back([&] { EXPECT_EQ(S_OK, View(u"yard", pair)); });
    hosts.clear();
    Stop();
    for (int i = 0; i < kViewers; ++i) {
        EXPECT_EQ(54U, pairs[i].far.Receive(54).size());
        if (i % 2 == 0)
            pairs[i].far.Close();
    }
    {
        const std::lock_guard guard(m_stage.mutex);
        m_stage.failing = "video?original"; // the source is gone
    }
    for (int i = 1; i < kViewers; i += 2)
        EXPECT_TRUE(pairs[i].far.IsClosed());
}

} // namespace
