// A certificate with its key, ready for connections.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace host {

class TlsSession;

// PEM: a certificate, with those between it and its authority behind it, and the key.
struct TlsPair {
    std::string certificate;
    std::string key;
    friend bool operator==(const TlsPair&, const TlsPair&) = default;
};

// Never changes, so any number of threads may use it; a connection keeps the one that it began with.
class TlsContext {
public:
    // Throws TlsError for a pair that cannot be read or does not fit together.
    explicit TlsContext(const TlsPair& pair);
    ~TlsContext();
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    // Whether the certificate is one for this name or numeric address; a port behind it does not count.
    [[nodiscard]] bool Covers(std::string_view host) const;
    // Unix seconds.
    [[nodiscard]] long long ValidUntil() const noexcept { return m_validUntil; }

private:
    friend class TlsSession;
    struct Inside;
    std::unique_ptr<Inside> m_inside;
    long long m_validUntil = 0;
};
using TlsContextPtr = std::shared_ptr<const TlsContext>;

// The SHA-256 of a certificate's DER form, as people compare it: "AB:CD:...". Empty for what is none.
std::string FingerprintOf(std::string_view certificatePem);
// The certificate in DER.
std::string DerOf(std::string_view certificatePem);

} // namespace host
