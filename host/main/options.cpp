#include "host/main/options.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "host/users/cameras.h"

namespace host {

const std::string_view kHelpText =
    R"(morrowstream-host: a video server whose cameras are mobile phones.

  morrowstream-host [--listen ADDR:PORT] [--data DIR] [--seconds N] [--demo] ...
  morrowstream-host [--data DIR] --add-user NAME --kind admin|viewer|phone [--cameras all|NAME,NAME,...]
  morrowstream-host [--data DIR] --add-users FILE
  morrowstream-host [--data DIR] camera add NAME [--type TYPE] | list | remove NAME
  morrowstream-host [--data DIR] token add NAME [--user LOGIN] [--scope read|all] | list | remove ID
  morrowstream-host [--data DIR] --language CODE
  morrowstream-host [--data DIR] --register PATH | --unregister PATH

  --listen ADDR:PORT     where to listen (127.0.0.1:8080): a numeric address, localhost, or nothing in front of the colon for
                         all addresses of this machine; port 0 takes a free one
  --data DIR             users, cameras and the administrator's password (./data); made if it is missing
  --tls-cert FILE, --tls-key FILE
                         the certificate for https and its key, in PEM, read again when they change and on SIGHUP; without them
                         the host makes an authority and a certificate of its own (DATA/tls)
  --no-tls               plain HTTP alone; implies --allow-plain
  --allow-plain          plain HTTP gets everything; without it, other machines get in clear what old phones need and nothing else
  --trusted-proxy CIDR   a proxy whose X-Forwarded-For and X-Forwarded-Proto count, and that may speak the PROXY protocol; more
                         than once for several
  --public HOST:PORT     where phones and other machines reach this server, in place of where it listens: a router's or a balancer's
                         address
  --cluster SERVERS      makes this host one of several that are one server: addresses of the NATS servers that they reach each
                         other by, nats://HOST:PORT or tls://HOST:PORT with commas between them; needs --public and the two below
  --node NAME            what this host is called among them
  --cluster-secret FILE  what they know each other by: a line of 32 characters or more, the same for all
  --cluster-credentials FILE, --cluster-authority FILE
                         for the NATS servers: a file of credentials; certificates that they are known by (the system's)
  --cluster-join=take, --cluster-join=merge
                         when a host with settings of its own joins: takes those of the others, or adds its own to them
  --seconds N            ends after N seconds; without it, on Ctrl-C or SIGTERM
  --demo                 three cameras, and a simulated phone for two of them; on a loopback address its pages need no sign-in,
                         elsewhere they do, and the passwords are random
  --pictures DIR         what the simulated phones send: folders "yard" and "gate" with *.jpg files
  --files DIR            folders of *.jpg pictures that can be watched as file/FOLDER (DATA/files)
  --recordings DIR       what is recorded, and the journal of events (DATA/recordings); made if it is missing
  --quiet                no status lines, and of the log only what went wrong
  --verbose              every channel of the log
  --add-user NAME        adds a user, or gives it a new password, which is asked for at a terminal and else a line of standard
                         input; a running host knows it at once
  --kind KIND            admin: everything; viewer: looks at the pages; phone: sends and receives pictures
  --cameras all|LIST     what the user of --add-user sees: every camera, or those of a list, with commas between them; in a name
                         a comma is %2C. Without it a new viewer sees all, and a new phone what phones see
  --add-users FILE       adds the users of a file: a line each, login, kind and password separated by tabs, and where there is
                         one a list of cameras
  camera ..., token ...  what /api/v1 does, by a running host (DATA/control.sock, for its own user and root) and without one in
                         its files; "camera add" asks for the password as --add-user does, "token add" says the token alone
  --type TYPE            of a camera: 320x240, which is the usual one, or 160x120
  --user LOGIN           whose token it is to be (admin)
  --scope read|all       read: it changes nothing; all: what its user may (read)
  --language CODE        the language of texts from the next start on: en, es, fr, ru, lv, az, ka
  --register PATH        enters the component at PATH into the registry of the data folder, from which the host loads it;
                         without one, the component that came with this program is registered at the start
  --unregister PATH      takes the component at PATH out again
  --max-connections N    connections that the web server holds at once (1024)
  --max-per-address N    and from one address (640); an upload stops counting once it has begun
  --max-viewers-per-login N, --max-viewers-per-address N
                         phones and pages that watch one source, at a time (32 and 300)
  --max-streams-per-login N, --max-streams-per-address N
                         live pages and motion JPEG streams, at a time (64 and 600)
  --max-archives-per-login N, --max-archives-per-address N
                         midlet archives that are being built, at a time (2 and 16)
  --max-pixels N         a phone's picture of more pixels is one that cannot be decoded (4194304)
  --reencode             encodes every picture anew for those who watch, in place of passing on what the phones sent without
                         all that is not the picture

Cameras, passwords and language are changed at http://ADDR:PORT/settings. A file DIR/cameras, with a line each of name, type
(320x240 or 160x120) and password, separated by tabs, is taken into the settings at the start.
Ends with 0; with --demo only if every picture that the simulated phones sent has arrived. 1: it could not start, or
pictures were lost. 2: arguments that make no sense.
)";

namespace {

// The commands that take the place of serving, each with its one value.
struct CommandOption {
    std::string_view name;
    Command command;
    std::string Options::*value;
};
constexpr CommandOption kCommands[] = {
    {"--add-user", Command::AddUser, &Options::userName},
    {"--add-users", Command::AddUsers, &Options::usersFile},
    {"--language", Command::SetLanguage, &Options::language},
    {"--register", Command::Register, &Options::module},
    {"--unregister", Command::Unregister, &Options::module},
};

struct LimitOption {
    std::string_view name;
    std::size_t Limits::*limit;
};
constexpr LimitOption kLimits[] = {
    {"--max-connections", &Limits::maxConnections},
    {"--max-per-address", &Limits::maxPerAddress},
    {"--max-viewers-per-login", &Limits::maxViewersPerLogin},
    {"--max-viewers-per-address", &Limits::maxViewersPerAddress},
    {"--max-streams-per-login", &Limits::maxStreamsPerLogin},
    {"--max-streams-per-address", &Limits::maxStreamsPerAddress},
    {"--max-archives-per-login", &Limits::maxArchivesPerLogin},
    {"--max-archives-per-address", &Limits::maxArchivesPerAddress},
};

// The words of a command, which take the place of serving.
void CheckWords(Options& options, std::string_view forTokens) {
    const auto& words = options.words;
    const bool adds = words.size() == 3 && words[1] == "add";
    if (!options.cameraType.empty() && !(adds && words[0] == "camera"))
        throw platform::UsageError("--type goes with camera add");
    if (!forTokens.empty() && !(adds && words[0] == "token"))
        throw platform::UsageError(std::string(forTokens) + " goes with token add");
    if (words.empty())
        return;
    if (words[0] != "camera" && words[0] != "token")
        throw platform::UsageError("unknown argument \"" + words[0] + "\"");
    const bool sound =
        words.size() == 2 ? words[1] == "list" : adds || (words.size() == 3 && words[1] == "remove");
    if (!sound)
        throw platform::UsageError(words[0] + " takes list, add NAME or remove " +
                                   (words[0] == "camera" ? "NAME" : "ID"));
    if (options.command != Command::Serve)
        throw platform::UsageError("one command at a time");
    options.command = Command::Control;
}

// Empty where one of them is none.
std::vector<std::string> ServersIn(std::string_view list) {
    std::vector<std::string> servers;
    for (bool more = true; more;) {
        const auto comma = std::min(list.find(','), list.size());
        const std::string_view server = list.substr(0, comma);
        const auto colons = server.find("://");
        if (colons == std::string_view::npos || colons + 3 == server.size() ||
            (server.substr(0, colons) != "nats" && server.substr(0, colons) != "tls"))
            return {};
        servers.emplace_back(server);
        more = comma < list.size();
        list.remove_prefix(more ? comma + 1 : comma);
    }
    return servers;
}

void CheckCluster(const Options& options) {
    const bool some = !options.node.empty() || !options.clusterSecret.empty() || options.clusterJoin ||
                      !options.clusterCredentials.empty() || !options.clusterAuthority.empty();
    if (options.cluster.empty() && some)
        throw platform::UsageError("--node and the options of --cluster go with --cluster");
    if (options.cluster.empty())
        return;
    if (options.node.empty() || options.clusterSecret.empty() || options.publicAddress.empty())
        throw platform::UsageError("--cluster needs --node, --cluster-secret and --public");
    if (options.demo)
        throw platform::UsageError("--demo and --cluster do not go together");
}

} // namespace

Options ParseOptions(std::span<const std::string_view> arguments) {
    Options options;
    std::optional<UserKind> kind;
    std::string_view given; // of the options for tokens, the last one
    using platform::SomeText;
    std::vector<platform::Option> table{
        {"--help", [&](auto, auto) { options.command = Command::Help; }, true},
        {"--version", [&](auto, auto) { options.command = Command::Version; }, true},
        platform::Flag("--demo", options.demo),
        {"--quiet", [&](auto, auto) { options.verbosity = Verbosity::Quiet; }, true},
        {"--verbose", [&](auto, auto) { options.verbosity = Verbosity::Verbose; }, true},
        {"--listen",
         [&](auto name, auto value) {
             const auto endpoint = Endpoint::Parse(value);
             if (!endpoint)
                 throw platform::WrongValue(name, "ADDR:PORT with a numeric address", value);
             options.listen = *endpoint;
         }},
        {"--data", SomeText(options.data)},
        {"--seconds", platform::NumberFrom(1U, 31'536'000U, options.seconds)},
        {"--tls-cert", SomeText(options.certificate.certificate)},
        {"--tls-key", SomeText(options.certificate.key)},
        platform::Flag("--allow-plain", options.allowPlain),
        platform::Flag("--reencode", options.reencode),
        {"--trusted-proxy",
         [&](auto name, auto value) {
             if (!options.proxies.Add(value))
                 throw platform::WrongValue(name, "an address or a network, ADDRESS/BITS", value);
         }},
        {"--public",
         [&](auto name, auto value) {
             if (value.empty() || value.size() > 255 || value.find_first_of(" \t/\"'<>&") != value.npos ||
                 platform::HasControl(value))
                 throw platform::WrongValue(name, "HOST:PORT", value);
             options.publicAddress = value;
         }},
        {"--cluster",
         [&](auto name, auto value) {
             options.cluster = ServersIn(value);
             if (options.cluster.empty())
                 throw platform::WrongValue(
                     name, "nats://HOST:PORT or tls://HOST:PORT, with commas between them", value);
         }},
        {"--node",
         [&](auto name, auto value) {
             const auto isPlain = [](char c) {
                 return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_';
             };
             if (value.empty() || value.size() > 64 || !std::ranges::all_of(value, isPlain))
                 throw platform::WrongValue(name, "letters, digits, - and _, 64 at most", value);
             options.node = value;
         }},
        {"--cluster-secret", SomeText(options.clusterSecret)},
        {"--cluster-credentials", SomeText(options.clusterCredentials)},
        {"--cluster-authority", SomeText(options.clusterAuthority)},
        {"--cluster-join=take", [&](auto, auto) { options.clusterJoin = Joining::Take; }, true},
        {"--cluster-join=merge", [&](auto, auto) { options.clusterJoin = Joining::Merge; }, true},
        {"--no-tls", [&](auto, auto) { options.tls = false; }, true},
        {"--files", SomeText(options.files)},
        {"--recordings", SomeText(options.recordings)},
        {"--pictures", SomeText(options.pictures)},
        {"--type",
         [&](auto name, auto value) {
             if (std::ranges::find(kCameraTypes, value) == std::end(kCameraTypes))
                 throw platform::WrongValue(name, "320x240 or 160x120", value);
             options.cameraType = value;
         }},
        {"--user",
         [&](auto name, auto value) {
             given = name;
             SomeText(options.tokenUser)(name, value);
         }},
        {"--scope",
         [&](auto name, auto value) {
             const auto scope = Tokens::ScopeFrom(value);
             if (!scope)
                 throw platform::WrongValue(name, "read or all", value);
             given = name;
             options.tokenScope = *scope;
         }},
        {"--kind",
         [&](auto name, auto value) {
             kind = KindFromName(value);
             if (!kind)
                 throw platform::WrongValue(name, "admin, viewer or phone", value);
         }},
        {"--cameras",
         [&](auto name, auto value) {
             options.userCameras = ReadCameraList(value);
             if (!options.userCameras)
                 throw platform::WrongValue(name, "all, or names of cameras with commas between them", value);
         }},
        // The codec has no larger ones.
        {"--max-pixels", platform::NumberFrom<std::int64_t>(1, 67'108'864, options.maxPixels)},
    };
    for (const CommandOption& option : kCommands)
        table.push_back({option.name, [&options, &option](auto name, auto value) {
                             options.command = option.command;
                             SomeText(options.*option.value)(name, value);
                         }});
    for (const LimitOption& option : kLimits)
        table.push_back(
            {option.name, platform::NumberFrom<std::size_t>(1, 100'000, options.limits.*option.limit)});
    platform::ReadOptions(arguments, table, [&](auto word) { options.words.emplace_back(word); });
    CheckWords(options, given);
    if ((options.command == Command::AddUser) != kind.has_value())
        throw platform::UsageError("--add-user and --kind go together");
    if (options.userCameras && options.command != Command::AddUser)
        throw platform::UsageError("--cameras goes with --add-user");
    if (options.certificate.certificate.empty() != options.certificate.key.empty())
        throw platform::UsageError("--tls-cert and --tls-key go together");
    CheckCluster(options);
    if (!options.tls && !options.certificate.key.empty())
        throw platform::UsageError("--no-tls and --tls-cert do not go together");
    options.userKind = kind.value_or(options.userKind);
    return options;
}

} // namespace host
