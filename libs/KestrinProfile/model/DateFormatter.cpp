#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <KestrinProfile/model/DateFormatter.hpp>
#include <internal/ASCII.hpp>

namespace KestrinProfile {

namespace {

using std::chrono::days;
using std::chrono::floor;
using std::chrono::hh_mm_ss;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr Date first = sys_days(std::chrono::year(1) / 1 / 1);
constexpr Date end = sys_days(std::chrono::year(10000) / 1 / 1);

bool isInRange(Date date) {
    return first <= date && date < end;
}

/// Writes a number over so many characters of a text.
template <std::size_t Digits>
void write(std::string& text, std::size_t at, std::int64_t number) {
    auto rest = static_cast<unsigned>(number);
    for (std::size_t left = Digits; left-- > 0; rest /= 10)
        text[at + left] = static_cast<char>('0' + rest % 10);
}

std::string textInRange(Date date) {
    const auto day = floor<days>(date);
    const year_month_day calendar(day);
    const hh_mm_ss clock(floor<milliseconds>(date - day));

    std::string text = "0000-00-00T00:00:00.000Z";
    write<4>(text, 0, static_cast<int>(calendar.year()));
    write<2>(text, 5, static_cast<unsigned>(calendar.month()));
    write<2>(text, 8, static_cast<unsigned>(calendar.day()));
    write<2>(text, 11, clock.hours().count());
    write<2>(text, 14, clock.minutes().count());
    write<2>(text, 17, clock.seconds().count());
    write<3>(text, 20, clock.subseconds().count());
    return text;
}

/// The text of a date outside the years 0001 to 9999: that of the same day in a year near 1970
/// (the calendar repeats every 400 years), with the year put in.
std::string textOutOfRange(Date date) {
    constexpr days repeats{146'097};
    const std::int64_t times = floor<days>(date).time_since_epoch() / repeats;
    std::string text = textInRange(date - times * repeats);

    const std::int64_t year = std::stoi(text.substr(0, 4)) + 400 * times;
    std::string digits = std::to_string(std::abs(year));
    if (digits.size() < 4) digits.insert(0, 4 - digits.size(), '0');
    return text.replace(0, 4, (year < 0 ? "-" : "") + digits);
}

/// Whether a text has the form of a pattern: '0' stands for any digit, anything else for itself.
bool hasForm(std::string_view text, std::string_view pattern) {
    return std::ranges::equal(text, pattern, [](char c, char expected) {
        return expected == '0' ? KestrinInternal::isDigit(c) : c == expected;
    });
}

/// The number of so many digits.
template <std::size_t Digits>
unsigned number(std::string_view text, std::size_t at) {
    unsigned value = 0;
    for (const char digit : text.substr(at, Digits))
        value = 10 * value + static_cast<unsigned>(digit - '0');
    return value;
}

/// The offset from UTC that ends a date's text: `Z`, or a sign and hh:mm or hh:mm:ss.
std::optional<seconds> readOffset(std::string_view text) {
    if (text == "Z") return seconds(0);
    if (!text.starts_with('+') && !text.starts_with('-')) return std::nullopt;
    const std::string_view size = text.substr(1);
    if (!hasForm(size, "00:00") && !hasForm(size, "00:00:00")) return std::nullopt;

    const unsigned minute = number<2>(size, 3);
    const unsigned second = size.size() > 5 ? number<2>(size, 6) : 0;
    const seconds offset = hours(number<2>(size, 0)) + minutes(minute) + seconds(second);
    if (minute > 59 || second > 59 || offset > hours(18)) return std::nullopt;
    return text.front() == '-' ? -offset : offset;
}

std::optional<Date> readDate(std::string_view text) {
    constexpr std::string_view form = "0000-00-00T00:00:00.000";
    if (text.size() <= form.size() || !hasForm(text.substr(0, form.size()), form))
        return std::nullopt;

    const year_month_day day(std::chrono::year(static_cast<int>(number<4>(text, 0))),
                             std::chrono::month(number<2>(text, 5)),
                             std::chrono::day(number<2>(text, 8)));
    const unsigned hour = number<2>(text, 11);
    const unsigned minute = number<2>(text, 14);
    const unsigned second = number<2>(text, 17);
    const auto offset = readOffset(text.substr(form.size()));
    if (!day.ok() || hour > 23 || minute > 59 || second > 59 || !offset) return std::nullopt;

    const Date local = sys_days(day) + hours(hour) + minutes(minute) + seconds(second) +
                       milliseconds(number<3>(text, 20));
    // The year 0000 is none of ours, whatever the offset makes of it.
    if (!isInRange(local) || !isInRange(local - *offset)) return std::nullopt;
    return local - *offset;
}

class ISO8601 final : public DateFormatter {
  public:
    [[nodiscard]] std::string text(Date date) const override {
        return isInRange(date) ? textInRange(date) : textOutOfRange(date);
    }

    [[nodiscard]] std::optional<Date> date(std::string_view text) const override {
        return readDate(text);
    }
};

}  // namespace

DateFormatter::~DateFormatter() = default;

const DateFormatter& DateFormatter::iso8601() {
    // Never destroyed, so that records can be written and read while the process ends.
    static const DateFormatter& shared = *new ISO8601;
    return shared;
}

}  // namespace KestrinProfile
