// Tests of the component's server object: its class registered, a host and a settings file of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <string_view>

#include "platform/threads.h"
#include "support/ComponentClasses.h"
#include "support/FakeWebHost.h"
#include "support/RecordingLog.h"
#include "support/Settings.h"

namespace support {

inline platform::ComPtr<IUploadServer> CreateServer(HRESULT expected = S_OK) {
    platform::ComPtr<IUploadServer> server;
    EXPECT_EQ(expected, platform::CoCreateInstance(kUploadServerClass, nullptr, platform::kContextAll,
                                                   IUploadServer::iid, server.ReceiveVoid()));
    return server;
}

// A camera of that name, or none.
inline platform::ComPtr<ICam> CameraOf(IVideoSource& source, const platform::Bstr& name) {
    platform::ComPtr<ICam> cam;
    (void)source.ConnectToCam(name.Get(), cam.Receive());
    return cam;
}

class ComponentTest : public testing::Test {
protected:
    ComponentTest() {
        ForgetSettings();
        EXPECT_EQ(S_OK, RegisterComponentClasses());
    }
    ~ComponentTest() override {
        Stop();
        EXPECT_TRUE(platform::WaitForWorkItems(20000));
        EXPECT_EQ(0U, platform::OpenSocketCount());
        RevokeComponentClasses();
        EXPECT_LE(platform::ModuleLock::Count(), m_locks);
    }
    void Start() {
        m_server = CreateServer();
        m_source = m_server.Query<IVideoSource>();
        m_configuration = m_server.Query<IConfiguration>();
        ASSERT_TRUE(m_source && m_configuration);
    }
    // Lets go of all that holds the server object.
    void Stop() {
        m_source = nullptr;
        m_configuration = nullptr;
        m_server = nullptr;
        m_host.script.handler = nullptr;
    }
    // A socket that is turned away is closed here, and once: a second time is an error.
    HRESULT Connect(std::u16string_view name, SOCKET socket, std::int32_t upload = 1,
                    std::string_view key = {}) {
        platform::SetLastError(0);
        const HRESULT hr = m_server->OnConnection(platform::Bstr(name).Get(), socket, upload,
                                                  static_cast<std::int32_t>(key.size()),
                                                  reinterpret_cast<const std::uint8_t*>(key.data()));
        if (FAILED(hr)) {
            EXPECT_NE(platform::kSocketNotASocket, platform::LastSocketError());
            EXPECT_EQ(platform::kSocketError, platform::closesocket(socket));
        }
        return hr;
    }

    RecordingLog& m_log = RecordingLog::Fresh();
    WebHostClass m_host;
    const std::int32_t m_locks =
        platform::ModuleLock::Count(); // the class above is an object of this module too
    platform::ComPtr<IUploadServer> m_server;
    platform::ComPtr<IVideoSource> m_source;
    platform::ComPtr<IConfiguration> m_configuration;
};

} // namespace support
