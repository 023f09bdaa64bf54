#include "viewing/Packeter.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Common/ProcessStateTree/ProcessStateTreeSDK/ProcessStateTreeEx.h"
#include "support/Jpeg.h"
#include "support/NoThreads.h"
#include "support/RecordingLog.h"
#include "support/TcpPair.h"
#include "support/ViewingStage.h"

namespace {

using namespace support;

constexpr char kDenied[] = "TRASSDO: SUCCEEDED(hr(0x80070005:'Access is denied.'))\n";
constexpr char kHead[] = "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n";
constexpr std::uint32_t kOther = 0x20424752; // "RGB "

std::string Picture(std::int32_t width, std::int32_t height, std::uint16_t bits, std::uint32_t compression,
                    std::size_t size = 0) {
    const BITMAPINFOHEADER header{40, width, height, 1, bits, compression, 0, 0, 0, 0, 0};
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + std::string(size, '\x07');
}

// One packeter on this thread, and whether all that it had is gone behind it. Gives what the phone got.
enum class End { None, Reset, Close }; // what has become of the connection before
std::string View(Stage& stage, HRESULT expected, std::string_view credentials = "key", End end = End::None) {
    const auto objects = platform::ModuleLock::Count();
    TcpPair pair;
    const SOCKET socket = pair.Adopt();
    if (end == End::Reset)
        pair.far.Reset();
    if (end == End::Close)
        platform::closesocket(socket);
    {
        CPacketer packeter;
        const auto content = stage.Make<IConfiguration>("content");
        EXPECT_EQ(S_OK, packeter.Init(socket, content.Get(), platform::Bstr(u"fps=5").Get(),
                                      static_cast<std::uint32_t>(credentials.size()),
                                      reinterpret_cast<const std::uint8_t*>(credentials.data())));
        EXPECT_EQ(expected, packeter.Main());
    }
    EXPECT_EQ(platform::kSocketError, platform::closesocket(socket)) << "closed before";
    EXPECT_EQ(objects, platform::ModuleLock::Count());
    EXPECT_TRUE(stage.nodes.empty());
    return pair.far.Get() < 0 ? "" : pair.far.Receive(1000);
}

// A stream that fails at each call in turn, and by each thing that it may be given.
TEST(Packeter, EndsWithTheFirstFailure) {
    const std::string raw = Picture(2, 2, 8, 0, 4);
    const std::string mobile = "mobile: CPacketer::Main()";
    const std::string start = "mobile: Start, frame rate: 1000.000000\n";
    const std::string failed = "TRASSDO: SUCCEEDED(hr(0x80004005:'Unspecified error'))\n";
    const Lines created{mobile + ": Failed to create mobile frame packer.", kDenied};
    const Lines initialised{mobile + ": Failed to init mobile frame packer.", kDenied};
    const Lines decoded{start, mobile + " Failed to decode JPEG."};
    const Lines appended{start, mobile + " Failed to append frame.", kDenied};
    const Lines packed{start, mobile + " Failed to get packed data.", kDenied};
    const Lines sent{start, "TRASSDO: SOCKET_ERROR != res\n"};
    // Nobody ends for want of published credentials.
    const std::string finished = "mobile: Successfuly finished.\n";
    const Lines published{start, kDenied, finished, "TRASSDO: m_spProcessStateNode\n"};
    struct Row {
        std::string what; // the failing call, or what is wrong with its answer
        std::string original;
        HRESULT status;
        Lines lines;
        std::string jpeg = MakeJpeg(8, 8);
        End end = End::None;
    };
    const Row rows[] = {
        {"create packer", raw, E_ACCESSDENIED, created},
        {"Init", raw, E_ACCESSDENIED, initialised},
        {"GetParams", raw, E_ACCESSDENIED, {kDenied}},
        {"create tree", raw, S_OK, published},
        {"GetRootNode", raw, S_OK, published},
        {"GetNode create", raw, S_OK, published},
        {"SetValue", raw, S_OK, {start, finished}},
        {"RemoveNode", raw, S_OK, {start, finished, kDenied}},
        {"video?original", raw, E_ACCESSDENIED, {start, kDenied}},
        {"no content", "", E_FAIL, {start, failed}},
        {"no whole header", raw.substr(0, 39), E_FAIL, {start, failed}},
        {"no whole grey picture", Picture(2, 2, 8, 0, 3), E_FAIL, {start, failed}},
        {"no whole colour picture", Picture(3, -1, 24, 0, 8), E_FAIL, {start, failed}},
        {"no whole planes", Picture(4, 4, 12, FrameCompressionYV12, 23), E_FAIL, {start, failed}},
        {"sides that overflow", Picture(INT32_MIN, INT32_MIN, 24, 0, 9), E_FAIL, {start, failed}},
        {"video?jpeg", Picture(2, 2, 16, 0), E_ACCESSDENIED, {start, kDenied}},
        {"no JPEG", Picture(2, 2, 16, 0), E_FAIL, decoded, "x"},
        {"a JPEG too wide", Picture(7, 9, 32, 0), E_FAIL, decoded},
        {"a JPEG too high", Picture(9, -7, 32, 0), E_FAIL, decoded},
        {"no size", Picture(0, 0, 1, 0), E_FAIL, decoded},
        {"a claim of memory", Picture(INT32_MIN, 64, 8, kOther), E_FAIL, decoded},
        {"AppendFrame", raw, E_ACCESSDENIED, appended},
        {"GetPackedData", raw, E_ACCESSDENIED, packed},
        {"a phone that is gone", raw, MakeStatus(0x8007274A), sent, "", End::Reset},
        {"a closed socket", raw, MakeStatus(0x80072736), sent, "", End::Close},
        {"Init", raw, E_OUTOFMEMORY, {}},
        {"AppendFrame", raw, E_OUTOFMEMORY, {start}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        auto& log = RecordingLog::Fresh();
        Stage stage;
        stage.failing = row.what;
        if (row.status == E_OUTOFMEMORY)
            stage.status = row.status;
        stage.original = row.original;
        stage.jpeg = row.jpeg;
        const bool begun = !row.lines.empty() && row.lines.front() == start && row.end == End::None;
        EXPECT_EQ(std::string(begun ? kHead : "") + (row.status == S_OK ? "piece" : ""),
                  View(stage, row.status, "key", row.end));
        EXPECT_EQ(row.lines, log.Texts());
        for (const auto& line : log.Lines())
            EXPECT_TRUE(
                line.function == "CPacketer::Main" ||
                (row.status == S_OK && line.function.starts_with("NSProcessStateTree::CThreadArgument::")))
                << line.function;
    }
}

// On a thread of its own, and where there is none.
TEST(Packeter, StreamsOrClosesTheSocket) {
    RecordingLog::Fresh();
    for (const bool starts : {false, true}) {
        Stage stage;
        stage.original = Picture(2, 2, 8, 0, 4);
        stage.packed = {"", "ab", "cd"};
        stage.frameRate = 0; // no pause
        TcpPair pair;
        auto packeter = std::make_unique<CPacketer>();
        EXPECT_EQ(S_OK, packeter->Init(pair.Adopt(), stage.Make<IConfiguration>("content").Get(), nullptr, 0,
                                       nullptr));
        const auto start = [&] { EXPECT_EQ(starts, CPacketer::Start(std::move(packeter))); };
        if (starts)
            start();
        else
            WithoutThreads(start);
        EXPECT_EQ(starts ? kHead + std::string("abcd") : "", pair.far.Receive(1000));
        EXPECT_TRUE(pair.far.IsClosed());
        ASSERT_TRUE(platform::WaitForWorkItems(20000));
        EXPECT_EQ("~content", stage.calls.back());
    }
}

TEST(Packeter, PacesAndSendsUntilThePackerIsFinished) {
    RecordingLog::Fresh();
    EXPECT_EQ(u"Name/ff001a2c", NSProcessStateTree::ThreadArgumentPath(u"Name", 0xFF001A2C));
    const std::pair<const char*, const char*> rows[] = {{"", ""}, {"f", "Zg=="}, {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [credentials, base64] : rows) {
        Stage stage;
        stage.original = Picture(2, 2, 8, 0, 4);
        stage.packed = {"", "ab", "", "cd"};
        stage.frameRate = 24.1; // 41 whole milliseconds
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(std::string(kHead) + "abcd", View(stage, S_OK, credentials));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(3 * 41));
        EXPECT_EQ("GET video?original HTTP/1.1\npeer-info: 127.0.0.1:0\nUser-Agent: Morrowstream\nQV-Auth: " +
                      std::string(base64) + "\n\n",
                  stage.request);
        Lines expected{"create packer",  "Init fps=5", "GetParams", "create tree", "GetRootNode",
                       "GetNode create", "~root",      "~tree",     "SetValue"};
        for (const bool more : {false, true, false, true}) {
            expected.push_back(std::string("video?original") + (*credentials ? " " : "") + credentials);
            // The picture and its request stay until the packer has answered.
            expected.insert(expected.end(), {"AppendFrame 2x2 7", "GetPackedData 2x2 7"});
            if (more)
                expected.push_back("HasMoreFrames 2x2 7");
        }
        expected.insert(expected.end(), {"RemoveNode .", "~node", "~packer", "~content"});
        EXPECT_EQ(expected, stage.calls);
    }
}

// Which pictures the packer gets as they are, and what it gets for the others.
TEST(Packeter, GivesThePackerWhatItCanTake) {
    RecordingLog::Fresh();
    struct Row {
        std::string original;
        std::string appended;
        bool fetched = true; // a JPEG
    };
    const Row rows[] = {
        {Picture(2, -2, 8, 0, 4), "2x-2 7", false},
        {Picture(-2, 2, 24, 0, 12), "-2x2 7", false},
        {Picture(3, 5, 0, FrameCompressionYV12, 21), "3x5 7 7 7", false},
        {Picture(0, 5, 8, 0), "0x5", false},
        {Picture(8, 8, 16, 0), "8x-8 76 255 85"},
        {Picture(-8, -8, 32, 0), "8x-8 76 255 85"},
        {Picture(8, -8, 8, kOther), "8x-8 76 255 85"},
        {Picture(9, 10, 24, kOther), "9x-10 0 128 128"}, // the rest is black
    };
    for (const Row& row : rows) {
        Stage stage;
        stage.original = row.original;
        stage.jpeg = RedJpeg(8, 8);
        (void)View(stage, S_OK);
        for (const char* const call : {"AppendFrame ", "GetPackedData ", "HasMoreFrames "})
            EXPECT_EQ(1, std::ranges::count(stage.calls, call + row.appended)) << call << row.appended;
        EXPECT_EQ(row.fetched, std::ranges::count(stage.calls, "video?jpeg key") == 1) << row.appended;
    }
}

} // namespace
