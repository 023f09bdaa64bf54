// Cameras and tokens from the command line: by a running host, or without one in its files.
#include "host/main/options.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "host/base/start_error.h"
#include "host/control/socket.h"
#include "host/http/request.h"
#include "host/log/console.h"
#include "host/main/data_folder.h"
#include "host/main/membership.h"
#include "host/settings/file.h"
#include "host/users/tokens.h"
#include "platform/configdoc/configdoc.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/text.h"

namespace host {
namespace {

using json = nlohmann::ordered_json;

constexpr std::string_view kCamerasPath = "/api/v1/cameras";
constexpr std::string_view kTokensPath = "/api/v1/tokens";

void SayLine(const std::vector<std::string>& fields) {
    std::string line;
    for (const std::string& field : fields)
        line += (line.empty() ? "" : "\t") + Printable(field);
    Console::Get().Say(line);
}

// The JSON of an answer that is none but a refusal's; throws StartError with its words for that.
json TakeReply(const ControlReply& reply) {
    json body = json::parse(reply.body, nullptr, false);
    if (reply.status < 400)
        return body;
    std::string words = body.is_object() ? body.value("detail", "") : "";
    if (body.is_object() && body.contains("problems")) {
        words.clear();
        for (const json& problem : body["problems"])
            words += (words.empty() ? "" : "; ") + problem.value("text", "");
    }
    throw StartError(words.empty() ? "the host answers " + std::to_string(reply.status) : words);
}

std::string PathOf(std::string_view list, const std::string& name) {
    return std::string(list) + '/' + PercentEncode(name);
}

// --- Without a host
// ------------------------------------------------------------------------------------------

// The files of a data folder that no host works with, which none can as long as this is there.
class IdleFiles {
public:
    explicit IdleFiles(const Options& options) : m_data(options.data) {
        m_data.Lock();
        if (Membership::IsOfCluster(m_data))
            throw StartError("no host runs on " + m_data.Path() +
                             ", and it is one of a cluster: ask one that runs");
        if (FAILED(platform::RegisterConfigDocumentClass()))
            throw StartError("the settings documents cannot be read");
    }

    // Those of the settings and of the file that the next start takes into them.
    [[nodiscard]] std::vector<CameraEntry> Cameras() const {
        const auto settings = SettingsDocument::Read(SettingsFile(m_data.Path()));
        std::vector<CameraEntry> cameras = settings ? settings->Cameras() : std::vector<CameraEntry>();
        for (CameraEntry& camera : m_data.ReadCameras()) {
            std::erase_if(cameras, [&](const CameraEntry& other) { return other.name == camera.name; });
            cameras.push_back(std::move(camera));
        }
        return cameras;
    }
    void Add(CameraEntry camera) const {
        std::string wrong = CheckLogin(camera.name);
        if (wrong.empty())
            wrong = CheckPassword(camera.password, UserKind::Phone);
        if (!wrong.empty())
            throw StartError("camera \"" + Printable(camera.name) + "\": " + wrong);
        std::vector<CameraEntry> cameras = m_data.ReadCameras();
        std::erase_if(cameras, [&](const CameraEntry& other) { return other.name == camera.name; });
        if (camera.type.empty()) {
            const std::vector<CameraEntry> all = Cameras();
            const auto former = std::ranges::find(all, camera.name, &CameraEntry::name);
            camera.type = former != all.end() ? former->type : std::string(kCameraTypes[0]);
        }
        cameras.push_back(std::move(camera));
        m_data.WriteCameras(cameras);
        SayChanged(", and the next start takes the camera into the settings");
    }
    void Remove(const std::string& name) const {
        std::vector<CameraEntry> cameras = m_data.ReadCameras();
        bool found = std::erase_if(cameras, [&](const CameraEntry& other) { return other.name == name; }) > 0;
        if (found)
            m_data.WriteCameras(cameras);
        const std::string file = SettingsFile(m_data.Path());
        auto settings = SettingsDocument::Read(file);
        const CameraChange gone{.name = name, .remove = true};
        const auto none = [](const CameraChange&, bool) { return std::string(); };
        if (settings && settings->Apply({&gone, 1}, none).empty()) {
            found = true;
            if (FAILED(platform::ReplaceFile(file, platform::ToUtf8(settings->Text()), 0600)))
                throw StartError("cannot write " + file + ": " + platform::DescribeLastError());
        }
        if (!found)
            throw StartError("there is no camera \"" + Printable(name) + "\"");
        SayChanged("");
    }

    [[nodiscard]] const DataFolder& Data() const { return m_data; }
    void SayChanged(std::string_view more) const {
        Console::Get().Say("No host runs on " + m_data.Path() + ": its files are changed" +
                           std::string(more) + ".");
    }

private:
    DataFolder m_data;
};

class IdleTokens {
public:
    explicit IdleTokens(const IdleFiles& files)
        : m_files(files), m_users(files.Data().File("users")),
          m_tokens(Tokens::InFile(files.Data().File("tokens")),
                   [this](std::string_view login) -> std::optional<UserKind> {
                       const auto user = m_users.Users().find(login);
                       return user != m_users.Users().end() ? std::optional(user->second.kind) : std::nullopt;
                   }) {}

