// The C interface, called as a C program calls it: with a phone's bytes on real sockets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "capi/morrowstream.h"
#include "support/TcpPair.h"
#include "support/Wait.h"
#include "support/Wire.h"
#include "support/temp_folder.h"

namespace {

using support::Eventually;
using support::Peer;
using testing::ElementsAre;
using testing::HasSubstr;

const TempFolder& Folder() {
    static const TempFolder folder; // a process keeps its folder
    return folder;
}

// What may be called with a callback's payload: any closure.
template <class... Arguments>
struct Hook {
    static void Call(Arguments... arguments, void* payload) {
        (*static_cast<std::function<void(Arguments...)>*>(payload))(arguments...);
    }
    std::function<void(Arguments...)> run;
};
using FrameHook = Hook<const char*, morrow_frame>;

// A grey picture whose samples have all one value.
std::string JpegOf(std::uint8_t value, int width = 32, int height = 16) {
    const std::vector<std::uint8_t> samples(static_cast<std::size_t>(width * height), value);
    morrow_picture picture = MORROW_PICTURE_INIT;
    picture.form = MORROW_GREY;
    picture.width = picture.y_stride = width;
    picture.height = height;
    picture.y = samples.data();
    void* bytes = nullptr;
    std::size_t size = 0;
    EXPECT_EQ(morrow_jpeg_encode(&bytes, &size, &picture, 90), MORROW_OK) << morrow_last_error();
    std::string jpeg(static_cast<const char*>(bytes), size);
    morrow_free(bytes);
    return jpeg;
}

std::string UploadHead(std::string_view camera) {
    return "POST /mobile/video/" + std::string(camera) + " HTTP/1.1\r\nHost: here\r\n\r\n";
}

std::string ViewHead(std::string_view source) {
    return "GET /mobile/video/" + std::string(source) +
           "?fps=25 HTTP/1.1\r\nAuthorization: Basic YW5uOnNlY3JldA==\r\n\r\n";
}

class Capi : public testing::Test {
protected:
    void SetUp() override { Create(); }
    void TearDown() override {
        if (server != 0) {
            EXPECT_EQ(morrow_server_destroy(server), MORROW_OK);
        }
    }

    void Create() {
        options.data_folder = Folder().Path().c_str();
        options.wait_ms = 2000;
        options.log = [](const char* channel, const char* text, void*) {
            EXPECT_NE(channel, nullptr);
            EXPECT_NE(text, nullptr);
            EXPECT_EQ(morrow_take(1, 0, nullptr, 0, nullptr, nullptr), MORROW_IN_CALLBACK);
        };
        options.may_watch = [](const char* login, const char* password, const char* source, void*) {
            return std::string(login) == "ann" && std::string(password) == "secret" &&
                           std::string(source) != "hidden"
                       ? 1
                       : 0;
        };
        ASSERT_EQ(morrow_server_create(&server, &options), MORROW_OK) << morrow_last_error();
        morrow_camera_list* list = nullptr;
        ASSERT_EQ(morrow_camera_list_get(&list, server), MORROW_OK);
        for (std::size_t i = 0; i < list->count; ++i)
            EXPECT_EQ(morrow_camera_remove(server, list->cameras[i]->name), MORROW_OK);
        morrow_camera_list_free(list);
        ASSERT_EQ(morrow_camera_add(server, "door", "320x240", "secret"), MORROW_OK) << morrow_last_error();
    }

    std::vector<std::string> Cameras() {
        morrow_camera_list* list = nullptr;
        EXPECT_EQ(morrow_camera_list_get(&list, server), MORROW_OK);
        std::vector<std::string> lines;
        for (std::size_t i = 0; i < list->count; ++i) {
            const morrow_camera& camera = *list->cameras[i];
            lines.push_back(std::string(camera.name) + " " + camera.type +
                            (camera.connected != 0 ? " connected" : ""));
        }
        morrow_camera_list_free(list);
        return lines;
    }

