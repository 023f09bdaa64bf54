#include "host/settings/settings.h"

#include <utility>

#include "host/users/password.h"
#include "platform/files.h"
#include "platform/text.h"

namespace host {
namespace {

using platform::Bstr;

constexpr std::u16string_view kPath = u"config";
// A whole head: the component looks for the type behind its first line.
constexpr std::u16string_view kHead = u"POST config HTTP/1.0\r\ncontent-type: text/xml\r\n\r\n";

// IConfiguration frees what goes in and makes what comes out, and on failure leaves it: one owner throughout.
template <class Operation>
HRESULT Exchange(Bstr& body, Bstr& head, Operation operation) {
    BSTR rawBody = body.Detach();
    BSTR rawHead = head.Detach();
    const HRESULT hr = operation(&rawBody, &rawHead);
    body = Bstr::Adopt(rawBody);
    head = Bstr::Adopt(rawHead);
    return hr;
}

SettingsChange Only(SettingsChange::Result result) {
    SettingsChange change;
    change.result = result;
    return change;
}

} // namespace

Settings::Settings(Authenticator& authenticator, FeedTable& feeds, std::string file)
    : m_authenticator(authenticator), m_feeds(feeds), m_file(std::move(file)), m_run(RandomHex(8)) {}

void Settings::SetConfiguration(platform::ComPtr<IConfiguration> configuration) {
    const std::lock_guard guard(m_mutex);
    m_configuration = std::move(configuration);
    const auto text = Get();
    if (const auto document = text ? SettingsDocument::Parse(*text) : std::nullopt)
        Adopt(*document);
    m_there = text.has_value();
}

std::string Settings::Trouble() const {
    if (!m_there)
        return "The component gives no settings.";
    return m_written ? "" : "The last change of the settings could not be written to disk.";
}

std::optional<std::u16string> Settings::Get() {
    if (!m_configuration)
        return std::nullopt;
    const Bstr path(kPath);
    Bstr body;
    Bstr head;
    const HRESULT hr = Exchange(body, head, [&](BSTR* rawBody, BSTR* rawHead) {
        return m_configuration->GetContent(path.Get(), rawBody, rawHead);
    });
    return FAILED(hr) ? std::nullopt : std::optional(std::u16string(body.View()));
}

const std::string& Settings::VersionOf(const std::u16string& text) {
    if (m_number == 0 || text != m_text) {
        m_text = text;
        m_version = "\"" + m_run + "-" + std::to_string(++m_number) + "\"";
    }
    return m_version;
}

void Settings::Adopt(const SettingsDocument& document) {
    const auto cameras = document.Cameras();
    m_authenticator.SetCameras(cameras);
    for (const CameraEntry& camera : cameras)
        m_feeds.SetType(camera.name, camera.type);
}

std::optional<SettingsReading> Settings::Read() {
    const std::lock_guard guard(m_mutex);
    const auto text = Get();
    auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    if (!document)
        return std::nullopt;
    document->ConcealPasswords();
    return SettingsReading{platform::ToUtf8(document->Text()), VersionOf(*text)};
}

std::optional<std::string> Settings::Password(std::size_t number, std::string_view version) {
    const std::lock_guard guard(m_mutex);
    const auto text = Get();
    const auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    if (!document || VersionOf(*text) != version)
        return std::nullopt;
    const auto passwords = document->Passwords();
    return number < passwords.size() ? std::optional(platform::ToUtf8(passwords[number])) : std::nullopt;
}

SettingsChange Settings::Write(std::string_view xml, std::string_view version) {
    using enum SettingsChange::Result;
    const std::lock_guard guard(m_mutex);
    const auto text = Get();
    const auto present = text ? SettingsDocument::Parse(*text) : std::nullopt;
    if (!present)
        return Only(NotReady);
    if (VersionOf(*text) != version)
        return Only(Outdated);
    const auto wide = platform::Utf8ToWideStrict(xml);
    auto document = wide ? SettingsDocument::Parse(*wide) : std::nullopt;
    if (!document || !document->RestorePasswords(present->Passwords()))
        return Only(NoDocument);
    const auto isTaken = [this](std::string_view name) { return m_authenticator.IsTaken(name); };
    if (auto problems = document->Check(isTaken); !problems.empty())
        return {Unsound, S_OK, std::move(problems), {}};
    return Set(document->Text());
}

SettingsChange Settings::Edit(const std::function<bool(SettingsDocument&)>& edit) {
    const std::lock_guard guard(m_mutex);
    const auto text = Get();
    auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    if (!document)
        return {};
    if (!edit(*document))
        return Only(SettingsChange::Result::Done);
    return Set(document->Text());
}

SettingsChange Settings::Set(std::u16string_view text) {
    using enum SettingsChange::Result;
    const Bstr path(kPath);
    Bstr body(text);
    Bstr head(kHead);
    const platform::FileStamp before = platform::StampOf(m_file);
    SettingsChange change;
    {
        // The component takes every camera away and gives it back.
        const FeedTable::Change feeds(m_feeds);
        change.status = Exchange(body, head, [&](BSTR* rawBody, BSTR* rawHead) {
            return m_configuration->SetContent(path.Get(), rawBody, rawHead);
        });
    }
    if (FAILED(change.status)) {
        change.result = Refused;
        return change;
    }
    const std::u16string now(body.View());
    auto document = SettingsDocument::Parse(now);
    if (!document) {
        change.result = Refused;
        change.status = E_FAIL;
        return change;
    }
    Adopt(*document);
    document->ConcealPasswords();
    change.now = {platform::ToUtf8(document->Text()), VersionOf(now)};
    m_written = platform::StampOf(m_file) != before;
    change.result = m_written ? Done : NotWritten;
    return change;
}

} // namespace host
