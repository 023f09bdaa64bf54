#include "runtime/trace/Trace.h"

#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "support/RecordingLog.h"

namespace {

using support::Lines;
using support::RecordingLog;

TEST(Compose, ReplacesMarkersThatHaveARecord) {
    using E = CLogExpression;
    struct Row {
        void (*record)(E&);
        const char* condition;
        const char* expected;
    };
    const Row rows[] = {
        {[](E& e) { e.Record("hr", E_ACCESSDENIED); }, "SUCCEEDED(_ARE(hr))\n",
         "SUCCEEDED(hr(0x80070005:'Access is denied.'))\n"},
        {[](E& e) { e.Record("hr", MakeStatus(0x8123ABCD)); }, "_ARE(hr)", "hr(0x8123abcd)"}, // no message
        {[](E& e) { e.Record("n", SLogValue(std::uint8_t{255})); }, "_AR(n)+_TR(n)+_AR(n)\n",
         "n(255)+n(255)+n(255)\n"},
        {[](E& e) { e.Record("m", SLogValue(1)); }, "ppCam _AR(n) _ARE(n)\n", "ppCam _AR(n) _ARE(n)\n"},
        {[](E&) {}, "_AR(n) 100%s\n", "_AR(n) 100%s\n"},
        {[](E& e) { e.Record("n", SLogValue(7)); }, "_ARE(n) _AR(n)",
         "n(0x0:'The operation completed successfully.') n(7)"},
        // The first text that had records stays.
        {[](E& e) {
             (void)e.Compose("first");
             e.Record("n", SLogValue(1));
             (void)e.Compose("_AR(n)");
             e.Record("n", SLogValue(2));
         },
         "another", "n(1)"},
    };
    for (const Row& row : rows) {
        CLogExpression expression;
        row.record(expression);
        EXPECT_EQ(row.expected, platform::ToUtf8(expression.Compose(row.condition)));
    }
}

// Signatures as both compilers write them.
TEST(Site, NamesTheFunctionAsWritten) {
#define NAME(signature) kFunctionName<CFunctionName(signature)>.szName
    const std::pair<const char*, const char*> rows[] = {
        {NAME("virtual HRESULT CCam::Connect(ICamSink*)"), "CCam::Connect"},
        {NAME("virtual HRESULT CCam::Connect(ICamSink *)"), "CCam::Connect"},
        {NAME("CCam::Connect(ICamSink*)::<lambda(auto:1)> [with auto:1 = int]"), "CCam::Connect"},
        {NAME("auto CCam::Connect(ICamSink *)::(anonymous class)::operator()() const"), "CCam::Connect"},
        {NAME("int main()"), "main"},
        {NAME("std::map<int, S<8> >& N::{anonymous}::S<T>::Of(F<void(int)>&) const"), "N::S::Of"},
        {NAME("static const F<void (int)> &N::(anonymous namespace)::S<int>::Of(T) [T = int]"), "N::S::Of"},
        {NAME("decltype(auto) N::operator_::~operator_()"), "N::operator_::~operator_"},
        {NAME("S::operator const char*() const"), "S::operator const char*"},
        {NAME("const char *S::operator const char *() const"), "S::operator const char*"},
        {NAME("S::operator std::vector<int>() const"), "S::operator std::vector"},
        {NAME("HRESULT CCam::operator>>(IConfigElement*)"), "CCam::operator >>"},
        {NAME("HRESULT CCam::operator<<(IConfigElement *)"), "CCam::operator <<"},
        {NAME("S& {anonymous}::S::operator()(int)"), "S::operator()"},
        {NAME("int S::operator[](int)"), "S::operator[]"},
        {NAME("void (* N::S::Callback(int))(char)"), "N::S::Callback"},
        {NAME("void (*N::S::Callback(int))(char)"), "N::S::Callback"},
        {NAME("int (N::S::* Member())(int)"), "Member"},
    };
    for (const auto& [name, expected] : rows)
        EXPECT_STREQ(expected, name);
    const auto here = [] { return LOG_SITE().szFunction; };
    EXPECT_STREQ("Site_NamesTheFunctionAsWritten_Test::TestBody", here());
}

// What every failed check leaves to its action.
constexpr std::uint32_t kLastError = 10054;

constexpr int kLineOfCheck = __LINE__ + 4;
HRESULT CheckStatus(HRESULT hr) {
    LOG_AS("CClass::Operation");
    platform::SetLastError(kLastError);
    TRASSDO(SUCCEEDED(_ARE(hr)), return platform::LastError() == kLastError ? hr : E_UNEXPECTED);
    return S_OK;
}

TEST(Assertion, ReportsOnceWhatItEvaluatedOnce) {
    auto& log = RecordingLog::Fresh();
    EXPECT_EQ(E_ACCESSDENIED, CheckStatus(E_ACCESSDENIED));
    EXPECT_EQ(S_OK, CheckStatus(S_FALSE));
    const auto lines = log.Lines();
    ASSERT_EQ(1U, lines.size());
    EXPECT_EQ("CClass::Operation", lines[0].function);
    EXPECT_TRUE(lines[0].file.ends_with("tests/runtime/TraceTest.cpp")) << lines[0].file;
    EXPECT_EQ(kLineOfCheck, lines[0].line);

    std::int64_t n = -1;
    std::uint64_t most = ~std::uint64_t{0};
    TRASSDO(++n==0, ADD_FAILURE());
    TRASSDO(n!=0 || _AR(++n)==0 || _TR(most)==0, {});
    TRASSDO(n!=1 && _AR(n)==0, {});
    for (int i = 0; i < 3; ++i)
        TRASSDO(i!=1, n += 10; break);
    EXPECT_EQ(11, n);
    ATLVERIFY(++n == 12);
    ATLVERIFY(n++ == 0);
    EXPECT_EQ(13, n);
    EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: SUCCEEDED(hr(0x80070005:'Access is denied.'))\n",
                                  "TRASSDO: n!=0 || ++n(1)==0 || most(18446744073709551615)==0\n",
                                  "TRASSDO: n!=1 && _AR(n)==0\n", "TRASSDO: i!=1\n", "ATLVERIFY: n++ == 0"}));
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
    LogPrintf(LOG_SITE(), kChannelFps, u"%f", std::numeric_limits<double>::lowest());
    for (const std::size_t size : {127, 128, 2000})
        LogPrintf(LOG_SITE(), kChannelMobile, u"%s", std::u16string(size, u'x'));
    std::thread([] {
        ASSERT_TRUE(platform::SetThreadCodePage(1251));
        LogWrite(LOG_SITE(), kChannelMobile, u"\u0416\u4E00");
    }).join();
    log.Enable(false);
    LogWrite(LOG_SITE(), kChannelMobile, u"dropped");
    LogWrite(LOG_SITE(), nullptr, u"kept");
    EXPECT_EQ(log.Texts(),
              (Lines{"mobile: connection of Hof ä rejected: 0x80070005, (no)\n",
                     "FPS: cam Hof ä fps: 4.000000\n", "message: -9223372036854775808 255 ffff %  %d",
                     "message: one %d %", "FPS: " + std::to_string(std::numeric_limits<double>::lowest()),
                     "mobile: " + std::string(127, 'x'), "mobile: " + std::string(128, 'x'),
                     "mobile: " + std::string(1024, 'x'), "mobile: \xC6?", "DIRECT: kept"}));
}

