#include "host/cluster/seal.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

namespace host::cluster {
namespace {

constexpr unsigned char kForm = 1;
constexpr std::size_t kTagBytes = 16;
constexpr std::size_t kKeyBytes = 32;
// Version, mark, start, count and the length of the name.
constexpr std::size_t kFixedBytes = 1 + 4 + 16 + 8 + 1;
// Hosts, each with its present start and some former ones.
constexpr std::size_t kMostKeys = 512;

void CheckSeal(bool result, const char* what) {
    if (!result)
        throw SealError(what);
}

const unsigned char* BytesOf(std::string_view text) noexcept {
    return reinterpret_cast<const unsigned char*>(text.data());
}

void AppendField(std::string& bytes, std::string_view field) {
    AppendNumber(bytes, static_cast<std::uint32_t>(field.size()));
    bytes += field;
}

struct FreeKdf {
    void operator()(EVP_KDF* kdf) const noexcept { EVP_KDF_free(kdf); }
    void operator()(EVP_KDF_CTX* context) const noexcept { EVP_KDF_CTX_free(context); }
};

// HKDF-SHA256.
void Derive(const Secret& secret, std::span<const unsigned char> salt, std::string info,
            std::span<unsigned char> derived) {
    const std::unique_ptr<EVP_KDF, FreeKdf> kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    CheckSeal(kdf != nullptr, "no HKDF");
    const std::unique_ptr<EVP_KDF_CTX, FreeKdf> context(EVP_KDF_CTX_new(kdf.get()));
    CheckSeal(context != nullptr, "no HKDF");
    std::string digest = "SHA256";
    // The library takes what it only reads without const.
    std::array<OSSL_PARAM, 5> parameters{
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest.data(), 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, const_cast<unsigned char*>(secret.Data()),
                                          secret.Size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info.data(), info.size()),
        OSSL_PARAM_construct_end(), OSSL_PARAM_construct_end()};
    if (!salt.empty())
        parameters[3] = OSSL_PARAM_construct_octet_string(
            OSSL_KDF_PARAM_SALT, const_cast<unsigned char*>(salt.data()), salt.size());
    CheckSeal(EVP_KDF_derive(context.get(), derived.data(), derived.size(), parameters.data()) == 1,
              "HKDF failed");
}

struct FreeCipher {
    void operator()(EVP_CIPHER_CTX* context) const noexcept { EVP_CIPHER_CTX_free(context); }
};
using CipherPtr = std::unique_ptr<EVP_CIPHER_CTX, FreeCipher>;

CipherPtr NewCipher() {
    CipherPtr context(EVP_CIPHER_CTX_new());
    CheckSeal(context != nullptr, "no AES-256-GCM");
    return context;
}

std::array<unsigned char, 12> NonceOf(std::uint64_t count) noexcept {
    std::array<unsigned char, 12> nonce{};
    for (std::size_t i = 0; i < 8; ++i)
        nonce[11 - i] = static_cast<unsigned char>(count >> (8 * i));
    return nonce;
}

std::string AssociatedData(std::string_view head, const SealedFor& place) {
    std::string data;
    AppendField(data, head);
    data += static_cast<char>(place.kind);
    AppendField(data, place.place);
    AppendField(data, place.key);
    AppendNumber(data, place.epoch);
    AppendField(data, place.nonce);
    return data;
}

// What stands before the encrypted text.
struct SealHead {
    std::array<unsigned char, 4> mark{};
    SealId id;
    std::string_view node;
    std::size_t size = 0; // of the head
};

std::optional<SealHead> ReadSealHead(std::string_view sealed) noexcept {
    if (sealed.size() < kFixedBytes || static_cast<unsigned char>(sealed[0]) != kForm)
        return std::nullopt;
    SealHead head;
    std::memcpy(head.mark.data(), sealed.data() + 1, head.mark.size());
    std::memcpy(head.id.start.data(), sealed.data() + 5, head.id.start.size());
    std::string_view rest = sealed.substr(21);
    std::uint8_t length = 0;
    if (!TakeNumber(rest, head.id.count) || !TakeNumber(rest, length) || length == 0 ||
        length > Sealer::kMostNodeBytes || rest.size() < length + kTagBytes)
        return std::nullopt;
    head.node = rest.substr(0, length);
    head.size = kFixedBytes + length;
    return head;
}

std::optional<BucketValue> ReadBucketValue(std::string_view text) {
    BucketValue value;
    std::uint8_t kind = 0;
    std::uint16_t length = 0;
    if (!TakeNumber(text, value.revision) || !TakeNumber(text, kind) || !TakeNumber(text, length) ||
        kind > 1 || length > text.size())
        return std::nullopt;
    value.removed = kind == 0;
    value.name = text.substr(0, length);
    value.text = text.substr(length);
    return value;
}

} // namespace

