// The camera wire protocol, spoken over real TCP connections by a phone that does what it likes.

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "camera/VMS.h"
#include "platform/com.h"
#include "platform/threads.h"
#include "support/RecordingLog.h"
#include "support/TcpPair.h"
#include "support/Wait.h"
#include "support/Wire.h"

namespace {

using namespace support;

// A source that keeps the bytes of each frame: header and body with a bar between them.
class RecordingSource : public IUnknown, public CVMSSource {
public:
    Lines Frames() const {
        const std::lock_guard guard(m_mutex);
        return m_frames;
    }
    static inline std::atomic<int> alive{0};

protected:
    RecordingSource() : CVMSSource(static_cast<IUnknown&>(*this)) { ++alive; }
    ~RecordingSource() {
        CloseConnection();
        --alive;
    }
    HRESULT Query(const GUID& interfaceId, void** object) {
        return platform::QueryTable<IUnknown>(this, interfaceId, object);
    }
    void OnFrame(const std::uint8_t* header, std::uint32_t headerSize, const std::uint8_t* body,
                 std::uint32_t bodySize) override {
        ASSERT_TRUE(header != nullptr && body != nullptr);
        std::string frame(header, header + headerSize);
        const std::lock_guard guard(m_mutex);
        m_frames.push_back((frame += '|').append(body, body + bodySize));
    }

private:
    mutable std::mutex m_mutex;
    Lines m_frames;
};
using Source = platform::ComObject<RecordingSource>;

const std::string kStart = "mobile: Start\n", kStop = "mobile: Stop\n";
const std::string kEnd =
    "TRASSDO: SUCCEEDED(hr(0x800704d4:'The network connection was aborted by the local system.'))\n";
std::string Grant(int received) {
    return "message: get 10 frames, already received: " + std::to_string(received) + "\n";
}

class Wire : public testing::Test {
protected:
    ~Wire() override {
        m_source = nullptr;
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
        EXPECT_EQ(0U, platform::OpenSocketCount());
        EXPECT_EQ(0, RecordingSource::alive);
    }
    bool HasFrames(std::size_t count) const {
        return Eventually([&] { return m_source->Frames().size() == count; });
    }
    bool IsIdle() const {
        return Eventually([&] { return !m_source->IsConnected() && platform::RunningWorkItems() == 0; });
    }

    RecordingLog& m_log = RecordingLog::Fresh();
    platform::ComPtr<Source> m_source = Source::Create();
};

// However the network cuts it: one byte at a time, across records, or in one burst far ahead of the grants.
class Delivery : public Wire, public testing::WithParamInterface<std::size_t> {};

TEST_P(Delivery, ReadsEveryFrameAndGrantsTenAtATime) {
    TcpPair pair;
    std::string stream = AuthRecord("demo", "\3\4\12\5login_320x240_JPEG") + StreamHeader("HEAD");
    Lines expected;
    for (std::size_t i = 0; i < 30; ++i) {
        const std::string body(i == 9 ? 65535 : i % 3 * 256, static_cast<char>('A' + i));
        stream += Frame(body, "\x04\x05\xFF"[i % 3]);
        expected.push_back("HEAD|" + body);
    }
    std::thread phone([&] { EXPECT_TRUE(pair.far.SendInPieces(stream, GetParam())); });
    EXPECT_EQ(S_OK, m_source->Init(pair.Adopt(), "demo"));
    phone.join();
    EXPECT_TRUE(HasFrames(30));
    EXPECT_TRUE(m_source->IsConnected());
    pair.far.FinishSending();
    EXPECT_EQ(std::string("\0\n\n\n\n", 5), pair.far.Receive(100)); // accepted, then the grants
    EXPECT_TRUE(IsIdle());
    EXPECT_EQ(expected, m_source->Frames());
    EXPECT_EQ(m_log.Texts(), (Lines{kStart, Grant(0), Grant(6), Grant(16), Grant(26), kEnd, kStop}));
    for (const auto& line : m_log.Lines())
        EXPECT_EQ("CVMSSource::EntryPoint", line.function);
}

INSTANTIATE_TEST_SUITE_P(Cut, Delivery, testing::Values(1, 2, 3, 67, 130, 131, 132, 1000000));

// What a phone says before it ends, and what comes of it.
TEST_F(Wire, EndsEachConversationItsWay) {
    const std::string full(64, 'p'), begun = AuthRecord("demo") + StreamHeader("");
    const std::string descriptor = "TRASSDO: SFrameResponce::ehtFrameDescriptor & oFrameHeader.nDescriptor(";
    const Lines wrong{"TRASSDO: SAuthResponce::erSuccess==oAuthResponce.nResponce\n"};
    const Lines accepted{kStart, kEnd, kStop};
    struct Row {
        const char* name;
        std::string says, stored;
        Lines texts; // empty: whatever they are
    };
    std::vector<Row> rows = {
        {"equal", AuthRecord("demo", "whatever \xFF stands here"), "demo", accepted},
        {"bytes behind the terminator", AuthRecord({"demo\0junk", 9}), "demo", accepted},
        {"case", AuthRecord("Demo"), "demo", wrong},
        {"shorter", AuthRecord("dem"), "demo", wrong},
        {"longer", AuthRecord("demos"), "demo", wrong},
        {"both empty", AuthRecord(""), "", accepted},
        {"one empty", AuthRecord("x"), "", wrong},
        {"64 bytes, no terminator", AuthRecord(full), full, accepted},
        {"stored is longer than the field", AuthRecord(full), full + "p", wrong},
        {"stored is shorter than a full field", AuthRecord(full), full.substr(1), wrong},
        {"no frame",
         begun + Frame("", 0x00) + Frame(""),
         "demo",
         {kStart, Grant(0), descriptor + "0)\n", kStop}},
        {"but the bit", begun + Frame("", 0xFB), "demo", {kStart, Grant(0), descriptor + "251)\n", kStop}},
    };
    // At every byte of the record, of the header and of the first frame. With the password complete, what is
    // missing of the record counts as zero.
    const std::string whole = AuthRecord("demo") + StreamHeader("HEAD") + Frame("body");
    for (std::size_t sent = 0; sent <= whole.size(); ++sent)
        rows.push_back({"cut", whole.substr(0, sent), "demo", sent < 67 + 4 ? wrong : Lines()});
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name + std::to_string(row.says.size()));
        m_log.Clear();
        TcpPair pair;
        pair.far.Send(row.says);
        pair.far.FinishSending();
        const SOCKET socket = pair.Adopt();
        const bool refused = row.texts == wrong;
        EXPECT_EQ(refused ? E_ACCESSDENIED : S_OK, m_source->Init(socket, row.stored.c_str()));
        EXPECT_EQ(std::string(1, refused ? '\1' : '\0'), pair.far.Receive(1));
        EXPECT_TRUE(IsIdle());
        EXPECT_EQ(row.texts.empty() ? m_log.Texts() : row.texts, m_log.Texts());
        EXPECT_EQ(kStop, refused ? kStop : m_log.Texts().back());
        EXPECT_EQ(refused ? 0 : platform::kSocketError, platform::closesocket(socket)) << "the caller's";
    }
    EXPECT_EQ(m_source->Frames(), (Lines{"HEAD|body"}));
}

