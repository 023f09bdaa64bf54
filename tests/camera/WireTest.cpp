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

using support::AuthRecord;
using support::Eventually;
using support::Frame;
using support::kGrant;
using support::Lines;
using support::RecordingLog;
using support::StreamHeader;
using support::TcpPair;

// A source that keeps the bytes of each frame: header and body with a bar between them.
class RecordingSource : public IUnknown, public CVMSSource {
public:
    std::vector<std::string> Frames() const {
        const std::lock_guard guard(m_mutex);
        return m_frames;
    }
    std::size_t FrameCount() const { return Frames().size(); }
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
        ASSERT_NE(nullptr, header);
        ASSERT_NE(nullptr, body);
        std::string frame(reinterpret_cast<const char*>(header), headerSize);
        frame += '|';
        frame.append(reinterpret_cast<const char*>(body), bodySize);
        const std::lock_guard guard(m_mutex);
        m_frames.push_back(std::move(frame));
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_frames;
};

using Source = platform::ComObject<RecordingSource>;

class Wire : public testing::Test {
protected:
    Wire() : m_log(RecordingLog::Fresh()), m_source(Source::Create()) {}
    ~Wire() override {
        m_source = nullptr;
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
        EXPECT_EQ(0U, platform::OpenSocketCount());
        EXPECT_EQ(0, RecordingSource::alive);
    }

    bool IsIdle() const { return !m_source->IsConnected() && platform::RunningWorkItems() == 0; }
    // A phone with the password "demo" says `bytes` and finishes; waits for the loop's end.
    void Converse(const std::string& bytes) {
        TcpPair pair;
        ASSERT_TRUE(pair.far.Send(AuthRecord("demo")));
        ASSERT_EQ(S_OK, m_source->Init(pair.Adopt(), "demo"));
        pair.far.Send(bytes);
        pair.far.FinishSending();
        ASSERT_TRUE(Eventually([&] { return IsIdle(); }));
    }

    // A connection past its header, with the first grant.
    void Begin(TcpPair& pair) {
        pair.far.Send(AuthRecord("") + StreamHeader(""));
        ASSERT_EQ(S_OK, m_source->Init(pair.Adopt(), ""));
        EXPECT_EQ(std::string("\0\n", 2), pair.far.Receive(2));
    }

    RecordingLog& m_log;
    platform::ComPtr<Source> m_source;
};

std::string Body(int number) {
    return std::string(static_cast<std::size_t>(number % 3) * 150, static_cast<char>('a' + number % 26));
}

// However the network cuts it: one byte at a time, across records, or in one burst far ahead of the grants.
class Delivery : public Wire, public testing::WithParamInterface<std::size_t> {};

TEST_P(Delivery, ReadsEveryFrameAndGrantsTenAtATime) {
    TcpPair pair;
    std::string stream = AuthRecord("demo", "\3\4\12\5login_320x240_JPEG") + StreamHeader("HEAD");
    std::vector<std::string> expected;
    for (int i = 0; i < 30; ++i) {
        stream += Frame(Body(i), i % 3 == 0 ? 0x04 : i % 3 == 1 ? 0x05 : 0xFF);
        expected.push_back("HEAD|" + Body(i));
    }
    std::thread phone([&] { EXPECT_TRUE(pair.far.SendInPieces(stream, GetParam())); });
    EXPECT_EQ(S_OK, m_source->Init(pair.Adopt(), "demo"));
    phone.join();
    EXPECT_TRUE(Eventually([&] { return m_source->FrameCount() == 30; }));
    EXPECT_TRUE(m_source->IsConnected());
    pair.far.FinishSending();
    EXPECT_EQ(std::string("\0\n\n\n\n", 5),
              pair.far.Receive(100)); // accepted, then after frames 0, 6, 16, 26
    EXPECT_TRUE(Eventually([&] { return IsIdle(); }));
    EXPECT_EQ(expected, m_source->Frames());
    EXPECT_EQ(m_log.Texts(),
              (Lines{"mobile: Start\n", "message: get 10 frames, already received: 0\n",
                     "message: get 10 frames, already received: 6\n",
                     "message: get 10 frames, already received: 16\n",
                     "message: get 10 frames, already received: 26\n",
                     "TRASSDO: SUCCEEDED(hr(0x800704d4:'The network connection was aborted by the local "
                     "system.'))\n",
                     "mobile: Stop\n"}));
}

INSTANTIATE_TEST_SUITE_P(Cut, Delivery, testing::Values(1, 2, 3, 67, 130, 131, 132, 1000000));

