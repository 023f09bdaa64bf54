#include "capi/settings.h"

#include <algorithm>
#include <utility>

#include "capi/server.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/text.h"

namespace capi {
namespace {

using platform::Bstr;

constexpr std::size_t kLongestName = 64;
// One less than a record has room for: a longer one would never match.
constexpr std::size_t kLongestPassword = 63;

void RefuseSigns(const std::string& text, const char* signs, const char* what) {
    if (platform::HasControl(text) || text.find_first_of(signs) != std::string::npos)
        throw Failure(MORROW_INVALID, std::string(what) + " has no control characters and none of " + signs);
}

std::string PasswordFrom(const char* password) {
    std::string text = TextOf(password, "a password");
    if (text.empty() || text.size() > kLongestPassword)
        throw Failure(MORROW_INVALID, "a password has 1 to 63 bytes");
    RefuseSigns(text, "&/", "a password");
    return text;
}

std::string TypeFrom(const char* type) {
    std::string text = TextOf(type, "a type");
    if (text != "320x240" && text != "160x120")
        throw Failure(MORROW_INVALID, "a type is 320x240 or 160x120");
    return text;
}

// Whether two documents have the same cameras, in any order, and the same address.
bool AreSame(const kit::SettingsDocument& a, const kit::SettingsDocument& b) {
    const auto sorted = [](std::vector<kit::CameraEntry> cameras) {
        std::ranges::sort(cameras, {}, &kit::CameraEntry::name);
        return cameras;
    };
    return sorted(a.Cameras()) == sorted(b.Cameras()) && a.Host().value_or("") == b.Host().value_or("");
}

kit::CameraEntry Wanted(const kit::SettingsDocument& document, const std::string& name) {
    const auto camera = document.Camera(name);
    if (!camera)
        throw Failure(MORROW_NOT_FOUND, "there is no camera of that name");
    return *camera;
}

} // namespace

Settings::Settings(platform::ComPtr<IConfiguration> configuration, std::string file)
    : m_file(std::move(file)), m_configuration(std::move(configuration)) {
    const kit::SettingsDocument present = Present();
    if (platform::StampOf(m_file) != platform::FileStamp{}) {
        const auto stored = kit::SettingsDocument::Read(m_file);
        if (!stored || !AreSame(*stored, present))
            throw Failure(MORROW_FAILED, "the settings file is damaged; mend it, or move it away: " + m_file);
    }
    Adopt(present.Cameras());
}

kit::SettingsDocument Settings::Present() {
    const auto text = m_configuration ? kit::GetSettings(*m_configuration) : std::nullopt;
    auto document = text ? kit::SettingsDocument::Parse(*text) : std::nullopt;
    if (!document)
        throw Failure(MORROW_FAILED, "the component gives no settings");
    return *std::move(document);
}

std::string Settings::Text() {
    const std::lock_guard guard(m_mutex);
    return platform::ToUtf8(Present().Text());
}

std::vector<kit::CameraEntry> Settings::Cameras() {
    const std::lock_guard guard(m_mutex);
    return Present().Cameras();
}

void Settings::Set(std::string_view xml) {
    const auto document = kit::SettingsDocument::Parse(platform::FromUtf8(xml));
    if (!document)
        throw Failure(MORROW_INVALID, "this is no settings document");
    const std::lock_guard guard(m_mutex);
    Hand(*document, Present());
}

void Settings::Edit(const std::function<void(kit::SettingsDocument&)>& edit) {
    const std::lock_guard guard(m_mutex);
    const kit::SettingsDocument former = Present();
    kit::SettingsDocument document = Present();
    edit(document);
    Hand(document, former);
}

// The component takes of a document what it can read. What it has then must be what it was given; else the
// former settings come back.
void Settings::Hand(const kit::SettingsDocument& document, const kit::SettingsDocument& former) {
    // A part that the document does not have stays as it is.
    kit::SettingsDocument wanted = *kit::SettingsDocument::Parse(document.Text());
    if (!kit::ElementAt(wanted.Root(), u"cams"))
        (void)wanted.PutAll(former.Cameras());
    if (!wanted.Host())
        wanted.SetHost(former.Host().value_or(""));
    const platform::FileStamp before = platform::StampOf(m_file);
    std::u16string now;
    const HRESULT hr = kit::SetSettings(*m_configuration, document.Text(), &now);
    const auto taken = SUCCEEDED(hr) ? kit::SettingsDocument::Parse(now) : std::nullopt;
    if (!taken || !AreSame(wanted, *taken)) {
        if (!AreSame(former, Present()))
            (void)kit::SetSettings(*m_configuration, former.Text(), &now);
        Adopt(Present().Cameras());
        throw Failure(MORROW_INVALID, FAILED(hr)
                                          ? "the settings are refused: " + platform::DescribeStatus(hr)
                                          : "the settings have something that cannot be taken: a camera "
                                            "without a name, or with one that is there twice, say");
    }
    Adopt(taken->Cameras());
    if (platform::StampOf(m_file) == before)
        throw Failure(MORROW_NOT_SAVED, "the settings are in force, but could not be written to " + m_file);
}

void Settings::Adopt(const std::vector<kit::CameraEntry>& cameras) {
    std::map<std::string, std::string> passwords;
    for (const kit::CameraEntry& camera : cameras)
        passwords.emplace(camera.name, camera.password);
    const std::lock_guard guard(m_passwordMutex);
    m_passwords.swap(passwords);
}

std::optional<std::string> Settings::PasswordOf(const std::string& camera) const {
    const std::lock_guard guard(m_passwordMutex);
    const auto found = m_passwords.find(camera);
    return found != m_passwords.end() ? std::optional(found->second) : std::nullopt;
}

std::string Settings::Content(const std::string& path) {
    platform::ComPtr<IConfiguration> configuration;
    {
        const std::lock_guard guard(m_mutex);
        configuration = m_configuration;
    }
    Bstr body;
    Bstr head;
    const HRESULT hr = configuration ? configuration->GetContent(Bstr(platform::FromUtf8(path)).Get(),
                                                                 body.Receive(), head.Receive())
                                     : E_UNEXPECTED;
    if (hr == E_ACCESSDENIED)
        throw Failure(MORROW_DENIED, "there is no camera with that name and password");
    if (FAILED(hr) || body.Bytes().empty())
        throw Failure(MORROW_FAILED, "the archive could not be made: " + platform::DescribeStatus(hr));
    return std::string(body.Bytes());
}

void Settings::Forget() {
    const std::lock_guard guard(m_mutex);
    m_configuration = nullptr;
}

std::string NameOf(const char* name, const char* what) {
    std::string text = TextOf(name, what);
    if (text.empty() || text.size() > kLongestName)
        throw Failure(MORROW_INVALID, std::string(what) + " has 1 to 64 bytes");
    RefuseSigns(text, "/?#:%&", what);
    return text;
}

} // namespace capi