TEST_F(Wire, AnInvalidSocketLeavesARunningConnectionAlone) {
    TcpPair pair;
    pair.far.Send(AuthRecord("") + LittleEndian16(2) + "H");
    ASSERT_EQ(S_OK, m_source->Init(pair.Adopt(), ""));
    EXPECT_EQ(std::string(1, '\0'), pair.far.Receive(1));
    EXPECT_TRUE(pair.far.IsSilent(50)) << "a grant before the header bytes are complete";
    EXPECT_EQ(E_INVALIDARG, m_source->Init(0, ""));
    EXPECT_EQ(E_INVALIDARG, m_source->Init(INVALID_SOCKET, ""));
    EXPECT_EQ(m_log.Texts({"TRASSDO"}), Lines(2, "TRASSDO: hSocket && INVALID_SOCKET!=hSocket\n"));
    pair.far.Send("D" + Frame("x"));
    EXPECT_TRUE(HasFrames(1));
    // A reset is reported by the read and by the loop.
    m_log.Clear();
    pair.far.Reset();
    EXPECT_TRUE(IsIdle());
    const auto texts = m_log.Texts({"TRASSDO"});
    ASSERT_EQ(2U, texts.size());
    EXPECT_TRUE(texts[0].starts_with("TRASSDO: SUCCEEDED(hr(0x80072746:'") && texts[1] == texts[0]);
}

// Nothing can be read or sent: no password is what an empty one is.
TEST_F(Wire, AnAnswerThatCannotBeSentStartsNoLoop) {
    TcpPair pair;
    const SOCKET socket = pair.Adopt();
    ASSERT_EQ(0, platform::closesocket(socket));
    EXPECT_EQ(platform::StatusFromError(platform::kSocketNotASocket), m_source->Init(socket, ""));
    EXPECT_EQ(E_ACCESSDENIED, m_source->Init(socket, "x")) << "a wrong password comes first";
    EXPECT_FALSE(m_source->IsConnected());
    EXPECT_EQ(m_log.Texts({"mobile"}), Lines());
}

// Phones take each other's place while frames flow; every one of them is told so by the end of its
// connection, and the last one keeps its own, until it is closed here.
TEST_F(Wire, AConnectionIsReplacedAHundredTimes) {
    std::vector<std::jthread> phones;
    std::atomic<int> closed{0};
    for (int i = 0; i < 100; ++i) {
        auto pair = std::make_unique<TcpPair>();
        pair->far.Send(AuthRecord("demo") + StreamHeader("") + Frame("first"));
        ASSERT_EQ(S_OK, m_source->Init(pair->Adopt(), "demo"));
        phones.emplace_back([&closed, pair = std::move(pair)] {
            int sent = 0;
            for (; sent < 50000 && pair->far.Send(Frame("more")); ++sent)
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            closed += sent < 50000 ? 1 : 0;
        });
    }
    TcpPair last;
    last.far.Send(AuthRecord("demo") + StreamHeader("L"));
    ASSERT_EQ(S_OK, m_source->Init(last.Adopt(), "demo"));
    phones.clear();
    EXPECT_EQ(100, closed);
    EXPECT_TRUE(Eventually([] { return platform::RunningWorkItems() == 1; }));
    EXPECT_TRUE(m_source->IsConnected());
    last.far.Send(Frame("ast"));
    EXPECT_TRUE(Eventually([&] { return m_source->Frames().back() == "L|ast"; }));
    // Each connection counted its own credit.
    EXPECT_EQ(std::string("\0\n", 2), last.far.Receive(2));
    m_source->CloseConnection();
    m_source = nullptr; // the loop's own reference keeps the source to its last line
    EXPECT_TRUE(last.far.IsClosed());
    EXPECT_TRUE(Eventually([] { return RecordingSource::alive == 0; }));
    EXPECT_EQ(kStop, m_log.Texts().back());
}

} // namespace
