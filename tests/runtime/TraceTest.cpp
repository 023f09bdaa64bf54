#include "runtime/trace/Trace.h"

#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/library.h"
#include "platform/text.h"
#include "support/RecordingLog.h"

namespace {

using support::Lines;
using support::RecordingLog;

std::string Narrow(std::u16string_view text) {
    return platform::ToUtf8(text);
}

constexpr int kLineOfCheck = __LINE__ + 2;
HRESULT CheckStatus(HRESULT hr) {
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    return S_OK;
}

TEST(Compose, ReplacesMarkersThatHaveARecord) {
    struct Row {
        const char* name;
        void (*record)(CLogExpression&);
        const char* condition;
        const char* expected;
    };
    const Row rows[] = {
        {"status", [](CLogExpression& e) { e.Record("hr", E_ACCESSDENIED); }, "SUCCEEDED(_ARE(hr))\n",
         "SUCCEEDED(hr(0x80070005:'Access is denied.'))\n"},
        {"unknown status", [](CLogExpression& e) { e.Record("hr", MakeStatus(0x8123ABCD)); },
         "SUCCEEDED(_ARE(hr))\n", "SUCCEEDED(hr(0x8123abcd))\n"},
        {"value", [](CLogExpression& e) { e.Record("n", SLogValue(std::uint8_t{5})); }, "4 & _AR(n)\n",
         "4 & n(5)\n"},
        {"both value markers, twice", [](CLogExpression& e) { e.Record("n", SLogValue(std::uint8_t{255})); },
         "_AR(n)+_TR(n)+_AR(n)\n", "n(255)+n(255)+n(255)\n"},
        {"no marker", [](CLogExpression& e) { e.Record("n", SLogValue(1)); }, "ppCam\n", "ppCam\n"},
        {"no record for the marker", [](CLogExpression& e) { e.Record("m", SLogValue(1)); },
         "_AR(n) _ARE(n)\n", "_AR(n) _ARE(n)\n"},
        {"no record at all", [](CLogExpression&) {}, "_AR(n) 100%s\n", "_AR(n) 100%s\n"},
        {"a value's name under a status marker", [](CLogExpression& e) { e.Record("n", SLogValue(7)); },
         "_ARE(n) _AR(n)", "n(0x0:'The operation completed successfully.') n(7)"},
    };
    for (const Row& row : rows) {
        CLogExpression expression;
        row.record(expression);
        EXPECT_EQ(row.expected, Narrow(expression.Compose(row.condition))) << row.name;
    }
}

TEST(Compose, KeepsTheFirstTextThatHadRecords) {
    CLogExpression expression;
    EXPECT_EQ("first", Narrow(expression.Compose("first"))); // without records nothing is kept
    expression.Record("n", SLogValue(1));
    EXPECT_EQ("n(1)", Narrow(expression.Compose("_AR(n)")));
    expression.Record("n", SLogValue(2));
    EXPECT_EQ("n(1)", Narrow(expression.Compose("another")));
}

TEST(Assertion, ReportsConditionSiteAndChannel) {
    auto& log = RecordingLog::Fresh();
    EXPECT_EQ(E_ACCESSDENIED, CheckStatus(E_ACCESSDENIED));
    EXPECT_EQ(S_OK, CheckStatus(S_OK));
    const auto lines = log.Lines();
    ASSERT_EQ(1U, lines.size());
    EXPECT_EQ("TRASSDO", lines[0].channel);
    EXPECT_EQ("SUCCEEDED(hr(0x80070005:'Access is denied.'))\n", lines[0].text);
    EXPECT_EQ("{anonymous}::CheckStatus", lines[0].function);
    EXPECT_EQ("tests/runtime/TraceTest.cpp", lines[0].file);
    EXPECT_EQ(kLineOfCheck, lines[0].line);
}

struct Sample {
    virtual ~Sample() = default;
    virtual const char* Overridden(const std::vector<std::pair<int, int>>&) const noexcept {
        return LOG_SITE().szFunction;
    }
    template <class T>
    static std::string OfTemplate(T) {
        return [] { return LOG_SITE().szFunction; }();
    }
    const char* operator()(int) { return LOG_SITE().szFunction; }
};

TEST(Site, NamesTheFunctionAsWritten) {
    EXPECT_STREQ("{anonymous}::Sample::Overridden", Sample().Overridden({}));
    EXPECT_STREQ("{anonymous}::Sample::operator()", Sample()(1));
    EXPECT_EQ("{anonymous}::Sample::OfTemplate", Sample::OfTemplate(1));
}

TEST(Assertion, EvaluatesOnceOnSuccessAndRunsTheActionOnFailureOnly) {
    auto& log = RecordingLog::Fresh();
    int evaluated = 0;
    const auto check = [&](bool value) {
        ++evaluated;
        return value;
    };
    int actions = 0;
    TRASSDO(check(true), ++actions);
    EXPECT_EQ(1, evaluated);
    EXPECT_EQ(0, actions);
    for (int i = 0; i < 3; ++i) {
        TRASSDO(i!=1, break);
        ++actions;
    }
    EXPECT_EQ(1, actions);
    TRASSDO(check(false), {});
    EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: i!=1\n", "TRASSDO: check(false)\n"}));
}

TEST(Assertion, KeepsTheLastError) {
    RecordingLog::Fresh();
    platform::SetLastError(platform::kSocketConnectionReset);
    std::uint32_t seen = 0;
    TRASSDO(seen==1, seen = platform::LastError());
    EXPECT_EQ(platform::kSocketConnectionReset, seen);
}

TEST(Verify, WritesTheExpressionWithoutALineEnd) {
    auto& log = RecordingLog::Fresh();
    std::vector<int> keys;
    ATLVERIFY(1 == keys.size());
    ATLVERIFY(0 == keys.size());
    EXPECT_EQ(log.Texts(), (Lines{"ATLVERIFY: 1 == keys.size()"}));
}

TEST(Line, IsFormattedFromTypedArguments) {
    auto& log = RecordingLog::Fresh();
    const platform::Bstr name(u"Hof \u00E4");
    LogPrintf(LOG_SITE(), kChannelMobile, u"connection of %s rejected: 0x%X, (%s)\n", name, E_ACCESSDENIED,
              u"no");
    LogPrintf(LOG_SITE(), kChannelFps, u"cam %s fps: %f\n", name, 4.0);
    LogPrintf(LOG_SITE(), kChannelMessage, u"%d %u %x %% %s %d", std::numeric_limits<std::int64_t>::min(),
              std::uint8_t{255}, std::int16_t{-1}, static_cast<const char16_t*>(nullptr), u"not a number");
    LogPrintf(LOG_SITE(), kChannelMessage, u"%s %d %", u"one");
    EXPECT_EQ(log.Texts(), (Lines{"mobile: connection of Hof ä rejected: 0x80070005, (no)\n",
                                  "FPS: cam Hof ä fps: 4.000000\n",
                                  "message: -9223372036854775808 255 ffff %  %d", "message: one %d %"}));
}

TEST(Line, IsCutAt1024) {
    auto& log = RecordingLog::Fresh();
    LogPrintf(LOG_SITE(), kChannelMobile, u"%s", std::u16string(2000, u'x'));
    LogPrintf(LOG_SITE(), kChannelMobile, u"%d%f", 1, 1e300);
    const auto lines = log.Lines();
    EXPECT_EQ(std::string(1024, 'x'), lines.at(0).text);
    EXPECT_EQ(1 + 301 + 7U, lines.at(1).text.size());
}

TEST(Line, PassesADisabledEngineOnTheNullChannelAlone) {
    auto& log = RecordingLog::Fresh();
    log.Enable(false);
    LogWrite(LOG_SITE(), kChannelMobile, u"dropped");
    LogWrite(LOG_SITE(), nullptr, u"kept");
    EXPECT_EQ(log.Texts(), (Lines{"DIRECT: kept"}));
}

TEST(Line, TakesTheThreadsCodePage) {
    auto& log = RecordingLog::Fresh();
    std::thread([] {
        ASSERT_TRUE(platform::SetThreadCodePage(1251));
        LogWrite(LOG_SITE(), kChannelMobile, u"\u0416\u4E00");
    }).join();
    EXPECT_EQ(log.Texts(), (Lines{"mobile: \xC6?"}));
}

// A process of its own that starts without an engine, since the first engine that is found stays.
void RunWithoutAnEngine() {
    LogPrintf(LOG_SITE(), kChannelMobile, u"into the void\n");
    if (CheckStatus(E_FAIL) != E_FAIL)
        std::_Exit(1);
    platform::RegisterLibrary(kLogEngineLibrary, {}); // a library without the export
    LogPrintf(LOG_SITE(), kChannelMobile, u"into the void\n");

    auto& log = RecordingLog::Fresh();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] { LogPrintf(LOG_SITE(), kChannelMobile, u"found\n"); });
    for (auto& thread : threads)
        thread.join();
    if (log.Lines().size() != 8 || log.AttachCalls() != "+")
        std::_Exit(2);
    std::atexit([] {}); // runs before the layer's own action
    std::exit(0);
}

