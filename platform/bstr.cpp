#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/text.h"

namespace {

// What stands before the content: four unused bytes, which keep the content aligned to 8, and the byte
// length.
struct Prefix {
    std::uint32_t unused;
    std::uint32_t byteLength;
};
static_assert(sizeof(Prefix) == 8);

constexpr std::size_t kMaxBytes = std::size_t{2} << 30;

const Prefix* PrefixOf(const char16_t* text) noexcept {
    return reinterpret_cast<const Prefix*>(text) - 1;
}

// A text of `count` bytes copied from `bytes`, or zero bytes where that is null. Behind an odd byte one zero
// fills up its unit, and the terminating unit follows, so that a reader of either kind finds its end.
BSTR Make(const void* bytes, std::size_t count) noexcept {
    if (count > kMaxBytes)
        return nullptr;
    const std::size_t padded = count + count % sizeof(char16_t);
    const std::size_t size = sizeof(Prefix) + padded + sizeof(char16_t);
    void* const block = bytes == nullptr ? std::calloc(1, size) : std::malloc(size);
    if (block == nullptr)
        return nullptr;
    auto* const prefix = new (block) Prefix{0, static_cast<std::uint32_t>(count)};
    char* const content = reinterpret_cast<char*>(prefix + 1);
    if (bytes != nullptr) {
        std::memcpy(content, bytes, count);
        std::memset(content + count, 0, padded - count + sizeof(char16_t));
    }
    return reinterpret_cast<BSTR>(content);
}

BSTR MakeOrThrow(const void* bytes, std::size_t count) {
    BSTR text = Make(bytes, count);
    if (text == nullptr)
        throw std::bad_alloc();
    return text;
}

} // namespace

BSTR SysAllocString(const char16_t* text) noexcept {
    return text == nullptr ? nullptr
                           : Make(text, std::char_traits<char16_t>::length(text) * sizeof(char16_t));
}

BSTR SysAllocStringLen(const char16_t* text, std::uint32_t units) noexcept {
    return Make(text, std::size_t{units} * sizeof(char16_t));
}

BSTR SysAllocStringByteLen(const void* bytes, std::uint32_t count) noexcept {
    return Make(bytes, count);
}

void SysFreeString(BSTR text) noexcept {
    if (text != nullptr)
        std::free(reinterpret_cast<Prefix*>(text) - 1);
}

std::uint32_t SysStringLen(const char16_t* text) noexcept {
    return SysStringByteLen(text) / static_cast<std::uint32_t>(sizeof(char16_t));
}

std::uint32_t SysStringByteLen(const char16_t* text) noexcept {
    return text == nullptr ? 0 : PrefixOf(text)->byteLength;
}

namespace platform {

Bstr::Bstr(std::u16string_view text)
    : m_text(MakeOrThrow(text.empty() ? u"" : text.data(), text.size() * sizeof(char16_t))) {}

Bstr::Bstr(const Bstr& other) : Bstr(CopyOf(other.m_text)) {}

Bstr Bstr::FromBytes(std::string_view bytes) {
    return Adopt(MakeOrThrow(bytes.empty() ? "" : bytes.data(), bytes.size()));
}

Bstr Bstr::CopyOf(const char16_t* bstr) {
    return bstr == nullptr ? Bstr() : Adopt(MakeOrThrow(bstr, SysStringByteLen(bstr)));
}

} // namespace platform
