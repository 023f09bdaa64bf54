// Trace and assertions. Each failed check and each event gives one line of text to the external log engine.
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

#define LOG_SITE()                                                                                           \
    (SLogSite{LoggedName(kLoggedFunction, kFunctionName<CFunctionName(__PRETTY_FUNCTION__)>.szName),         \
              __FILE__, __LINE__})

// For the first line of a function that does a part of an operation: it then reports under the operation's
// name.
#define LOG_AS(name) [[maybe_unused]] static constexpr const char* kLoggedFunction = name

// Everywhere else a function reports under its own name.
inline constexpr const char* kLoggedFunction = nullptr;
constexpr const char* LoggedName(const char* szOperation, const char* szFunction) noexcept {
    return szOperation != nullptr ? szOperation : szFunction;
}

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

// Composes the text of a failed condition and writes it on the channel "TRASSDO". The thread's last error is
// the same before and after.
void LogFailedCondition(const SLogSite& site, const CMarkedValues& oMarked, const char* szCondition);

// Markers, for use inside the condition of TRASSDO. They print what they enclose, with the value that it had
// when the condition was evaluated: _ARE a status with its system message, _AR and _TR an integer. A marker
// that the evaluation stopped short of prints as it is written.
#define _ARE(name) oMarkedValues.Status(#name, (name))
#define _AR(name) oMarkedValues.Value(#name, (name))
#define _TR(name) oMarkedValues.Value(#name, (name))

// TRASSDO(condition, action): evaluates the condition once; if it is false, reports its source text and then
// performs the action (a return, a break, a block, or nothing), which sees the last error that the condition
// left. The condition's blanks are part of the text that is printed.
#define TRASSDO(condition, ...)                                                                              \
    if (CMarkedValues oMarkedValues; condition) [[likely]] {                                                 \
    } else {                                                                                                 \
        LogFailedCondition(LOG_SITE(), oMarkedValues, #condition "\n");                                      \
        __VA_ARGS__;                                                                                         \
    }

// ATLVERIFY(expression): always evaluates it; if it is false its source text is written and the caller goes
// on.
#define ATLVERIFY(expression)                                                                                \
    do {                                                                                                     \
        if (!(expression)) [[unlikely]]                                                                      \
            LogPrintf(LOG_SITE(), kChannelVerify, u"%s", u"" #expression);                                   \
    } while (false)