    [[nodiscard]] json List() const {
        json list = json::array();
        for (const Tokens::Entry& entry : m_tokens.List())
            list.push_back({{"id", entry.id},
                            {"login", entry.record.login},
                            {"scope", Tokens::NameOf(entry.record.scope)},
                            {"name", entry.record.name}});
        return list;
    }
    std::string Make(const Options& options) {
        const std::string& name = options.words[2];
        if (const std::string wrong = Tokens::CheckName(name); !wrong.empty())
            throw StartError(wrong);
        const auto made = m_tokens.Make(options.tokenUser, options.tokenScope, name);
        if (!made)
            throw StartError("there is no user \"" + Printable(options.tokenUser) +
                             "\", or it has as many tokens as it may");
        Written();
        return made->token;
    }
    void End(const std::string& id) {
        (void)m_tokens.End(id);
        Written();
        m_files.SayChanged("");
    }

private:
    void Written() {
        if (!m_tokens.Save())
            throw StartError("cannot write " + m_files.Data().File("tokens") + ": " +
                             platform::DescribeLastError());
    }

    const IdleFiles& m_files;
    const UserStore m_users;
    Tokens m_tokens;
};

// --- Commands
// ------------------------------------------------------------------------------------------------

void ListCameras(const Options& options) {
    std::vector<CameraEntry> cameras;
    if (const auto reply = AskHost(options.data, "GET", kCamerasPath)) {
        json body = TakeReply(*reply);
        for (const json& camera : body["cameras"])
            cameras.push_back({camera.value("name", ""), camera.value("type", ""),
                               camera.value("hasPassword", false) ? "set" : ""});
    } else {
        cameras = IdleFiles(options).Cameras();
    }
    for (const CameraEntry& camera : cameras)
        SayLine({camera.name, camera.type, camera.password.empty() ? "no password" : "password"});
}

void AddCamera(const Options& options) {
    const std::string& name = options.words[2];
    CameraEntry camera{name, options.cameraType, AskPassword(name)};
    json body{{"password", camera.password}};
    if (!camera.type.empty())
        body["type"] = camera.type;
    const auto text = body.dump(-1, ' ', false, json::error_handler_t::replace);
    if (const auto reply = AskHost(options.data, "PUT", PathOf(kCamerasPath, name), text))
        (void)TakeReply(*reply);
    else
        IdleFiles(options).Add(std::move(camera));
    Console::Get().Say("The camera \"" + Printable(name) + "\" is in place.");
}

void RemoveCamera(const Options& options) {
    const std::string& name = options.words[2];
    if (const auto reply = AskHost(options.data, "DELETE", PathOf(kCamerasPath, name)))
        (void)TakeReply(*reply);
    else
        IdleFiles(options).Remove(name);
    Console::Get().Say("The camera \"" + Printable(name) + "\" is removed.");
}

json TokensOf(const Options& options) {
    if (const auto reply = AskHost(options.data, "GET", kTokensPath))
        return TakeReply(*reply)["tokens"];
    const IdleFiles files(options);
    return IdleTokens(files).List();
}

void ListTokens(const Options& options) {
    for (const json& token : TokensOf(options))
        SayLine({token.value("id", ""), token.value("login", ""), token.value("scope", ""),
                 token.value("name", "")});
}

// Says the token alone, for a program to read.
void AddToken(const Options& options) {
    const json body{{"name", options.words[2]},
                    {"scope", Tokens::NameOf(options.tokenScope)},
                    {"login", options.tokenUser}};
    const auto text = body.dump(-1, ' ', false, json::error_handler_t::replace);
    if (const auto reply = AskHost(options.data, "POST", kTokensPath, text))
        return Console::Get().Say(TakeReply(*reply).value("token", ""));
    const IdleFiles files(options);
    Console::Get().Say(IdleTokens(files).Make(options));
}

void RemoveToken(const Options& options) {
    // The beginning of an id will do, where there is only one of it.
    const std::string& beginning = options.words[2];
    std::vector<std::string> found;
    for (const json& token : TokensOf(options)) {
        if (token.value("id", "").starts_with(beginning))
            found.push_back(token.value("id", ""));
    }
    if (found.size() != 1)
        throw StartError(found.empty() ? "there is no such token" : "several tokens begin so");
    if (const auto reply = AskHost(options.data, "DELETE", PathOf(kTokensPath, found[0]))) {
        (void)TakeReply(*reply);
    } else {
        const IdleFiles files(options);
        IdleTokens(files).End(found[0]);
    }
    Console::Get().Say("The token is revoked.");
}

} // namespace

int RunControl(const Options& options) {
    const bool camera = options.words[0] == "camera";
    const std::string& verb = options.words[1];
    if (verb == "list")
        camera ? ListCameras(options) : ListTokens(options);
    else if (verb == "add")
        camera ? AddCamera(options) : AddToken(options);
    else
        camera ? RemoveCamera(options) : RemoveToken(options);
    return 0;
}

} // namespace host
