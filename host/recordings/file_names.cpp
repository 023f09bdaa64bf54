#include "host/recordings/folder.h"

#include <charconv>
#include <chrono>

namespace host {
namespace {

template <typename Number>
bool TakeDigits(std::string_view& text, std::size_t digits, Number& number) {
    if (text.size() < digits)
        return false;
    const char* const end = text.data() + digits;
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end || number < 0)
        return false;
    text.remove_prefix(digits);
    return true;
}

bool TakeSign(std::string_view& text, char sign) {
    if (!text.starts_with(sign))
        return false;
    text.remove_prefix(1);
    return true;
}

} // namespace

std::string RelativePathOf(const RecordedFile& file) {
    return std::to_string(file.key.camera) + '/' + DayText(file.begin) + '/' +
           FormatMoment(file.begin, "%04d-%02d-%02d_%02d-%02d-%02d.%03d_") + std::to_string(file.key.number) +
           ".mkv";
}

std::optional<FileName> ParseFileName(std::string_view name) {
    if (!name.ends_with(".mkv"))
        return std::nullopt;
    std::string_view text = name.substr(0, name.size() - 4);
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int millisecond = 0;
    FileName parsed;
    const bool whole = TakeDigits(text, 4, year) && TakeSign(text, '-') && TakeDigits(text, 2, month) &&
                       TakeSign(text, '-') && TakeDigits(text, 2, day) && TakeSign(text, '_') &&
                       TakeDigits(text, 2, hour) && TakeSign(text, '-') && TakeDigits(text, 2, minute) &&
                       TakeSign(text, '-') && TakeDigits(text, 2, second) && TakeSign(text, '.') &&
                       TakeDigits(text, 3, millisecond) && TakeSign(text, '_') && !text.empty() &&
                       TakeDigits(text, text.size(), parsed.number);
    if (!whole)
        return std::nullopt;
    using namespace std::chrono;
    const year_month_day date(std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                              std::chrono::day(static_cast<unsigned>(day)));
    if (!date.ok())
        return std::nullopt;
    const auto when = sys_days(date) + hours(hour) + minutes(minute) + seconds(second);
    parsed.begin = duration_cast<milliseconds>(when.time_since_epoch()).count() + millisecond;
    // Another way to write the same would be a second name of the file.
    const std::string again = RelativePathOf({.key = {1, parsed.number}, .begin = parsed.begin});
    if (parsed.number == 0 || !again.ends_with("/" + std::string(name)))
        return std::nullopt;
    return parsed;
}

std::optional<std::int64_t> ParseCameraId(std::string_view name) {
    std::int64_t id = 0;
    std::string_view text = name;
    if (text.empty() || text.starts_with('0') || !TakeDigits(text, text.size(), id))
        return std::nullopt;
    return id;
}

} // namespace host