// A process of its own that starts without an engine, since the first engine that is found stays.
void RunWithoutAnEngine() {
    static RecordingLog* log = nullptr;
    // Registered first, and so run last: behind the layer's own action at the end.
    std::atexit([] { std::_Exit(log != nullptr && log->AttachCalls() == "+-" ? 0 : 3); });
    LogPrintf(LOG_SITE(), kChannelMobile, u"into the void\n");
    if (CheckStatus(E_FAIL) != E_FAIL)
        std::_Exit(1);
    platform::RegisterLibrary(kLogEngineLibrary, {}); // a library without the export
    if (CheckStatus(E_FAIL) != E_FAIL)
        std::_Exit(2);

    log = &RecordingLog::Fresh();
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] { LogPrintf(LOG_SITE(), kChannelMobile, u"found\n"); });
    threads.clear();
    if (log->Lines().size() != 8 || log->AttachCalls() != "+")
        std::_Exit(4);
    std::exit(5);
}

TEST(EngineDeathTest, IsLookedForAtEachLineAttachedOnceAndDetachedAtTheEnd) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RunWithoutAnEngine(), testing::ExitedWithCode(0), "");
}

TEST(StatusException, BecomesTheStatusOfTheOperation) {
    platform::SetLastError(platform::kErrorAccessDenied);
    EXPECT_EQ(E_ACCESSDENIED, StatusOf([]() -> HRESULT { AtlThrowLastError(); }));
    platform::SetLastError(0x80004005U);
    EXPECT_EQ(E_FAIL, StatusOf([]() -> HRESULT { AtlThrowLastError(); }));
    EXPECT_EQ(E_OUTOFMEMORY, StatusOf([]() -> HRESULT { throw std::bad_alloc(); }));
    EXPECT_EQ(E_UNEXPECTED, StatusOf([]() -> HRESULT { throw std::runtime_error("any other"); }));
    EXPECT_EQ(E_OUTOFMEMORY, StatusOf([]() -> HRESULT {
                  ThrowStatusWithoutMemory([] { throw std::bad_alloc(); });
                  return S_OK;
              }));
}

} // namespace