using namespace capi;

namespace {

constexpr const char* kCameraName = "the name of a camera";

// A list and its cameras in one piece of memory that C code reads; freed as what it is.
struct CameraList : morrow_camera_list {
    std::vector<kit::CameraEntry> entries;
    std::vector<morrow_camera> items;
    std::vector<const morrow_camera*> pointers;
};

} // namespace

int morrow_camera_list_get(morrow_camera_list** list, morrow_server server) {
    return Call([&] {
        morrow_camera_list*& place = Out(list);
        const ServerUse use(server);
        auto made = std::make_unique<CameraList>();
        made->entries = use->settings->Cameras();
        made->items.reserve(made->entries.size());
        for (const kit::CameraEntry& camera : made->entries) {
            made->items.push_back(
                {camera.name.c_str(), camera.type.c_str(), use->cameras->IsConnected(camera.name) ? 1 : 0});
            made->pointers.push_back(&made->items.back());
        }
        made->count = made->pointers.size();
        made->cameras = made->pointers.data();
        place = made.release();
    });
}

void morrow_camera_list_free(morrow_camera_list* list) {
    const std::unique_ptr<CameraList> gone(static_cast<CameraList*>(list));
}

int morrow_camera_add(morrow_server server, const char* name, const char* type, const char* password) {
    return Call([&] {
        const kit::CameraEntry camera{NameOf(name, kCameraName), TypeFrom(type), PasswordFrom(password)};
        const ServerUse use(server);
        use->settings->Edit([&](kit::SettingsDocument& document) {
            if (document.Camera(camera.name))
                throw Failure(MORROW_EXISTS, "there is a camera of that name");
            (void)document.Put(camera);
        });
    });
}

