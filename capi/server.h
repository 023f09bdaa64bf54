// The one server of a process.
#pragma once

#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>

#include "capi/calls.h"
#include "capi/feeds.h"
#include "capi/intake.h"
#include "capi/settings.h"
#include "capi/sources.h"
#include "kit/component/component.h"
#include "platform/com.h"
#include "platform/scope.h"

namespace capi {

class Server {
public:
    static constexpr Kind kKind = Kind::Server;
    static constexpr const char* kName = "server";

    // Throws Failure, also when there is a server.
    explicit Server(const morrow_server_options& options);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server();
    // Waits for calls that are at work, and ends everything.
    void End() noexcept;

    std::shared_mutex life; // shared by the calls at work
    bool open = false;      // under it

    // What calls use. Those that others keep may outlive the server.
    const std::shared_ptr<Subscriptions> subscriptions = std::make_shared<Subscriptions>();
    const std::shared_ptr<CameraTable> cameras = std::make_shared<CameraTable>();
    const std::shared_ptr<Watchers> watchers = std::make_shared<Watchers>();
    std::shared_ptr<Sources> sources;
    std::unique_ptr<Settings> settings;
    std::unique_ptr<Intake> intake;

private:
    // The right to be the server of this process, and the process's of the folder.
    class Claim {
    public:
        Claim(const std::string& folder, const std::string& language);
        Claim(const Claim&) = delete;
        Claim& operator=(const Claim&) = delete;
        ~Claim();

    private:
        platform::Descriptor m_lock;
    };
    class Module;

    void Start(const morrow_server_options& options, const std::string& folder, const std::string& language);

    std::optional<Claim> m_claim;
    std::shared_ptr<Callback<morrow_log_callback>> m_log;
    std::unique_ptr<Module> m_module;
    std::unique_ptr<kit::Viewing> m_viewing;
    std::unique_ptr<kit::Component> m_component;
    platform::ComPtr<platform::ComObject<Subscriber>> m_subscriber;
};

// The server of a handle for the length of a call. Throws Failure.
class ServerUse {
public:
    explicit ServerUse(morrow_server handle) : m_server(Lookup<Server>(handle)), m_guard(m_server->life) {
        if (!m_server->open)
            throw Failure(MORROW_BAD_HANDLE, "the server has ended");
    }
    Server* operator->() const noexcept { return m_server.get(); }

private:
    const std::shared_ptr<Server> m_server;
    const std::shared_lock<std::shared_mutex> m_guard;
};

} // namespace capi
