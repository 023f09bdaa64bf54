#include "host/tls/certificates.h"

#include <algorithm>
#include <ctime>
#include <sstream>
#include <tuple>
#include <utility>

#include "host/base/start_error.h"
#include "host/log/console.h"
#include "host/tls/openssl.h"
#include "platform/messages.h"

namespace host {
namespace {

// Stands before the certificate of an authority that took the place of another one.
constexpr std::string_view kReplacedMark = "# This authority took the place of an earlier one.\n";

// Of the store that hosts share.
constexpr const char* kSharedKey = "authority";
constexpr std::chrono::hours kGoodFor{1};
constexpr std::size_t kMostTold = 64; // the newest addresses
constexpr std::string_view kNotInAddresses(" \t\r\n\v\f\0", 7);

std::string ReadPem(const std::string& path) {
    auto content = platform::ReadWholeFile(path, std::size_t{1} << 20);
    if (!content)
        throw TlsError("cannot read " + path + ": " + platform::DescribeLastError());
    return std::move(*content);
}

// Empty where it cannot be read: it is made anew.
TlsPair ReadPair(const std::string& certificate, const std::string& key) {
    return {platform::ReadWholeFile(certificate).value_or(""), platform::ReadWholeFile(key).value_or("")};
}

// The key first: a certificate without its key is of no use.
void WritePair(const TlsPair& pair, const std::string& certificate, const std::string& key) {
    for (const auto& [path, content, mode] :
         {std::tuple{&key, &pair.key, 0600U}, {&certificate, &pair.certificate, 0644U}}) {
        if (FAILED(platform::ReplaceFile(*path, *content, mode)))
            throw TlsError("cannot write " + *path + ": " + platform::DescribeLastError());
    }
}

} // namespace

Certificates::Certificates(CertificateFiles files) : m_own(false), m_files(std::move(files)) {
    try {
        LoadOperators();
    } catch (const TlsError& error) {
        throw StartError("the certificate " + m_files.certificate + " with the key " + m_files.key +
                         " cannot be used: " + error.what());
    }
}

Certificates::Certificates(std::string folder, std::string_view toldHost, std::shared_ptr<Store> shared)
    : m_own(true), m_folder(std::move(folder)), m_names(MachineNames()) {
    if (shared)
        m_shared.emplace(std::move(shared));
    if (FAILED(platform::CreateFolder(m_folder)))
        throw StartError("cannot make the folder " + m_folder + ": " + platform::DescribeLastError());
    try {
        LoadOwn(toldHost);
    } catch (const TlsError& error) {
        throw StartError(std::string("no certificate for TLS: ") + error.what());
    }
}

void Certificates::Use(const TlsPair& pair, Authority authority) {
    auto context = std::make_shared<const TlsContext>(pair);
    const std::lock_guard guard(m_mutex);
    m_authority = std::move(authority);
    std::atomic_store(&m_current, TlsContextPtr(std::move(context)));
}

void Certificates::LoadOperators() {
    m_stamps[0] = platform::StampOf(m_files.certificate);
    m_stamps[1] = platform::StampOf(m_files.key);
    const TlsPair pair{ReadPem(m_files.certificate), ReadPem(m_files.key)};
    Use(pair, {.certificate = {}, .fingerprint = FingerprintOf(pair.certificate), .replaced = false});
    if (Current()->ValidUntil() < std::time(nullptr))
        Console::Get().Log("error", "the time of the certificate " + m_files.certificate + " is over");
}

// The addresses, a blank between them; the key; the certificate. A zero byte stands between the three.
Certificates::Shared Certificates::ReadShared() {
    Shared shared;
    if (!m_shared)
        return shared;
    (void)m_shared->Refresh();
    const auto found = m_shared->Now().find(kSharedKey);
    if (found == m_shared->Now().end())
        return shared;
    const std::string& text = found->second.value;
    const auto told = std::min(text.find('\0'), text.size());
    const auto key = std::min(text.find('\0', told + 1), text.size());
    std::istringstream names(text.substr(0, told));
    for (std::string name; names >> name;)
        shared.told.push_back(name);
    if (key < text.size())
        shared.authority = {text.substr(key + 1), text.substr(told + 1, key - told - 1)};
    shared.revision = found->second.revision;
    return shared;
}

// False when another host was quicker: what that one has put is to be looked at. Throws TlsError where the
// others cannot be told of it, but for a host that starts: that one does with what it has, and takes theirs
// once it hears of it.
bool Certificates::PutShared(const Shared& shared) {
    std::string text;
    for (const std::string& told : shared.told)
        text += (text.empty() ? "" : " ") + told;
    text += '\0' + shared.authority.key + '\0' + shared.authority.certificate;
    const Store::Change change{kSharedKey, std::move(text), shared.revision};
    const auto outcomes = m_shared->Source()->Write({&change, 1});
    (void)m_shared->Settle({&change, 1}, outcomes);
    const auto& outcome = outcomes.front();
    if (outcome.result != Store::Result::Done && outcome.result != Store::Result::Conflict && m_current)
        throw TlsError("the other hosts cannot be told of their authority: " + outcome.why);
    return outcome.result != Store::Result::Conflict;
}

// Each will do; the first is the best one. What the founder of a cluster had before may permit the addresses
// of its own network alone: the others are content with those that phones are told then.
std::vector<TlsScope> Certificates::ScopesFor(std::string_view toldHost, Shared& shared) const {
    if (!m_shared)
        return {TlsScope::Of(m_names, OwnAddresses(), toldHost)};
    // Those of all hosts together: with each its own they would replace each other's authority for ever.
    if (!toldHost.empty() && toldHost.find_first_of(kNotInAddresses) == std::string_view::npos &&
        std::ranges::find(shared.told, toldHost) == shared.told.end()) {
        shared.told.emplace_back(toldHost);
        if (shared.told.size() > kMostTold)
            shared.told.erase(shared.told.begin());
    }
    return {TlsScope::OfOneOfMany(OwnAddresses(), shared.told), TlsScope::OfOneOfMany({}, shared.told)};
}

void Certificates::LoadOwn(std::string_view toldHost) {
    const std::string authorityFile = m_folder + "/ca.pem";
    const std::string authorityKey = m_folder + "/ca-key.pem";
    const std::string serverFile = m_folder + "/server.pem";
    const std::string serverKey = m_folder + "/server-key.pem";
    Shared shared = ReadShared();
    const std::size_t told = shared.told.size();
    const auto scopes = ScopesFor(toldHost, shared);
    TlsPair authority = ReadPair(authorityFile, authorityKey);
    TlsPair server = ReadPair(serverFile, serverKey);
    bool had = !authority.certificate.empty();
    const bool others = shared.revision != 0 && shared.authority != authority;
    if (others) {
        authority = shared.authority;
        WritePair(authority, authorityFile, authorityKey);
    }
    const auto isGood = [&](const TlsScope& scope) { return FaultOf(authority, server, scope).empty(); };
    const bool seen = Clock::now() < m_goodUntil && Good{authority, server, scopes} == m_good;
    bool usable = seen || ((had || others) && IsUsable(authority));
    const bool good = seen || (usable && std::ranges::any_of(scopes, isGood));
    if (!good) {
        // A name may be outside of what the authority permits.
        const auto certify = [&](const TlsScope& scope) {
            server = MakeCertificate(authority, scope);
            return isGood(scope);
        };
        usable = usable && std::ranges::any_of(scopes, certify);
        if (!usable) {
            authority = MakeAuthority(scopes.front(), m_shared && !shared.told.empty() ? shared.told.front()
                                                      : m_names.empty()                ? "this machine"
                                                                                       : m_names.front());
            had = had || others;
            if (had)
                authority.certificate.insert(0, kReplacedMark);
            if (!certify(scopes.front()))
                throw TlsError("the certificate that was made is not usable: " +
                               FaultOf(authority, server, scopes.front()));
        }
    }
    // Before it is in force, so that nobody is shown one that the others will never have.
    if (m_shared && m_shared->IsRead() && (!usable || shared.revision == 0 || shared.told.size() != told)) {
        shared.authority = authority;
        if (!PutShared(shared))
            return LoadOwn(toldHost);
    }
    if (!good) {
        if (!usable)
            WritePair(authority, authorityFile, authorityKey);
        WritePair(server, serverFile, serverKey);
        if (had && !usable)
            Console::Get().Log("message", "this server has a new authority for its certificate: devices that "
                                          "trusted the former one have to trust again, see /trust");
    }
    if (!good || !m_current || others)
        Use(server, {.certificate = authority.certificate,
                     .fingerprint = FingerprintOf(authority.certificate),
                     .replaced = authority.certificate.starts_with(kReplacedMark)});
    if (!seen) {
        m_good = {std::move(authority), std::move(server), scopes};
        m_goodUntil = Clock::now() + kGoodFor;
    }
}

void Certificates::Refresh(std::string_view toldHost, bool again) {
    std::string complaint;
    try {
        if (m_own) {
            if (again)
                m_names = MachineNames();
            LoadOwn(toldHost);
        } else if (again || m_stamps[0] != platform::StampOf(m_files.certificate) ||
                   m_stamps[1] != platform::StampOf(m_files.key)) {
            LoadOperators();
            Console::Get().Log("message", "the certificate " + m_files.certificate + " is in use now");
        } else {
            return;
        }
    } catch (const TlsError& error) {
        complaint = std::string("the former certificate stays in use: ") + error.what();
    }
    if (!complaint.empty() && (complaint != m_complaint || again))
        Console::Get().Log("error", complaint);
    m_complaint = std::move(complaint);
}

Certificates::Authority Certificates::GetAuthority() const {
    const std::lock_guard guard(m_mutex);
    return m_authority;
}

} // namespace host
