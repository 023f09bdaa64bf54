#include "host/tls/context.h"

#include <ctime>

#include <openssl/err.h>
#include <openssl/pem.h>

#include "host/tls/openssl.h"

namespace host {
namespace {

// A key behind a password: nobody is there to type it.
int NoPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/) {
    return -1;
}

// HTTP/1.1 is all that is spoken here; a client that offers nothing, or only others, is asked no more.
int ChooseProtocol(SSL* /*ssl*/, const unsigned char** chosen, unsigned char* chosenSize,
                   const unsigned char* offered, unsigned offeredSize, void* /*user*/) {
    static constexpr std::string_view kProtocol = "http/1.1";
    for (unsigned at = 0; at + 1 + offered[at] <= offeredSize; at += 1U + offered[at]) {
        if (std::string_view(reinterpret_cast<const char*>(offered) + at + 1, offered[at]) != kProtocol)
            continue;
        *chosen = offered + at + 1;
        *chosenSize = offered[at];
        return SSL_TLSEXT_ERR_OK;
    }
    return SSL_TLSEXT_ERR_NOACK;
}

long long UnixSeconds(const ASN1_TIME* time) {
    std::tm parts{};
    return ASN1_TIME_to_tm(time, &parts) == 1 ? static_cast<long long>(::timegm(&parts)) : 0;
}

std::string Digits(const unsigned char* bytes, unsigned count) {
    static constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (unsigned i = 0; i < count; ++i) {
        if (i > 0)
            text += ':';
        text += kDigits[bytes[i] >> 4U];
        text += kDigits[bytes[i] & 15U];
    }
    return text;
}

} // namespace

void ThrowTls(const std::string& what) {
    const unsigned long error = ERR_peek_last_error();
    const char* const reason = error != 0 ? ERR_reason_error_string(error) : nullptr;
    ERR_clear_error();
    throw TlsError(reason != nullptr ? what + " (" + reason + ")" : what);
}

BioPtr ReadFrom(std::string_view text) {
    return BioPtr(CheckTls(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), "no memory"));
}

X509Ptr CertificateOf(std::string_view pem) {
    const BioPtr bio = ReadFrom(pem);
    return X509Ptr(CheckTls(PEM_read_bio_X509_AUX(bio.get(), nullptr, NoPassword, nullptr),
                            "there is no certificate in PEM in it"));
}

KeyPtr KeyOf(std::string_view pem) {
    const BioPtr bio = ReadFrom(pem);
    return KeyPtr(CheckTls(PEM_read_bio_PrivateKey(bio.get(), nullptr, NoPassword, nullptr),
                           "there is no key in PEM in it, or it wants a password"));
}

TlsContext::TlsContext(const TlsPair& pair) : m_inside(std::make_unique<Inside>()) {
    m_inside->context.reset(CheckTls(SSL_CTX_new(TLS_server_method()), "no memory"));
    SSL_CTX* const context = m_inside->context.get();
    CheckTls(SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) == 1, "TLS 1.2 is missing");
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION |
                                     SSL_OP_CIPHER_SERVER_PREFERENCE |
                                     SSL_OP_IGNORE_UNEXPECTED_EOF); // lengths tell where bodies end
    // A part of what is to be written may go out; what is written again may lie elsewhere. A thousand quiet
    // connections keep no buffers.
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                  SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF); // tickets resume sessions
    SSL_CTX_set_alpn_select_cb(context, ChooseProtocol, nullptr);

    const BioPtr bio = ReadFrom(pair.certificate);
    m_inside->certificate.reset(CheckTls(PEM_read_bio_X509_AUX(bio.get(), nullptr, NoPassword, nullptr),
                                         "there is no certificate in PEM in it"));
    CheckTls(SSL_CTX_use_certificate(context, m_inside->certificate.get()) == 1,
             "the certificate is not usable");
    while (X509* const between = PEM_read_bio_X509(bio.get(), nullptr, NoPassword, nullptr))
        CheckTls(SSL_CTX_add0_chain_cert(context, between) == 1, "the certificate's chain is not usable");
    ERR_clear_error(); // the end of the text counts as one
    CheckTls(SSL_CTX_use_PrivateKey(context, KeyOf(pair.key).get()) == 1 &&
                 SSL_CTX_check_private_key(context) == 1,
             "the key is not that of the certificate");
    m_validUntil = UnixSeconds(X509_get0_notAfter(m_inside->certificate.get()));
}

TlsContext::~TlsContext() = default;

bool TlsContext::Covers(std::string_view host) const {
    const auto colon = host.rfind(':');
    if (colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos &&
        (host.starts_with('[') || host.find(':') == colon))
        host = host.substr(0, colon);
    if (host.size() > 2 && host.starts_with('[') && host.ends_with(']'))
        host = host.substr(1, host.size() - 2);
    const std::string name(host);
    X509* const certificate = m_inside->certificate.get();
    return !name.empty() && (X509_check_ip_asc(certificate, name.c_str(), 0) == 1 ||
                             X509_check_host(certificate, name.data(), name.size(),
                                             X509_CHECK_FLAG_NEVER_CHECK_SUBJECT, nullptr) == 1);
}

std::string FingerprintOf(std::string_view certificatePem) {
    try {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned size = 0;
        if (X509_digest(CertificateOf(certificatePem).get(), EVP_sha256(), digest, &size) == 1)
            return Digits(digest, size);
    } catch (const TlsError&) {
        // No certificate has none.
    }
    return {};
}

std::string DerOf(std::string_view certificatePem) {
    unsigned char* bytes = nullptr;
    const int size = i2d_X509(CertificateOf(certificatePem).get(), &bytes);
    CheckTls(size > 0, "no memory");
    std::string der(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    return der;
}

} // namespace host
