#include "host/base/moment.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

namespace host {
namespace {

constexpr UnixMs kYear1 = -62'135'596'800'000;

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

// Takes what it names off the beginning of a text.
class MomentReader {
public:
    explicit MomentReader(std::string_view text) : m_left(text) {}

    // A number of exactly so many digits, `most` at the most; -1 where there is none.
    int Number(std::size_t digits, int most) noexcept {
        int value = 0;
        if (m_left.size() < digits || !std::ranges::all_of(m_left.substr(0, digits), IsDigit))
            return -1;
        std::from_chars(m_left.data(), m_left.data() + digits, value);
        m_left.remove_prefix(digits);
        return value <= most ? value : -1;
    }
    bool Skip(std::string_view any) noexcept {
        if (m_left.empty() || any.find(m_left.front()) == std::string_view::npos)
            return false;
        m_left.remove_prefix(1);
        return true;
    }
    // What stands behind the point of a second, down to milliseconds; -1 where nothing does.
    int Fraction() noexcept {
        int value = 0;
        std::size_t digits = 0;
        for (; digits < m_left.size() && IsDigit(m_left[digits]); ++digits) {
            if (digits < 3)
                value = value * 10 + (m_left[digits] - '0');
        }
        if (digits == 0)
            return -1;
        m_left.remove_prefix(digits);
        for (; digits < 3; ++digits)
            value *= 10;
        return value;
    }
    [[nodiscard]] char Next() const noexcept { return m_left.empty() ? '\0' : m_left.front(); }
    [[nodiscard]] bool AtEnd() const noexcept { return m_left.empty(); }

private:
    std::string_view m_left;
};

// Minutes that the zone is ahead of UTC.
std::optional<int> ReadZone(MomentReader& read) noexcept {
    if (read.Skip("Zz"))
        return 0;
    const bool behind = read.Next() == '-';
    if (!read.Skip("+- "))
        return std::nullopt;
    const int hours = read.Number(2, 23);
    (void)read.Skip(":");
    const int minutes = read.AtEnd() ? 0 : read.Number(2, 59);
    if (hours < 0 || minutes < 0)
        return std::nullopt;
    return (behind ? -1 : 1) * (hours * 60 + minutes);
}

} // namespace

std::optional<UnixMs> ReadMoment(std::string_view text) noexcept {
    using namespace std::chrono;
    UnixMs number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size())
        return number >= 0 && number < kYear10000 ? std::optional(number) : std::nullopt;

    MomentReader read(text);
    const int yearNumber = read.Number(4, 9999);
    const bool dash = read.Skip("-");
    const int monthNumber = read.Number(2, 12);
    const bool dashed = dash && read.Skip("-");
    const int dayNumber = read.Number(2, 31);
    const bool divided = dashed && read.Skip("Tt ");
    const int hour = read.Number(2, 23);
    const bool colon = divided && read.Skip(":");
    const int minute = read.Number(2, 59);
    if (!colon || yearNumber < 0 || monthNumber < 0 || dayNumber < 0 || hour < 0 || minute < 0)
        return std::nullopt;
    int second = 0;
    int fraction = 0;
    if (read.Skip(":")) {
        second = read.Number(2, 60); // one that was put in counts as the next
        fraction = read.Skip(".,") ? read.Fraction() : 0;
    }
    const auto zone = ReadZone(read);
    const year_month_day date{year(yearNumber), month(static_cast<unsigned>(monthNumber)),
                              day(static_cast<unsigned>(dayNumber))};
    if (second < 0 || fraction < 0 || !zone || !read.AtEnd() || !date.ok())
        return std::nullopt;
    const auto moment = sys_days(date).time_since_epoch() + hours(hour) + minutes(minute - *zone) +
                        seconds(second) + milliseconds(fraction);
    const UnixMs time = duration_cast<milliseconds>(moment).count();
    return time >= 0 && time < kYear10000 ? std::optional(time) : std::nullopt;
}

std::string FormatMoment(UnixMs time, const char* form) {
    using namespace std::chrono;
    const sys_time<milliseconds> when{milliseconds(std::min(std::max(time, kYear1), kYear10000 - 1))};
    const auto day = floor<days>(when);
    const year_month_day date(day);
    const hh_mm_ss clock(when - day);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), form, static_cast<int>(date.year()),
                  static_cast<int>(static_cast<unsigned>(date.month())),
                  static_cast<int>(static_cast<unsigned>(date.day())),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
    return text.data();
}

std::string MomentText(UnixMs time) {
    return FormatMoment(time, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ");
}

std::string DayText(UnixMs time) {
    return FormatMoment(time, "%04d-%02d-%02d");
}

} // namespace host