    // Gives a connection to the library with the bytes read so far; its outcome, and the camera or source of
    // it.
    std::future<std::string> Take(Peer& far, const std::string& read, const std::string& rest = {}) {
        support::TcpPair pair;
        auto* const outcome = new std::promise<std::string>;
        std::future<std::string> result = outcome->get_future();
        const auto told = [](int status, const char* name, void* payload) {
            const std::unique_ptr<std::promise<std::string>> promise(
                static_cast<std::promise<std::string>*>(payload));
            promise->set_value(std::to_string(status) + " " + name);
        };
        pair.far.Send(rest);
        const int status = morrow_take(server, pair.near.Get(), read.data(), read.size(), told, outcome);
        if (status == MORROW_OK) {
            (void)pair.near.Release();
        } else {
            delete outcome;
            std::promise<std::string> refused;
            refused.set_value("refused " + std::to_string(status));
            result = refused.get_future();
        }
        far = std::move(pair.far);
        return result;
    }
    // A phone that has signed in.
    Peer Phone(const std::string& camera = "door", const std::string& password = "secret") {
        Peer phone;
        EXPECT_EQ(Take(phone, UploadHead(camera) + support::AuthRecord(password)).get(), "1 " + camera);
        EXPECT_EQ(phone.Receive(1), std::string(1, '\0'));
        EXPECT_TRUE(phone.Send(support::StreamHeader("")));
        return phone;
    }

