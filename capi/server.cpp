#include "capi/server.h"

#include <cerrno>
#include <climits>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>

#include "interfaces/IUploadServer.h"
#include "kit/log/log_engine.h"
#include "kit/settings/language.h"
#include "platform/configdoc/configdoc.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/modules.h"
#include "platform/picture_limit.h"
#include "platform/registry.h"

namespace capi {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kUsualWait = 5000; // milliseconds
constexpr std::uint32_t kLongestWait = 600'000;

void Require(HRESULT hr, const std::string& what) {
    if (FAILED(hr))
        throw Failure(MORROW_FAILED,
                      what + " failed: " + platform::DescribeStatus(hr) + " " + platform::LastModuleError());
}

std::string OptionalText(const char* text, const char* what) {
    return text == nullptr ? "" : TextOf(text, what);
}

std::string FolderFrom(const char* path) {
    std::error_code error;
    const std::string text = TextOf(path, "the data folder");
    if (text.empty())
        throw Failure(MORROW_INVALID, "a server has a data folder");
    fs::path folder = fs::absolute(text, error).lexically_normal();
    if (folder.has_relative_path() && folder.filename().empty())
        folder = folder.parent_path();
    if (error || FAILED(platform::CreateFolder(folder.string())))
        throw Failure(MORROW_FAILED, "the data folder cannot be made: " + text);
    return folder.string();
}

// The component as it lies beside the kit's library, as it is built and as it is installed.
std::string OwnModule() {
    std::string place = kit::OwnModule();
    if (place.empty())
        throw Failure(MORROW_FAILED, "the component is not beside libmorrowkit");
    return place;
}

// What the component keeps for the process, and whether there is a server now.
struct Process {
    std::mutex mutex;
    bool live = false;
    std::string folder;
    std::optional<std::string> language; // set once a server was there
};
Process& ThisProcess() {
    static Process& process = *std::make_unique<Process>().release();
    return process;
}

// Who is watching, of the connection that this thread hands over.
kit::WebHandlerHostPtr MakeHandlerHost() {
    auto host =
        platform::ComObject<kit::WebHandlerHost>::Create([](std::string_view) { return Intake::Identity(); });
    if (!host)
        throw std::bad_alloc();
    return host;
}

} // namespace

