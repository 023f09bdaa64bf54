#include "host/main/membership.h"

#include <algorithm>

#include <dlfcn.h>

#include "host/base/start_error.h"
#include "host/base/wait.h"
#include "host/log/console.h"
#include "host/preferences/document.h"
#include "host/preferences/store.h"
#include "host/site/links/link_table.h"
#include "host/users/phones.h"
#include "host/users/sessions.h"
#include "host/users/tokens.h"
#include "host/users/user_store.h"
#include "kit/component/component.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace host {
namespace {

constexpr std::chrono::seconds kReadWithin{5};
constexpr std::chrono::seconds kFirstReadWithin{30}; // there is nothing to start with before
constexpr const char* kFolder = "cluster";
constexpr const char* kMark = "cluster/joined";
constexpr const char* kPlugin = "libmorrowstream-cluster.so";
// Of the cameras' bucket, beside what Settings puts there.
constexpr const char* kFounder = "founder";
constexpr std::size_t kMostDifferences = 50;
// A host that founds the cluster says so that often; one that has not for so long has died over it, and
// another one founds it.
constexpr std::chrono::seconds kFoundsEvery{1};
constexpr std::chrono::seconds kFounderDeadAfter{5};
constexpr std::chrono::milliseconds kFounderLook{250};

std::unique_ptr<Cluster> OpenCluster(const Options& options, const DataFolder& data) {
    // The plug-in finds the engine's library here. Both stay.
    void* const engine = ::dlopen(MORROW_NATS_LIBRARY, RTLD_NOW | RTLD_GLOBAL);
    void* const library = engine == nullptr ? nullptr : ::dlopen(kPlugin, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        throw StartError("--cluster needs " + std::string(::dlerror()) +
                         (engine == nullptr ? " (Debian: libnats3.4)" : ""));
    auto* const open = reinterpret_cast<OpenClusterFunction*>(::dlsym(library, kOpenCluster));
    std::string wrong = "it is of another version";
    std::unique_ptr<Cluster> cluster;
    if (open != nullptr)
        cluster.reset(open(
            {.servers = options.cluster,
             .node = options.node,
             .secretFile = options.clusterSecret,
             .credentials = options.clusterCredentials,
             .authority = options.clusterAuthority,
             .folder = data.File(kFolder)},
            [](const std::string& line) { Console::Get().Log("message", "cluster: " + line); }, wrong));
    if (!cluster)
        throw StartError("--cluster: " + wrong);
    return cluster;
}

// What the files of the data folder have.
StoreMirror::Values SavedSettings(const DataFolder& data, bool* fresh) {
    const std::string file = SettingsFile(data.Path());
    auto document = SettingsDocument::Read(file);
    *fresh = !document || document->Cameras().empty();
    if (!document)
        return {};
    // An address that the host entered by itself is nobody's wish.
    if (PhoneAddress(file + ".address").IsOwn(document->Host().value_or("")))
        document->SetHost("");
    return SharedValues(*document);
}

StoreMirror::Values SavedPreferences(const DataFolder& data) {
    const auto content =
        platform::ReadWholeFile(PreferenceStore::FileBeside(SettingsFile(data.Path()))).value_or("");
    const auto read = PreferencesIn(content, Preferences(), true);
    return PreferenceValues(read ? read->preferences : Preferences());
}

} // namespace

bool Membership::IsOfCluster(const DataFolder& data) {
    return platform::StampOf(data.File(kMark)).inode != 0;
}

Membership::Membership(const Options& options, const DataFolder& data)
    : users(UserStore::InFile(data.File("users"))), sessions(Sessions::InFile(data.File("sessions"))),
      phones(Phones::InFile(data.File("phones"))), tokens(Tokens::InFile(data.File("tokens"))),
      links(LinkTable::InMemory()), m_data(data), m_member(IsOfCluster(data)) {
    if (options.cluster.empty()) {
        if (m_member)
            throw StartError("the data folder " + data.Path() +
                             " is one of a cluster: start it with --cluster, or remove " +
                             data.File(kFolder) + " to have it be a server of its own from now on");
        return;
    }
    m_cluster = OpenCluster(options, data);
    users = Keep("users", users);
    sessions = Keep("sessions", sessions);
    phones = Keep("phones", phones);
    tokens = Keep("tokens", tokens);
    links = m_cluster->Bucket("links");
    authority = m_cluster->Bucket("authority");
    catalogues = m_cluster->Bucket("catalogues");
    m_cameras = m_cluster->Bucket("cameras");
    m_preferences = m_cluster->Bucket("preferences");
    const std::chrono::seconds within = m_member ? kReadWithin : kFirstReadWithin;
    const auto until = Clock::now() + within;
    m_read = m_cluster->AwaitRead(within);
    // What has been read is told a moment later.
    const auto isRead = [](const auto& kept) { return kept->IsRead(); };
    while (m_read && !std::ranges::all_of(m_kept, isRead) && Clock::now() < until)
        (void)WaitFor({}, Clock::now() + std::chrono::milliseconds(5));
    m_read = m_read && std::ranges::all_of(m_kept, isRead);
    if (!m_read && !m_member)
        throw StartError(
            "--cluster: what the hosts share could not be read, and a host's first start in a cluster "
            "needs it; " +
            m_cluster->Trouble());
    if (!m_read)
        Console::Get().Say(
            "The cluster cannot be reached: starting with what was known last. Nothing can be changed "
            "until it can.");
    else if (!m_member)
        Enter(options);
}

std::shared_ptr<KeptStore> Membership::Keep(const char* bucket, std::shared_ptr<Store> file) {
    m_kept.push_back(std::make_shared<KeptStore>(m_cluster->Bucket(bucket), std::move(file)));
    return m_kept.back();
}

// For the first time: whatever goes wrong, the next start tries it again.
void Membership::Enter(const Options& options) {
    if (FAILED(platform::RegisterConfigDocumentClass()))
        throw StartError("the settings documents cannot be read");
    StoreMirror cameras(m_cameras);
    StoreMirror preferences(m_preferences);
    (void)cameras.Refresh();
    (void)preferences.Refresh();
    const bool founds = ClaimFounding(cameras, options.node);
    if (founds) {
        m_how = Joining::Merge;
        Console::Get().Say("This host founds the cluster: what the others find is as it is here.");
    } else {
        bool fresh = false;
        const StoreMirror::Values here = SavedSettings(m_data, &fresh);
        if (!options.clusterJoin && !fresh) {
            auto lines = SharedDifferences(here, cameras.ValuesNow());
            const StoreMirror::Values own = SavedPreferences(m_data);
            if (own != PreferenceValues(Preferences())) {
                for (std::string& line : PreferenceDifferences(own, preferences.ValuesNow()))
                    lines.push_back(std::move(line));
            }
            for (std::size_t i = 0; i < lines.size() && i < kMostDifferences; ++i)
                Console::Get().Say("  " + lines[i]);
            if (!lines.empty())
                throw StartError(
                    "the settings here are not those of the cluster, in " + std::to_string(lines.size()) +
                    " places: --cluster-join=take takes those of the cluster, --cluster-join=merge adds "
                    "what is here alone to them");
        }
        m_how = options.clusterJoin.value_or(Joining::Take);
        KeepCopies();
        Console::Get().Say(
            "This host joins the cluster: its users, sessions and tokens are those of the cluster now. "
            "What they were is kept, with .before-cluster behind the names of the files.");
    }
    for (const auto& kept : m_kept) {
        // Phones go on with the cameras that are added; users and what they have made are the founder's.
        const bool adds = founds || (kept == phones && m_how == Joining::Merge);
        const auto outcome = kept->Enter(adds ? KeptStore::Entering::Add : KeptStore::Entering::Take);
        if (outcome.result != Store::Result::Done)
            throw StartError("the cluster cannot be founded or joined: " + outcome.why);
    }
}

Membership::Founding::Founding(std::shared_ptr<Store> store, std::string node, Store::Revision revision)
    : m_store(std::move(store)),
      m_thread([this, node = std::move(node), revision] { Beat(node, revision); }) {}

Membership::Founding::~Founding() {
    m_stop.Signal();
    m_thread.join();
}

void Membership::Founding::Beat(const std::string& node, Store::Revision revision) {
    while (!m_lost && WaitFor({.stop = &m_stop}, Clock::now() + kFoundsEvery) != Waited::Stopped) {
        const auto beat = m_store->Put(kFounder, node, revision);
        if (beat.result == Store::Result::Done)
            revision = beat.revision;
        // One that was not known to be written may be.
        else if (beat.result == Store::Result::Conflict && beat.present && beat.present->value == node)
            revision = beat.present->revision;
        else if (beat.result == Store::Result::Conflict)
            m_lost = true;
    }
}

// Whether this host is to found the cluster; else another one has. Waits for one that is about to, and takes
// the place of one that died over it: what that one had put there goes, so that nobody's users stay by
// accident.
bool Membership::ClaimFounding(StoreMirror& cameras, const std::string& node) {
    Store::Entry other; // who founds
    auto since = Clock::now();
    for (;;) {
        (void)cameras.Refresh();
        if (Settings::IsFounded(cameras))
            return false;
        const bool dead = Clock::now() - since > kFounderDeadAfter;
        const auto claim = m_cameras->Put(kFounder, node, dead ? other.revision : 0);
        if (claim.result == Store::Result::Done) {
            m_founding.emplace(m_cameras, node, claim.revision);
            if (dead)
                ClearWhatWasBegun();
            return true;
        }
        if (claim.result != Store::Result::Conflict)
            throw StartError("the cluster cannot be founded: " + claim.why);
        if (claim.present && claim.present->revision != other.revision) {
            if (other.revision == 0)
                Console::Get().Say("The host \"" + Printable(claim.present->value) +
                                   "\" is founding the cluster: waiting for it.");
            other = *claim.present;
            since = Clock::now();
        }
        (void)WaitFor({}, Clock::now() + kFounderLook);
    }
}

void Membership::ClearWhatWasBegun() {
    std::vector<std::shared_ptr<Store>> stores(m_kept.begin(), m_kept.end());
    stores.push_back(m_preferences);
    stores.push_back(m_cameras);
    const auto until = Clock::now() + kFirstReadWithin;
    for (const auto& store : stores) {
        StoreMirror mirror(store);
        for (;;) {
            (void)mirror.Refresh();
            StoreMirror::Values wanted;
            if (store == m_cameras)
                wanted = mirror.ValuesNow();
            std::erase_if(wanted, [](const auto& item) { return item.first != kFounder; });
            const auto changes = mirror.ChangesTo(wanted);
            if (changes.empty())
                break;
            if (Clock::now() > until)
                throw StartError("what another host had begun to found cannot be removed");
            (void)store->Write(changes);
            // It is told of what has gone.
            (void)WaitFor({}, Clock::now() + std::chrono::milliseconds(50));
        }
    }
}

void Membership::KeepCopies() const {
    const std::string settings = SettingsFile(m_data.Path());
    for (const std::string& file :
         {m_data.File("users"), m_data.File("admin-password"), m_data.File("sessions"), m_data.File("phones"),
          m_data.File("tokens"), m_data.File("tls/ca.pem"), m_data.File("tls/ca-key.pem"), settings,
          PreferenceStore::FileBeside(settings)}) {
        const std::string copy = file + ".before-cluster";
        const auto content = platform::ReadWholeFile(file);
        // Of several tries the first one had what was here.
        if (!content || platform::StampOf(copy).inode != 0)
            continue;
        if (FAILED(platform::ReplaceFile(copy, *content, 0600)))
            throw StartError("cannot write " + copy + ": " + platform::DescribeLastError());
    }
    m_data.ForgetAdminPassword(); // of an administrator who was here alone
}

std::unique_ptr<ClusterCameras> Membership::OpenCameras() {
    if (!m_cluster)
        return nullptr;
    std::string wrong;
    auto cameras = m_cluster->Cameras(wrong);
    if (!cameras)
        throw StartError("--cluster: " + wrong);
    return cameras;
}

void Membership::Join(Settings& settings) {
    if (!m_cluster)
        return;
    settings.Share(m_cameras);
    if (!m_read)
        return;
    if (m_founding && m_founding->IsLost())
        throw StartError("another host founds the cluster: start this one again");
    SettingsChange change;
    (void)settings.Join(m_how, &change);
    if (change.result != SettingsChange::Result::Done)
        throw StartError("the settings of the cluster could not be taken over");
}

void Membership::Join(PreferenceStore& preferences) {
    if (!m_cluster)
        return;
    preferences.Share(m_preferences);
    if (!m_read)
        return;
    PreferenceChange change;
    (void)preferences.Join(m_how, &change);
    if (change.result != PreferenceChange::Result::Done)
        throw StartError("the preferences of the cluster could not be taken over");
    if (m_founding && m_founding->IsLost())
        throw StartError("another host has founded the cluster meanwhile: start this one again");
    m_founding.reset();
    if (!m_member && FAILED(platform::ReplaceFile(m_data.File(kMark), "", 0600)))
        throw StartError("cannot write " + m_data.File(kMark) + ": " + platform::DescribeLastError());
}

std::function<ClusterFigures()> Membership::Figures() const {
    if (!m_cluster)
        return {};
    return [cluster = m_cluster.get()] { return cluster->Figures(); };
}

void Membership::Tick() {
    if (!m_cluster)
        return;
    const std::string trouble = m_cluster->Trouble();
    if (trouble == m_trouble)
        return;
    m_trouble = trouble;
    Console::Get().Log(trouble.empty() ? "message" : "error",
                       trouble.empty()
                           ? "cluster: the others can be reached again"
                           : "cluster: " + trouble + "; what is here goes on, and nothing can be changed");
}

void Membership::Save() {
    // What cannot be written now is tried the next time.
    for (const auto& kept : m_kept)
        (void)kept->Save();
}

} // namespace host
