#include "host/users/tokens.h"

#include <tuple>

#include "host/http/request.h"
#include "platform/text.h"

namespace host {

std::optional<Tokens::Scope> Tokens::ScopeFrom(std::string_view name) noexcept {
    for (const Scope scope : {Scope::Read, Scope::All}) {
        if (name == NameOf(scope))
            return scope;
    }
    return std::nullopt;
}

std::optional<Tokens::Token> Tokens::Token::Read(std::span<const std::string> fields) {
    if (fields.size() != 6)
        return std::nullopt;
    auto name = PercentDecode(fields[5]);
    const auto scope = ScopeFrom(fields[2]);
    Token token;
    if (!name || !scope || !token.Take(fields[1], fields[3], fields[4]))
        return std::nullopt;
    token.login = fields[0];
    token.scope = *scope;
    token.name = *std::move(name);
    return token;
}

std::string Tokens::Token::Line() const {
    return login + '\t' + digest + '\t' + std::string(NameOf(scope)) + '\t' + SecondsOf(made) + '\t' +
           SecondsOf(used) + '\t' + PercentEncode(name);
}

Tokens::Tokens(std::shared_ptr<Store> store, KindOf kindOf)
    : m_kindOf(std::move(kindOf)), m_table(std::move(store), [this](const Token& token, SecretRecord::Time) {
          const auto kind = m_kindOf(token.login);
          return !kind || token.digest != KindName(*kind);
      }) {}

std::string Tokens::CheckName(std::string_view name) {
    if (name.empty() || name.size() > kMaxNameBytes)
        return "a token's name has 1 to " + std::to_string(kMaxNameBytes) + " bytes";
    return platform::Printable(name) == name ? "" : "a token's name is printable text";
}

std::optional<Tokens::Made> Tokens::Make(const std::string& login, Scope scope, const std::string& name,
                                         SecretRecord::Time now) {
    const auto kind = m_kindOf(login);
    if (!kind)
        return std::nullopt;
    Token token;
    token.login = login;
    token.digest = KindName(*kind);
    token.scope = scope;
    token.name = name;
    const auto secret = m_table.AddIfRoom(std::move(token), now);
    return secret ? std::optional(Made{Sha256(*secret), *secret}) : std::nullopt;
}

std::optional<Tokens::Entry> Tokens::Find(std::string_view token, SecretRecord::Time now) {
    return m_table.Find(token, now, [](const Token&) { return true; });
}

std::vector<Tokens::Entry> Tokens::List() const {
    auto list = m_table.List();
    std::ranges::sort(list, {}, [](const Entry& entry) {
        return std::tuple(entry.record.login, entry.record.made, entry.id);
    });
    return list;
}

} // namespace host