Secret::~Secret() {
    OPENSSL_cleanse(m_bytes.data(), m_bytes.size());
}

Secret& Secret::operator=(Secret&& other) noexcept {
    std::swap(m_bytes, other.m_bytes); // the other one wipes
    return *this;
}

Secrets Secrets::Of(std::string_view file) {
    Secrets secrets;
    std::size_t lines = 0;
    while (!file.empty()) {
        std::string_view line = file.substr(0, file.find('\n'));
        file.remove_prefix(std::min(file.size(), line.size() + 1));
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
            line.remove_suffix(1);
        if (line.empty() || line.front() == '#')
            continue;
        if (line.size() < kLeastBytes)
            throw SealError("a secret of " + std::to_string(kLeastBytes) +
                            " bytes or more is wanted; openssl rand -hex 32 makes one");
        if (++lines > 2)
            throw SealError("there are more than two secrets");
        (lines == 1 ? secrets.first : secrets.second) = Secret(line);
    }
    if (lines == 0)
        throw SealError("there is no secret; openssl rand -hex 32 makes one");
    return secrets;
}

std::string SealId::Bytes() const {
    std::string bytes(reinterpret_cast<const char*>(start.data()), start.size());
    AppendNumber(bytes, count);
    return bytes;
}

struct Sealer::Key {
    Key(const Secret& secret, const KeyName& name) {
        std::string info = "morrowstream cluster text";
        AppendField(info, name.node);
        Derive(secret, name.start, std::move(info), bytes);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { OPENSSL_cleanse(bytes.data(), bytes.size()); }

    std::array<unsigned char, kKeyBytes> bytes{};
};

Sealer::Sealer(Secrets secrets, std::string node) : m_secrets(std::move(secrets)), m_node(std::move(node)) {
    CheckSeal(!m_node.empty() && m_node.size() <= kMostNodeBytes, "a host's name has 1 to 64 bytes");
    CheckSeal(!m_secrets.first.IsEmpty(), "there is no secret");
    CheckSeal(RAND_bytes(m_start.data(), static_cast<int>(m_start.size())) == 1, "no random bytes");
    Derive(m_secrets.first, {}, "morrowstream cluster mark", m_marks[0]);
    if (!m_secrets.second.IsEmpty())
        Derive(m_secrets.second, {}, "morrowstream cluster mark", m_marks[1]);
    m_own = std::make_shared<const Key>(m_secrets.first, KeyName{false, m_start, m_node});
}

Sealer::~Sealer() = default;

std::string Sealer::Seal(const SealedFor& place, std::string_view text, SealId* id) const {
    SealId used{m_start, 0};
    {
        const std::lock_guard guard(m_mutex);
        used.count = ++m_count;
    }
    std::string sealed;
    sealed.reserve(text.size() + Overhead(m_node.size()));
    sealed += static_cast<char>(kForm);
    sealed.append(reinterpret_cast<const char*>(m_marks[0].data()), m_marks[0].size());
    sealed += used.Bytes();
    sealed += static_cast<char>(m_node.size());
    sealed += m_node;
    const std::string associated = AssociatedData(sealed, place);
    const std::size_t head = sealed.size();
    sealed.resize(head + text.size() + kTagBytes);
    auto* const out = reinterpret_cast<unsigned char*>(sealed.data() + head);
    const CipherPtr cipher = NewCipher();
    const auto nonce = NonceOf(used.count);
    int size = 0;
    CheckSeal(
        EVP_EncryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, m_own->bytes.data(), nonce.data()) ==
                1 &&
            EVP_EncryptUpdate(cipher.get(), nullptr, &size, BytesOf(associated),
                              static_cast<int>(associated.size())) == 1 &&
            EVP_EncryptUpdate(cipher.get(), out, &size, BytesOf(text), static_cast<int>(text.size())) == 1 &&
            EVP_EncryptFinal_ex(cipher.get(), out + text.size(), &size) == 1 &&
            EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, kTagBytes, out + text.size()) == 1,
        "AES-256-GCM failed");
    if (id != nullptr)
        *id = used;
    return sealed;
}

