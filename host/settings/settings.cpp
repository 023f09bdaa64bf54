#include "host/settings/settings.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "host/log/console.h"
#include "host/users/password.h"
#include "platform/files.h"
#include "platform/text.h"

namespace host {
namespace {

// A store with this key has settings of somebody, be it that all cameras were removed.
constexpr const char* kFounded = "founded";

SettingsChange Only(SettingsChange::Result result) {
    SettingsChange change;
    change.result = result;
    return change;
}

} // namespace

Settings::Settings(Authenticator& authenticator, FeedTable& feeds, std::string file)
    : m_authenticator(authenticator), m_feeds(feeds), m_file(std::move(file)), m_run(RandomHex(8)),
      m_address(m_file + ".address") {}

void Settings::SetConfiguration(platform::ComPtr<IConfiguration> configuration) {
    const std::lock_guard guard(m_mutex);
    m_configuration = std::move(configuration);
    const auto text = Get();
    if (const auto document = text ? SettingsDocument::Parse(*text) : std::nullopt)
        Adopt(*document);
    m_there = text.has_value();
}

void Settings::SetOwnAddress(std::string address) {
    const std::lock_guard guard(m_mutex);
    m_address.SetOwn(std::move(address));
}

std::string Settings::Trouble() const {
    if (!m_there)
        return "The component gives no settings.";
    return m_written ? "" : "The last change of the settings could not be written to disk.";
}

std::optional<std::u16string> Settings::Get() {
    return m_configuration ? kit::GetSettings(*m_configuration) : std::nullopt;
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
    if (m_listener) {
        std::vector<std::string> names;
        names.reserve(cameras.size());
        for (const CameraEntry& camera : cameras)
            names.push_back(camera.name);
        m_listener(names);
    }
    const std::lock_guard guard(m_hostMutex);
    m_toldHost = document.Host().value_or("");
}

std::string Settings::ToldHost() const {
    const std::lock_guard guard(m_hostMutex);
    return m_toldHost;
}

std::optional<SettingsReading> Settings::Read() {
    const std::lock_guard guard(m_mutex);
    const auto text = Get();
    auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    if (!document)
        return std::nullopt;
    return ReadingOf(*std::move(document), *text);
}

SettingsReading Settings::ReadingOf(SettingsDocument document, const std::u16string& text) {
    const auto isTaken = [this](std::string_view name) { return IsTaken(name); };
    document.Mark(FindUnusable(document, nullptr, isTaken));
    document.ConcealPasswords();
    return {platform::ToUtf8(document.Text()), VersionOf(text)};
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
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
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
    auto problems = FindUnreadable(*document, *present);
    const auto isTaken = [this](std::string_view name) { return IsTaken(name); };
    std::ranges::move(FindUnusable(*document, &*present, isTaken), std::back_inserter(problems));
    if (!problems.empty())
        return {Unsound, S_OK, false, std::move(problems), {}};
    // A part that the document does not have stays as it is.
    const std::string stands = present->Host().value_or("");
    const std::string said = document->Host().value_or(stands);
    const bool another = !said.empty() && said != stands;
    const bool entered = !another && (document->Host() || stands.empty()) && m_address.EnterInto(*document);
    SettingsChange change = Set(lock, *document, *present);
    change.addressEntered = entered;
    if (another && (change.result == Done || change.result == NotWritten))
        m_address.LetGo();
    return change;
}

bool Settings::WriteWhatIsLeft() {
    const std::lock_guard guard(m_mutex);
    const bool addressWritten = m_address.Save();
    if (m_written)
        return addressWritten;
    // The component writes whatever it is given.
    const auto text = Get();
    const auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    if (document)
        (void)SetHere(*document, *document);
    if (m_written)
        Console::Get().Log("message", "the settings are written to disk now");
    return m_written && addressWritten;
}

std::optional<Settings::CameraReading> Settings::Cameras() {
    const std::lock_guard guard(m_mutex);
    const auto text = Get();
    const auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    return document ? std::optional(CameraReading{document->Cameras(), VersionOf(*text)}) : std::nullopt;
}

SettingsChange Settings::ChangeCameras(std::span<const CameraChange> changes,
                                       const std::function<bool(const CameraReading&)>& isMeant) {
    using enum SettingsChange::Result;
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
    const auto text = Get();
    const auto present = text ? SettingsDocument::Parse(*text) : std::nullopt;
    auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    if (!present || !document)
        return Only(NotReady);
    const CameraReading before{present->Cameras(), VersionOf(*text)};
    if (!isMeant(before))
        return Only(Outdated);
    SettingsChange change;
    change.problems = document->Apply(changes, [this](const CameraChange& each, bool isNew) {
        std::string wrong = isNew ? CheckLogin(each.name) : std::string();
        if (wrong.empty() && isNew && IsTaken(each.name))
            wrong = "a user who is no phone has this login";
        if (wrong.empty() && each.type &&
            std::ranges::find(kCameraTypes, *each.type) == std::end(kCameraTypes))
            wrong = "the type of a camera is 320x240 or 160x120";
        // Without a password no phone can be the camera.
        if (wrong.empty() && each.password && !each.password->empty())
            wrong = CheckPassword(*each.password, UserKind::Phone);
        return wrong;
    });
    if (!change.problems.empty()) {
        change.result = Unsound;
        return change;
    }
    auto after = document->Cameras();
    if (after == before.cameras) {
        change.result = m_written ? Done : NotWritten;
        change.now.version = before.version;
    } else {
        // What is taken otherwise than it was sent is put back.
        change = Set(lock, *document, *present);
    }
    if (!m_shared || change.cameras.empty())
        change.cameras = std::move(after);
    return change;
}

SettingsChange Settings::Edit(const std::function<bool(SettingsDocument&)>& edit) {
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
    const auto text = Get();
    const auto present = text ? SettingsDocument::Parse(*text) : std::nullopt;
    auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    if (!document)
        return {};
    const bool edited = edit(*document);
    const bool entered = m_address.EnterInto(*document);
    if (!edited && !entered)
        return Only(SettingsChange::Result::Done);
    SettingsChange change = Set(lock, *document, *present);
    change.addressEntered = entered;
    return change;
}

void Settings::Share(std::shared_ptr<Store> store) {
    const std::lock_guard guard(m_mutex);
    m_shared.emplace(std::move(store));
}

bool Settings::IsShared() {
    const std::lock_guard guard(m_mutex);
    return m_shared && m_shared->IsRead();
}

bool Settings::IsFounded(const StoreMirror& store) {
    return store.Now().contains(kFounded);
}

std::vector<std::string> Settings::Join(Joining how, SettingsChange* change) {
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
    const auto text = Get();
    const auto document = text ? SettingsDocument::Parse(*text) : std::nullopt;
    *change = Only(SettingsChange::Result::NotReady);
    if (!document || !m_shared || !m_shared->IsRead())
        return {};
    (void)m_shared->Refresh();
    const StoreMirror::Values here = SharedValues(*document);
    const bool fresh = document->Cameras().empty();
    const bool founds = !IsFounded(*m_shared);
    if (founds && how != Joining::Merge) {
        *change = Only(SettingsChange::Result::Unshared);
        return {};
    }
    if (!founds && !fresh && how == Joining::Refuse) {
        auto differences = SharedDifferences(here, m_shared->ValuesNow());
        if (!differences.empty())
            return differences;
    }
    if (founds || how == Joining::Merge) {
        // A store with a part of it would have the rest removed here: the mark comes behind all else.
        std::string why;
        if (!m_shared->Add(lock, here, &why) || !m_shared->Add(lock, {{kFounded, "yes"}}, &why)) {
            Console::Get().Log("error", why);
            *change = Only(SettingsChange::Result::Unshared);
            return {};
        }
    }
    *change = TakeShared();
    return {};
}

void Settings::Follow() {
    // Who changes something takes over what has come as well.
    const std::unique_lock changing(m_changing, std::try_to_lock);
    if (!changing)
        return;
    const std::unique_lock lock(m_mutex, std::try_to_lock);
    if (!lock || !m_shared || (m_shared->Refresh().empty() && !m_owed))
        return;
    const SettingsChange change = TakeShared();
    const bool taken =
        change.result == SettingsChange::Result::Done || change.result == SettingsChange::Result::NotWritten;
    if (!taken && !m_owed)
        Console::Get().Log("error", "the settings that other hosts have changed could not be taken over yet");
    m_owed = !taken;
}

SettingsChange Settings::Set(std::unique_lock<std::mutex>& lock, const SettingsDocument& document,
                             const SettingsDocument& former) {
    if (!m_shared)
        return SetHere(document, former);
    if (!m_shared->IsRead())
        return Only(SettingsChange::Result::Unshared);
    // A part that the document does not have stays as it is.
    std::optional<SettingsDocument> whole;
    if (!document.Host() || !ElementAt(document.Root(), u"cams")) {
        whole = SettingsDocument::Parse(former.Text());
        if (document.Host())
            whole->SetHost(*document.Host());
        if (ElementAt(document.Root(), u"cams"))
            PutSharedValues(*whole, SharedValues(document));
    }
    const SettingsDocument& wanted = whole ? *whole : document;
    return Put(lock, m_shared->ChangesBetween(SharedValues(former), SharedValues(wanted)), &wanted);
}

SettingsChange Settings::Put(std::unique_lock<std::mutex>& lock, const std::vector<Store::Change>& changes,
                             const SettingsDocument* wanted) {
    using enum SettingsChange::Result;
    const auto store = m_shared->Source();
    lock.unlock();
    const auto outcomes = store->Write(changes);
    lock.lock();
    (void)m_shared->Settle(changes, outcomes);
    std::vector<std::string> conflicts;
    bool reached = true;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        if (outcomes[i].result == Store::Result::Done)
            continue;
        conflicts.push_back(SharedCamera(changes[i].key));
        if (outcomes[i].result == Store::Result::Conflict)
            continue;
        if (reached)
            Console::Get().Log("error", outcomes[i].why);
        reached = false;
    }
    // Also where nothing of it stands: others have changed something.
    const bool some = conflicts.size() < changes.size();
    SettingsChange change = TakeShared(some ? wanted : nullptr);
    if (change.result != Done && change.result != NotWritten) {
        m_owed = true;
        return change;
    }
    if (!changes.empty() && !some)
        change.result = reached ? Outdated : Unshared;
    change.conflicts = std::move(conflicts);
    return change;
}