    const Watchdog watchdog{testing::UnitTest::GetInstance()->current_test_info()->name()};
    morrow_server_options options = MORROW_SERVER_OPTIONS_INIT;
    morrow_server server = 0;
};

TEST_F(Capi, RefusesWhatNoCallCanTake) {
    morrow_subscription subscription = 0;
    morrow_source source = 0;
    const morrow_frame_callback none = [](const char*, morrow_frame, void*) {};
    ASSERT_EQ(morrow_subscribe(&subscription, server, nullptr, none, nullptr), MORROW_OK);
    ASSERT_EQ(morrow_source_open(&source, server, "clock"), MORROW_OK);
    char* text = nullptr;
    std::int32_t number = 0;
    morrow_camera_list* list = nullptr;
    morrow_subscription other = 7;
    morrow_picture unsized{};
    std::size_t size = 0;
    void* bytes = nullptr;
    const void* lent = nullptr;
    morrow_server_options newer = options;
    newer.size = 1 << 20;
    const auto add = [&](const char* name, const char* type, const char* password) {
        return morrow_camera_add(server, name, type, password);
    };
    const std::string long64(64, 'x');
    const std::string long65(65, 'x');
    const auto said = [](int status) { return std::pair(status, std::string(morrow_last_error())); };
    const struct {
        std::pair<int, std::string> said;
        int expected;
        const char* says;
    } rows[] = {
        {said(morrow_camera_list_get(&list, subscription)), MORROW_BAD_HANDLE, "no handle of a server"},
        {said(morrow_unsubscribe(server)), MORROW_BAD_HANDLE, "subscription"},
        {said(morrow_source_close(subscription)), MORROW_BAD_HANDLE, "source"},
        {said(morrow_frame_keep(source)), MORROW_BAD_HANDLE, "frame"},
        {said(morrow_frame_jpeg(&lent, &size, 0)), MORROW_BAD_HANDLE, "frame"},
        {said(morrow_server_destroy(server + (std::uint64_t{1} << 24))), MORROW_BAD_HANDLE, "server"},
        {said(morrow_settings_get(nullptr, server)), MORROW_INVALID, "no place"},
        {said(morrow_subscribe(&other, server, nullptr, nullptr, nullptr)), MORROW_INVALID,
         "nothing to call"},
        {said(morrow_subscribe(&other, server, "attic", none, nullptr)), MORROW_NOT_FOUND, "no camera"},
        {said(morrow_server_create(&other, nullptr)), MORROW_INVALID, "size"},
        {said(morrow_server_create(&other, &newer)), MORROW_INVALID, "does not know"},
        {said(morrow_server_create(&other, &options)), MORROW_BUSY, "there is a server"},
        {said(add("door", "320x240", "x")), MORROW_EXISTS, "there is a camera"},
        {said(add("", "320x240", "x")), MORROW_INVALID, "1 to 64"},
        {said(add(long65.c_str(), "320x240", "x")), MORROW_INVALID, "1 to 64"},
        {said(add("a/b", "320x240", "x")), MORROW_INVALID, "none of"},
        {said(add("a\nb", "320x240", "x")), MORROW_INVALID, "none of"},
        {said(add("\xFF", "320x240", "x")), MORROW_INVALID, "UTF-8"},
        {said(add("yard", "640x480", "x")), MORROW_INVALID, "320x240"},
        {said(add("yard", "320x240", "")), MORROW_INVALID, "1 to 63"},
        {said(add("yard", "320x240", long64.c_str())), MORROW_INVALID, "1 to 63"},
        {said(add("yard", "320x240", nullptr)), MORROW_INVALID, "UTF-8"},
        {said(morrow_camera_change(server, "attic", nullptr, "x")), MORROW_NOT_FOUND, "no camera"},
        {said(morrow_camera_remove(server, "attic")), MORROW_NOT_FOUND, "no camera"},
        {said(morrow_camera_password(&text, server, "attic")), MORROW_NOT_FOUND, "no camera"},
        {said(morrow_camera_connected(&number, server, "attic")), MORROW_NOT_FOUND, "no camera"},
        {said(morrow_settings_set(server, "<config>")), MORROW_INVALID, "no settings document"},
        {said(morrow_source_open(&other, server, "clock")), MORROW_EXISTS, "there is a source"},
        {said(morrow_source_show_picture(source, &unsized)), MORROW_INVALID, "size"},
        {said(morrow_take(server, -1, nullptr, 0, nullptr, nullptr)), MORROW_INVALID, "socket"},
        {said(morrow_take(server, 0, nullptr, 9, nullptr, nullptr)), MORROW_INVALID, "no such bytes"},
        {said(morrow_archive_make(&bytes, &size, server, 3, "a", "b", "c")), MORROW_INVALID, "archive"},
        {said(morrow_archive_make(&bytes, &size, server, 1, "a&b", "b", "c")), MORROW_INVALID, "none of"},
        {said(morrow_archive_make(&bytes, &size, server, 1, "door", "wrong", "c")), MORROW_DENIED,
         "password"},
        {said(morrow_jpeg_decode(&other, "none", 4)), MORROW_NO_PICTURE, "no picture"},
        {said(morrow_jpeg_probe(&number, &number, &number, nullptr, 0)), MORROW_INVALID, "no JPEG"},
        {said(morrow_jpeg_encode(&bytes, &size, &unsized, 50)), MORROW_INVALID, "size"},
        {said(morrow_jpeg_encode(&bytes, &size, &unsized, 0)), MORROW_INVALID, "quality"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.said.first, row.expected) << row.said.second;
        EXPECT_THAT(row.said.second, HasSubstr(row.says));
    }
    EXPECT_EQ(other, 0U) << "zeroed by the failure";
    EXPECT_EQ(morrow_unsubscribe(subscription), MORROW_OK);
    EXPECT_EQ(morrow_unsubscribe(subscription), MORROW_BAD_HANDLE) << "twice";
    EXPECT_EQ(morrow_source_close(source), MORROW_OK);
    EXPECT_EQ(morrow_version() >> 16, 1U);
}

TEST_F(Capi, ThereIsOneServerAndOneFolder) {
    const TempFolder elsewhere;
    const morrow_server ended = server;
    EXPECT_EQ(morrow_server_destroy(std::exchange(server, 0)), MORROW_OK);
    EXPECT_EQ(morrow_server_destroy(ended), MORROW_BAD_HANDLE);
    options.data_folder = elsewhere.Path().c_str();
    EXPECT_EQ(morrow_server_create(&server, &options), MORROW_BUSY);
    EXPECT_THAT(morrow_last_error(), HasSubstr("bound to"));
    options.data_folder = Folder().Path().c_str();
    options.language = "ru";
    EXPECT_EQ(morrow_server_create(&server, &options), MORROW_BUSY);
    options.language = nullptr;
    ASSERT_EQ(morrow_server_create(&server, &options), MORROW_OK) << morrow_last_error();
    EXPECT_THAT(Cameras(), ElementsAre("door 320x240")) << "kept on disk";
    EXPECT_NE(server, ended);

    // What is damaged is not overwritten.
    EXPECT_EQ(morrow_server_destroy(std::exchange(server, 0)), MORROW_OK);
    const std::string file = Folder().File("Norvane/Tessaron/Servers/Morrowstream.xml");
    std::filesystem::rename(file, file + ".whole");
    std::ofstream(file) << "<config><cams>";
    EXPECT_EQ(morrow_server_create(&server, &options), MORROW_FAILED);
    EXPECT_THAT(morrow_last_error(), HasSubstr("damaged"));
    std::filesystem::rename(file + ".whole", file);
    ASSERT_EQ(morrow_server_create(&server, &options), MORROW_OK) << morrow_last_error();
}

TEST_F(Capi, CamerasComeChangeAndGo) {
    ASSERT_EQ(morrow_camera_add(server, "ыard", "160x120", "pass"), MORROW_OK) << morrow_last_error();
    EXPECT_THAT(Cameras(), ElementsAre("door 320x240", "ыard 160x120"));
    const Peer phone = Phone();
    EXPECT_EQ(morrow_camera_change(server, "door", "160x120", "other"), MORROW_OK);
    EXPECT_THAT(Cameras(), ElementsAre("door 160x120 connected", "ыard 160x120")) << "the upload goes on";
    char* password = nullptr;
    ASSERT_EQ(morrow_camera_password(&password, server, "door"), MORROW_OK);
    EXPECT_STREQ(password, "other");
    morrow_free(password);

    // All of a document or nothing of it.
    char* before = nullptr;
    ASSERT_EQ(morrow_settings_get(&before, server), MORROW_OK);
    const std::string item =
        "<item><Name type='BSTR'>door</Name><Type type='BSTR'>320x240</Type><Password type='BSTR'/></item>";
    const std::string twice = "<config><cams KeyXPath='Name/text()'>" + item + item + "</cams></config>";
    for (const std::string& bad : {twice, std::string("<config><cams><item/></cams></config>")})
        EXPECT_EQ(morrow_settings_set(server, bad.c_str()), MORROW_INVALID) << bad;
    char* after = nullptr;
    ASSERT_EQ(morrow_settings_get(&after, server), MORROW_OK);
    EXPECT_STREQ(after, before);
    EXPECT_EQ(morrow_settings_set(server, "<config><host type='BSTR'>here:1</host></config>"), MORROW_OK)
        << morrow_last_error();
    EXPECT_THAT(Cameras(), testing::SizeIs(2)) << "a part that is not there stays";
    EXPECT_EQ(morrow_settings_set(server, before), MORROW_OK);
    morrow_free(before);
    morrow_free(after);
    EXPECT_EQ(morrow_camera_remove(server, "ыard"), MORROW_OK);
    EXPECT_THAT(Cameras(), ElementsAre("door 160x120 connected"));

    void* archive = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(morrow_archive_make(&archive, &size, server, MORROW_ARCHIVE_SEND, "door", "other", "Door"),
              MORROW_OK)
        << morrow_last_error();
    EXPECT_EQ(std::string_view(static_cast<const char*>(archive), std::min<std::size_t>(size, 2)), "PK");
    morrow_free(archive);
}

// However much of it was read before: the rest is read here, and the component gets what was read first.
TEST_F(Capi, TakesConnectionsReadToAnyPoint) {
    std::atomic<int> brightness{0};
    FrameHook hook{[&](const char*, morrow_frame frame) {
        morrow_picture picture = MORROW_PICTURE_INIT;
        EXPECT_EQ(morrow_frame_picture(&picture, frame), MORROW_OK);
        brightness = picture.y[0];
    }};
    morrow_subscription subscription = 0;
    ASSERT_EQ(morrow_subscribe(&subscription, server, "door", FrameHook::Call, &hook.run), MORROW_OK);
    const std::string head = UploadHead("d%6For");
    const std::string before = head + support::AuthRecord("secret") + support::StreamHeader("");
    int value = 40;
    for (const std::size_t read : {std::size_t{0}, std::size_t{9}, head.size() - 1, head.size(),
                                   head.size() + 100, head.size() + 131, before.size(), before.size() + 50}) {
        value += 20;
        const std::string bytes = before + support::Frame(JpegOf(static_cast<std::uint8_t>(value)));
        Peer phone;
        EXPECT_EQ(Take(phone, bytes.substr(0, read), bytes.substr(read)).get(), "1 door") << read;
        EXPECT_TRUE(Eventually([&] { return std::abs(brightness - value) < 3; })) << read;
    }
}

TEST_F(Capi, TellsWhatBecomesOfAConnection) {
    const Peer receiving = Phone();
    morrow_source source = 0;
    ASSERT_EQ(morrow_source_open(&source, server, "hidden"), MORROW_OK);
    const std::string stranger = "GET /mobile/video/clock HTTP/1.1\r\n\r\n";
    const struct {
        std::string read;
        std::string rest;
        std::string outcome;
    } rows[] = {
        {"GET / HTTP/1.1\r\n\r\n", "", "refused " + std::to_string(MORROW_NOT_FOUND)},
        {std::string(20000, 'x'), "", "refused " + std::to_string(MORROW_NOT_FOUND)},
        {"GET / HTT", "P/1.1\r\n\r\n", "-5 "},
        {"PUT /mobile/video/door HT", "TP/1.1\r\n\r\n", "-5 "},
        {"POST /mobile/video/ HT", "TP/1.1\r\n\r\n", "-5 "},
        {"POST /mobile/video/%zz HT", "TP/1.1\r\n\r\n", "-5 "},
        {"", std::string(20000, 'x'), "-5 "},
        {UploadHead("attic"), support::AuthRecord("secret"), "-7 attic"},
        {UploadHead("door"), support::AuthRecord("wrong"), "-7 door"},
        {UploadHead("door"), support::AuthRecord("wrong").substr(0, 130), "-12 door"},
        {"POST /mobile", "", "-12 "},
        {stranger, "", "-7 clock"},
        {ViewHead("hidden"), "", "-7 hidden"},
        {ViewHead("nothing"), "", "-7 nothing"},
    };
    std::vector<std::pair<Peer, std::future<std::string>>> taken(std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i)
        taken[i].second = Take(taken[i].first, rows[i].read, rows[i].rest);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(taken[i].second.get(), rows[i].outcome) << i << ": " << rows[i].read.substr(0, 40);
        if (!rows[i].outcome.starts_with("refused")) {
            EXPECT_TRUE(taken[i].first.IsClosed()) << i;
        }
    }
    EXPECT_THAT(Cameras(), ElementsAre("door 320x240 connected")) << "a wrong password ends no upload";

