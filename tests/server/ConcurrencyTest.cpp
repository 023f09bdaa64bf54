// Phones, clients and the table's changes at the same time.

#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "interfaces/ICamSettings.h"
#include "interfaces/IVideoSource.h"
#include "platform/threads.h"
#include "support/ComponentClasses.h"
#include "support/FakeWebHost.h"
#include "support/Jpeg.h"
#include "support/RecordingCamSink.h"
#include "support/RecordingLog.h"
#include "support/RecordingVideoSink.h"
#include "support/Settings.h"
#include "support/TcpPair.h"
#include "support/Wait.h"
#include "support/Wire.h"
#include "support/temp_folder.h"

namespace {

using platform::Bstr;
using platform::ComPtr;
using support::TcpPair;

ComPtr<IUploadServer> CreateServer() {
    ComPtr<IUploadServer> server;
    EXPECT_EQ(S_OK, platform::CoCreateInstance(kUploadServerClass, nullptr, platform::kContextAll,
                                               IUploadServer::iid, server.ReceiveVoid()));
    return server;
}

std::u16string CameraName(int number) {
    return u"cam" + platform::FromUtf8(std::to_string(number));
}

class Crowd : public testing::Test {
protected:
    Crowd() {
        support::RecordingLog::Fresh();
        EXPECT_EQ(S_OK, support::RegisterComponentClasses());
    }
    ~Crowd() override {
        m_host.script.handler = nullptr;
        support::RevokeComponentClasses();
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
        EXPECT_EQ(0U, platform::OpenSocketCount());
    }
    support::WebHostClass m_host;
};

TEST_F(Crowd, ClientsShareOneObjectAndItsEndIsItsLastRelease) {
    std::vector<std::thread> clients;
    for (int i = 0; i < 8; ++i) {
        clients.emplace_back([] {
            for (int n = 0; n < 200; ++n) {
                const auto server = CreateServer();
                ASSERT_TRUE(server.Query<IVideoSource>());
            }
        });
    }
    // The registration holds the object as well; letting go of it makes room for many lives.
    for (auto& client : clients)
        client.join();
    m_host.script.handler = nullptr;
    EXPECT_TRUE(CreateServer());
}

// Cameras come and go under phones that stream into them, a subscriber that connects to each of them, and
// clients that ask. Nobody is left hanging and nothing leaks.
TEST_F(Crowd, CamerasComeAndGoUnderStreamingPhones) {
    constexpr int kCameras = 4;
    const std::string picture = support::MakeJpeg(64, 48);
    auto server = CreateServer();
    const auto source = server.Query<IVideoSource>();
    const auto camSink = support::RecordingCamSinkObject::Create();
    const auto videoSink = support::RecordingVideoSinkObject::Create();
    videoSink->m_onAdded = [&](BSTR name) {
        ComPtr<ICam> cam;
        if (SUCCEEDED(source->ConnectToCam(name, cam.Receive())))
            cam->Connect(camSink.Get());
    };
    ASSERT_EQ(S_OK, source->Subscribe(videoSink.Get()));

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kCameras; ++i) {
        threads.emplace_back([&, i] {
            while (!stop) {
                TcpPair pair;
                pair.far.Send(support::AuthRecord("demo") + support::StreamHeader(""));
                if (FAILED(server->OnConnection(Bstr(CameraName(i)).Get(), pair.Adopt(), 1, 0, nullptr)))
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
                ComPtr<ICam> cam;
                if (FAILED(source->ConnectToCam(Bstr(CameraName(i)).Get(), cam.Receive())))
                    continue;
                SVariant value;
                EXPECT_EQ(S_OK, cam.Query<ICamSettings>()->GetSetting(kCamSettingConnected, &value));
                cam->Disconnect(camSink.Get());
                cam->Connect(camSink.Get());
            }
        }
    });
    threads.emplace_back([&] {
        for (int n = 0; n < 150; ++n) {
            const std::u16string name = CameraName(n % kCameras);
            EXPECT_EQ(S_OK, support::AddCamera(server.Get(), name, u"160x120", u"demo"));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (n % 3 == 0)
                source->RemoveCam(Bstr(name).Get());
            if (n % 10 == 0) {
                EXPECT_EQ(S_OK, source->Unsubscribe(videoSink.Get()));
                EXPECT_EQ(S_OK, source->Subscribe(videoSink.Get()));
            }
        }
        stop = true;
    });
    for (auto& thread : threads)
        thread.join();
    EXPECT_GT(camSink->Count(), 0U);
    EXPECT_EQ(S_OK, source->Unsubscribe(videoSink.Get()));
}

