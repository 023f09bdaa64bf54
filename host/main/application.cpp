#include "host/main/options.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include "host/base/start_error.h"
#include "host/control/socket.h"
#include "host/http/endpoint.h"
#include "host/log/console.h"
#include "host/main/data_folder.h"
#include "host/main/demo.h"
#include "host/main/membership.h"
#include "host/main/reports.h"
#include "host/main/services.h"
#include "host/peers/events.h"
#include "host/peers/peers.h"
#include "host/peers/recordings.h"
#include "host/settings/file.h"
#include "host/settings/settings.h"
#include "host/site/connection.h"
#include "host/site/server.h"
#include "host/sources/source_table.h"
#include "kit/component/component.h"
#include "kit/settings/language.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/picture_limit.h"
#include "platform/scope.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using platform::ComObject;

constexpr std::chrono::milliseconds kTick{200};
// In a cluster: what comes within that time from other hosts goes into the settings as one change.
constexpr std::chrono::milliseconds kGatherFor{100};
constexpr std::chrono::seconds kStatusInterval{1};
// What could not be written is tried again, and how often what may wait is written.
constexpr std::chrono::seconds kRetryInterval{5};
constexpr std::chrono::minutes kSaveInterval{1};
// How late it is noticed that a session has ended, or that a right was taken away.
constexpr std::chrono::milliseconds kSweepInterval{250};
// How long the pictures that the demo's phones have sent may take to be decoded, once the phones have ended.
constexpr std::chrono::milliseconds kArriveWithin{2000};

// A thousand phones are a thousand descriptors.
void RaiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// Blocks of large pictures go back to the system when they are freed. By itself the allocator begins to keep
// them once it has seen some, a heap for each few threads.
void GiveLargeBlocksBack() {
    (void)::mallopt(M_MMAP_THRESHOLD, 512 * 1024);
}

// 0: none came.
int WaitForSignal(Clock::time_point until) {
    const sigset_t signals = HostSignals();
    const auto left = std::max(until - Clock::now(), Clock::duration::zero());
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
    const timespec timeout{nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
    return std::max(::sigtimedwait(&signals, nullptr, &timeout), 0);
}

// Whether the end of the terminal that the host was started in is to end it: the signal for that is the one
// that has files read again. A service has no terminal, and who starts a program with nohup wants it to go
// on.
bool EndsWithTerminal() {
    struct sigaction action {};
    return ::sigaction(SIGHUP, nullptr, &action) == 0 && action.sa_handler != SIG_IGN;
}
bool HasTerminal() {
    return static_cast<bool>(platform::Descriptor(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)));
}

// From here on the next signal ends the process the hard way, for somebody who does not want to wait.
void RestoreSignals() {
    const sigset_t signals = HostSignals();
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

fs::path ProgramFolder() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path(".") : program.parent_path();
}

// Installed beside the program, or in the source tree that it was built in (build/NAME/bin).
std::string FindPictures(const Options& options) {
    if (!options.pictures.empty())
        return options.pictures;
    const fs::path folder = ProgramFolder();
    const fs::path installed = folder / "../share/morrowstream/pictures";
    std::error_code error;
    const bool there = fs::is_directory(installed, error);
    return (there ? installed : folder / "../../../phone/pictures").lexically_normal().string();
}

std::unique_ptr<kit::ComponentModule> LoadModule(const DataFolder& data) {
    try {
        auto module = std::make_unique<kit::ComponentModule>(data.Path());
        if (!module->Note().empty())
            Console::Get().Log("component", module->Note());
        return module;
    } catch (const std::runtime_error& error) {
        throw StartError(std::string(error.what()) +
                         "; register another one with morrowstream-host --data DIR --register PATH");
    }
}

// Users and cameras as this start wants them.
struct Household {
    UserStore users;
    std::vector<std::string> oddLogins; // those of users whose phones cannot sign in
    std::vector<CameraEntry> cameras;   // to be put into the settings
    bool adminMade = false;
    bool formerUsers = false; // their file was written before they had lists of cameras
    bool demoEnded = false;   // the demo's users were there; its cameras may be in the settings still
};

