#include "runtime/trace/Format.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace {

// Appends up to a limit and forgets the rest.
class CBoundedText {
public:
    explicit CBoundedText(std::span<char16_t> buffer) noexcept
        : m_buffer(buffer), m_nLimit(buffer.empty() ? 0 : buffer.size() - 1) {}

    void Append(std::u16string_view text) noexcept {
        const std::size_t n = std::min(text.size(), m_nLimit - m_nLength);
        std::copy_n(text.data(), n, m_buffer.data() + m_nLength);
        m_nLength += n;
    }
    void AppendAscii(std::string_view text) noexcept {
        for (const char c : text) {
            const auto unit = static_cast<char16_t>(static_cast<unsigned char>(c));
            Append({&unit, 1});
        }
    }
    std::size_t Finish() noexcept {
        if (!m_buffer.empty())
            m_buffer[m_nLength] = u'\0';
        return m_nLength;
    }

private:
    std::span<char16_t> m_buffer;
    std::size_t m_nLimit;
    std::size_t m_nLength = 0;
};

// The longest number: a double of 309 digits with six decimals.
constexpr std::size_t kLongestNumber = 330;

// Renders one argument; false if it does not fit the conversion.
bool AppendArgument(CBoundedText& out, char16_t conversion, const CFormatArgument& argument) noexcept {
    using Kind = CFormatArgument::Kind;
    char digits[kLongestNumber];
    std::to_chars_result end{digits, std::errc{}};
    switch (conversion) {
    case u's':
        if (argument.GetKind() != Kind::Text)
            return false;
        out.Append(argument.Text());
        return true;
    case u'd':
    case u'u':
    case u'x':
    case u'X':
        if (argument.GetKind() != Kind::Integer)
            return false;
        if (conversion == u'd')
            end = std::to_chars(digits, digits + sizeof digits, argument.Signed());
        else
            end = std::to_chars(digits, digits + sizeof digits, argument.Unsigned(),
                                conversion == u'u' ? 10 : 16);
        if (conversion == u'X') {
            std::transform(digits, end.ptr, digits,
                           [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
        }
        break;
    case u'f':
        if (argument.GetKind() != Kind::Real)
            return false;
        end = std::to_chars(digits, digits + sizeof digits, argument.Real(), std::chars_format::fixed, 6);
        break;
    default:
        return false;
    }
    out.AppendAscii({digits, static_cast<std::size_t>(end.ptr - digits)});
    return true;
}

} // namespace

std::size_t FormatWide(std::span<char16_t> buffer, std::u16string_view format,
                       std::span<const CFormatArgument> arguments) noexcept {
    CBoundedText out(buffer);
    std::size_t nNext = 0;
    while (!format.empty()) {
        const std::size_t nPercent = format.find(u'%');
        out.Append(format.substr(0, nPercent));
        if (nPercent == std::u16string_view::npos)
            break;
        format.remove_prefix(nPercent);
        if (format.size() >= 2 && format[1] == u'%') {
            out.Append(u"%");
        } else if (format.size() >= 2 && nNext < arguments.size() &&
                   AppendArgument(out, format[1], arguments[nNext])) {
            ++nNext;
        } else {
            out.Append(format.substr(0, 2));
        }
        format.remove_prefix(std::min<std::size_t>(2, format.size()));
    }
    return out.Finish();
}
