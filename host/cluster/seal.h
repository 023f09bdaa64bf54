// What hosts of a cluster tell each other passes through a message engine that other programs may use as
// well. So each of it is sealed: who has not got the cluster's secret reads nothing, and can make nothing
// that a host takes, nor have a host take something at another place, for another question or a second time.
//
// A sealed text, numbers in the order of the network:
//
//   bytes   what
//   1       1, the version of this form
//   4       which secret: the first bytes of what is derived of it for that purpose
//   16      the start of the host that sealed it: random bytes, new ones each time that it starts
//   8       how many texts this start has sealed; from 1
//   1, n    the host's name, 1 to 64 bytes
//   m       the text, encrypted
//   16      the tag
//
// AES-256-GCM (NIST SP 800-38D). The key is derived of the secret by HKDF-SHA256 (RFC 5869) for a host and a
// start, the nonce is the count, so no nonce is used twice with a key. What stands before the encrypted text
// and what the text belongs to (SealedFor) are its associated data.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace host::cluster {

// Numbers in the order of the network.
template <class Number>
void AppendNumber(std::string& bytes, Number number) {
    for (std::size_t i = sizeof number; i-- > 0;)
        bytes += static_cast<char>(number >> (8 * i) & 0xff);
}

// False where there are not as many bytes.
template <class Number>
bool TakeNumber(std::string_view& bytes, Number& number) noexcept {
    if (bytes.size() < sizeof number)
        return false;
    number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i)
        number = static_cast<Number>(number << 8 | static_cast<unsigned char>(bytes[i]));
    bytes.remove_prefix(sizeof number);
    return true;
}

// What is wrong with a secret, or with the library that computes, in a line for a person.
class SealError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Bytes that are overwritten before their memory is given back.
class Secret {
public:
    Secret() = default;
    explicit Secret(std::string_view bytes) : m_bytes(bytes.begin(), bytes.end()) {}
    Secret(Secret&& other) noexcept : m_bytes(std::move(other.m_bytes)) {}
    Secret& operator=(Secret&& other) noexcept;
    ~Secret();

    [[nodiscard]] bool IsEmpty() const noexcept { return m_bytes.empty(); }
    [[nodiscard]] const unsigned char* Data() const noexcept { return m_bytes.data(); }
    [[nodiscard]] std::size_t Size() const noexcept { return m_bytes.size(); }

private:
    std::vector<unsigned char> m_bytes;
};

// The secrets of a cluster: one that seals, and while it is changed another one that still opens, or opens
// already. To change it: the new one as the second line of every host's file, then as the first, then alone.
struct Secrets {
    static constexpr std::size_t kLeastBytes = 32;

    // Of a file with one or two lines of 32 bytes or more; blank ones and those that begin with # do not
    // count. Throws SealError. The text is the caller's to wipe.
    static Secrets Of(std::string_view file);

    Secret first;
    Secret second; // empty: there is none
};

// Names a sealed text among all of its secret: no two have the same.
struct SealId {
    std::array<unsigned char, 16> start{};
    std::uint64_t count = 0;

    [[nodiscard]] std::string Bytes() const; // 24
    friend auto operator<=>(const SealId&, const SealId&) = default;
};

// What a sealed text belongs to; it opens for the same alone.
struct SealedFor {
    enum class Kind : std::uint8_t { Value = 1, Request, Answer, Announcement };

    Kind kind = Kind::Announcement;
    std::string_view place{}; // the bucket of a value, the subject of the others
    std::string_view key{};   // of a value, in its bucket
    std::uint64_t epoch = 0;  // of a camera's owner, where a picture of that is meant
    std::string_view nonce{}; // of an answer: SealId::Bytes() of its request
};

struct Opened {
    std::string text;
    std::string node; // that sealed it
    SealId id;
    bool second = false; // with the secret that is not the one to seal with
};

// Seals as one start of a host, and opens what any host of the cluster has sealed. Thread-safe.
class Sealer {
public:
    static constexpr std::size_t kMostNodeBytes = 64;
    // What sealing adds to a text of a host with a name of that length.
    static constexpr std::size_t Overhead(std::size_t nodeBytes) noexcept { return 46 + nodeBytes; }

    // Throws SealError.
    Sealer(Secrets secrets, std::string node);
    Sealer(const Sealer&) = delete;
    Sealer& operator=(const Sealer&) = delete;
    ~Sealer();

    [[nodiscard]] const std::string& Node() const noexcept { return m_node; }
    // Of the first text that it seals; its start is that of all.
    [[nodiscard]] const std::array<unsigned char, 16>& Start() const noexcept { return m_start; }

    // Throws SealError when the library fails. `id` may be null.
    [[nodiscard]] std::string Seal(const SealedFor& place, std::string_view text, SealId* id = nullptr) const;
    // Nothing for what no host of this cluster has sealed for that place.
    [[nodiscard]] std::optional<Opened> Open(const SealedFor& place, std::string_view sealed) const;

private:
    struct Key;
    using KeyPtr = std::shared_ptr<const Key>;
    struct KeyName {
        bool second = false;
        std::array<unsigned char, 16> start{};
        std::string node;
        // NOLINTNEXTLINE(modernize-use-nullptr)
        friend auto operator<=>(const KeyName&, const KeyName&) = default;
    };
    [[nodiscard]] KeyPtr KeyFor(const KeyName& name) const;

    const Secrets m_secrets;
    const std::string m_node;
    std::array<unsigned char, 16> m_start{};
    std::array<std::array<unsigned char, 4>, 2> m_marks{}; // of the secrets
    KeyPtr m_own;
    mutable std::mutex m_mutex; // the members below
    mutable std::uint64_t m_count = 0;
    mutable std::map<KeyName, KeyPtr> m_keys; // that have opened something
};

// Which messages of other hosts are new. A message may be overtaken by some later ones, and counts once; one
// of a former start of its host does not count at all. Belongs to one thread.
class Freshness {
public:
    // The start that holds for a host, from a value of the cluster; what it said before is void.
    void SetStart(const std::string& node, const std::array<unsigned char, 16>& start);
    void Forget(const std::string& node) { m_nodes.erase(node); }
    [[nodiscard]] bool Take(const Opened& message);

private:
    struct Seen {
        std::array<unsigned char, 16> start{};
        std::uint64_t newest = 0;
        std::uint64_t before = 0; // a bit for each of the 64 counts up to `newest`
    };
    std::map<std::string, Seen, std::less<>> m_nodes;
};

// A value of a bucket as it is sealed: its name, since its key is the name's HMAC, and its revision, by which
// one that was there before cannot be put again.
struct BucketValue {
    std::uint64_t revision = 0; // above all that its host had seen in the bucket
    bool removed = false;       // in place of an entry that was taken away
    std::string name;
    std::string text;
};

class BucketSeal {
public:
    static constexpr std::size_t kMostNameBytes = 1024;

    // `nameKey` is the cluster's, and stays when the secret is changed.
    BucketSeal(std::shared_ptr<const Sealer> sealer, std::string bucket, Secret nameKey);

    // 64 hexadecimal digits.
    [[nodiscard]] std::string KeyOf(std::string_view name) const;
    [[nodiscard]] std::string Seal(const BucketValue& value) const;
    // Nothing for what is not sealed for that key. `renew` may be null: whether it is sealed with a secret
    // that is about to go.
    [[nodiscard]] std::optional<BucketValue> Open(std::string_view key, std::string_view sealed,
                                                  bool* renew = nullptr) const;

private:
    const std::shared_ptr<const Sealer> m_sealer;
    const std::string m_bucket;
    const Secret m_nameKey;
};

} // namespace host::cluster
