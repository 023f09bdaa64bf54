// The command line of the host, and what carries out each of its commands.
#pragma once

#include <csignal>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/store_mirror.h"
#include "host/base/wait.h"
#include "host/http/endpoint.h"
#include "host/http/limits.h"
#include "host/http/proxy.h"
#include "host/log/console.h"
#include "host/tls/certificates.h"
#include "host/users/tokens.h"
#include "host/users/user_store.h"
#include "platform/options.h"

namespace host {

enum class Command { Serve, Control, AddUser, AddUsers, SetLanguage, Register, Unregister, Help, Version };

struct Options {
    Command command = Command::Serve;
    Endpoint listen{"127.0.0.1", 8080};
    std::string data = "data";
    std::optional<unsigned> seconds; // run time; without it until a signal
    bool demo = false;
    Verbosity verbosity = Verbosity::Normal;
    std::string files;               // folders of pictures to watch; empty: "files" of the data folder
    std::string recordings;          // what is recorded; empty: "recordings" of the data folder
    std::string pictures;            // of the demo's phones; empty: found beside the program
    std::vector<std::string> words;  // Control: "camera" or "token", what to do, and with which one
    std::string cameraType;          // Control; empty: as it is, or the usual one
    std::string tokenUser = "admin"; // Control
    Tokens::Scope tokenScope = Tokens::Scope::Read;
    std::string userName; // AddUser
    UserKind userKind = UserKind::Viewer;
    // AddUser: a list, or none; nothing: as it is, and none for a new user.
    std::optional<std::optional<CameraNames>> userCameras;
    std::string usersFile;   // AddUsers
    std::string language;    // SetLanguage
    std::string module;      // Register, Unregister
    bool tls = true;         // spoken on the same port as plain HTTP
    bool allowPlain = false; // to other machines as well; implied without TLS
    TrustedProxies proxies;
    CertificateFiles certificate; // the operator's own; empty: one of an authority in the data folder
    Limits limits;
    std::vector<std::string> cluster; // servers of the message engine; none: a host by itself
    std::string node;                 // its name in the cluster
    std::string clusterSecret;        // a file, as are the two below
    std::string clusterCredentials;
    std::string clusterAuthority;
    std::optional<Joining> clusterJoin; // nothing: it does not start where its settings are others
    std::string publicAddress;          // where phones reach it, "HOST:PORT"; empty: where it listens
    std::int64_t maxPixels = 4 << 20;   // of a picture that a phone sends
    bool reencode = false;              // watchers get no phone's own files

    // A demo that other machines reach has passwords of its own, and its pages ask for a sign-in.
    [[nodiscard]] bool IsOpenDemo() const { return demo && !listen.IsLoopback(); }
};

extern const std::string_view kHelpText;

// Throws UsageError that names the argument which is wrong.
Options ParseOptions(std::span<const std::string_view> arguments);

// --- Commands: each returns the exit status and throws StartError ---

// The signals that end the program (SIGINT, SIGTERM) or have files read again (SIGHUP).
sigset_t HostSignals();
// Serves until the time is over or a signal comes. HostSignals() must be blocked in the whole process.
int Serve(const Options& options);

// camera and token.
int RunControl(const Options& options);

// --add-user and --add-users.
int AddUser(const Options& options);
int AddUsers(const Options& options);

// A person at the terminal types it twice, a program gives it once, on standard input.
std::string AskPassword(const std::string& login);

// --register and --unregister.
int ChangeRegistration(const Options& options);

// --language.
int SetLanguage(const Options& options);

} // namespace host
