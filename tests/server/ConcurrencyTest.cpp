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
#include "support/ComponentTest.h"
#include "support/Jpeg.h"
#include "support/RecordingCamSink.h"
#include "support/RecordingVideoSink.h"
#include "support/TcpPair.h"
#include "support/Wait.h"
#include "support/Wire.h"
#include "support/temp_folder.h"

namespace {

using platform::Bstr;
using support::CameraOf;
using support::TcpPair;

std::u16string CameraName(int number) {
    return u"cam" + platform::FromUtf8(std::to_string(number));
}

class Crowd : public support::ComponentTest {
protected:
    Crowd() { Start(); }
};

// Cameras come and go under phones that stream into them, a subscriber that connects to each of them, and
// clients that ask. Nobody is left hanging and nothing leaks.
TEST_F(Crowd, CamerasComeAndGoUnderStreamingPhones) {
    constexpr int kCameras = 4;
    const std::string picture = support::MakeJpeg(64, 48);
    const auto camSink = support::RecordingCamSinkObject::Create();
    const auto videoSink = support::RecordingVideoSinkObject::Create();
    videoSink->m_onAdded = [&](BSTR name) {
        if (const auto cam = CameraOf(*m_source.Get(), Bstr::CopyOf(name)))
            cam->Connect(camSink.Get());
    };
    ASSERT_EQ(S_OK, m_source->Subscribe(videoSink.Get()));

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kCameras; ++i) {
        threads.emplace_back([&, i] {
            while (!stop) {
                TcpPair pair;
                pair.far.Send(support::AuthRecord("demo") + support::StreamHeader(""));
                if (FAILED(Connect(CameraName(i), pair.Adopt())))
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
                const auto cam = CameraOf(*m_source.Get(), Bstr(CameraName(i)));
                if (!cam)
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
            EXPECT_EQ(S_OK, support::AddCamera(m_server.Get(), name, u"160x120", u"demo"));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (n % 3 == 0)
                m_source->RemoveCam(Bstr(name).Get());
            if (n % 10 == 0) {
                EXPECT_EQ(S_OK, m_source->Unsubscribe(videoSink.Get()));
                EXPECT_EQ(S_OK, m_source->Subscribe(videoSink.Get()));
            }
        }
        stop = true;
    });
    for (auto& thread : threads)
        thread.join();
    EXPECT_GT(camSink->Count(), 0U);
    EXPECT_EQ(S_OK, m_source->Unsubscribe(videoSink.Get()));
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
    for (const int number : {0, 1})
        EXPECT_EQ(S_OK, support::AddCamera(m_server.Get(), CameraName(number), u"160x120", u"demo"));
    const auto cam = CameraOf(*m_source.Get(), Bstr(CameraName(0)));
    const auto sink = support::RecordingCamSinkObject::Create();
    cam->Connect(sink.Get());
    TcpPair streaming;
    streaming.far.Send(support::AuthRecord("demo") + support::StreamHeader(""));
    ASSERT_EQ(S_FALSE, Connect(CameraName(0), streaming.Adopt()));

    std::thread download([&] {
        const auto answer =
            support::Get(*m_configuration.Get(), u"Sendora.jar?JarName=x&login=cam0&password=demo");
        EXPECT_EQ(S_OK, answer.status);
        EXPECT_TRUE(answer.body.Bytes().starts_with("PK"));
    });
    EXPECT_TRUE(support::Eventually([&] { return tool.HasBegun(); }));
    TcpPair coming;
    coming.far.Send(support::AuthRecord("demo"));
    std::atomic<bool> came{false};
    std::thread newcomer([&] {
        EXPECT_EQ(S_FALSE, Connect(CameraName(1), coming.Adopt()));
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