int morrow_camera_change(morrow_server server, const char* name, const char* type, const char* password) {
    return Call([&] {
        const std::string wanted = TextOf(name, kCameraName);
        const auto newType = type != nullptr ? std::optional(TypeFrom(type)) : std::nullopt;
        const auto newPassword = password != nullptr ? std::optional(PasswordFrom(password)) : std::nullopt;
        const ServerUse use(server);
        use->settings->Edit([&](kit::SettingsDocument& document) {
            kit::CameraEntry camera = Wanted(document, wanted);
            camera.type = newType.value_or(camera.type);
            camera.password = newPassword.value_or(camera.password);
            (void)document.Put(camera);
        });
    });
}

int morrow_camera_remove(morrow_server server, const char* name) {
    return Call([&] {
        const std::string wanted = TextOf(name, kCameraName);
        const ServerUse use(server);
        use->settings->Edit(
            [&](kit::SettingsDocument& document) { (void)document.RemoveIfSame(Wanted(document, wanted)); });
    });
}

int morrow_camera_password(char** password, morrow_server server, const char* name) {
    return Call([&] {
        char*& place = Out(password);
        const std::string wanted = TextOf(name, kCameraName);
        const ServerUse use(server);
        const auto stored = use->settings->PasswordOf(wanted);
        if (!stored)
            throw Failure(MORROW_NOT_FOUND, "there is no camera of that name");
        place = CopyOf(*stored);
    });
}

int morrow_camera_connected(int32_t* connected, morrow_server server, const char* name) {
    return Call([&] {
        std::int32_t& place = Out(connected);
        const std::string wanted = TextOf(name, kCameraName);
        const ServerUse use(server);
        if (!use->cameras->Find(wanted).cam)
            throw Failure(MORROW_NOT_FOUND, "there is no camera of that name");
        place = use->cameras->IsConnected(wanted) ? 1 : 0;
    });
}

int morrow_settings_get(char** xml, morrow_server server) {
    return Call([&] {
        char*& place = Out(xml);
        const ServerUse use(server);
        place = CopyOf(use->settings->Text());
    });
}

int morrow_settings_set(morrow_server server, const char* xml) {
    return Call([&] {
        const std::string document = TextOf(xml, "the settings document");
        const ServerUse use(server);
        use->settings->Set(document);
    });
}

int morrow_archive_make(void** bytes, size_t* size, morrow_server server, int kind, const char* login,
                        const char* password, const char* title) {
    return Call([&] {
        void*& place = Out(bytes);
        std::size_t& count = Out(size);
        if (kind != MORROW_ARCHIVE_SEND && kind != MORROW_ARCHIVE_WATCH)
            throw Failure(MORROW_INVALID, "an archive is MORROW_ARCHIVE_SEND or MORROW_ARCHIVE_WATCH");
        std::string path = kind == MORROW_ARCHIVE_SEND ? "Sendora.jar" : "Viewlander.jar";
        const std::pair<const char*, const char*> values[] = {
            {"?JarName=", title}, {"&login=", login}, {"&password=", password}};
        for (const auto& [key, value] : values) {
            const std::string text = TextOf(value, "a value of an archive");
            RefuseSigns(text, "&/", "a value of an archive");
            path.append(key).append(text);
        }
        const ServerUse use(server);
        const std::string archive = use->settings->Content(path);
        place = CopyOf(archive.data(), archive.size());
        count = archive.size();
    });
}