    Peer leaves;
    auto left = Take(leaves, "POST /mob");
    leaves.Close();
    EXPECT_EQ(left.get(), "-13 ");
    Peer waits;
    auto ended = Take(waits, "POST /mob");
    EXPECT_EQ(morrow_server_destroy(std::exchange(server, 0)), MORROW_OK);
    EXPECT_EQ(ended.get(), "-13 ") << "told before destroy returns";
}

TEST_F(Capi, LendsFramesAndKeepsThem) {
    std::vector<morrow_frame> kept;
    std::vector<int> refused;
    std::mutex mutex;
    FrameHook hook{[&](const char* camera, morrow_frame frame) {
        const std::lock_guard guard(mutex);
        EXPECT_STREQ(camera, "door");
        EXPECT_EQ(morrow_frame_release(frame), MORROW_BAD_HANDLE) << "it is lent";
        EXPECT_EQ(morrow_frame_keep(frame), MORROW_OK);
        kept.push_back(frame);
        char* text = nullptr;
        morrow_server other = 0;
        for (const int status :
             {morrow_settings_get(&text, server), morrow_camera_remove(server, "door"),
              morrow_server_destroy(server), morrow_server_create(&other, &options),
              morrow_take(server, 0, nullptr, 0, nullptr, nullptr), morrow_source_open(&other, server, "x"),
              morrow_jpeg_decode(&other, "", 0), morrow_unsubscribe(0)})
            refused.push_back(status);
    }};
    morrow_subscription subscription = 0;
    ASSERT_EQ(morrow_subscribe(&subscription, server, nullptr, FrameHook::Call, &hook.run), MORROW_OK);
    Peer phone = Phone();
    const std::string jpeg = JpegOf(200);
    const std::size_t segment = 2; // behind SOI: what a stranger has put there goes
    const std::string secret = std::string("\xFF\xFE\0\x08secret", 10);
    phone.Send(support::Frame(jpeg.substr(0, segment) + secret + jpeg.substr(segment)) +
               support::Frame("no picture"));
    ASSERT_TRUE(Eventually([&] { return std::lock_guard(mutex), kept.size() == 2; }));
    EXPECT_THAT(refused, testing::AllOf(testing::SizeIs(16), testing::Each(MORROW_IN_CALLBACK)));
    EXPECT_EQ(morrow_server_destroy(std::exchange(server, 0)), MORROW_OK);
    EXPECT_EQ(morrow_unsubscribe(subscription), MORROW_BAD_HANDLE) << "it ended with the server";

    morrow_picture picture = MORROW_PICTURE_INIT;
    ASSERT_EQ(morrow_frame_picture(&picture, kept[0]), MORROW_OK);
    EXPECT_EQ(picture.form, MORROW_GREY);
    EXPECT_EQ(picture.width, 32);
    EXPECT_EQ(picture.height, 16);
    EXPECT_NEAR(picture.y[0], 200, 2);
    const void* bytes = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(morrow_frame_jpeg(&bytes, &size, kept[0]), MORROW_OK);
    EXPECT_THAT(std::string(static_cast<const char*>(bytes), size),
                testing::AllOf(testing::StartsWith("\xFF\xD8"), testing::Not(HasSubstr("secret"))));
    std::int64_t monotonic = 0;
    std::int64_t utc = 0;
    EXPECT_EQ(morrow_frame_times(&monotonic, &utc, kept[0]), MORROW_OK);
    EXPECT_GT(monotonic, 0);
    EXPECT_GT(utc, std::int64_t{1'600'000'000} * 1'000'000'000);
    EXPECT_EQ(morrow_frame_picture(&picture, kept[1]), MORROW_NO_PICTURE);
    struct {
        std::size_t size = offsetof(morrow_picture, height);
        std::int32_t form = 0;
        std::int32_t width = 0;
        std::int32_t untouched = 77;
    } older;
    EXPECT_EQ(morrow_frame_picture(reinterpret_cast<morrow_picture*>(&older), kept[0]), MORROW_OK);
    EXPECT_EQ(older.width, 32);
    EXPECT_EQ(older.untouched, 77) << "a program with an older header";
    for (const morrow_frame frame : kept) {
        EXPECT_EQ(morrow_frame_release(frame), MORROW_OK);
        EXPECT_EQ(morrow_frame_release(frame), MORROW_BAD_HANDLE);
    }
}

// No frame comes once the call that ends it has returned, however many are on their way.
TEST_F(Capi, CallbacksEndWithTheirSubscriptionAndTheirCamera) {
    std::atomic<bool> ended{false};
    std::atomic<int> late{0};
    std::atomic<int> came{0};
    FrameHook hook{[&](const char*, morrow_frame) {
        ++came;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        late += ended ? 1 : 0;
    }};
    const std::string frames = support::Frame(JpegOf(100));
    const auto run = [&](auto end) {
        ended = false;
        came = 0;
        Peer phone = Phone();
        std::thread sending([&] {
            while (phone.Send(frames)) {
            }
        });
        EXPECT_TRUE(Eventually([&] { return came > 3; }));
        EXPECT_EQ(end(), MORROW_OK) << morrow_last_error();
        ended = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        phone.FinishSending();
        sending.join();
    };
    morrow_subscription subscription = 0;
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(morrow_subscribe(&subscription, server, "door", FrameHook::Call, &hook.run), MORROW_OK);
        run([&] { return morrow_unsubscribe(subscription); });
        ASSERT_EQ(morrow_subscribe(&subscription, server, "door", FrameHook::Call, &hook.run), MORROW_OK);
        run([&] { return morrow_camera_remove(server, "door"); });
        ASSERT_EQ(morrow_camera_add(server, "door", "320x240", "secret"), MORROW_OK);
        // The subscription is still there, and is that camera's again.
        run([&] { return morrow_unsubscribe(subscription); });
    }
    EXPECT_EQ(late, 0);
    ASSERT_EQ(morrow_subscribe(&subscription, server, nullptr, FrameHook::Call, &hook.run), MORROW_OK);
    run([&] { return morrow_server_destroy(std::exchange(server, 0)); });
    EXPECT_EQ(late, 0);
}

