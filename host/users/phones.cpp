#include "host/users/phones.h"

#include <algorithm>
#include <tuple>

#include "host/base/text_table.h"
#include "host/http/request.h"
#include "host/tls/digest.h"
#include "host/users/password.h"
#include "platform/files.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::size_t kNumberBytes = 32;
constexpr std::size_t kMostAgentBytes = 120;

std::string AgentOf(const Phones::Sender& sender) {
    return platform::Printable(sender.agent.substr(0, kMostAgentBytes));
}

} // namespace

Phones::Phones(std::string path, DigestOf digestOf)
    : m_path(std::move(path)), m_digestOf(std::move(digestOf)) {
    Read();
}

void Phones::Read() {
    const auto content = m_path.empty() ? std::nullopt : platform::ReadWholeFile(m_path);
    if (!content)
        return;
    for (const TextLine& line : ReadTextTable(*content)) {
        if (line.fields.size() != 8)
            continue;
        auto camera = PercentDecode(line.fields[1]);
        const auto made = SecondsIn(line.fields[4]);
        const auto contact = SecondsIn(line.fields[5]);
        if (!camera || !made || !contact)
            continue;
        m_phones->insert_or_assign(line.fields[0], Phone{.camera = std::move(*camera),
                                                         .digest = line.fields[2],
                                                         .secure = line.fields[3] == "tls",
                                                         .made = *made,
                                                         .contact = *contact,
                                                         .address = line.fields[6],
                                                         .agent = line.fields[7]});
    }
}

bool Phones::IsOver(const Phone& phone) const {
    return phone.digest.empty() || phone.digest != m_digestOf(phone.camera);
}

Phones::Map::iterator Phones::Erase(Map::iterator phone) {
    for (Wakeup* const wakeup : phone->second.held)
        wakeup->Signal();
    m_changed = true;
    return m_phones->erase(phone);
}

void Phones::MakeRoomFor(const std::string& camera) {
    std::size_t count = 0;
    auto oldest = m_phones->end();
    for (auto at = m_phones->begin(); at != m_phones->end(); ++at) {
        if (at->second.camera != camera)
            continue;
        ++count;
        if (oldest == m_phones->end() || at->second.contact < oldest->second.contact)
            oldest = at;
    }
    if (count >= kMostOfCamera)
        Erase(oldest);
}

std::string Phones::Begin(const std::string& camera, bool secure, const Sender& sender, Time now) {
    std::string number = RandomHex(kNumberBytes);
    const std::lock_guard guard(*m_mutex);
    MakeRoomFor(camera);
    m_phones->insert_or_assign(Sha256(number), Phone{.camera = camera,
                                                     .digest = m_digestOf(camera),
                                                     .secure = secure,
                                                     .made = now,
                                                     .contact = now,
                                                     .address = sender.address,
                                                     .agent = AgentOf(sender)});
    (void)Write();
    return number;
}

std::optional<Phones::Known> Phones::Find(std::string_view number, bool secure, const Sender& sender,
                                          Time now) {
    if (number.size() != 2 * kNumberBytes)
        return std::nullopt;
    // The hash is looked up, so the time that this takes tells nothing of the number.
    const std::string hash = Sha256(number);
    const std::lock_guard guard(*m_mutex);
    const auto found = m_phones->find(hash);
    if (found == m_phones->end() || found->second.secure != secure)
        return std::nullopt;
    Phone& phone = found->second;
    if (IsOver(phone)) {
        Erase(found);
        (void)Write();
        return std::nullopt;
    }
    m_changed = m_changed || phone.contact != now;
    phone.contact = now;
    phone.address = sender.address;
    phone.agent = AgentOf(sender);
    return Known{hash, phone.camera};
}

bool Phones::IsGood(std::string_view id) {
    const std::lock_guard guard(*m_mutex);
    const auto found = m_phones->find(id);
    return found != m_phones->end() && !IsOver(found->second);
}

bool Phones::End(std::string_view id) {
    const std::lock_guard guard(*m_mutex);
    const auto found = m_phones->find(id);
    if (found == m_phones->end())
        return false;
    Erase(found);
    (void)Write();
    return true;
}

void Phones::Sweep(Time now) {
    const std::lock_guard guard(*m_mutex);
    bool ended = false;
    for (auto at = m_phones->begin(); at != m_phones->end();) {
        if (!at->second.held.empty() && at->second.contact < now) {
            at->second.contact = now;
            m_changed = true;
        }
        if (IsOver(at->second)) {
            at = Erase(at);
            ended = true;
        } else {
            ++at;
        }
    }
    if (ended)
        (void)Write();
}

bool Phones::Save() {
    const std::lock_guard guard(*m_mutex);
    return !m_changed || Write();
}

bool Phones::Write() {
    m_changed = false;
    if (m_path.empty())
        return true;
    std::string content = "# Browsers that are a camera: hash of the phone's number, camera, digest of the "
                          "camera's password, way, made, last contact, address, what the browser calls "
                          "itself.\n";
    for (const auto& [hash, phone] : *m_phones) {
        content += hash + '\t' + PercentEncode(phone.camera) + '\t' + phone.digest + '\t' +
                   (phone.secure ? "tls" : "clear") + '\t' + SecondsOf(phone.made) + '\t' +
                   SecondsOf(phone.contact) + '\t' + phone.address + '\t' + phone.agent + '\n';
    }
    m_changed = FAILED(platform::ReplaceFile(m_path, content, 0600));
    return !m_changed;
}

std::vector<Phones::Listed> Phones::List() const {
    std::vector<Listed> list;
    {
        const std::lock_guard guard(*m_mutex);
        for (const auto& [hash, phone] : *m_phones)
            list.push_back({{hash, phone.camera},
                            phone.made,
                            phone.contact,
                            phone.address,
                            phone.agent,
                            !phone.held.empty()});
    }
    std::ranges::sort(list, {}, [](const Listed& phone) {
        return std::tuple(phone.phone.camera, phone.made, phone.phone.id);
    });
    return list;
}

Phones::Held Phones::Hold(std::string_view id, Wakeup& wakeup) {
    const std::lock_guard guard(*m_mutex);
    const auto found = m_phones->find(id);
    if (found == m_phones->end())
        return nullptr;
    found->second.held.push_back(&wakeup);
    return {static_cast<const void*>(this),
            [mutex = m_mutex, phones = m_phones, hash = found->first, own = &wakeup](const void*) {
                const std::lock_guard ending(*mutex);
                if (const auto at = phones->find(hash); at != phones->end())
                    std::erase(at->second.held, own);
            }};
}

} // namespace host
