#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <KestrinProfile/model/DateFormatter.hpp>

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

/// Reads a text of a known length from left to right; each member tells whether it found what it
/// was to read.
class FixedReader {
  public:
    explicit FixedReader(std::string_view text) : next_(text.data()) {}

    bool character(char expected) { return *next_++ == expected; }

    /// The number of so many digits.
    template <int Digits>
    bool number(unsigned& value) {
        value = 0;
        if constexpr (Digits > 1)
            if (!number<Digits - 1>(value)) return false;
        const unsigned digit = static_cast<unsigned>(*next_++) - '0';
        value = 10 * value + digit;
        return digit <= 9;
    }

    /// The number of two digits, at most the highest.
    bool pair(unsigned& value, unsigned highest) { return number<2>(value) && value <= highest; }

  private:
    const char* next_;
};

/// The offset from UTC that ends a date's text: `Z`, or a sign and hh:mm or hh:mm:ss.
std::optional<seconds> readOffset(std::string_view text) {
    if (text == "Z") return seconds(0);
    const bool hasSeconds = text.size() == 9;
    if (!hasSeconds && text.size() != 6) return std::nullopt;
    if (text.front() != '+' && text.front() != '-') return std::nullopt;

    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    FixedReader reader(text.substr(1));
    if (!reader.pair(hour, 18) || !reader.character(':') || !reader.pair(minute, 59) ||
        (hasSeconds && !(reader.character(':') && reader.pair(second, 59))))
        return std::nullopt;

    const seconds offset = hours(hour) + minutes(minute) + seconds(second);
    if (offset > hours(18)) return std::nullopt;
    return text.front() == '-' ? -offset : offset;
}

std::optional<Date> readDate(std::string_view text) {
    constexpr std::size_t offsetAt = std::string_view("0000-00-00T00:00:00.000").size();
    if (text.size() <= offsetAt) return std::nullopt;

    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    unsigned millisecond = 0;
    FixedReader reader(text);
    if (!reader.number<4>(year) || !reader.character('-') || !reader.number<2>(month) ||
        !reader.character('-') || !reader.number<2>(day) || !reader.character('T') ||
        !reader.pair(hour, 23) || !reader.character(':') || !reader.pair(minute, 59) ||
        !reader.character(':') || !reader.pair(second, 59) || !reader.character('.') ||
        !reader.number<3>(millisecond))
        return std::nullopt;

    const auto offset = readOffset(text.substr(offsetAt));
    if (!offset) return std::nullopt;

    const year_month_day date(std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                              std::chrono::day(day));
    // The year 0000 is none of ours, whatever the offset makes of it.
    if (!date.ok() || year == 0) return std::nullopt;
    // From the first step in the unit of a date: minutes may have 32 bits, which end in the year
    // 6053.
    const Date utc = Date(sys_days(date)) + hours(hour) + minutes(minute) + seconds(second) +
                     milliseconds(millisecond) - *offset;
    if (!isInRange(utc)) return std::nullopt;
    return utc;
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
