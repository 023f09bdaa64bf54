// Looking back: moments, pictures of then, when there are any, and parts as files that other programs read.

#include <cstdio>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "host/peers/talk.h"
#include "host/recordings/matroska_writer.h"
#include "host/recordings/recordings.h"
#include "host/rig.h"
#include "host/site/recordings/stored_file.h"

namespace host::test {
namespace {

using nlohmann::json;

constexpr UnixMs kThen = 1'795'680'000'000; // 2026-11-26T08:00:00Z
constexpr std::string_view kPad = "a picture is not looked into";

struct LookBack {
    TempFolder folder;
    Disk disk;
    EventLog events{""};
    Library library{{.folder = folder.File("recordings"), .disk = disk, .tell = {}, .events = &events}};
    Recordings recordings{library};
    std::optional<Rig> rig;

    LookBack() {
        rig.emplace(LongLimits(), false, "", "", &recordings);
        // Three seconds, five pictures a second; nothing for an hour; the clock set back by two seconds.
        Record("yard", kThen, 15);
        Record("yard", kThen + 3'600'000, 15);
        Record("yard", kThen + 3'601'000, 5);
        Record("old", kThen, 5);
        library.SetPresent({"yard"});
        rig->AddCamera("yard");
        library.Settle();
    }

    void Record(const std::string& camera, UnixMs begin, int pictures) {
        RecordedFile file = library.Begin(camera, begin);
        FileSink sink(disk, library.PathOf(file));
        MatroskaWriter writer(sink, {camera, begin, 64, 48});
        for (int i = 0; i < pictures; ++i)
            writer.Add(i * 200, PictureOf(file.key.number, i));
        writer.Finish();
        file.end = begin + (pictures - 1) * 200;
        file.bytes = writer.Bytes();
        file.state = FileState::Finished;
        library.Put(file);
    }
    static std::string PictureOf(std::int64_t file, int number) {
        return "\xFF\xD8" + std::to_string(file) + '/' + std::to_string(number) + ' ' + std::string(kPad) +
               "\xFF\xD9";
    }
    // "FILE/NUMBER" of the picture in an answer, or its status.
    [[nodiscard]] std::string Seen(const std::string& query, std::string_view user = Rig::kViewer,
                                   const std::string& camera = "yard") const {
        const Reply reply = Get("/recordings/" + camera + "/at.jpg?" + query, user);
        if (reply.status != 200)
            return std::to_string(reply.status);
        EXPECT_EQ(reply.Header("Content-Type"), "image/jpeg");
        return reply.body.substr(2, reply.body.find(' ') - 2);
    }
    [[nodiscard]] Reply Get(const std::string& target, std::string_view user = Rig::kViewer) const {
        return rig->Get(target, kLocal + std::string(user));
    }
    // A whole answer that ends with its connection, its head left out; empty where it was reset.
    [[nodiscard]] std::string Fetch(const std::string& target) const {
        Client client(rig->Port());
        client.peer.Send("GET " + target + " HTTP/1.1\r\n" + kLocal + std::string(Rig::kViewer) + "\r\n");
        const Reply head = client.ReadReply(true);
        EXPECT_EQ(head.status, 200U) << target << head.head;
        return client.peer.Receive(SIZE_MAX);
    }
};

std::string Moment(UnixMs after) {
    return "t=" + std::to_string(kThen + after);
}

TEST(LookBack, MomentsAreReadAsPeopleAndProgramsWriteThem) {
    struct Case {
        std::string_view text;
        std::optional<UnixMs> time;
    };
    const Case cases[] = {
        {"1795680000000", kThen},
        {"0", 0},
        {"2026", 2026},
        {"99999999999999999999", {}},
        {"-026-11-26T08:00Z", {}},
        {"2026-11-26T08:00:00+0", {}},
        {"2026-11-26T08:00:00Z", kThen},
        {"2026-11-26T08:00Z", kThen},
        {"2026-11-26t08:00:00.25z", kThen + 250},
        {"2026-11-26 08:00:00,1239Z", kThen + 123},
        {"2026-11-26T10:00:00+02:00", kThen},
        {"2026-11-26T10:00:00 02:00", kThen}, // a form's "+"
        {"2026-11-26T02:30:00-0530", kThen},
        {"2026-11-25T23:00-09", kThen},
        {"2024-02-29T00:00Z", 1'709'164'800'000},
        {"2023-02-29T00:00Z", {}},
        {"2026-11-26T08:00:00", {}}, // of which zone
        {"2026-11-26", {}},
        {"2026-11-26T24:00Z", {}},
        {"2026-11-26T08:00:00.Z", {}},
        {"2026-11-26T08:00:00Z ", {}},
        {"1969-12-31T23:59Z", {}},
        {"253402300800000", {}},
        {"-1", {}},
        {"", {}},
    };
    for (const auto& [text, time] : cases)
        EXPECT_EQ(ReadMoment(text), time) << text;
}

TEST(LookBack, PicturesOfThen) {
    const LookBack back;
    const std::string far = "&within=99999999999";
    const std::pair<std::string, std::string> cases[] = {
        {Moment(0), "1/0"},
        {Moment(199), "1/0"},
        {Moment(200), "1/1"},
        {"t=2026-11-26T08:00:01%2B00:00", "1/5"},
        {"t=2026-11-26T09:00:01.5+01:00", "1/7"},
        {Moment(10'000), "1/14"},
        {Moment(20'000), "404"},
        {Moment(20'000) + far, "1/14"},
        {Moment(3'590'000) + far, "2/0"},
        {Moment(-5000), "1/0"},
        {Moment(3'600'999), "2/4"},
        {Moment(3'601'100), "3/0"}, // of the two that were then, the later
        // One by one, over files and over a clock that was set back.
        {Moment(200) + "&step=1", "1/2"},
        {Moment(200) + "&step=-1", "1/0"},
        {Moment(300) + "&step=-1", "1/1"},
        {Moment(0) + "&step=-1", "404"},
        {Moment(2800) + "&step=1&file=1", "2/0"},
        {Moment(20'000) + "&step=1", "2/0"},
        {Moment(3'602'800) + "&step=1&file=2", "3/0"},
        {Moment(3'601'000) + "&step=-1&file=3", "2/14"},
        {Moment(3'601'800) + "&step=1&file=3", "404"},
        {"", "400"},
        {"t=then", "400"},
        {Moment(0) + "&step=2", "400"},
        {Moment(0) + "&file=x", "400"},
        {Moment(0) + "&within=-1", "400"},
    };
    for (const auto& [query, seen] : cases)
        EXPECT_EQ(back.Seen(query), seen) << query;
    EXPECT_EQ(back.Get("/recordings/yard/at.jpg?" + Moment(300)).Header("X-Picture-Time"),
              std::to_string(kThen + 200));
}

TEST(LookBack, WhatIsToldAndToWhom) {
    LookBack back;
    const auto tell = [&](UnixMs after, EventKind kind, const std::string& camera) {
        back.events.Tell(
            {.time = Event::Time(std::chrono::milliseconds(kThen + after)), .kind = kind, .camera = camera});
    };
    tell(1000, EventKind::CameraConnected, "gate");
    tell(1000, EventKind::MotionBegan, "yard");
    tell(1500, EventKind::MotionBegan, "gate");
    tell(2000, EventKind::SignInRefused, "yard"); // is for administrators, on their page
    tell(2500, EventKind::MotionEnded, "yard");
    tell(2700, EventKind::RecordingPaused, "");
    tell(2800, EventKind::CameraLost, "yard");
    EXPECT_TRUE(support::Eventually([&] { return back.events.WrittenNumber() == 7; }));
    back.library.Settle();
    const json times = json::parse(back.Get("/api/v1/recordings/yard?from=0&to=2026-12-01T00:00Z").body);
    EXPECT_EQ(times["spans"], (json{{kThen, kThen + 2800}, {kThen + 3'600'000, kThen + 3'602'800}}));
    EXPECT_EQ(times["first"], kThen);
    EXPECT_EQ(times["events"].size(), 1U);
    EXPECT_EQ(times["events"][0]["kind"], "camera-lost");
    EXPECT_EQ(times["motion"], (json{{kThen + 1000, kThen + 2500}}));
    const std::string all = back.Get("/api/v1/recordings/yard?from=0&to=2026-12-01T00:00Z", Rig::kAdmin).body;
    EXPECT_EQ(json::parse(all)["events"].size(), 2U) << "and why nothing was recorded";
    EXPECT_EQ(times["last"], kThen + 3'601'800) << "of the newest file";
    EXPECT_EQ(
        json::parse(back.Get("/api/v1/recordings/yard?from=0&to=2026-12-01T00:00Z&gap=9999999").body)["spans"]
            .size(),
        1U);
    EXPECT_EQ(back.Get("/api/v1/recordings/yard?from=2&to=1").status, 400U);
    // An administrator keeps what others see kept.
    const auto keep = [&](const std::string& method, const std::string& query) {
        const Reply reply =
            back.rig->Ask(method + " /api/v1/recordings/yard/kept?" + query + " HTTP/1.1\r\n" + kLocal +
                          std::string(Rig::kAdmin) + "Content-Length: 0\r\n\r\n");
        back.library.Settle();
        return std::to_string(reply.status) + ' ' +
               json::parse(back.Get("/api/v1/recordings/yard?from=0&to=2026-12-01T00:00Z").body)["kept"]
                   .dump();
    };
    const std::string first = json{{kThen, kThen + 2800}}.dump();
    const std::string then = "from=" + std::to_string(kThen) + "&to=" + std::to_string(kThen + 1);
    const std::tuple<std::string, std::string, std::string> kept[] = {
        {"PUT", then, "200 " + first},
        {"PUT", "from=0", "400 " + first},
        {"PUT", "from=0&to=1", "404 " + first},
        {"PUT", "from=2&to=1", "400 " + first},
        {"DELETE", then, "200 []"},
    };
    for (const auto& [method, query, seen] : kept)
        EXPECT_EQ(keep(method, query), seen) << method << query;
    EXPECT_EQ(back.rig->events.Find({}, 9).size(), 2U);
    // What is left of a camera that is gone is for administrators.
    const auto listed = [&](std::string_view user) {
        std::string names;
        const json told = json::parse(back.Get("/api/v1/recordings", user).body);
        for (const json& camera : told["cameras"])
            names += camera["name"].get<std::string>() + (camera["removed"] == true ? "- " : " ");
        return names;
    };
    EXPECT_EQ(listed(Rig::kViewer), "yard ");
    EXPECT_EQ(listed(Rig::kAdmin), "yard old- ");
    EXPECT_EQ(back.Seen(Moment(0), Rig::kAdmin, "old"), "1/0");
    for (const char* const rest : {"/at.jpg?t=0", "/export?from=0"}) {
        const Reply gone = back.Get(std::string("/recordings/old") + rest);
        const Reply none = back.Get(std::string("/recordings/none") + rest);
        EXPECT_EQ(gone.status, 404U);
        EXPECT_EQ(gone.body, none.body);
    }
    EXPECT_EQ(back.Get("/recordings/old").body, back.Get("/recordings/none").body);
    EXPECT_EQ(back.Get("/recordings/a/b").status, 404U);
}

TEST(LookBack, RangesOfARecordedFile) {
    const AskedRange whole{};
    const std::pair<std::string, AskedRange> cases[] = {
        {"", whole},
        {"bytes=0-9", {true, ByteRange{0, 9}}},
        {"bytes=90-", {true, ByteRange{90, 99}}},
        {"bytes=90-500", {true, ByteRange{90, 99}}},
        {"bytes=-10", {true, ByteRange{90, 99}}},
        {"bytes=-500", {true, ByteRange{0, 99}}},
        {"bytes=100-", {false, {}}},
        {"bytes=-0", {false, {}}},
        {"bytes=9-0", whole},
        {"bytes=0-9,20-29", whole},
        {"bytes=-", whole},
        {"bytes=x-9", whole},
        {"bytes=99999999999999999999-", whole},
        {"items=0-9", whole},
    };
    for (const auto& [value, asked] : cases) {
        const AskedRange read = ReadRange(value, 100);
        EXPECT_EQ(read.possible, asked.possible) << value;
        EXPECT_EQ(read.range, asked.range) << value;
    }
    EXPECT_FALSE(ReadRange("bytes=-1", 0).possible);

    const LookBack back;
    const std::string list =
        "/api/v1/recordings/yard?files=1&from=" + std::to_string(kThen) + "&to=" + std::to_string(kThen + 9);
    const json files = json::parse(back.Get(list).body)["files"];
    ASSERT_EQ(files.size(), 1U);
    const std::string target = "/recordings/yard/file?number=" + files[0]["number"].dump();
    const Reply all = back.Get(target);
    EXPECT_EQ(all.status, 200U);
    EXPECT_EQ(all.body.size(), files[0]["bytes"].get<std::size_t>());
    const auto part = [&](const std::string& lines) {
        return back.rig->Get(target, kLocal + std::string(Rig::kViewer) + lines);
    };
    const Reply middle = part("Range: bytes=10-19\r\nIf-Range: " + all.Header("ETag") + "\r\n");
    EXPECT_EQ(middle.status, 206U);
    EXPECT_EQ(middle.body, all.body.substr(10, 10));
    EXPECT_EQ(middle.Header("Content-Range"), "bytes 10-19/" + std::to_string(all.body.size()));
    EXPECT_EQ(part("Range: bytes=10-19\r\nIf-Range: \"old\"\r\n").body, all.body);
    EXPECT_EQ(part("Range: bytes=99999999-\r\n").status, 416U);
    EXPECT_EQ(back.Get("/recordings/yard/file?number=77").status, 404U);
}

std::string OutputOfProgram(const std::string& command) {
    std::string output;
    std::array<char, 4096> part{};
    FILE* const pipe = ::popen(command.c_str(), "r");
    for (std::size_t read = 0; (read = std::fread(part.data(), 1, part.size(), pipe)) > 0;)
        output.append(part.data(), read);
    EXPECT_EQ(::pclose(pipe), 0) << command << '\n' << output;
    return output;
}

TEST(LookBack, PartsAsFilesThatOtherProgramsRead) {
    const LookBack back;
    const auto saved = [&](const std::string& query) {
        const std::string path = back.folder.File("saved");
        std::ofstream(path, std::ios::binary) << back.Fetch("/recordings/yard/export?" + query);
        return "'" + path + "'";
    };
    const std::string part =
        "from=" + std::to_string(kThen + 400) + "&to=" + std::to_string(kThen + 3'600'200);
    EXPECT_EQ(OutputOfProgram("unzip -Z1 " + saved(part + "&form=zip") + " | wc -l"), "15\n");
    EXPECT_THAT(OutputOfProgram("unzip -tq " + saved(part + "&form=zip")), testing::StartsWith("No errors"));
    EXPECT_EQ(OutputOfProgram("unzip -p " + saved(part + "&form=zip") + " 2026-11-26_08-00-00.400_1.jpg"),
              LookBack::PictureOf(1, 2));
    const std::string probe =
        "ffprobe -v error -count_packets -show_entries stream=nb_read_packets -of csv=p=0 ";
    EXPECT_EQ(OutputOfProgram(probe + saved(part + "&form=mkv")), "15\n");
    // Twice as fast, and without the first picture behind the clock's way back, which follows at once.
    EXPECT_EQ(OutputOfProgram(probe + saved("from=0&to=2026-12-01T00:00Z&form=lapse&speed=2")), "34\n");

    const Reply none = back.Get("/recordings/yard/export?from=0&to=1&id=0123456789abcdef0123456789abcdef");
    EXPECT_EQ(none.status, 404U);
    EXPECT_EQ(
        json::parse(
            back.Get("/recordings/yard/export/state?id=0123456789abcdef0123456789abcdef").body)["ended"],
        "empty");
    for (const char* const query : {"form=avi", "speed=0", "id=1", "from=x"})
        EXPECT_EQ(back.Get(std::string("/recordings/yard/export?") + query).status, 400U) << query;
}

TEST(LookBack, WhatIsSavedCanBeStoppedAndIsNoWholeFileThen) {
    LookBack back;
    // More than the buffers between the two hold.
    RecordedFile file = back.library.Begin("yard", kThen + 7'200'000);
    FileSink sink(back.disk, back.library.PathOf(file));
    MatroskaWriter writer(sink, {"yard", file.begin, 64, 48});
    const std::string picture(100'000, 'x');
    for (int i = 0; i < 300; ++i)
        writer.Add(i * 1000, picture);
    writer.Finish();
    file.end = file.begin + 299'000;
    file.bytes = writer.Bytes();
    file.state = FileState::Finished;
    back.library.Put(file);
    back.library.Settle();

    // A time lapse reads what it shows.
    const auto bytesRead = [] {
        std::ifstream io("/proc/thread-self/io"); // "rchar: NUMBER"
        std::string name;
        std::size_t bytes = 0;
        io >> name >> bytes;
        return bytes;
    };
    std::size_t read = bytesRead();
    FileSink lapse(back.disk, back.folder.File("lapse.mkv"));
    EXPECT_TRUE(WriteFilm(back.recordings.Range(1, {file.begin, file.end}), {.speed = 1500}, lapse));
    read = bytesRead() - read;
    EXPECT_GE(read, 5 * picture.size());
    EXPECT_LE(read, file.bytes / 10);
    EXPECT_EQ(OutputOfProgram("ffprobe -v error -show_entries packet=pts -of csv=p=0 '" + lapse.Path() + "'"),
              "0\n40\n80\n120\n160\n");

    const std::string id = "?id=00000000000000000000000000000001";
    const std::string from = "&from=" + std::to_string(file.begin) + "&to=" + std::to_string(file.end);
    for (const char* const form : {"&form=mkv", "&form=zip"}) {
        Client client(back.rig->Port(), 4096);
        const std::string number = id.substr(0, id.size() - 1) + (form[6] == 'm' ? "2" : "3");
        client.peer.Send("GET /recordings/yard/export" + number + form + from + " HTTP/1.1\r\n" + kLocal +
                         std::string(Rig::kViewer) + "\r\n");
        EXPECT_EQ(client.ReadReply(true).status, 200U);
        const auto state = [&] {
            return json::parse(back.Get("/recordings/yard/export/state" + number).body);
        };
        EXPECT_TRUE(support::Eventually([&] { return state()["done"] > 0; }));
        EXPECT_TRUE(state()["ended"].is_null());
        EXPECT_EQ(back.rig
                      ->Ask("DELETE /recordings/yard/export" + number + " HTTP/1.1\r\n" + kLocal +
                            std::string(Rig::kViewer) + "\r\n")
                      .status,
                  204U);
        EXPECT_LT(client.peer.Receive(SIZE_MAX).size(), picture.size() * 300);
        EXPECT_TRUE(support::Eventually([&] { return state()["ended"] == "failed"; }));
    }
    EXPECT_EQ(back.Get("/recordings/yard/export/state" + id).status, 404U);
}

// A host whose questions somebody else answers, each time with what `answer` gives for it; with nothing, the
// time is over.
struct AnsweredCluster final : Cluster {
    std::function<std::string(const PeerDocument& question)> answer;
    int asked = 0;

    void Ask(const std::string&, const std::string&, std::string_view text, std::chrono::milliseconds,
             Then then) override {
        ++asked;
        const std::string said = asked < 1000 ? answer(PeerDocument::from_cbor(text)) : "";
        then(said.empty() ? std::nullopt : std::optional(said));
    }
    std::shared_ptr<Store> Bucket(const std::string&) override { return nullptr; }
    std::unique_ptr<ClusterCameras> Cameras(std::string&) override { return nullptr; }
    std::shared_ptr<const void> Serve(const std::string&, Respond) override { return nullptr; }
    bool AwaitRead(std::chrono::milliseconds) override { return true; }
    std::string Trouble() const override { return {}; }
    ClusterFigures Figures() const override { return {}; }
};

TEST(PeerTalk, EndsWhateverIsAnswered) {
    const auto pack = [](std::size_t size, const std::string& part, bool held = false) {
        std::string text;
        PeerDocument::to_cbor({{"session", 7},
                               {"size", size},
                               {"part", PeerDocument::binary({part.begin(), part.end()})},
                               {"held", held}},
                              text);
        return text;
    };
    std::string whole;
    PeerDocument::to_cbor(std::string(kPeerPart, 'x'), whole);
    const auto from = [&](const PeerDocument& question) {
        return pack(whole.size(), whole.substr(question.value("at", std::size_t{0}), kPeerPart));
    };
    const struct {
        const char* what;
        std::function<std::string(const PeerDocument& question)> answer;
        bool changes, answers;
        int most; // questions
    } hosts[] = {
        {"two parts", from, false, true, 2},
        {"an order",
         [&](const auto& question) { return question.contains("ask") ? pack(0, "", true) : from(question); },
         true, true, 3},
        {"always held", [&](const auto&) { return pack(0, "", true); }, true, false, 2},
        {"held, where nothing is ordered", [&](const auto&) { return pack(0, "", true); }, false, false, 1},
        {"held, and more of it", [&](const auto&) { return pack(9, "x", true); }, true, false, 1},
        {"a byte at a time", [&](const auto&) { return pack(1 << 20, "x"); }, false, false, 1},
        {"more than is taken", [&](const auto&) { return pack(std::size_t{1} << 40, whole); }, false, false,
         1},
        {"never the last part",
         [&](const auto&) { return pack(std::size_t{64} << 20, std::string(kPeerPart - 1, 'x')); }, false,
         false, 1},
        {"no answer", [](const auto&) { return std::string("\x60"); }, false, false, 1},
        {"silence", [](const auto&) { return std::string(); }, true, false, 1},
    };
    for (const auto& host : hosts) {
        AnsweredCluster cluster;
        cluster.answer = host.answer;
        const auto answer = PeerAsker(cluster, "topic").Ask("b", {{"op", "list"}}, host.changes);
        EXPECT_EQ(answer.has_value(), host.answers) << host.what;
        EXPECT_TRUE(!answer || answer->get<std::string>().size() == kPeerPart) << host.what;
        EXPECT_LE(cluster.asked, host.most) << host.what;
    }
}

} // namespace
} // namespace host::test
