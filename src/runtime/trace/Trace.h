// Trace and assertions: one line of text for each failed check and each event, handed to the external log
// engine.
//
// Nothing here stops the program. Without a log engine nothing is written and everything runs the same. Any
// thread may report at any time, also inside its own critical sections; this layer takes no lock.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "platform/status.h"
#include "runtime/trace/Format.h"
#include "runtime/trace/FunctionName.h"
#include "runtime/trace/LogExpression.h"
#include "runtime/trace/StatusException.h"

// The place that a line comes from. All texts are static.
struct SLogSite {
    const char* szFunction; // qualified, as written: "CCam::Connect"
    const char* szFile;     // relative to the repository
    std::int32_t nLine;
};

#define LOG_SITE() (SLogSite{kFunctionName<CFunctionName(__PRETTY_FUNCTION__)>.szName, __FILE__, __LINE__})

// The channels of this system's lines.
inline constexpr char16_t kChannelAssertion[] = u"TRASSDO";
inline constexpr char16_t kChannelVerify[] = u"ATLVERIFY";
inline constexpr char16_t kChannelMobile[] = u"mobile"; // life of phone connections and viewing streams
inline constexpr char16_t kChannelFps[] = u"FPS";
inline constexpr char16_t kChannelMessage[] = u"message"; // progress of a frame transfer
inline constexpr char16_t kChannelError[] = u"error";

// No line that reaches the engine is longer than this, in UTF-16 code units.
inline constexpr std::size_t kLogLineLimit = 1024;

// Hands one line to the engine. A null channel passes even while the engine is not enabled, and is written as
// "DIRECT".
void LogWrite(const SLogSite& site, const char16_t* szChannel, const char16_t* szText);

// Formats a line (FormatWide says how), cut at kLogLineLimit, and writes it.
void LogFormatted(const SLogSite& site, const char16_t* szChannel, std::u16string_view format,
                  std::span<const CFormatArgument> arguments);

template <class... Arguments>
void LogPrintf(const SLogSite& site, const char16_t* szChannel, std::u16string_view format,
               const Arguments&... arguments) {
    const std::array<CFormatArgument, sizeof...(Arguments)> aArguments{CFormatArgument(arguments)...};
    LogFormatted(site, szChannel, format, aArguments);
}

// Composes the text of a failed condition and writes it on the channel "TRASSDO".
void LogFailedCondition(const SLogSite& site, CLogExpression& expression, const char* szCondition);

// Keeps the calling thread's last error over a scope.
class CKeepLastError {
public:
    CKeepLastError() noexcept : m_nError(platform::LastError()) {}
    CKeepLastError(const CKeepLastError&) = delete;
    CKeepLastError& operator=(const CKeepLastError&) = delete;
    ~CKeepLastError() { platform::SetLastError(m_nError); }

private:
    std::uint32_t m_nError;
};

// The name that the markers go to outside the failure branch, where a local object of this name takes its
// place.
inline constexpr CNoLogExpression logExpression{};

// Markers, for use inside the condition of TRASSDO. They print what they enclose: _ARE a status with its
// system message, _AR and _TR an integer.
#define _ARE(name) logExpression.Status(#name, (name))
#define _AR(name) logExpression.Value(#name, (name))
#define _TR(name) logExpression.Value(#name, (name))

// TRASSDO(condition, action): if the condition is false, reports its source text and then performs the action
// (a return, a break, a block, or nothing). The thread's last error is the same before and after the report.
// Success costs the condition alone. In the failure branch the condition is evaluated once more for the
// values of its markers, so it must have no side effect, and a marker must not stand where evaluation can
// stop short of it. The condition's blanks are part of the text that is printed.
#define TRASSDO(condition, ...)                                                                              \
    if (condition) [[likely]] {                                                                              \
    } else {                                                                                                 \
        {                                                                                                    \
            const CKeepLastError oKeepLastError;                                                             \
            CLogExpression logExpression;                                                                    \
            static_cast<void>(condition);                                                                    \
            LogFailedCondition(LOG_SITE(), logExpression, #condition "\n");                                  \
        }                                                                                                    \
        __VA_ARGS__;                                                                                         \
    }

// ATLVERIFY(expression): always evaluates it; if it is false its source text is written and the caller goes
// on.
#define ATLVERIFY(expression)                                                                                \
    do {                                                                                                     \
        if (!(expression)) [[unlikely]]                                                                      \
            LogPrintf(LOG_SITE(), kChannelVerify, u"%s", u"" #expression);                                   \
    } while (false)