Server::Claim::Claim(const std::string& folder, const std::string& language) {
    Process& process = ThisProcess();
    const std::lock_guard guard(process.mutex);
    if (process.live)
        throw Failure(MORROW_BUSY, "there is a server in this process");
    if (process.language && (process.folder != folder || *process.language != language))
        throw Failure(MORROW_BUSY, "this process is bound to the folder " + process.folder +
                                       " and the language \"" + *process.language + "\"");
    m_lock = platform::Descriptor(
        ::open((folder + "/lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!m_lock)
        throw Failure(MORROW_FAILED, "the data folder is not writable: " + folder + ": " +
                                         std::generic_category().message(errno));
    if (::flock(m_lock.Get(), LOCK_EX | LOCK_NB) != 0)
        throw Failure(MORROW_BUSY, "another process uses the data folder " + folder);
    process.live = true;
    process.folder = folder;
}

Server::Claim::~Claim() {
    Process& process = ThisProcess();
    m_lock.Close(); // before anybody of this process may claim it again
    const std::lock_guard guard(process.mutex);
    process.live = false;
}

// The component's module, loaded as long as this is there.
class Server::Module {
public:
    explicit Module(const std::string& path) {
        Require(platform::RegisterModule(path), "loading " + path);
        Require(platform::CoGetClassObject(kUploadServerClass, platform::kContextAll, IClassFactory::iid,
                                           m_factory.ReceiveVoid()),
                "loading " + path);
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    // Stays loaded for as long as a frame is kept.
    ~Module() {
        m_factory = nullptr;
        (void)platform::CoFreeUnusedLibraries(std::chrono::milliseconds(0));
    }

private:
    platform::ComPtr<IClassFactory> m_factory;
};

Server::Server(const morrow_server_options& options) {
    const std::string folder = FolderFrom(options.data_folder);
    const std::string language = OptionalText(options.language, "the language");
    if (options.wait_ms > kLongestWait || options.most_pixels > INT64_MAX)
        throw Failure(MORROW_INVALID, "a limit is too large");
    m_claim.emplace(folder, language);
    try {
        Start(options, folder, language);
    } catch (...) {
        End();
        throw;
    }
}

Server::~Server() {
    End();
}

void Server::Start(const morrow_server_options& options, const std::string& folder,
                   const std::string& language) {
    platform::SetCommonDataFolder(folder);
    if (const std::string wrong = platform::SetRegistryFile(folder + "/registry"); !wrong.empty())
        throw Failure(MORROW_FAILED, "the registry of the data folder is damaged: " + wrong);
    const std::string file = kit::SettingsFile(folder);
    if (FAILED(platform::CreateFolder(fs::path(file).parent_path().string())))
        throw Failure(MORROW_FAILED, "the folder of the settings cannot be made: " + file);
    platform::SetPictureLimit(options.most_pixels > 0 ? static_cast<std::int64_t>(options.most_pixels)
                                                      : INT64_MAX);
    Require(platform::RegisterConfigDocumentClass(), "preparing the settings");
    if (options.log != nullptr) {
        m_log = std::make_shared<Callback<morrow_log_callback>>(options.log, options.log_payload);
        kit::SetLogTarget({.wants = {}, .write = [log = m_log](const kit::LogLine& line) {
                               (*log)(std::string(line.channel).c_str(), std::string(line.text).c_str());
                           }});
    }
    m_module = std::make_unique<Module>(
        options.module != nullptr ? TextOf(options.module, "the module's path") : OwnModule());
    if (!language.empty() && FAILED(kit::SetConfiguredLanguage(language)))
        throw Failure(MORROW_INVALID, "the languages are " + kit::LanguageCodes());
    kit::ApplyConfiguredLanguage();
    // From here on the component may have read both.
    {
        Process& process = ThisProcess();
        const std::lock_guard guard(process.mutex);
        process.language = language;
    }
    sources = std::make_shared<Sources>(options.show_cameras != 0 ? cameras : nullptr);
    m_viewing = std::make_unique<kit::Viewing>(
        kit::ContentAccess{.open = [from = sources](std::string_view key) { return from->Open(key); },
                           .knows = [who = watchers](std::string_view token) { return who->Knows(token); }},
        std::make_shared<kit::PackerCounters>());
    const kit::WebHandlerHostPtr handlers = MakeHandlerHost();
    m_component = std::make_unique<kit::Component>(kUploadServerClass, handlers);
    settings = std::make_unique<Settings>(m_component->Configuration(), file);
    if (options.address != nullptr) {
        const std::string address = TextOf(options.address, "the address");
        settings->Edit([&](kit::SettingsDocument& document) { document.SetHost(address); });
    }
    m_subscriber = platform::ComObject<Subscriber>::Create(m_component->Source(), cameras, subscriptions,
                                                           options.show_cameras != 0);
    if (!m_subscriber)
        throw std::bad_alloc();
    Require(m_component->Source()->Subscribe(m_subscriber.Get()), "subscribing to the cameras");
    const std::chrono::milliseconds wait(options.wait_ms != 0 ? options.wait_ms : kUsualWait);
    intake = std::make_unique<Intake>(Intake::Parts{handlers, *settings, *cameras, *sources, *watchers,
                                                    options.may_watch, options.watch_payload, wait});
    open = true;
}

void Server::End() noexcept {
    {
        const std::unique_lock guard(life);
        open = false;
    }
    if (!m_claim)
        return;
    intake = nullptr;
    if (m_viewing)
        m_viewing->End();
    // No frame comes from here on: each camera waits for the one that it delivers.
    if (m_subscriber)
        (void)m_component->Source()->Unsubscribe(m_subscriber.Get());
    m_subscriber = nullptr;
    for (const SubscriptionPtr& subscription : subscriptions->TakeAll())
        (void)HandleTable::Get().Take<Subscription>(subscription->handle);
    for (const OwnSourcePtr& source : sources ? sources->TakeAll() : std::vector<OwnSourcePtr>()) {
        (void)HandleTable::Get().Take<OwnSource>(source->handle);
        source->Close();
    }
    settings = nullptr;
    m_component = nullptr;
    m_viewing = nullptr;
    m_module = nullptr;
    if (m_log) {
        m_log->End();
        kit::SetLogTarget({});
    }
    m_claim.reset();
}

} // namespace capi

using namespace capi;

int morrow_server_create(morrow_server* server, const morrow_server_options* options) {
    return Call([&] {
        morrow_server& handle = Out(server);
        handle = NewHandle(std::make_shared<Server>(ReadStruct(options)));
    });
}

int morrow_server_destroy(morrow_server server) {
    return Call([&] { Retire<Server>(server)->End(); });
}

int morrow_subscribe(morrow_subscription* subscription, morrow_server server, const char* camera,
                     morrow_frame_callback frame, void* payload) {
    return Call([&] {
        morrow_subscription& handle = Out(subscription);
        if (frame == nullptr)
            throw Failure(MORROW_INVALID, "there is nothing to call");
        const std::string name = OptionalText(camera, "the name of a camera");
        const ServerUse use(server);
        if (camera != nullptr && !use->cameras->Find(name).cam)
            throw Failure(MORROW_NOT_FOUND, "there is no camera of that name");
        handle = Enter(std::make_shared<Subscription>(name, frame, payload), use->subscriptions);
    });
}

int morrow_unsubscribe(morrow_subscription subscription) {
    return Call([&] {
        const auto ended = Retire<Subscription>(subscription);
        if (const auto place = ended->place.lock())
            place->Remove(*ended);
        ended->callback.End();
    });
}