TEST_F(Capi, PhonesWatchSourcesUntilTheseEnd) {
    EXPECT_EQ(morrow_server_destroy(std::exchange(server, 0)), MORROW_OK);
    options.show_cameras = 1;
    Create();
    morrow_source source = 0;
    ASSERT_EQ(morrow_source_open(&source, server, "clock"), MORROW_OK);
    morrow_frame frame = 0;
    const std::string white = JpegOf(250, 176, 144);
    ASSERT_EQ(morrow_jpeg_decode(&frame, white.data(), white.size()), MORROW_OK);
    EXPECT_EQ(morrow_source_show_frame(source, frame), MORROW_OK);
    EXPECT_EQ(morrow_frame_release(frame), MORROW_OK);

    const auto watch = [&](Peer& phone, const std::string& name) {
        EXPECT_EQ(Take(phone, ViewHead(name)).get(), "2 " + name);
        EXPECT_THAT(phone.ReceiveUntil("\r\n\r\n"), HasSubstr("200 OK"));
        const std::string header = phone.Receive(36);
        EXPECT_EQ(header.substr(0, 4), "MWP1");
        std::uint32_t size = 0;
        std::memcpy(&size, header.data() + 20, sizeof size);
        return phone.Receive(size);
    };
    Peer first;
    const std::string jpeg = watch(first, "clock");
    ASSERT_EQ(morrow_jpeg_decode(&frame, jpeg.data(), jpeg.size()), MORROW_OK) << morrow_last_error();
    morrow_picture picture = MORROW_PICTURE_INIT;
    ASSERT_EQ(morrow_frame_picture(&picture, frame), MORROW_OK);
    EXPECT_EQ(picture.width, 176);
    EXPECT_NEAR(picture.y[90], 250, 4);
    EXPECT_EQ(morrow_source_show_picture(source, &picture), MORROW_OK);
    EXPECT_EQ(morrow_frame_release(frame), MORROW_OK);
    Peer second;
    (void)watch(second, "door"); // a placeholder
    EXPECT_EQ(morrow_source_close(source), MORROW_OK);
    EXPECT_TRUE(first.IsClosed());
    EXPECT_EQ(morrow_watchers_end(server, "bob"), MORROW_OK);
    EXPECT_FALSE(second.Receive(1000).empty()) << "somebody else";
    EXPECT_EQ(morrow_watchers_end(server, "ann"), MORROW_OK);
    EXPECT_TRUE(second.IsClosed());
    Peer third;
    (void)watch(third, "door"); // signed in anew
    EXPECT_EQ(morrow_camera_remove(server, "door"), MORROW_OK);
    EXPECT_TRUE(third.IsClosed());
}