std::string DemoPasswordsOf(const DataFolder& data) {
    return data.File("demo-passwords");
}

// Whether users were kept before they had lists of cameras. The file is written again then, so this is true
// once.
bool LeaveFormerUsers(const DataFolder& data, UserStore& users) {
    constexpr std::string_view kFormerTitle =
        "# Users of the host: login, kind (admin, viewer, phone), mark, password hash.\n";
    if (!platform::ReadWholeFile(data.File("users")).value_or("").starts_with(kFormerTitle))
        return false;
    users.Save();
    return true;
}

Household OpenHousehold(DataFolder& data, const Options& options, const Membership& membership) {
    bool adminMade = false;
    UserStore users = data.OpenUsers(&adminMade, membership.users);
    const bool formerUsers = LeaveFormerUsers(data, users);
    std::vector<CameraEntry> cameras = data.ReadCameras();
    bool demoEnded = false;
    if (options.demo) {
        std::vector<CameraEntry> demo =
            DemoCameras(options.IsOpenDemo() ? DemoPasswordsOf(data) : DemoPasswords());
        AddDemoUsers(users, demo);
        for (CameraEntry& camera : demo) {
            std::erase_if(cameras, [&](const CameraEntry& other) { return other.name == camera.name; });
            cameras.push_back(std::move(camera));
        }
    } else {
        demoEnded = RemoveDemoUsers(users);
    }
    std::vector<std::string> oddLogins;
    for (const auto& [login, user] : users.Users()) {
        if (!CheckLogin(login).empty())
            oddLogins.push_back(login);
    }
    return {std::move(users), std::move(oddLogins), std::move(cameras), adminMade, formerUsers, demoEnded};
}

