#include "host/users/password.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <crypt.h>
#include <sys/random.h>

namespace host {
namespace {

constexpr char kMethod[] = "$y$";
#ifndef MORROW_PASSWORD_COST
#define MORROW_PASSWORD_COST 5 // the library's usual one: 16 MiB
#endif
constexpr unsigned long kCost = MORROW_PASSWORD_COST;

// Empty when the library refuses.
std::string Hash(std::string_view password, const std::string& setting) {
    const auto data = std::make_unique<crypt_data>(); // 32 KiB, zeroed
    const std::string phrase(password);
    const char* hash = ::crypt_r(phrase.c_str(), setting.c_str(), data.get());
    return hash == nullptr || hash[0] == '*' ? std::string() : std::string(hash);
}

std::string NewSetting() {
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    if (::crypt_gensalt_rn(kMethod, kCost, nullptr, 0, setting, sizeof setting) == nullptr)
        throw std::runtime_error("no random salt for a password");
    return setting;
}

} // namespace

std::string HashPassword(std::string_view password) {
    std::string hash = Hash(password, NewSetting());
    if (hash.empty())
        throw std::runtime_error("the password could not be hashed");
    return hash;
}

bool VerifyPassword(std::string_view password, const std::string& hash) {
    static const std::string nobody = HashPassword(RandomPassword());
    const std::string& wanted = hash.empty() ? nobody : hash;
    const std::string got = Hash(password, wanted);
    return !got.empty() && EqualInConstantTime(got, wanted) && !hash.empty();
}

std::string RandomBytes(std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t have = 0;
    while (have < count) {
        const ssize_t got = ::getrandom(bytes.data() + have, count - have, 0);
        if (got > 0)
            have += static_cast<std::size_t>(got);
        else if (errno != EINTR)
            throw std::runtime_error("the system has no random bytes");
    }
    return bytes;
}

std::string RandomHex(std::size_t bytes) {
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char c : RandomBytes(bytes)) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 15U];
    }
    return text;
}

std::string RandomPassword() {
    static constexpr std::string_view kAlphabet =
        "abcdefghijkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789-_+=.,!";
    static_assert(kAlphabet.size() <= 64);
    std::string password;
    while (password.size() < 16) {
        for (const char c : RandomBytes(32)) {
            const auto index = static_cast<unsigned char>(c) % 64U; // even: 256 is a multiple of 64
            if (index < kAlphabet.size() && password.size() < 16)
                password += kAlphabet[index];
        }
    }
    return password;
}

} // namespace host
