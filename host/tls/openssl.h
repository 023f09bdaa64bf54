// OpenSSL's objects with owners, and what went wrong in words.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "host/tls/context.h"

namespace host {

template <auto Free>
struct Freed {
    template <class Object>
    void operator()(Object* object) const noexcept {
        Free(object);
    }
};

using BioPtr = std::unique_ptr<BIO, Freed<&BIO_free_all>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Freed<&EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, Freed<&X509_free>>;
using SslContextPtr = std::unique_ptr<SSL_CTX, Freed<&SSL_CTX_free>>;
using SslPtr = std::unique_ptr<SSL, Freed<&SSL_free>>;

// What a certificate or a key lacks, in a line for a person.
class TlsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws TlsError with `what` and the library's own reason.
[[noreturn]] void ThrowTls(const std::string& what);
template <class Result>
Result* CheckTls(Result* result, const char* what) {
    if (result == nullptr)
        ThrowTls(what);
    return result;
}
inline void CheckTls(bool result, const char* what) {
    if (!result)
        ThrowTls(what);
}

// A BIO to read from; the text outlives it.
BioPtr ReadFrom(std::string_view text);
// The first certificate and the key of a text in PEM. A key that wants a password is none.
X509Ptr CertificateOf(std::string_view pem);
KeyPtr KeyOf(std::string_view pem);

// What TlsContext and TlsSession have of the library.
struct TlsContext::Inside {
    SslContextPtr context;
    X509Ptr certificate;
};

} // namespace host