TEST_F(Wire, GrantsOnlyWhenTheCreditHasFallen) {
    TcpPair pair;
    ASSERT_TRUE(pair.far.Send(AuthRecord("")));
    ASSERT_EQ(S_OK, m_source->Init(pair.Adopt(), ""));
    ASSERT_EQ(std::string(1, '\0'), pair.far.Receive(1));
    EXPECT_EQ("", pair.far.Receive(1, 50)); // nothing before the header bytes are complete
    pair.far.Send(support::LittleEndian16(2) + "H");
    EXPECT_EQ("", pair.far.Receive(1, 50));
    pair.far.Send("D");
    EXPECT_EQ(kGrant, pair.far.Receive(1));
    for (int sent = 1; sent <= 26; ++sent) {
        pair.far.Send(Frame("x"));
        ASSERT_TRUE(Eventually([&] { return m_source->FrameCount() == static_cast<std::size_t>(sent); }));
        const bool grants = sent == 6 || sent == 16 || sent == 26;
        EXPECT_EQ(grants ? kGrant : "", pair.far.Receive(1, grants ? 10000 : 5)) << sent;
    }
}

TEST_F(Wire, SizesAreLittleEndianAndMayBeZero) {
    Converse(StreamHeader("") + Frame("") + Frame(std::string(256, 'x')) + Frame(std::string(65535, 'y')));
    EXPECT_EQ(m_source->Frames(), (Lines{"|", "|" + std::string(256, 'x'), "|" + std::string(65535, 'y')}));
}

TEST_F(Wire, ADescriptorWithoutTheFrameBitEndsTheConnection) {
    const std::pair<std::uint8_t, const char*> rows[] = {{0x00, "0"}, {0xFB, "251"}};
    for (const auto& [descriptor, printed] : rows) {
        m_log.Clear();
        TcpPair pair;
        pair.far.Send(AuthRecord("demo") + StreamHeader("") + Frame("", descriptor) + Frame("never read"));
        ASSERT_EQ(S_OK, m_source->Init(pair.Adopt(), "demo"));
        EXPECT_TRUE(pair.far.IsClosed());
        EXPECT_TRUE(Eventually([&] { return IsIdle(); }));
        EXPECT_EQ(
            m_log.Texts(),
            (Lines{"mobile: Start\n", "message: get 10 frames, already received: 0\n",
                   std::string("TRASSDO: SFrameResponce::ehtFrameDescriptor & oFrameHeader.nDescriptor(") +
                       printed + ")\n",
                   "mobile: Stop\n"}));
    }
    EXPECT_EQ(m_source->Frames(), Lines());
}

TEST_F(Wire, ComparesPasswordsInsideTheField) {
    const std::string full(64, 'p');
    struct Row {
        const char* name;
        std::string field, stored;
        bool accepted;
    };
    const Row rows[] = {
        {"equal", "demo", "demo", true},
        {"bytes behind the terminator", std::string("demo\0junk", 9), "demo", true},
        {"case", "Demo", "demo", false},
        {"shorter", "dem", "demo", false},
        {"longer", "demos", "demo", false},
        {"both empty", "", "", true},
        {"one empty", "x", "", false},
        {"64 bytes, no terminator", full, full, true},
        {"stored is longer than the field", full, full + "p", false},
        {"stored is shorter than a full field", full, full.substr(1), false},
    };
    for (const Row& row : rows) {
        m_log.Clear();
        TcpPair pair;
        pair.far.Send(AuthRecord(row.field, "whatever \xFF stands here"));
        const SOCKET socket = pair.Adopt();
        EXPECT_EQ(row.accepted ? S_OK : E_ACCESSDENIED, m_source->Init(socket, row.stored.c_str()))
            << row.name;
        EXPECT_EQ(std::string(1, row.accepted ? '\0' : '\1'), pair.far.Receive(1)) << row.name;
        if (row.accepted) {
            pair.far.Close();
            EXPECT_TRUE(Eventually([&] { return IsIdle(); }));
        } else {
            EXPECT_FALSE(m_source->IsConnected());
            EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: SAuthResponce::erSuccess==oAuthResponce.nResponce\n"}));
            EXPECT_EQ(0, platform::closesocket(socket)) << "stays the caller's";
        }
    }
}

TEST_F(Wire, AnInvalidSocketLeavesARunningConnectionAlone) {
    TcpPair pair;
    Begin(pair);
    m_log.Clear();
    EXPECT_EQ(E_INVALIDARG, m_source->Init(0, ""));
    EXPECT_EQ(E_INVALIDARG, m_source->Init(INVALID_SOCKET, ""));
    EXPECT_EQ(m_log.Texts({"TRASSDO"}), (Lines{"TRASSDO: hSocket && INVALID_SOCKET!=hSocket\n",
                                               "TRASSDO: hSocket && INVALID_SOCKET!=hSocket\n"}));
    pair.far.Send(Frame("still here"));
    EXPECT_TRUE(Eventually([&] { return m_source->FrameCount() == 1; }));
}

