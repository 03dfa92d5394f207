#include <array>
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

constexpr Date first = sys_days(std::chrono::year(1) / 1 / 1);
constexpr Date end = sys_days(std::chrono::year(10000) / 1 / 1);

bool isInRange(Date date) {
    return date >= first && date < end;
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
    const auto time = floor<milliseconds>(date);
    const auto midnight = floor<days>(time);
    const year_month_day day(midnight);
    const auto year = static_cast<unsigned>(static_cast<int>(day.year()));
    const auto ofDay = static_cast<unsigned>((time - midnight).count());
    const unsigned second = ofDay / 1000;

    std::string text = "0000-00-00T00:00:00.000Z";
    char* const out = text.data();
    writePair(out, year / 100);
    writePair(out + 2, year % 100);
    writePair(out + 5, static_cast<unsigned>(day.month()));
    writePair(out + 8, static_cast<unsigned>(day.day()));
    writePair(out + 11, second / 3600);
    writePair(out + 14, second / 60 % 60);
    writePair(out + 17, second % 60);
    writePair(out + 20, ofDay % 1000 / 10);
    out[22] = static_cast<char>('0' + ofDay % 10);
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

/// The offset from UTC that ends a date's text: Z, or a sign and hh:mm or hh:mm:ss.
std::optional<seconds> readOffset(std::string_view text) {
    if (text == "Z") return seconds(0);
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

std::optional<Date> readDate(std::string_view text) {
    constexpr std::size_t offsetAt = 23;
    if (text.size() <= offsetAt) return std::nullopt;

    FixedReader reader(text);
    const std::chrono::year year(static_cast<int>(reader.number<4>()));
    reader.character('-');
    const std::chrono::month month(reader.number<2>());
    reader.character('-');
    const std::chrono::day day(reader.number<2>());
    reader.character('T');
    unsigned time = 3600 * reader.pair(23);
    reader.character(':');
    time += 60 * reader.pair(59);
    reader.character(':');
    time += reader.pair(59);
    reader.character('.');
    const milliseconds fraction(reader.number<3>());

    const auto offset = readOffset(text.substr(offsetAt));
    if (!reader.allAsExpected() || !offset || !(year / month / day).ok()) return std::nullopt;
    const Date local = sys_days(year / month / day) + seconds(time) + fraction;
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