std::optional<Opened> Sealer::Open(const SealedFor& place, std::string_view sealed) const {
    const auto head = ReadSealHead(sealed);
    if (!head)
        return std::nullopt;
    const bool second = head->mark != m_marks[0];
    if (second && (m_secrets.second.IsEmpty() || head->mark != m_marks[1]))
        return std::nullopt;
    const KeyName name{second, head->id.start, std::string(head->node)};
    const KeyPtr key = KeyFor(name);
    const std::string associated = AssociatedData(sealed.substr(0, head->size), place);
    std::string_view text = sealed.substr(head->size);
    std::array<unsigned char, kTagBytes> tag{};
    std::memcpy(tag.data(), text.data() + text.size() - kTagBytes, kTagBytes);
    text.remove_suffix(kTagBytes);
    Opened opened{std::string(text.size(), '\0'), name.node, head->id, second};
    auto* const out = reinterpret_cast<unsigned char*>(opened.text.data());
    const CipherPtr cipher = NewCipher();
    const auto nonce = NonceOf(head->id.count);
    int size = 0;
    if (EVP_DecryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, key->bytes.data(), nonce.data()) != 1 ||
        EVP_DecryptUpdate(cipher.get(), nullptr, &size, BytesOf(associated),
                          static_cast<int>(associated.size())) != 1 ||
        EVP_DecryptUpdate(cipher.get(), out, &size, BytesOf(text), static_cast<int>(text.size())) != 1 ||
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, kTagBytes, tag.data()) != 1 ||
        EVP_DecryptFinal_ex(cipher.get(), out + text.size(), &size) != 1)
        return std::nullopt;
    const std::lock_guard guard(m_mutex);
    // Only keys that have opened something are kept: others could be made up without end.
    if (m_keys.size() >= kMostKeys)
        m_keys.clear();
    m_keys.emplace(name, key);
    return opened;
}

Sealer::KeyPtr Sealer::KeyFor(const KeyName& name) const {
    {
        const std::lock_guard guard(m_mutex);
        if (const auto found = m_keys.find(name); found != m_keys.end())
            return found->second;
    }
    return std::make_shared<const Key>(name.second ? m_secrets.second : m_secrets.first, name);
}

void Freshness::SetStart(const std::string& node, const std::array<unsigned char, 16>& start) {
    Seen& seen = m_nodes[node];
    if (seen.newest == 0 || seen.start != start)
        seen = {start, 0, 0};
}

bool Freshness::Take(const Opened& message) {
    const auto found = m_nodes.find(message.node);
    const std::uint64_t count = message.id.count;
    if (found == m_nodes.end() || found->second.start != message.id.start || count == 0)
        return false;
    Seen& seen = found->second;
    if (count > seen.newest) {
        const std::uint64_t by = count - seen.newest;
        seen.before = by < 64 ? seen.before << by : 0;
        seen.before |= 1;
        seen.newest = count;
        return true;
    }
    const std::uint64_t back = seen.newest - count;
    if (back >= 64 || (seen.before >> back & 1) != 0)
        return false;
    seen.before |= std::uint64_t{1} << back;
    return true;
}

BucketSeal::BucketSeal(std::shared_ptr<const Sealer> sealer, std::string bucket, Secret nameKey)
    : m_sealer(std::move(sealer)), m_bucket(std::move(bucket)), m_nameKey(std::move(nameKey)) {}

std::string BucketSeal::KeyOf(std::string_view name) const {
    std::string bound;
    AppendField(bound, m_bucket);
    bound += name;
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    CheckSeal(HMAC(EVP_sha256(), m_nameKey.Data(), static_cast<int>(m_nameKey.Size()), BytesOf(bound),
                   bound.size(), digest.data(), &size) != nullptr,
              "no HMAC");
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string key;
    for (const unsigned char byte : std::span(digest).first(size)) {
        key += kDigits[byte >> 4U];
        key += kDigits[byte & 15U];
    }
    return key;
}

std::string BucketSeal::Seal(const BucketValue& value) const {
    CheckSeal(value.name.size() <= kMostNameBytes, "a name of a value is too long");
    const std::string key = KeyOf(value.name);
    std::string text;
    text.reserve(11 + value.name.size() + value.text.size());
    AppendNumber(text, value.revision);
    text += value.removed ? '\0' : '\1';
    AppendNumber(text, static_cast<std::uint16_t>(value.name.size()));
    text += value.name;
    if (!value.removed)
        text += value.text;
    return m_sealer->Seal({.kind = SealedFor::Kind::Value, .place = m_bucket, .key = key}, text);
}

std::optional<BucketValue> BucketSeal::Open(std::string_view key, std::string_view sealed,
                                            bool* renew) const {
    const auto opened =
        m_sealer->Open({.kind = SealedFor::Kind::Value, .place = m_bucket, .key = key}, sealed);
    if (!opened)
        return std::nullopt;
    auto value = ReadBucketValue(opened->text);
    if (value && KeyOf(value->name) != key)
        return std::nullopt;
    if (renew != nullptr)
        *renew = opened->second;
    return value;
}

} // namespace host::cluster
