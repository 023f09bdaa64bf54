#include "host/users/phones.h"

#include <tuple>

#include "host/http/request.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::size_t kMostAgentBytes = 120;

std::string AgentOf(const Phones::Sender& sender) {
    return platform::Printable(sender.agent.substr(0, kMostAgentBytes));
}

} // namespace

std::optional<Phones::Phone> Phones::Phone::Read(std::span<const std::string> fields) {
    if (fields.size() != 7)
        return std::nullopt;
    Phone phone;
    auto camera = PercentDecode(fields[0]);
    if (!camera || !phone.Take(fields[1], fields[3], fields[4]))
        return std::nullopt;
    phone.camera = *std::move(camera);
    phone.secure = fields[2] == "tls";
    phone.address = fields[5];
    phone.agent = fields[6];
    return phone;
}

std::string Phones::Phone::Line() const {
    return PercentEncode(camera) + '\t' + digest + '\t' + (secure ? "tls" : "clear") + '\t' +
           SecondsOf(made) + '\t' + SecondsOf(used) + '\t' + address + '\t' + agent;
}

Phones::Phones(std::shared_ptr<Store> store, DigestOf digestOf)
    : m_digestOf(std::move(digestOf)), m_table(std::move(store), [this](const Phone& phone, Time) {
          return phone.digest.empty() || phone.digest != m_digestOf(phone.camera);
      }) {}

std::string Phones::Begin(const std::string& camera, bool secure, const Sender& sender, Time now) {
    Phone phone;
    phone.camera = camera;
    phone.digest = m_digestOf(camera);
    phone.secure = secure;
    phone.address = sender.address;
    phone.agent = AgentOf(sender);
    return m_table.Add(std::move(phone), now);
}

std::optional<Phones::Known> Phones::Find(std::string_view number, bool secure, const Sender& sender,
                                          Time now) {
    const auto found = m_table.Find(number, now, [&](Phone& phone) {
        if (phone.secure != secure)
            return false;
        phone.address = sender.address;
        phone.agent = AgentOf(sender);
        return true;
    });
    return found ? std::optional(Known{found->id, found->record.camera}) : std::nullopt;
}

std::vector<Phones::Listed> Phones::List() const {
    std::vector<Listed> list;
    for (const auto& [id, phone, held] : m_table.List())
        list.push_back({{id, phone.camera}, phone.made, phone.used, phone.address, phone.agent, held});
    std::ranges::sort(list, {}, [](const Listed& phone) {
        return std::tuple(phone.phone.camera, phone.made, phone.phone.id);
    });
    return list;
}

} // namespace host
