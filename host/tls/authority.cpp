#include "host/tls/authority.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <optional>
#include <set>

#include <arpa/inet.h>
#include <netdb.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <unistd.h>

#include "host/base/network.h"
#include "host/tls/openssl.h"

namespace host {
namespace {

constexpr long kDay = 24L * 3600;
constexpr long kAuthorityDays = 3652;
// Browsers take none that is good for more than 397 days; clocks that are a little slow count as well.
constexpr long kCertificateDays = 396;
constexpr long kSlowClock = 3600;
// A certificate is renewed when it is good for less than that.
constexpr long kRenewBefore = 30 * kDay;

struct FreeNames {
    void operator()(addrinfo* list) const noexcept { ::freeaddrinfo(list); }
    void operator()(GENERAL_NAMES* names) const noexcept { GENERAL_NAMES_free(names); }
    void operator()(X509_STORE* store) const noexcept { X509_STORE_free(store); }
    void operator()(X509_STORE_CTX* check) const noexcept { X509_STORE_CTX_free(check); }
    void operator()(X509_EXTENSION* extension) const noexcept { X509_EXTENSION_free(extension); }
};
template <class Object>
using Owned = std::unique_ptr<Object, FreeNames>;

// --- Which names and addresses ---

// RFC 1918, 4193, 3927, and 6598, which carriers and overlay networks use.
const std::vector<Network>& PrivateBlocks() {
    static const std::vector<Network> blocks = [] {
        std::vector<Network> made;
        for (const char* const text :
             {"10.0.0.0/8", "172.16.0.0/12", "192.168.0.0/16", "169.254.0.0/16", "100.64.0.0/10", "fc00::/7"})
            made.push_back(*Network::Cidr(text));
        return made;
    }();
    return blocks;
}

// Letters, digits and hyphens, in parts that dots separate: nothing else goes into a certificate.
bool IsName(std::string_view name) {
    if (name.empty() || name.size() > 253)
        return false;
    std::size_t part = 0;
    for (std::size_t i = 0; i <= name.size(); ++i) {
        if (i == name.size() || name[i] == '.') {
            if (part == 0 || part > 63 || name[i - 1] == '-')
                return false;
            part = 0;
            continue;
        }
        const char c = name[i];
        if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || (c == '-' && part > 0)))
            return false;
        ++part;
    }
    return true;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    while (lower.ends_with('.'))
        lower.pop_back();
    return lower;
}

// Of three parts or more; of two only where nobody can register the second one.
bool IsFullName(std::string_view name) {
    const auto dots = std::ranges::count(name, '.');
    if (dots != 1)
        return dots > 1;
    const std::string_view last = name.substr(name.find('.') + 1);
    constexpr std::array<std::string_view, 6> kNobodys{"local",    "lan",      "home",
                                                       "internal", "intranet", "private"};
    return std::ranges::find(kNobodys, last) != kNobodys.end();
}

template <class List>
void AddOnce(List& list, const std::string& item) {
    if (std::ranges::find(list, item) == list.end())
        list.push_back(item);
}

// "HOST:PORT" or "[ADDRESS]:PORT" without its port.
std::string HostOf(std::string_view authority) {
    if (authority.starts_with('['))
        return std::string(authority.substr(1, authority.find(']') - 1));
    if (std::ranges::count(authority, ':') == 1)
        authority = authority.substr(0, authority.find(':'));
    return Lower(authority);
}

// --- Making certificates ---

KeyPtr NewKey() {
    return KeyPtr(CheckTls(EVP_EC_gen("P-256"), "no key could be made"));
}