class Application {
public:
    explicit Application(const Options& options)
        : m_options(options), m_data(OpenData(options)), m_membership(options, m_data),
          m_household(OpenHousehold(m_data, options, m_membership)),
          m_authenticator(std::move(m_household.users), options.limits.maxThrottleWait, m_stop,
                          m_data.File("sign-ins")),
          m_sessions(m_membership.sessions,
                     [this](const Sessions::Owner& owner) { return m_authenticator.DigestOf(owner); }),
          m_phones(m_membership.phones,
                   [this](const std::string& camera) {
                       return m_authenticator.DigestOf({camera, true});
                   }),
          m_tokens(m_membership.tokens,
                   [this](std::string_view login) { return m_authenticator.KindOf(login); }),
          m_handlers(ComObject<kit::WebHandlerHost>::Create(
              [this](std::string_view head) { return m_authenticator.Identify(head); })),
          m_feeds(ComObject<FeedTable>::Create(options.reencode ? Pictures::Encoded : Pictures::PassedOn)),
          m_services(*m_feeds, {.data = m_data.Path(),
                                .settings = kit::SettingsFile(m_data.Path()),
                                .recordings = options.recordings.empty() ? m_data.File("recordings")
                                                                         : options.recordings}),
          m_settings(m_authenticator, *m_feeds, kit::SettingsFile(m_data.Path())) {
        Console::Get().SetVerbosity(options.verbosity);
        ShowComponentLines();
        m_module = LoadModule(m_data);
        kit::ApplyConfiguredLanguage();
        const std::string language = kit::ConfiguredLanguage();
        m_sources = std::make_shared<SourceTable>(
            m_feeds, options.files.empty() ? m_data.File("files") : options.files, options.limits.staleAfter);
        m_authenticator.SetPhonesWatchAll(m_services.Preferences().Now()->phonesWatchAll);
        m_services.Preferences().Listen([this](const Preferences&, const Preferences& now) {
            m_authenticator.SetPhonesWatchAll(now.phonesWatchAll);
        });
        m_viewing = std::make_unique<kit::Viewing>(
            PhoneContentOf(m_sources,
                           [this](std::string_view token) {
                               const auto viewer = m_authenticator.OwnerOf(token);
                               return viewer ? std::optional(m_authenticator.RightsOf(*viewer))
                                             : std::nullopt;
                           }),
            m_packers);
        m_component = std::make_unique<kit::Component>(m_module->Class(), m_handlers);
        if (auto cameras = m_membership.OpenCameras())
            m_peers.emplace(*m_feeds, std::move(cameras));
        m_subscription.emplace(m_feeds, m_component->Source());
        if (m_peers) {
            m_peers->Begin();
            m_lookback.emplace(SharedRecordings::Parts{.local = m_services.Recording().Recorded(),
                                                       .cluster = *m_membership.Others(),
                                                       .node = options.node,
                                                       .live = [this] { return m_peers->Nodes(); },
                                                       .catalogues = m_membership.catalogues});
            m_otherEvents.emplace(SharedEvents::Parts{.local = m_services.Events(),
                                                      .cluster = *m_membership.Others(),
                                                      .node = options.node,
                                                      .live = [this] { return m_peers->Nodes(); }});
        }
        m_settings.SetConfiguration(m_component->Configuration());
        KeepDamagedSettings();
        m_membership.Join(m_settings);
        // Phones are told of an address only when it is this server's.
        Listener listener = Listen(options.listen);
        m_authority =
            options.publicAddress.empty() ? AuthorityForOthers(listener.endpoint) : options.publicAddress;
        m_phoneAddress =
            options.publicAddress.empty() ? AuthorityForPhones(listener.endpoint) : options.publicAddress;
        m_settings.SetOwnAddress(m_phoneAddress);
        StoreSettings(listener.endpoint);
        FollowCameras();
        m_membership.Join(m_services.Preferences());
        OpenCertificates();
        m_site = std::make_unique<Site>(SiteParts{.feeds = *m_feeds,
                                                  .sources = *m_sources,
                                                  .handlers = *m_handlers,
                                                  .authenticator = m_authenticator,
                                                  .sessions = m_sessions,
                                                  .phones = m_phones,
                                                  .tokens = m_tokens,
                                                  .links = m_membership.links,
                                                  .settings = m_settings,
                                                  .events = m_services.Events(),
                                                  .preferences = m_services.Preferences(),
                                                  .counters = m_counters,
                                                  .packers = *m_packers,
                                                  .stop = m_stop,
                                                  .limits = options.limits,
                                                  .demo = options.demo && !options.IsOpenDemo(),
                                                  .certificates = m_certificates.get(),
                                                  .allowPlain = options.allowPlain,
                                                  .proxies = options.proxies,
                                                  .language = language,
                                                  .port = listener.endpoint.port,
                                                  .forgetPassword =
                                                      [this](std::string_view login) {
                                                          if (login == kFirstAdmin)
                                                              m_data.ForgetAdminPassword();
                                                      },
                                                  .authority = m_authority,
                                                  .notices = &m_services.Receivers(),
                                                  .recorder = &m_services.Recording().Recording(),
                                                  .recordings = Lookback(),
                                                  .node = options.node,
                                                  .cluster = m_membership.Figures(),
                                                  .otherEvents = m_otherEvents ? &*m_otherEvents : nullptr});
        try {
            m_server = std::make_unique<Server>(std::move(listener), *m_site);
            OpenControlSocket();
        } catch (...) {
            m_stop.Signal(); // the server's end waits for it
            throw;
        }
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application() { m_stop.Signal(); }

    int Run() {
        SayWelcome({.options = m_options,
                    .data = m_data,
                    .oddLogins = m_household.oddLogins,
                    .adminMade = m_household.adminMade,
                    .listening = m_server->Where(),
                    .authority = m_authority,
                    .certificates = m_certificates.get(),
                    .feeds = *m_feeds,
                    .authenticator = m_authenticator,
                    .links = m_site->links});
        if (m_household.formerUsers)
            Console::Get().Say(
                "What signs in as a phone may watch every camera, as before; /settings has a switch for "
                "that, and /users has lists of cameras for each user.");
        std::optional<DemoPhones> phones;
        if (m_options.demo) {
            phones.emplace((ProgramFolder() / "morrowstream-phone").string(), FindPictures(m_options),
                           m_options.IsOpenDemo() ? DemoPasswordsOf(m_data) : DemoPasswords(),
                           AuthoritiesToOpen(m_server->Where()).front());
        }
        {
            std::jthread sweeper([this] { Sweep(); });
            const platform::AtScopeEnd sweepsEnd([this] { m_sweepsEnd.Signal(); });
            Loop(phones ? &*phones : nullptr);
        }
        RestoreSignals();
        const DemoResults results = phones ? phones->Stop() : DemoResults{};
        AwaitPictures(results.uploads);
        m_stop.Signal();
        m_control.reset();
        m_server.reset();
        m_viewing->End();
        const bool settingsWritten = m_settings.WriteWhatIsLeft();
        if (!m_services.Preferences().WriteWhatIsLeft() || !settingsWritten)
            Console::Get().Log("error",
                               "the last change of the settings is lost: it could not be written to disk");
        m_settings.SetConfiguration(nullptr);
        m_subscription.reset();
        m_component.reset();
        (void)m_sessions.Save();
        (void)m_phones.Save();
        (void)m_tokens.Save();
        m_membership.Save();
        if (!m_authenticator.Save())
            Console::Get().Log("error", "from where people have signed in could not be written to disk");
        Console::Get().Flush();
        return SaySummary(m_figures, results) ? 0 : 1;
    }

private:
    static DataFolder OpenData(const Options& options) {
        DataFolder data(options.data);
        data.Lock();
        return data;
    }

    RecordingSource* Lookback() {
        return m_lookback ? static_cast<RecordingSource*>(&*m_lookback) : &m_services.Recording().Recorded();
    }

    void OpenCertificates() {
        if (!m_options.certificate.key.empty())
            m_certificates = std::make_unique<Certificates>(m_options.certificate);
        else if (m_options.tls)
            m_certificates = std::make_unique<Certificates>(m_data.File("tls"), m_settings.ToldHost(),
                                                            m_membership.authority);
    }

    // Not before all cameras are in the settings: what the preferences say of one that is missing is
    // forgotten.
    void FollowCameras() {
        const auto follow = [this](const std::vector<std::string>& cameras) {
            m_services.Preferences().Follow(cameras);
        };
        std::vector<std::string> names;
        if (const auto reading = m_settings.Cameras()) {
            for (const CameraEntry& camera : reading->cameras)
                names.push_back(camera.name);
            follow(names);
        }
        m_settings.Listen(follow);
    }

    void OpenControlSocket() {
        const auto serve = [this](Descriptor connection) {
            ServeConnection(std::move(connection), {.text = "control socket", .key = {}, .owner = true},
                            std::nullopt, nullptr, *m_site);
        };
        try {
            m_control.emplace(m_data.Path(), serve, m_stop);
        } catch (const StartError& error) {
            // All else works without it: some folders can hold files alone.
            Console::Get().Log("error", error.what());
        }
    }

    // Before the first change overwrites the file.
    void KeepDamagedSettings() {
        std::optional<DamagedSettings> damaged;
        (void)m_settings.Edit([&](const SettingsDocument& served) {
            damaged = KeepIfDamaged(kit::SettingsFile(m_data.Path()), served);
            return false;
        });
        if (!damaged)
            return;
        Console& console = Console::Get();
        console.Say("The settings file is damaged: starting with what can be read. It is kept as " +
                    damaged->copy);
        for (const std::string& line : damaged->lost)
            console.Log("error", "settings: " + line);
    }

    // Cameras of the demo and of the file "cameras" become part of the settings, those of an ended demo
    // leave, and phones are told where the server listens: without an address they try their own machine.
    void StoreSettings(const Endpoint& listening) {
        bool changed = false;
        std::string address;
        const auto change = m_settings.Edit([&](SettingsDocument& document) {
            changed = document.PutAll(m_household.cameras);
            if (m_household.demoEnded) {
                for (const CameraEntry& camera : FormerDemoCameras(DemoPasswordsOf(m_data)))
                    changed = document.RemoveIfSame(camera) || changed;
            }
            address = document.Host().value_or("");
            return changed;
        });
        // An address that a full disk did not take is in force all the same.
        // In a cluster that cannot be reached, what was known last holds.
        const bool lost = (changed || change.result != SettingsChange::Result::NotWritten) &&
                          change.result != SettingsChange::Result::Unshared;
        if (change.result != SettingsChange::Result::Done && lost)
            throw StartError("the settings cannot be stored in " + kit::SettingsFile(m_data.Path()));
        if (change.addressEntered)
            Console::Get().Say("Phones are told to connect to " + m_phoneAddress +
                               "; another address is set at /settings");
        else if (m_options.publicAddress.empty() && !LeadsTo(address, listening))
            Console::Get().Say("Phones are told to connect to " + Printable(address) +
                               ", as the settings have it, and this server listens on " + listening.Text() +
                               "; if no router or proxy leads them here, set another address at /settings");
        if (m_household.demoEnded) {
            ForgetDemoPasswords(DemoPasswordsOf(m_data));
            Console::Get().Say("The demo's users and cameras are removed from the data folder.");
        }
        const std::string kept = m_data.KeepCameras();
        if (!kept.empty())
            Console::Get().Say("The cameras of " + m_data.File("cameras") +
                               " are part of the settings now; the file is kept as " + kept);
    }

    void Loop(const DemoPhones* phones) {
        const bool hadTerminal = EndsWithTerminal() && HasTerminal();
        const auto started = Clock::now();
        const auto end =
            m_options.seconds ? started + std::chrono::seconds(*m_options.seconds) : Clock::time_point::max();
        auto nextStatus = started + kStatusInterval;
        auto nextRetry = started + kRetryInterval;
        auto nextSave = started + kSaveInterval;
        while (Clock::now() < end) {
            const auto tick = m_membership.Others() != nullptr ? kGatherFor : kTick;
            const int signal = WaitForSignal(std::min(Clock::now() + tick, end));
            if (signal != 0 && (signal != SIGHUP || (hadTerminal && !HasTerminal())))
                return;
            if (signal == SIGHUP && m_certificates)
                m_certificates->Refresh(m_settings.ToldHost(), true);
            m_feeds->PollConnections();
            m_services.Tick(m_peers ? LiveHosts{m_options.node, m_peers->Nodes(), m_peers->Silent()}
                                    : LiveHosts{});
            m_membership.Tick();
            m_settings.Follow();
            m_services.Preferences().FollowOthers();
            Console::Get().Tick();
            // What cannot be written now is tried the next time.
            if (Clock::now() >= nextRetry) {
                nextRetry = Clock::now() + kRetryInterval;
                (void)m_settings.WriteWhatIsLeft();
                (void)m_services.Preferences().WriteWhatIsLeft();
                m_membership.Save();
                if (m_certificates)
                    m_certificates->Refresh(m_settings.ToldHost());
            }
            if (Clock::now() >= nextSave) {
                nextSave = Clock::now() + kSaveInterval;
                (void)m_authenticator.Save();
                (void)m_sessions.Save();
                (void)m_phones.Save();
                (void)m_tokens.Save();
            }
            if (m_options.verbosity != Verbosity::Quiet && Clock::now() >= nextStatus) {
                nextStatus += kStatusInterval;
                SayStatus(m_feeds->Figures());
                if (const std::string watching = phones != nullptr ? phones->Watching() : "";
                    !watching.empty())
                    Console::Get().Say(watching);
            }
        }
    }

    // Ends the connections of who may have them no longer: on a thread of its own, since the main one may
    // wait for a disk, or for whoever reads what it prints.
    void Sweep() {
        while (WaitFor({.stop = &m_sweepsEnd}, Clock::now() + kSweepInterval) != Waited::Stopped) {
            try {
                m_authenticator.Refresh();
                // Before those that write what they have ended.
                m_site->watches.Sweep();
                m_sessions.Sweep();
                m_tokens.Sweep();
                m_phones.Sweep();
                m_site->phone.Sweep();
            } catch (const std::exception& error) {
                Console::Get().Log("error", std::string("a look for what has ended failed: ") + error.what());
            }
        }
    }

    // Waits for the pictures that were sent in time: the receive loops read a closed connection to its end.
    void AwaitPictures(const std::vector<DemoPhoneResult>& results) {
        const auto deadline = Clock::now() + kArriveWithin;
        const auto arrived = [this](const DemoPhoneResult& result) {
            const FeedPtr feed = m_feeds->Find(result.login);
            return !feed || feed->Figures().frames + feed->Figures().failed >= result.sent;
        };
        while (!std::ranges::all_of(results, arrived) && Clock::now() < deadline)
            (void)WaitFor({}, Clock::now() + std::chrono::milliseconds(10));
        m_figures = m_feeds->Figures();
    }

    const Options& m_options;
    Wakeup m_stop;
    Wakeup m_sweepsEnd;
    DataFolder m_data;
    Membership m_membership;
    Household m_household;
    Authenticator m_authenticator;
    Sessions m_sessions;
    Phones m_phones;
    Tokens m_tokens;
    kit::WebHandlerHostPtr m_handlers;
    FeedTablePtr m_feeds;
    Services m_services;
    Settings m_settings;
    Counters m_counters;
    const std::shared_ptr<kit::PackerCounters> m_packers = std::make_shared<kit::PackerCounters>();
    std::shared_ptr<SourceTable> m_sources;
    std::string m_authority;                    // where others reach this server; empty where nobody does
    std::string m_phoneAddress;                 // what phones are told while nobody has said another one
    std::vector<CameraFigures> m_figures;       // at the end
    std::optional<Peers> m_peers;               // nothing: a host by itself
    std::optional<SharedRecordings> m_lookback; // the same
    std::optional<SharedEvents> m_otherEvents;  // the same
    std::unique_ptr<kit::ComponentModule> m_module;
    std::unique_ptr<kit::Viewing> m_viewing;
    std::unique_ptr<kit::Component> m_component;
    std::optional<FeedSubscription> m_subscription;
    std::unique_ptr<Certificates> m_certificates; // null: TLS is not spoken
    std::unique_ptr<Site> m_site;
    std::unique_ptr<Server> m_server;
    std::optional<ControlSocket> m_control;
};

} // namespace

sigset_t HostSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    return signals;
}

int Serve(const Options& options) {
    RaiseDescriptorLimit();
    platform::SetPictureLimit(options.maxPixels);
    GiveLargeBlocksBack();
    return Application(options).Run();
}

int ChangeRegistration(const Options& options) {
    const DataFolder data(options.data);
    if (options.command == Command::Register)
        kit::RegisterComponent(options.module, data.Path());
    else
        kit::UnregisterComponent(options.module, data.Path());
    return 0;
}

int SetLanguage(const Options& options) {
    const DataFolder data(options.data);
    const auto module = LoadModule(data); // has the languages
    const auto languages = kit::Languages();
    if (std::ranges::count(languages, options.language, &kit::Language::code) == 0)
        throw platform::UsageError("--language takes one of " + kit::LanguageCodes() + ", not \"" +
                                   options.language + "\"");
    if (FAILED(kit::SetConfiguredLanguage(options.language)))
        throw StartError("cannot write " + data.File("registry") + ": " + platform::DescribeLastError());
    Console::Get().Say("The language \"" + options.language +
                       "\" takes effect at the next start of the host.");
    return 0;
}

} // namespace host
