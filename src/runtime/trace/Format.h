// Formats wide text in the manner of printf, from arguments that know their type.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/text.h"

// One argument. The text of an argument must live until the formatting is done.
class CFormatArgument {
public:
    enum class Kind { Text, Integer, Real };

    CFormatArgument(std::u16string_view text) noexcept : m_eKind(Kind::Text), m_text(text) {}
    CFormatArgument(const char16_t* text) noexcept
        : CFormatArgument(text == nullptr ? std::u16string_view{} : std::u16string_view(text)) {}
    CFormatArgument(const platform::Bstr& text) noexcept : CFormatArgument(text.View()) {}
    CFormatArgument(std::integral auto value) noexcept
        : m_eKind(Kind::Integer), m_nBits(sizeof(value) * 8), m_nValue(static_cast<std::int64_t>(value)) {}
    CFormatArgument(double value) noexcept : m_eKind(Kind::Real), m_fValue(value) {}

    [[nodiscard]] Kind GetKind() const noexcept { return m_eKind; }
    [[nodiscard]] std::u16string_view Text() const noexcept { return m_text; }
    [[nodiscard]] std::int64_t Signed() const noexcept { return m_nValue; }
    // The bits of the argument's own type, and no sign extension.
    [[nodiscard]] std::uint64_t Unsigned() const noexcept {
        return m_nBits >= 64 ? static_cast<std::uint64_t>(m_nValue)
                             : static_cast<std::uint64_t>(m_nValue) & ((std::uint64_t{1} << m_nBits) - 1);
    }
    [[nodiscard]] double Real() const noexcept { return m_fValue; }

private:
    Kind m_eKind;
    unsigned m_nBits = 0;
    std::u16string_view m_text;
    std::int64_t m_nValue = 0;
    double m_fValue = 0;
};

// Formats into `buffer`, whose last unit is kept for the terminating zero, and returns the length. What does
// not fit is cut. Conversions: %s wide text, %d decimal, %u unsigned, %x and %X hexadecimal, %f six decimals,
// %% a percent sign. A conversion without a fitting argument stays in the text as it is written.
std::size_t FormatWide(std::span<char16_t> buffer, std::u16string_view format,
                       std::span<const CFormatArgument> arguments) noexcept;
