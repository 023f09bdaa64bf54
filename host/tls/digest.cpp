#include "host/tls/digest.h"

#include "host/tls/openssl.h"

namespace host {

std::string Sha256(std::string_view text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    CheckTls(EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha256(), nullptr) == 1, "no SHA-256");
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (unsigned i = 0; i < size; ++i) {
        hex += kDigits[digest[i] >> 4U];
        hex += kDigits[digest[i] & 15U];
    }
    return hex;
}

} // namespace host