SettingsChange Settings::TakeShared(const SettingsDocument* wanted) {
    const auto text = Get();
    const auto present = text ? SettingsDocument::Parse(*text) : std::nullopt;
    auto document = text ? SettingsDocument::Parse(wanted != nullptr ? wanted->Text() : *text) : std::nullopt;
    const StoreMirror::Values values = m_shared->ValuesNow();
    if (!present || !document)
        return Only(SettingsChange::Result::NotReady);
    // Of a store that was lost nothing is taken over.
    if (!IsFounded(*m_shared))
        return Only(SettingsChange::Result::Unshared);
    PutSharedValues(*document, values);
    SettingsChange change;
    if (document->Cameras() != present->Cameras() || document->Host() != present->Host()) {
        change = SetHere(*document, *present);
    } else {
        change.result = m_written ? SettingsChange::Result::Done : SettingsChange::Result::NotWritten;
        change.now = ReadingOf(*SettingsDocument::Parse(*text), *text);
    }
    change.cameras = document->Cameras();
    return change;
}

SettingsChange Settings::SetHere(const SettingsDocument& document, const SettingsDocument& former) {
    using enum SettingsChange::Result;
    const platform::FileStamp before = platform::StampOf(m_file);
    SettingsChange change;
    std::u16string now;
    std::optional<SettingsDocument> taken;
    {
        // The component takes every camera away and gives it back.
        const FeedTable::Change feeds(m_feeds);
        change.status = kit::SetSettings(*m_configuration, document.Text(), &now);
        if (SUCCEEDED(change.status))
            taken = SettingsDocument::Parse(now);
        if (taken)
            change.problems = FindDifferences(document, *taken);
        if (SUCCEEDED(change.status))
            m_written = platform::StampOf(m_file) != before;
        change.result = !taken ? Refused : !change.problems.empty() ? Unsound : m_written ? Done : NotWritten;
        if (change.result == Refused || change.result == Unsound)
            taken = PutBack(former);
    }
    if (taken)
        Adopt(*taken);
    if (change.result == Done || change.result == NotWritten)
        change.now = ReadingOf(*std::move(taken), now);
    return change;
}

std::optional<SettingsDocument> Settings::PutBack(const SettingsDocument& former) {
    const auto isBack = [&](const std::optional<SettingsDocument>& present) {
        return present && FindDifferences(former, *present).empty();
    };
    const auto read = [this] {
        const auto text = Get();
        return text ? SettingsDocument::Parse(*text) : std::nullopt;
    };
    auto present = read();
    if (isBack(present))
        return present;
    const platform::FileStamp before = platform::StampOf(m_file);
    std::u16string now;
    m_written = SUCCEEDED(kit::SetSettings(*m_configuration, former.Text(), &now)) &&
                platform::StampOf(m_file) != before;
    present = read();
    if (!isBack(present))
        Console::Get().Log("error", "the settings before a change that failed could not be put back");
    return present;
}

} // namespace host
