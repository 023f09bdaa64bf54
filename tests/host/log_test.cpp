// Lines of the log: what is held back, and what a name may do to a line.

#include <gtest/gtest.h>

#include <vector>

#include "host/log/line_limiter.h"
#include "platform/text.h"

namespace host {
namespace {

using namespace std::chrono_literals;

TEST(LineLimiter, TellsEqualLinesOnceASecondAndLosesNone) {
    std::vector<std::string> lines;
    LineLimiter limiter(
        [&](const std::string& channel, const std::string& text) { lines.push_back(channel + ": " + text); });
    const auto t = LineLimiter::Clock::now();
    for (int i = 0; i < 117'001; ++i)
        limiter.Add("a", "x", "rubbish", t + i * 5us);
    limiter.Add("b", "x", "other", t + 600ms);
    limiter.Tick(t + 999ms);
    EXPECT_EQ(lines, (std::vector<std::string>{"x: rubbish", "x: other"}));
    lines.clear();
    limiter.Tick(t + 1s);
    EXPECT_EQ(lines, (std::vector<std::string>{"x: rubbish ... 117,000 more"}));
    lines.clear();
    limiter.Add("a", "x", "once more", t + 1500ms);
    limiter.Tick(t + 2s);
    EXPECT_EQ(lines, (std::vector<std::string>{"x: once more"})) << "a single line needs no count";
    lines.clear();
    limiter.Tick(t + 3s);
    limiter.Add("a", "x", "new", t + 3s);
    limiter.Add("a", "x", "new", t + 3s);
    limiter.Add("a", "x", "newest", t + 3s);
    limiter.Flush();
    EXPECT_EQ(lines, (std::vector<std::string>{"x: new", "x: newest ... 2 more"}));
    // However many different lines there are, each is written or counted.
    lines.clear();
    for (int i = 0; i < 6000; ++i)
        limiter.Add(std::to_string(i / 2), "x", "line", t + 4s);
    limiter.Flush();
    EXPECT_EQ(lines.size(), 6000U);
}

TEST(Printable, ShowsWhatWouldChangeALine) {
    const std::pair<std::string, std::string> cases[] = {
        {"Двор №1 é", "Двор №1 é"},
        {"a\x1B[2Jb\r\n\x7F", "a\\x1b[2Jb\\x0d\\x0a\\x7f"},
        {"\xC2\x9B"
         "2J\xC2\xA0",
         "\\x9b2J\xC2\xA0"},
        {"\xE2\x80\xAE\x67\x6E\x70.exe\xE2\x81\xA6\xE2\x80\xA8\xD8\x9C",
         "\\u202egnp.exe\\u2066\\u2028\\u061c"},
        {"\xFF\xF0\x9F\x98\x80", "\xEF\xBF\xBD\xF0\x9F\x98\x80"}};
    for (const auto& [text, shown] : cases) {
        EXPECT_EQ(platform::Printable(text), shown);
        EXPECT_EQ(platform::HasControl(text), shown.find('\\') != std::string::npos) << shown;
    }
}

} // namespace
} // namespace host