// A download's tool that takes its time: a `zip` in front of the installed one waits until it is let go.
class SlowZip {
public:
    SlowZip() : m_path(::getenv("PATH") == nullptr ? "/usr/bin" : ::getenv("PATH")) {
        std::ofstream(m_folder.File("zip"))
            << "#!/bin/sh\nPATH='" << m_path << "'\ncd '" << m_folder.Path().string()
            << "'\n: > begun\nuntil [ -e go ]; do sleep 0.01; done\n"
               "cd \"$OLDPWD\"\nexec zip \"$@\"\n";
        std::filesystem::permissions(m_folder.File("zip"), std::filesystem::perms::owner_all);
        ::setenv("PATH", (m_folder.Path().string() + ":" + m_path).c_str(), 1);
    }
    SlowZip(const SlowZip&) = delete;
    SlowZip& operator=(const SlowZip&) = delete;
    ~SlowZip() { ::setenv("PATH", m_path.c_str(), 1); }

    [[nodiscard]] bool HasBegun() const { return std::filesystem::exists(m_folder.File("begun")); }
    void LetGo() const { std::ofstream(m_folder.File("go")); }

private:
    const std::string m_path;
    TempFolder m_folder;
};

// The server's lock is held over the build of an archive: who streams does not notice, who comes waits.
TEST_F(Crowd, UploadsGoOnUnderADownload) {
    const SlowZip tool;
    const std::string frame = support::Frame(support::MakeJpeg(64, 48));
    auto server = CreateServer();
    for (const int number : {0, 1})
        EXPECT_EQ(S_OK, support::AddCamera(server.Get(), CameraName(number), u"160x120", u"demo"));
    ComPtr<ICam> cam;
    ASSERT_EQ(S_OK, server.Query<IVideoSource>()->ConnectToCam(Bstr(CameraName(0)).Get(), cam.Receive()));
    const auto sink = support::RecordingCamSinkObject::Create();
    cam->Connect(sink.Get());
    TcpPair streaming;
    streaming.far.Send(support::AuthRecord("demo") + support::StreamHeader(""));
    ASSERT_EQ(S_FALSE, server->OnConnection(Bstr(CameraName(0)).Get(), streaming.Adopt(), 1, 0, nullptr));

    std::thread download([&] {
        const Bstr path(u"Sendora.jar?JarName=x&login=cam0&password=demo");
        Bstr body;
        Bstr head;
        EXPECT_EQ(S_OK,
                  server.Query<IConfiguration>()->GetContent(path.Get(), body.Receive(), head.Receive()));
        EXPECT_TRUE(body.Bytes().starts_with("PK"));
    });
    EXPECT_TRUE(support::Eventually([&] { return tool.HasBegun(); }));
    TcpPair coming;
    coming.far.Send(support::AuthRecord("demo"));
    std::atomic<bool> came{false};
    std::thread newcomer([&] {
        EXPECT_EQ(S_FALSE, server->OnConnection(Bstr(CameraName(1)).Get(), coming.Adopt(), 1, 0, nullptr));
        came = true;
    });
    const std::size_t before = sink->Count();
    for (std::size_t sent = 1; sent <= 20; ++sent) {
        streaming.far.Send(frame);
        EXPECT_TRUE(support::Eventually([&] { return sink->Count() >= before + sent; }));
    }
    EXPECT_FALSE(came);
    tool.LetGo();
    download.join();
    newcomer.join();
    EXPECT_TRUE(came);
    cam->Disconnect(sink.Get());
}

} // namespace