template <class Writer>
std::string ToPem(Writer write) {
    const BioPtr bio(CheckTls(BIO_new(BIO_s_mem()), "no memory"));
    CheckTls(write(bio.get()) == 1, "no memory");
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

TlsPair ToPair(X509* certificate, EVP_PKEY* key) {
    return {ToPem([&](BIO* bio) { return PEM_write_bio_X509(bio, certificate); }), ToPem([&](BIO* bio) {
                return PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
            })};
}

using Extensions = std::vector<std::pair<int, std::string>>;

// `issuer` null: by itself.
TlsPair Sign(const std::string& name, long days, X509* issuer, EVP_PKEY* issuerKey,
             const Extensions& extensions) {
    const KeyPtr key = NewKey();
    const X509Ptr certificate(CheckTls(X509_new(), "no memory"));
    X509* const made = certificate.get();
    X509_set_version(made, X509_VERSION_3);
    const std::unique_ptr<BIGNUM, Freed<&BN_free>> serial(CheckTls(BN_new(), "no memory"));
    CheckTls(BN_rand(serial.get(), 127, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
                 BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(made)) != nullptr &&
                 X509_gmtime_adj(X509_getm_notBefore(made), -kSlowClock) != nullptr &&
                 X509_gmtime_adj(X509_getm_notAfter(made), days * kDay) != nullptr &&
                 X509_set_pubkey(made, key.get()) == 1,
             "no certificate could be made");
    X509_NAME_add_entry_by_txt(X509_get_subject_name(made), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_set_issuer_name(made, X509_get_subject_name(issuer != nullptr ? issuer : made));
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer != nullptr ? issuer : made, made, nullptr, nullptr, 0);
    for (const auto& [kind, value] : extensions) {
        const Owned<X509_EXTENSION> extension(CheckTls(
            X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()), "no certificate could be made"));
        CheckTls(X509_add_ext(made, extension.get(), -1) == 1, "no memory");
    }
    CheckTls(X509_sign(made, issuerKey != nullptr ? issuerKey : key.get(), EVP_sha256()) > 0,
             "the certificate could not be signed");
    return ToPair(made, key.get());
}

std::string Join(const std::vector<std::string>& items, std::string_view before) {
    std::string text;
    for (const std::string& item : items)
        text.append(text.empty() ? "" : ",").append(before).append(item);
    return text;
}

// --- Looking at them ---

std::set<std::string> NamesIn(X509* certificate) {
    std::set<std::string> found;
    const Owned<GENERAL_NAMES> names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names.get(), i);
        const ASN1_STRING* const value = name->type == GEN_DNS ? name->d.dNSName : name->d.iPAddress;
        if (name->type == GEN_DNS || name->type == GEN_IPADD)
            found.emplace(reinterpret_cast<const char*>(ASN1_STRING_get0_data(value)),
                          static_cast<std::size_t>(ASN1_STRING_length(value)));
    }
    return found;
}

std::set<std::string> NamesOf(const TlsScope& scope) {
    std::set<std::string> wanted(scope.names.begin(), scope.names.end());
    for (const std::string& address : scope.addresses) {
        const Network block = *Network::Address(address);
        wanted.emplace(reinterpret_cast<const char*>(block.bytes.data()), block.size);
    }
    return wanted;
}

bool IsGoodFor(X509* certificate, long seconds) {
    std::time_t now = std::time(nullptr);
    std::time_t then = now + seconds;
    return X509_cmp_time(X509_get0_notBefore(certificate), &now) < 0 &&
           X509_cmp_time(X509_get0_notAfter(certificate), &then) > 0;
}

bool IsPair(const TlsPair& pair) {
    return X509_check_private_key(CertificateOf(pair.certificate).get(), KeyOf(pair.key).get()) == 1;
}

} // namespace

TlsScope TlsScope::Of(const std::vector<std::string>& machineNames,
                      const std::vector<InterfaceAddress>& interfaces, std::string_view toldHost) {
    TlsScope scope{.names = {"localhost"},
                   .addresses = {"127.0.0.1", "::1"},
                   .networks = {Network::Cidr("127.0.0.0/8")->WithMask(), Network::Cidr("::1")->WithMask()}};
    for (const std::string& given : machineNames) {
        const std::string name = Lower(given);
        if (!IsName(name) || Network::Address(name))
            continue;
        if (IsFullName(name))
            AddOnce(scope.names, name);
        else if (name.find('.') == std::string::npos && name != "localhost")
            AddOnce(scope.names, name + ".local");
    }
    for (const InterfaceAddress& own : interfaces) {
        const auto address = Network::Address(own.text);
        for (const Network& block : PrivateBlocks()) {
            if (!address || !block.Holds(*address))
                continue;
            AddOnce(scope.addresses, own.text);
            AddOnce(scope.networks, address->Prefix(std::max(own.prefixBits, block.bits)).WithMask());
        }
    }
    const std::string told = HostOf(toldHost);
    if (const auto address = Network::Address(told)) {
        AddOnce(scope.addresses, told);
        const bool isPublic = std::ranges::none_of(
            PrivateBlocks(), [&](const Network& block) { return block.Holds(*address); });
        if (isPublic || std::ranges::find(interfaces, told, &InterfaceAddress::text) == interfaces.end())
            AddOnce(scope.networks, address->WithMask());
    } else if (IsName(told) && told.find('.') != std::string::npos) {
        AddOnce(scope.names, told);
    }
    return scope;
}