TEST(EngineDeathTest, IsLookedForAgainAtEachLineAndAttachedOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RunWithoutAnEngine(), testing::ExitedWithCode(0), "");
}

// What is registered first runs last, so this sees the layer's own exit action.
void ExitWithAnEngine() {
    static RecordingLog* log = nullptr;
    std::atexit([] { std::_Exit(log->AttachCalls() == "+-" ? 0 : 3); });
    log = &RecordingLog::Fresh();
    LogPrintf(LOG_SITE(), kChannelMobile, u"found\n");
    std::exit(1);
}

TEST(EngineDeathTest, IsDetachedWhenTheProcessEnds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(ExitWithAnEngine(), testing::ExitedWithCode(0), "");
}

TEST(StatusException, BecomesTheStatusOfTheOperation) {
    platform::SetLastError(platform::kErrorAccessDenied);
    EXPECT_EQ(E_ACCESSDENIED, StatusOf([]() -> HRESULT { AtlThrowLastError(); }));
    platform::SetLastError(0x80004005U);
    EXPECT_EQ(E_FAIL, StatusOf([]() -> HRESULT { AtlThrowLastError(); }));
    EXPECT_EQ(E_OUTOFMEMORY, StatusOf([]() -> HRESULT { throw std::bad_alloc(); }));
    EXPECT_EQ(E_OUTOFMEMORY, StatusOf([]() -> HRESULT {
                  ThrowStatusWithoutMemory([] { throw std::bad_alloc(); });
                  return S_OK;
              }));
}

} // namespace