// A phone that vanishes at every byte of the record, of the header and of the first frame.
TEST_F(Wire, SurvivesAnEndAtEveryByte) {
    const std::string stream = AuthRecord("demo") + StreamHeader("HEAD") + Frame("body");
    for (std::size_t sent = 0; sent <= stream.size(); ++sent) {
        m_log.Clear();
        TcpPair pair;
        pair.far.Send(std::string_view(stream).substr(0, sent));
        pair.far.FinishSending();
        const SOCKET socket = pair.Adopt();
        const HRESULT hr = m_source->Init(socket, "demo");
        if (sent < 67 + 4) {
            EXPECT_EQ(E_ACCESSDENIED, hr) << sent;
            platform::closesocket(socket);
            continue;
        }
        // With the password complete, what is missing of the record counts as zero.
        EXPECT_EQ(S_OK, hr) << sent;
        EXPECT_TRUE(Eventually([&] { return IsIdle(); })) << sent;
        EXPECT_EQ("mobile: Stop\n", m_log.Texts().back());
    }
    EXPECT_EQ(m_source->Frames(), (Lines{"HEAD|body"}));
}

TEST_F(Wire, AResetIsReportedByTheReadAndByTheLoop) {
    TcpPair pair;
    Begin(pair);
    pair.far.Reset();
    EXPECT_TRUE(Eventually([&] { return IsIdle(); }));
    const std::string line = "TRASSDO: SUCCEEDED(hr(0x80072746:'";
    const auto texts = m_log.Texts({"TRASSDO"});
    ASSERT_EQ(2U, texts.size());
    EXPECT_TRUE(texts[0].starts_with(line) && texts[1] == texts[0]) << texts[0];
}

TEST_F(Wire, AnAnswerThatCannotBeSentStartsNoLoop) {
    TcpPair pair;
    const SOCKET socket = pair.Adopt();
    ASSERT_EQ(0, platform::closesocket(socket));
    // Nothing was read and nothing could be sent: an empty password passes the comparison, the send fails.
    EXPECT_EQ(platform::StatusFromError(platform::kSocketNotASocket), m_source->Init(socket, ""));
    EXPECT_FALSE(m_source->IsConnected());
    EXPECT_EQ(m_log.Texts({"mobile"}), Lines());
}

TEST_F(Wire, ClosingAConnectionEndsItsLoop) {
    TcpPair pair;
    Begin(pair);
    m_source->CloseConnection();
    m_source = nullptr; // the loop's own reference keeps the source to its last line
    EXPECT_TRUE(pair.far.IsClosed());
    EXPECT_TRUE(Eventually([] { return RecordingSource::alive == 0; }));
    EXPECT_EQ("mobile: Stop\n", m_log.Texts().back());
}

// Phones take each other's place while frames flow; every one of them is told so by the end of its
// connection, and the last one keeps its own.
TEST_F(Wire, AConnectionIsReplacedAHundredTimes) {
    std::vector<std::thread> phones;
    std::atomic<int> closed{0};
    for (int i = 0; i < 100; ++i) {
        auto pair = std::make_unique<TcpPair>();
        pair->far.Send(AuthRecord("demo") + StreamHeader("") + Frame("first"));
        ASSERT_EQ(S_OK, m_source->Init(pair->Adopt(), "demo"));
        phones.emplace_back([&closed, pair = std::move(pair)] {
            while (pair->far.Send(Frame("more")))
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            ++closed;
        });
    }
    TcpPair last;
    last.far.Send(AuthRecord("demo") + StreamHeader("L"));
    ASSERT_EQ(S_OK, m_source->Init(last.Adopt(), "demo"));
    for (auto& phone : phones)
        phone.join();
    EXPECT_EQ(100, closed);
    EXPECT_TRUE(Eventually([] { return platform::RunningWorkItems() == 1; }));
    EXPECT_TRUE(m_source->IsConnected());
    last.far.Send(Frame("ast"));
    EXPECT_TRUE(
        Eventually([&] { return m_source->FrameCount() > 0 && m_source->Frames().back() == "L|ast"; }));
    // Each connection counted its own credit.
    EXPECT_EQ(std::string("\0\n", 2), last.far.Receive(2));
}

} // namespace
