// Tokens for programs: what "Authorization: Bearer" signs in with, in place of a name and a password.
//
// A token sees what its user sees, or with the scope "read" the part of that which changes nothing. It is
// over once the user is gone or of another kind. A new password does not end it: programs are to go on when
// people change theirs. It has no expiry; it is revoked by hand.
#pragma once

#include "host/users/secret_table.h"
#include "host/users/user_store.h"

namespace host {

// Thread-safe.
class Tokens {
public:
    enum class Scope { Read, All };
    static std::string_view NameOf(Scope scope) noexcept { return scope == Scope::All ? "all" : "read"; }
    static std::optional<Scope> ScopeFrom(std::string_view name) noexcept;
    static constexpr std::size_t kMaxNameBytes = 64;

    struct Token : SecretRecord {
        static constexpr std::string_view kTitle =
            "# Tokens of programs: hash of the token, user, the user's kind, scope, made, last used, name.";
        static std::optional<Token> Read(std::span<const std::string> fields);
        [[nodiscard]] std::string Line() const;
        [[nodiscard]] const std::string& Owner() const { return login; }

        std::string login;
        Scope scope = Scope::Read;
        std::string name; // that people know it by
    };
    using Entry = SecretTable<Token>::Entry;
    // The kind of a user; nothing where there is none.
    using KindOf = std::function<std::optional<UserKind>(std::string_view login)>;

    // `kindOf` is called with the lock held, and calls nothing here.
    Tokens(std::shared_ptr<Store> store, KindOf kindOf);
    // In a file of the data folder; empty: in memory alone.
    static std::shared_ptr<Store> InFile(std::string path) {
        return SecretTable<Token>::InFile(std::move(path));
    }
    Tokens(const Tokens&) = delete;
    Tokens& operator=(const Tokens&) = delete;

    // What is wrong with a name; empty when nothing is.
    static std::string CheckName(std::string_view name);

    struct Made {
        std::string id;    // its hash
        std::string token; // told this once
    };
    // Nothing where there is no such user, or it has as many as it may.
    std::optional<Made> Make(const std::string& login, Scope scope, const std::string& name,
                             SecretRecord::Time now = SecretRecord::Now());
    // Nothing where there is no such token (any more). It counts as used.
    std::optional<Entry> Find(std::string_view token, SecretRecord::Time now = SecretRecord::Now());
    // False where there was none of that hash.
    bool End(std::string_view id) { return m_table.End(id); }
    // Calls `end` as soon as the token ends. Null where there is no such token any more.
    [[nodiscard]] std::shared_ptr<const void> Hold(std::string_view id, std::function<void()> end) {
        return m_table.Hold(id, std::move(end));
    }
    void Sweep(SecretRecord::Time now = SecretRecord::Now()) { m_table.Sweep(now); }
    bool Save() { return m_table.Save(); }
    // By user, and then as they were made.
    [[nodiscard]] std::vector<Entry> List() const;

private:
    const KindOf m_kindOf;
    SecretTable<Token> m_table;
};

} // namespace host