TEST_F(Capi, EncodesWhatStridesSay) {
    // Rows of 18 and 10 bytes, of which 7 and 3 are the picture's.
    const auto rows = [](int count, int stride, int width, std::uint8_t value) {
        std::vector<std::uint8_t> plane(static_cast<std::size_t>(count * stride), 20);
        for (int row = 0; row < count; ++row)
            std::fill_n(plane.begin() + row * stride, width, value);
        return plane;
    };
    const std::vector<std::uint8_t> y = rows(5, 18, 7, 120);
    const std::vector<std::uint8_t> chroma = rows(2, 10, 3, 160);
    morrow_picture picture = MORROW_PICTURE_INIT;
    picture.form = MORROW_YCBCR;
    picture.width = 7;
    picture.height = 5;
    picture.y_stride = 18;
    picture.chroma_stride = 10;
    picture.y = y.data();
    picture.cb = picture.cr = chroma.data();
    void* bytes = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(morrow_jpeg_encode(&bytes, &size, &picture, 95), MORROW_OK) << morrow_last_error();
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t form = 0;
    EXPECT_EQ(morrow_jpeg_probe(&width, &height, &form, bytes, size), MORROW_OK);
    EXPECT_THAT((std::vector{width, height, form}), ElementsAre(7, 5, MORROW_YCBCR));
    morrow_frame frame = 0;
    ASSERT_EQ(morrow_jpeg_decode(&frame, bytes, size), MORROW_OK);
    morrow_free(bytes);
    morrow_picture back = MORROW_PICTURE_INIT;
    ASSERT_EQ(morrow_frame_picture(&back, frame), MORROW_OK);
    EXPECT_EQ(back.chroma_stride, 3);
    EXPECT_NEAR(back.y[back.y_stride * 4 + 6], 120, 3);
    EXPECT_NEAR(back.cr[back.chroma_stride + 2], 160, 3);
    EXPECT_EQ(morrow_frame_release(frame), MORROW_OK);
    picture.y_stride = 6;
    EXPECT_EQ(morrow_jpeg_encode(&bytes, &size, &picture, 95), MORROW_INVALID);
    picture.y_stride = 18;
    picture.height = 70000;
    EXPECT_EQ(morrow_jpeg_encode(&bytes, &size, &picture, 95), MORROW_INVALID);
}

} // namespace