TlsScope TlsScope::OfOneOfMany(const std::vector<InterfaceAddress>& interfaces,
                               const std::vector<std::string>& toldHosts) {
    TlsScope scope = Of({}, interfaces, {});
    for (const Network& block : PrivateBlocks())
        AddOnce(scope.networks, block.WithMask());
    for (const std::string& told : toldHosts) {
        const TlsScope one = Of({}, interfaces, told);
        for (const auto list : {&TlsScope::names, &TlsScope::addresses, &TlsScope::networks}) {
            for (const std::string& item : one.*list)
                AddOnce(scope.*list, item);
        }
    }
    return scope;
}

std::vector<std::string> MachineNames() {
    std::array<char, 256> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0)
        return {};
    std::vector<std::string> names{name.data()};
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    if (::getaddrinfo(name.data(), nullptr, &hints, &first) != 0)
        return names;
    const Owned<addrinfo> list(first);
    if (first->ai_canonname != nullptr)
        AddOnce(names, std::string(first->ai_canonname));
    return names;
}

TlsPair MakeAuthority(const TlsScope& scope, std::string_view machine) {
    std::array<char, 16> day{};
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    (void)std::strftime(day.data(), day.size(), "%Y-%m-%d", &parts);
    // A common name has 64 characters at the most.
    const std::string name = "Morrowstream on " + std::string(machine.substr(0, 32)) + ", " + day.data();
    return Sign(name, kAuthorityDays, nullptr, nullptr,
                {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
                 {NID_key_usage, "critical,keyCertSign,cRLSign"},
                 {NID_ext_key_usage, "serverAuth"},
                 {NID_subject_key_identifier, "hash"},
                 // A form of name that is not listed would be permitted without a limit.
                 {NID_name_constraints, "critical," + Join(scope.names, "permitted;DNS:") + "," +
                                            Join(scope.networks, "permitted;IP:")}});
}

TlsPair MakeCertificate(const TlsPair& authority, const TlsScope& scope) {
    const X509Ptr issuer = CertificateOf(authority.certificate);
    const KeyPtr issuerKey = KeyOf(authority.key);
    return Sign("Morrowstream server", kCertificateDays, issuer.get(), issuerKey.get(),
                {{NID_basic_constraints, "critical,CA:FALSE"},
                 {NID_key_usage, "critical,digitalSignature"},
                 {NID_ext_key_usage, "serverAuth"},
                 {NID_subject_key_identifier, "hash"},
                 {NID_authority_key_identifier, "keyid"},
                 {NID_subject_alt_name, Join(scope.names, "DNS:") + "," + Join(scope.addresses, "IP:")}});
}

std::string FaultOf(const TlsPair& authority, const TlsPair& server, const TlsScope& scope) {
    try {
        if (!IsPair(server))
            return "its key is another one's";
        const X509Ptr certificate = CertificateOf(server.certificate);
        if (NamesIn(certificate.get()) != NamesOf(scope))
            return "this machine has other names or addresses now";
        if (!IsGoodFor(certificate.get(), kRenewBefore))
            return "its time is over soon";
        const Owned<X509_STORE> store(CheckTls(X509_STORE_new(), "no memory"));
        CheckTls(X509_STORE_add_cert(store.get(), CertificateOf(authority.certificate).get()) == 1,
                 "no memory");
        const Owned<X509_STORE_CTX> check(CheckTls(X509_STORE_CTX_new(), "no memory"));
        CheckTls(X509_STORE_CTX_init(check.get(), store.get(), certificate.get(), nullptr) == 1 &&
                     X509_STORE_CTX_set_purpose(check.get(), X509_PURPOSE_SSL_SERVER) == 1,
                 "no memory");
        if (X509_verify_cert(check.get()) == 1)
            return {};
        ERR_clear_error();
        return X509_verify_cert_error_string(X509_STORE_CTX_get_error(check.get()));
    } catch (const TlsError& error) {
        return error.what();
    }
}

bool IsUsable(const TlsPair& authority) {
    try {
        return IsPair(authority) &&
               IsGoodFor(CertificateOf(authority.certificate).get(), kCertificateDays * kDay);
    } catch (const TlsError&) {
        return false;
    }
}

} // namespace host
