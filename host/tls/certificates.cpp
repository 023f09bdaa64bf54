#include "host/tls/certificates.h"

#include <ctime>
#include <utility>

#include "host/base/start_error.h"
#include "host/log/console.h"
#include "host/tls/openssl.h"
#include "platform/messages.h"

namespace host {
namespace {

// Stands before the certificate of an authority that took the place of another one.
constexpr std::string_view kReplacedMark = "# This authority took the place of an earlier one.\n";

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

Certificates::Certificates(std::string folder, std::string_view toldHost)
    : m_own(true), m_folder(std::move(folder)), m_names(MachineNames()) {
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

void Certificates::LoadOwn(std::string_view toldHost) {
    const std::string authorityFile = m_folder + "/ca.pem";
    const std::string authorityKey = m_folder + "/ca-key.pem";
    const std::string serverFile = m_folder + "/server.pem";
    const std::string serverKey = m_folder + "/server-key.pem";
    const TlsScope scope = TlsScope::Of(m_names, OwnAddresses(), toldHost);
    TlsPair authority = ReadPair(authorityFile, authorityKey);
    TlsPair server = ReadPair(serverFile, serverKey);
    const bool had = !authority.certificate.empty();
    bool usable = had && IsUsable(authority);
    if (!usable || !FaultOf(authority, server, scope).empty()) {
        if (usable) {
            server = MakeCertificate(authority, scope);
            // A name outside of what the authority permits.
            usable = FaultOf(authority, server, scope).empty();
        }
        if (!usable) {
            authority = MakeAuthority(scope, m_names.empty() ? "this machine" : m_names.front());
            if (had)
                authority.certificate.insert(0, kReplacedMark);
            server = MakeCertificate(authority, scope);
            if (const std::string fault = FaultOf(authority, server, scope); !fault.empty())
                throw TlsError("the certificate that was made is not usable: " + fault);
            WritePair(authority, authorityFile, authorityKey);
        }
        WritePair(server, serverFile, serverKey);
        if (had && !usable)
            Console::Get().Log("message", "this server has a new authority for its certificate: devices that "
                                          "trusted the former one have to trust again, see /trust");
    } else if (m_current) {
        return;
    }
    Use(server, {.certificate = authority.certificate,
                 .fingerprint = FingerprintOf(authority.certificate),
                 .replaced = authority.certificate.starts_with(kReplacedMark)});
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
