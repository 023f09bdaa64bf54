// Phones, clients and the table's changes at the same time.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "interfaces/ComponentDoor.h"
#include "interfaces/ICamSettings.h"
#include "interfaces/IVideoSource.h"
#include "platform/threads.h"
#include "support/FakeWebHost.h"
#include "support/Jpeg.h"
#include "support/RecordingCamSink.h"
#include "support/RecordingLog.h"
#include "support/RecordingVideoSink.h"
#include "support/Settings.h"
#include "support/TcpPair.h"
#include "support/Wait.h"
#include "support/Wire.h"

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
        EXPECT_EQ(S_OK, RegisterComponentClasses());
    }
    ~Crowd() override {
        m_host.script.handler = nullptr;
        RevokeComponentClasses();
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

} // namespace
