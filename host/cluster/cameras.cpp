#include "host/cluster/cameras.h"

#include <algorithm>
#include <utility>

namespace host::cluster {
namespace {

using namespace std::chrono_literals;

// Hearts beat over the engine itself: where one of its servers dies the others go on carrying them, while the
// entries of a bucket wait for seconds until its servers have agreed on who leads.
constexpr auto kBeatEvery = 500ms;
constexpr const char* kHearts = "morrowstream.hearts";
// Who has which camera is said over the engine itself as well, at a claim, and to a host that was cut off:
// behind a partition its servers may take half a minute to agree.
constexpr const char* kOwned = "morrowstream.owned";
constexpr std::size_t kMostOwnedAtOnce = 1000;
// A host's entry is put as often, for its name, and to see whether the engine takes any.
// A name whose entry changes meanwhile is in use; two puts and some.
constexpr auto kNameTaken = 1300ms;
constexpr auto kClaimWithin = 3s;
constexpr auto kRestlessWaits = 2s;
constexpr auto kAnswerWithin = ClusterCameras::kPictureWithin + 1000ms;

std::string SubjectOfPictures(const std::string& node) {
    return "morrowstream.pictures." + node;
}

// What a host's entry says: by which start its beats are known.
std::string StartOf(const Sealer& sealer) {
    return {sealer.Start().begin(), sealer.Start().end()};
}

} // namespace

std::string WriteQuestion(const PictureQuestion& question) {
    std::string text;
    AppendNumber(text, question.epoch);
    AppendNumber(text, question.after);
    return text + question.camera;
}

std::optional<PictureQuestion> ReadQuestion(std::string_view text) {
    PictureQuestion question;
    if (!TakeNumber(text, question.epoch) || !TakeNumber(text, question.after) || text.empty())
        return std::nullopt;
    question.camera = text;
    return question;
}

std::string WriteOwned(const std::map<std::string, std::uint64_t>& owned) {
    std::string text;
    for (const auto& [camera, epoch] : owned) {
        AppendNumber(text, epoch);
        AppendNumber(text, static_cast<std::uint16_t>(camera.size()));
        text += camera;
    }
    return text;
}

std::optional<std::map<std::string, std::uint64_t>> ReadOwned(std::string_view text) {
    std::map<std::string, std::uint64_t> owned;
    while (!text.empty()) {
        std::uint64_t epoch = 0;
        std::uint16_t size = 0;
        if (!TakeNumber(text, epoch) || !TakeNumber(text, size) || size > text.size())
            return std::nullopt;
        owned[std::string(text.substr(0, size))] = epoch;
        text.remove_prefix(size);
    }
    return owned;
}

std::string WritePicture(const CameraPicture& picture) {
    std::string text;
    text.reserve(48 + picture.jpeg.size());
    AppendNumber(text, picture.number);
    AppendNumber(text, picture.unixMs);
    AppendNumber(text, picture.ageMs);
    AppendNumber(text, picture.frames);
    AppendNumber(text, picture.failed);
    AppendNumber(text, picture.milliFps);
    return text + picture.jpeg;
}

std::optional<CameraPicture> ReadPicture(std::string_view text) {
    CameraPicture picture;
    if (!TakeNumber(text, picture.number) || !TakeNumber(text, picture.unixMs) ||
        !TakeNumber(text, picture.ageMs) || !TakeNumber(text, picture.frames) ||
        !TakeNumber(text, picture.failed) || !TakeNumber(text, picture.milliFps))
        return std::nullopt;
    picture.jpeg = text;
    return picture;
}

Cameras::Cameras(Link& link, std::shared_ptr<Store> nodes, std::shared_ptr<Store> owners)
    : m_link(link), m_node(link.Seals()->Node()), m_nodes(std::move(nodes)), m_owners(std::move(owners)),
      m_ownership(m_node) {
    TakeName();
    m_freshBeats.SetStart(m_node, m_link.Seals()->Start());
    m_watchNodes = m_nodes->Watch([this](std::span<const Store::Update> updates) { TakeNodes(updates); });
    m_watchOwners = m_owners->Watch([this](std::span<const Store::Update> updates) { TakeOwners(updates); });
    m_pictures.emplace(
        m_link, SubjectOfPictures(m_node),
        [this](const Opened& question, const Link::Service::Reply& reply) { TakeQuestion(question, reply); });
    m_hearts.emplace(m_link, kHearts, [this](const Opened& beat) { TakeBeat(beat); });
    m_owned.emplace(m_link, kOwned, [this](const Opened& announcement) { TakeOwned(announcement); });
    m_workers.Start([this] { Beat(); });
    m_workers.Start([this] { KeepEntry(); });
    m_workers.Start([this] { Work(); });
}

void Cameras::Stop() {
    const std::lock_guard guard(m_mutex);
    m_stop = true;
    m_wake.notify_all();
}

Cameras::~Cameras() {
    m_workers.End();
    m_owned.reset();
    m_hearts.reset();
    m_pictures.reset();
    m_watchOwners.reset();
    m_watchNodes.reset();
    // The others need not wait until the heart has been silent for long enough.
    std::map<std::string, std::uint64_t> owned;
    {
        const std::lock_guard guard(m_mutex);
        owned = m_ownership.Owned();
    }
    for (const auto& [camera, epoch] : owned)
        (void)m_owners->Remove(camera, epoch);
    if (m_entry != 0)
        (void)m_nodes->Remove(m_node, m_entry);
}

void Cameras::Claim(const std::string& camera) {
    bool restless = false;
    {
        std::unique_lock guard(m_mutex);
        restless = m_ownership.IsRestless(camera, Clock::now());
        if (restless)
            m_wake.wait_for(guard, kRestlessWaits, [this] { return m_stop; });
    }
    if (restless)
        m_link.Say("the camera " + camera +
                   " has changed hosts too often within seconds, and was made to wait");
    bool puts = false;
    {
        const std::lock_guard guard(m_mutex);
        puts = m_ownership.TakesEntries();
        if (!puts) {
            // The phone need not wait for what is not likely to come.
            m_ownership.Claiming(camera, Clock::now());
            m_ownership.ServesWithout(camera);
            m_claims.push_back(camera);
            m_wake.notify_all();
        }
    }
    if (!puts)
        return Announce({{camera, 0}});
    const auto epoch = PutClaim(camera, true);
    {
        const std::lock_guard guard(m_mutex);
        if (epoch)
            m_ownership.Claimed(camera, *epoch, Clock::now());
        else
            m_ownership.ServesWithout(camera);
    }
    Announce({{camera, epoch.value_or(0)}});
}

ClusterCameras::Orders Cameras::Look(const std::set<std::string>& receiving) {
    const std::lock_guard guard(m_mutex);
    const auto now = Clock::now();
    Ownership::Orders found = m_ownership.Look(receiving, now);
    Orders orders{.end = std::move(found.end), .elsewhere = {}};
    for (auto& [camera, owner] : m_ownership.Elsewhere(now))
        orders.elsewhere.emplace(camera, Place{owner.node, owner.epoch});
    for (std::string& camera : found.claim)
        m_claims.push_back(std::move(camera));
    for (auto& release : found.release)
        m_releases.push_back(std::move(release));
    if (!m_claims.empty() || !m_releases.empty())
        m_wake.notify_all();
    return orders;
}

void Cameras::Pull(const std::string& camera, const Place& place, std::uint64_t after, Then then) {
    m_link.Ask(SubjectOfPictures(place.node), WriteQuestion({place.epoch, after, camera}), place.epoch,
               kAnswerWithin, [then = std::move(then)](const std::optional<Opened>& answer) {
                   then(answer ? ReadPicture(answer->text) : std::nullopt);
               });
}

void Cameras::Serve(Respond respond) {
    const std::lock_guard guard(m_serving);
    m_respond = std::move(respond);
}

std::vector<std::string> Cameras::Nodes() const {
    const std::lock_guard guard(m_mutex);
    std::vector<std::string> nodes;
    std::ranges::copy_if(m_known, std::back_inserter(nodes),
                         [this](const std::string& node) { return m_ownership.Lives(node); });
    return nodes;
}

std::vector<std::string> Cameras::Silent() const {
    const std::lock_guard guard(m_mutex);
    std::vector<std::string> nodes;
    std::ranges::copy_if(m_known, std::back_inserter(nodes), [this](const std::string& node) {
        return m_ownership.IsHeard(Clock::now()) && !m_ownership.Lives(node);
    });
    return nodes;
}

void Cameras::TakeName() {
    const Store::Reading before = m_nodes->Get(m_node);
    if (before.entry) {
        std::this_thread::sleep_for(kNameTaken);
        const Store::Reading after = m_nodes->Get(m_node);
        if (after.entry && after.entry->revision != before.entry->revision)
            throw LinkError("the name " + m_node + " is in use by another host of the cluster");
        m_entry = after.entry ? after.entry->revision : 0;
    }
    const Store::Outcome taken = m_nodes->Put(m_node, StartOf(*m_link.Seals()), m_entry);
    if (taken.result == Store::Result::Conflict)
        throw LinkError("the name " + m_node + " is in use by another host of the cluster");
    if (taken.result == Store::Result::Done)
        m_entry = taken.revision;
}

void Cameras::Beat() {
    do {
        m_link.Announce(kHearts, {});
        std::map<std::string, std::uint64_t> without;
        {
            const std::lock_guard guard(m_mutex);
            without = m_ownership.Without();
        }
        Announce(std::move(without));
    } while (Sleep(kBeatEvery));
}

void Cameras::KeepEntry() {
    while (Sleep(kBeatEvery)) {
        const Store::Outcome put = m_nodes->Put(m_node, StartOf(*m_link.Seals()), m_entry);
        const bool done = put.result == Store::Result::Done;
        const bool conflict = put.result == Store::Result::Conflict;
        if (done)
            m_entry = put.revision;
        // One that was not known to be written may be, and is one's own then.
        else if (conflict)
            m_entry = put.present ? put.present->revision : 0;
        const std::lock_guard guard(m_mutex);
        m_ownership.Writes(done || conflict, Clock::now());
    }
}

bool Cameras::Sleep(std::chrono::milliseconds how) {
    std::unique_lock guard(m_mutex);
    return !m_wake.wait_for(guard, how, [this] { return m_stop; });
}

void Cameras::TakeNodes(std::span<const Store::Update> updates) {
    const std::lock_guard guard(m_mutex);
    for (const Store::Update& update : updates) {
        if (!update.value) {
            m_known.erase(update.key);
            m_freshBeats.Forget(update.key);
            m_freshOwned.Forget(update.key);
            m_ownership.Silent(update.key);
            continue;
        }
        m_known.insert(update.key);
        std::array<unsigned char, 16> start{};
        if (update.value->size() == start.size())
            std::ranges::copy(*update.value, start.begin());
        m_freshBeats.SetStart(update.key, start);
        m_freshOwned.SetStart(update.key, start);
        m_ownership.Heard(update.key, Clock::now());
    }
}

void Cameras::TakeBeat(const Opened& beat) {
    const std::lock_guard guard(m_mutex);
    if (!m_freshBeats.Take(beat) || !m_ownership.Heard(beat.node, Clock::now()) || beat.node == m_node)
        return;
    m_returned = true;
    m_wake.notify_all();
}

void Cameras::TakeOwned(const Opened& announcement) {
    const auto owned = ReadOwned(announcement.text);
    const std::lock_guard guard(m_mutex);
    if (!owned || !m_freshOwned.Take(announcement) || announcement.node == m_node)
        return;
    for (const auto& [camera, epoch] : *owned) {
        if (epoch == 0)
            m_ownership.ToldWithout(camera, announcement.node, Clock::now());
        else
            m_ownership.Says(camera, {announcement.node, epoch}, Clock::now());
    }
}

void Cameras::Announce(std::map<std::string, std::uint64_t> owned) {
    while (!owned.empty()) {
        std::map<std::string, std::uint64_t> some;
        while (!owned.empty() && some.size() < kMostOwnedAtOnce)
            some.insert(owned.extract(owned.begin()));
        m_link.Announce(kOwned, WriteOwned(some));
    }
}

void Cameras::TakeOwners(std::span<const Store::Update> updates) {
    const std::lock_guard guard(m_mutex);
    for (const Store::Update& update : updates)
        m_ownership.Told(update.key, {update.value.value_or(""), update.revision}, Clock::now());
}

// A phone that has just come `insists`: whoever else has claimed its camera meanwhile had it before.
std::optional<std::uint64_t> Cameras::PutClaim(const std::string& camera, bool insists) {
    Owner owner;
    {
        const std::lock_guard guard(m_mutex);
        owner = m_ownership.OwnerOf(camera);
        m_ownership.Claiming(camera, Clock::now());
    }
    std::uint64_t follows = owner.node.empty() ? 0 : owner.epoch;
    const auto until = Clock::now() + kClaimWithin;
    while (Clock::now() < until) {
        const Store::Outcome put = m_owners->Put(camera, m_node, follows);
        if (put.result == Store::Result::Done)
            return put.revision;
        if (put.result != Store::Result::Conflict || !insists)
            break;
        follows = put.present ? put.present->revision : 0;
    }
    return std::nullopt;
}

// Claims and releases that nobody waits for.
void Cameras::Work() {
    std::unique_lock guard(m_mutex);
    for (;;) {
        m_wake.wait(guard,
                    [this] { return m_stop || m_returned || !m_claims.empty() || !m_releases.empty(); });
        if (m_stop)
            return;
        const auto claims = std::exchange(m_claims, {});
        const auto releases = std::exchange(m_releases, {});
        const bool returned = std::exchange(m_returned, false);
        auto owned = returned ? m_ownership.Owned() : std::map<std::string, std::uint64_t>();
        guard.unlock();
        Announce(std::move(owned));
        bool takes = true;
        for (auto camera = claims.begin(); camera != claims.end() && takes; ++camera) {
            const auto epoch = PutClaim(*camera, false);
            {
                const std::lock_guard again(m_mutex);
                if (epoch)
                    m_ownership.Claimed(*camera, *epoch, Clock::now());
                takes = epoch || m_ownership.TakesEntries(); // else they are ordered once more when it does
            }
            if (epoch)
                Announce({{*camera, *epoch}});
        }
        for (const auto& [camera, epoch] : releases)
            (void)m_owners->Remove(camera, epoch);
        guard.lock();
    }
}

void Cameras::TakeQuestion(const Opened& opened, const Link::Service::Reply& reply) {
    const auto question = ReadQuestion(opened.text);
    if (!question)
        return;
    const std::uint64_t epoch = question->epoch;
    bool mine = false;
    {
        const std::lock_guard guard(m_mutex);
        mine = epoch == 0 ? m_ownership.IsWithout(question->camera)
                          : m_ownership.OwnEpoch(question->camera) == epoch;
    }
    const auto answer = [reply, epoch](const CameraPicture& picture) { reply(WritePicture(picture), epoch); };
    const std::lock_guard guard(m_serving);
    if (mine && m_respond)
        m_respond(question->camera, question->after, answer);
    else
        answer({});
}

} // namespace host::cluster
