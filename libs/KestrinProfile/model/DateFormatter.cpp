#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <KestrinProfile/model/DateFormatter.hpp>

namespace KestrinProfile {

namespace {

using std::chrono::days;
using std::chrono::floor;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr sys_days firstDay = std::chrono::year(1) / 1 / 1;
constexpr Date first = firstDay;
constexpr Date end = sys_days(std::chrono::year(10000) / 1 / 1);

using TicksSinceFirst = std::chrono::duration<std::uint64_t, Date::period>;
using DaysSinceFirst = std::chrono::duration<std::uint64_t, days::period>;
using MillisecondsOfDay = std::chrono::duration<std::uint64_t, std::milli>;

/// Counted from the first date nothing is negative, so rounding down is no more than one
/// multiplication. What is out of range becomes larger than anything in it.
constexpr TicksSinceFirst sinceFirst(Date date) {
    const auto ticks = [](Date each) {
        return static_cast<std::uint64_t>(each.time_since_epoch().count());
    };
    return TicksSinceFirst(ticks(date) - ticks(first));
}

bool isInRange(Date date) {
    return sinceFirst(date) < sinceFirst(end);
}

constexpr std::array<char, 200> pairs = [] {
    std::array<char, 200> digits{};
    for (std::size_t number = 0; number < 100; ++number) {
        digits[2 * number] = static_cast<char>('0' + number / 10);
        digits[2 * number + 1] = static_cast<char>('0' + number % 10);
    }
    return digits;
}();

void writePair(char* out, unsigned number) {
    std::memcpy(out, &pairs[std::size_t{2} * number], 2);
}

std::string textInRange(Date date) {
    std::string text = "0000-00-00T00:00:00.000Z";
    const TicksSinceFirst time = sinceFirst(date);
    const auto wholeDays = std::chrono::duration_cast<DaysSinceFirst>(time);
    const auto ofDay = static_cast<unsigned>(
        std::chrono::duration_cast<MillisecondsOfDay>(time - wholeDays).count());
    const year_month_day day(firstDay + days(wholeDays.count()));
    const auto year = static_cast<unsigned>(static_cast<int>(day.year()));
    const unsigned minute = ofDay / 60'000;
    const unsigned ofMinute = ofDay % 60'000;

    char* const out = text.data();
    writePair(out, year / 100);
    writePair(out + 2, year % 100);
    writePair(out + 5, static_cast<unsigned>(day.month()));
    writePair(out + 8, static_cast<unsigned>(day.day()));
    writePair(out + 11, minute / 60);
    writePair(out + 14, minute % 60);
    writePair(out + 17, ofMinute / 1000);
    writePair(out + 20, ofMinute % 1000 / 10);
    out[22] = static_cast<char>('0' + ofMinute % 10);
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

/// Reads a text whose length is known from left to right, without a branch on the way: whether all
/// was as expected is asked once, at the end.
class FixedReader {
  public:
    explicit FixedReader(std::string_view text) : next_(text.data()) {}

    /// The number that so many digits stand for.
    template <int Digits>
    unsigned number() {
        unsigned value = 0;
        if constexpr (Digits > 1) value = 10 * number<Digits - 1>();
        const unsigned digit = static_cast<unsigned char>(*next_++ - '0');
        expectAtMost(9, digit);
        return value + digit;
    }

    /// The number of two digits, up to a highest one.
    unsigned pair(unsigned highest) {
        const unsigned value = number<2>();
        expectAtMost(highest, value);
        return value;
    }

    void character(char expected) {
        expectAtMost(0, static_cast<unsigned char>(*next_++ ^ expected));
    }

    [[nodiscard]] bool allAsExpected() const { return wrong_ >> 31 == 0; }

  private:
    // The difference of two small numbers has its highest bit set exactly where it is negative.
    void expectAtMost(unsigned highest, unsigned value) { wrong_ |= highest - value; }

    const char* next_;
    unsigned wrong_ = 0;
};

/// The offset from UTC that ends a date's text instead of Z: a sign and hh:mm or hh:mm:ss.
std::optional<seconds> readOffset(std::string_view text) {
    const bool hasSeconds = text.size() == 9;
    if (!hasSeconds && text.size() != 6) return std::nullopt;
    if (text[0] != '+' && text[0] != '-') return std::nullopt;

    FixedReader reader(text.substr(1));
    unsigned size = 3600 * reader.number<2>();
    reader.character(':');
    size += 60 * reader.pair(59);
    if (hasSeconds) {
        reader.character(':');
        size += reader.pair(59);
    }
    if (!reader.allAsExpected() || size > 18 * 3600) return std::nullopt;
    return text[0] == '-' ? -seconds(size) : seconds(size);
}

/// Eight characters of a date that are read at once, as the bytes of one number with the first
/// character in its lowest byte.
class Eight {
  public:
    /// @param text     at least eight characters
    /// @param pattern  what has to stand there: '0' for any digit, anything else for itself
    Eight(const char* text, const char (&pattern)[9]) : digits_(loaded(text) - together(pattern)) {
        // A byte that is too small gets its highest bit by the subtraction, one that is too large
        // by this addition; what these carry over to the bytes above no longer matters.
        wrong_ = (digits_ | (digits_ + room(pattern))) & 0x8080'8080'8080'8080;
    }

    [[nodiscard]] constexpr bool isAsExpected() const { return wrong_ == 0; }

    [[nodiscard]] constexpr unsigned digit(int at) const {
        return static_cast<unsigned>(digits_ >> 8 * at & 0xFF);
    }
    /// The number that the digit at a place and the next one stand for.
    [[nodiscard]] constexpr unsigned pair(int at) const {
        return static_cast<unsigned>((10 * digits_ + (digits_ >> 8)) >> 8 * at & 0xFF);
    }

  private:
    static constexpr std::uint64_t together(const char* text) {
        std::uint64_t bytes = 0;
        for (int at = 0; at < 8; ++at)
            bytes |= std::uint64_t{static_cast<unsigned char>(text[at])} << 8 * at;
        return bytes;
    }

    /// The same at run time, where compilers do not see that it is one load.
    static std::uint64_t loaded(const char* text) {
        if constexpr (std::endian::native != std::endian::little) return together(text);
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, text, sizeof bytes);
        return bytes;
    }

    /// What can be added to each byte as long as it is right.
    static constexpr std::uint64_t room(const char* pattern) {
        std::uint64_t bytes = 0;
        for (int at = 0; at < 8; ++at)
            bytes |= std::uint64_t{pattern[at] == '0' ? 0x7FU - 9 : 0x7FU} << 8 * at;
        return bytes;
    }

    std::uint64_t digits_;
    std::uint64_t wrong_;
};

bool isLeap(unsigned year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

/// Whether there is such a day in the years 0001 to 9999.
bool isDay(unsigned year, unsigned month, unsigned day) {
    static constexpr std::array<unsigned char, 13> lengths{0,  31, 28, 31, 30, 31, 30,
                                                           31, 31, 30, 31, 30, 31};
    if (year == 0 || month == 0 || month > 12 || day == 0) return false;
    return day <= lengths[month] || (month == 2 && day == 29 && isLeap(year));
}

/// The beginning of a day. The calendar of <chrono> says the same in twice the time.
sys_days midnight(unsigned year, unsigned month, unsigned day) {
    static constexpr std::array<unsigned short, 13> before{0,   0,   31,  59,  90,  120, 151,
                                                           181, 212, 243, 273, 304, 334};
    const auto leapDays = [](unsigned years) { return years / 4 - years / 100 + years / 400; };
    const auto since = [&](unsigned aYear, unsigned aMonth, unsigned aDay) {
        return static_cast<int>(365 * aYear + leapDays(aYear - (aMonth <= 2 ? 1 : 0)) +
                                before[aMonth] + aDay);
    };
    return sys_days(days(since(year, month, day) - since(1970, 1, 1)));
}

std::optional<Date> readDate(std::string_view text) {
    constexpr std::size_t offsetAt = 23;
    if (text.size() <= offsetAt) return std::nullopt;

    const Eight yearMonth(text.data(), "0000-00-");
    const Eight dayTime(text.data() + 8, "00T00:00");
    const Eight rest(text.data() + 15, "0:00.000");
    if (!yearMonth.isAsExpected() || !dayTime.isAsExpected() || !rest.isAsExpected())
        return std::nullopt;

    const unsigned year = 100 * yearMonth.pair(0) + yearMonth.pair(2);
    const unsigned month = yearMonth.pair(5);
    const unsigned day = dayTime.pair(0);
    const unsigned hour = dayTime.pair(3);
    const unsigned minute = dayTime.pair(6);
    const unsigned second = rest.pair(2);
    if (!isDay(year, month, day) || hour > 23 || minute > 59 || second > 59) return std::nullopt;

    const Date local = midnight(year, month, day) + seconds(3600 * hour + 60 * minute + second) +
                       milliseconds(10 * rest.pair(5) + rest.digit(7));
    if (text.size() == offsetAt + 1 && text[offsetAt] == 'Z') return local;
    const auto offset = readOffset(text.substr(offsetAt));
    if (!offset || !isInRange(local - *offset)) return std::nullopt;
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
