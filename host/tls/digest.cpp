#include "host/tls/digest.h"

#include <span>

#include <openssl/hmac.h>

#include "host/tls/openssl.h"

namespace host {
namespace {

std::string InHex(std::span<const unsigned char> bytes) {
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (const unsigned char byte : bytes) {
        hex += kDigits[byte >> 4U];
        hex += kDigits[byte & 15U];
    }
    return hex;
}

} // namespace

std::string Sha256(std::string_view text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    CheckTls(EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha256(), nullptr) == 1, "no SHA-256");
    return InHex({digest, size});
}

std::string HmacSha256(std::string_view key, std::string_view text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    CheckTls(HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), bytes, text.size(), digest,
                  &size) != nullptr,
             "no HMAC");
    return InHex({digest, size});
}

} // namespace host
