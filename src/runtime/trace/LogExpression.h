// Makes the line of an assertion: the text of its condition with the values that took part in it.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <type_traits>

#include "platform/status.h"

// The system's English message for a status or an error code, without its line end; nothing if there is none.
std::optional<std::u16string> SystemErrorText(std::uint32_t nCode);

// "0x80004005:'Unspecified error'", or the number alone when the system has no message for it.
std::u16string StatusText(HRESULT hr);

// A plain value, in decimal.
struct SLogValue {
    std::u16string text;

    explicit SLogValue(std::integral auto value) : SLogValue(std::to_string(value)) {}

private:
    explicit SLogValue(const std::string& digits) : text(digits.begin(), digits.end()) {}
};

// The values recorded for one assertion. Lives on the stack of the failure branch; one thread.
// Out of memory is a status exception with E_OUTOFMEMORY.
class CLogExpression {
public:
    // A second record under the same name changes the first: the status keeps a value's text and the other
    // way round.
    void Record(const char* szName, HRESULT hr);
    void Record(const char* szName, const SLogValue& value);

    // The condition with every marker replaced whose name has a record: _AR(x) and _TR(x) become x(value),
    // _ARE(x) becomes x(status text). The first composition that has records is kept and given again.
    std::u16string Compose(const char* szCondition);

private:
    struct SRecord {
        std::u16string text;
        HRESULT hr = S_OK;
    };
    std::map<std::u16string, SRecord> m_oRecords;
    std::u16string m_strText;
};

// Keeps the values of a condition's markers while it is evaluated. They are rendered only if the check fails.
// There is room for four; further markers print as they are written.
class CMarkedValues {
public:
    constexpr HRESULT Status(const char* szName, HRESULT hr) noexcept {
        Keep({szName, hr, EKind::Status});
        return hr;
    }
    template <std::integral T>
    constexpr T Value(const char* szName, T value) noexcept {
        constexpr EKind kKind = std::is_signed_v<T> ? EKind::Signed : EKind::Unsigned;
        Keep({szName, static_cast<std::int64_t>(value), kKind});
        return value;
    }

    void RecordIn(CLogExpression& expression) const;

private:
    enum class EKind { Status, Signed, Unsigned };
    struct SMark {
        const char* szName;
        std::int64_t nValue;
        EKind eKind;
    };
    constexpr void Keep(const SMark& mark) noexcept {
        if (m_nMarks < std::size(m_aMarks))
            m_aMarks[m_nMarks++] = mark;
    }

    SMark m_aMarks[4]; // the first m_nMarks of them
    std::size_t m_nMarks = 0;
};
