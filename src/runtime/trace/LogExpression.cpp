#include "runtime/trace/LogExpression.h"

#include <span>
#include <string_view>

#include "platform/status.h"
#include "platform/text.h"
#include "runtime/trace/Format.h"
#include "runtime/trace/StatusException.h"

namespace {

// Replaces every occurrence from left to right; what was put in is not searched again.
void ReplaceAll(std::u16string& text, std::u16string_view what, std::u16string_view with) {
    for (std::size_t n = text.find(what); n != std::u16string::npos; n = text.find(what, n + with.size()))
        text.replace(n, what.size(), with);
}

} // namespace

std::optional<std::u16string> SystemErrorText(std::uint32_t nCode) {
    std::u16string_view text = platform::MessageText(nCode);
    // The last character stays, whatever it is.
    while (text.size() > 1 && (text.back() == u'\n' || text.back() == u'\r' || text.back() == u' '))
        text.remove_suffix(1);
    if (text.empty())
        return std::nullopt;
    return ThrowStatusWithoutMemory([&] { return std::u16string(text); });
}

std::u16string StatusText(HRESULT hr) {
    char16_t aNumber[16];
    const CFormatArgument aArguments[] = {hr};
    const std::size_t n = FormatWide(aNumber, u"0x%x", aArguments);
    return ThrowStatusWithoutMemory([&] {
        std::u16string text(aNumber, n);
        if (const auto message = SystemErrorText(static_cast<std::uint32_t>(hr)))
            text.append(u":'").append(*message).append(u"'");
        return text;
    });
}

void CLogExpression::Record(const char* szName, HRESULT hr) {
    ThrowStatusWithoutMemory([&] { m_oRecords[platform::ToWide(szName, platform::kCodePageAnsi)].hr = hr; });
}

void CLogExpression::Record(const char* szName, const SLogValue& value) {
    ThrowStatusWithoutMemory(
        [&] { m_oRecords[platform::ToWide(szName, platform::kCodePageAnsi)].text = value.text; });
}

std::u16string CLogExpression::Compose(const char* szCondition) {
    return ThrowStatusWithoutMemory([&] {
        if (m_oRecords.empty())
            return platform::ToWide(szCondition, platform::kCodePageAnsi);
        if (m_strText.empty()) {
            m_strText = platform::ToWide(szCondition, platform::kCodePageThread);
            for (const auto& [name, record] : m_oRecords) {
                const std::u16string value = name + u"(" + record.text + u")";
                ReplaceAll(m_strText, u"_AR(" + name + u")", value);
                ReplaceAll(m_strText, u"_TR(" + name + u")", value);
                ReplaceAll(m_strText, u"_ARE(" + name + u")", name + u"(" + StatusText(record.hr) + u")");
            }
        }
        return m_strText;
    });
}

void CMarkedValues::RecordIn(CLogExpression& expression) const {
    for (const SMark& mark : std::span(m_aMarks, m_nMarks)) {
        if (mark.eKind == EKind::Status)
            expression.Record(mark.szName, static_cast<HRESULT>(mark.nValue));
        else if (mark.eKind == EKind::Signed)
            expression.Record(mark.szName, SLogValue(mark.nValue));
        else
            expression.Record(mark.szName, SLogValue(static_cast<std::uint64_t>(mark.nValue)));
    }
}
