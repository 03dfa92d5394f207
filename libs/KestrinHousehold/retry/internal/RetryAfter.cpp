#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include <KestrinHousehold/retry/internal/RetryAfter.hpp>
#include <internal/ASCII.hpp>
#include <internal/Number.hpp>

namespace KestrinHousehold::internal {

using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;
using std::chrono::system_clock;

namespace {

/// The numbers of a date.
struct Fields {
    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
};

unsigned* fieldOf(Fields& fields, char mark) noexcept {
    switch (mark) {
        case 'Y':
            return &fields.year;
        case 'D':
            return &fields.day;
        case 'h':
            return &fields.hour;
        case 'm':
            return &fields.minute;
        case 's':
            return &fields.second;
        default:
            return nullptr;
    }
}

/// @return 1 to 12; 0: it is no month
unsigned monthOf(std::string_view name) noexcept {
    constexpr std::string_view names = "JanFebMarAprMayJunJulAugSepOctNovDec";
    for (std::size_t month = 0; month < 12; ++month)
        if (names.substr(3 * month, 3) == name) return static_cast<unsigned>(month + 1);
    return 0;
}

/// Reads a text of a form: Y, D, h, m and s stand for a digit of that field, _ for a blank or a
/// digit of the day, Mmm for a month's name; every other character for itself.
std::optional<Fields> read(std::string_view text, std::string_view form) {
    if (text.size() != form.size()) return std::nullopt;
    Fields fields;
    for (std::size_t at = 0; at < form.size(); ++at) {
        const char mark = form[at];
        if (form.substr(at, 3) == "Mmm") {
            fields.month = monthOf(text.substr(at, 3));
            at += 2;
            continue;
        }
        if (mark == '_' && text[at] == ' ') continue;
        unsigned* const field = fieldOf(fields, mark == '_' ? 'D' : mark);
        if (field == nullptr && text[at] == mark) continue;
        if (field == nullptr || !KestrinInternal::isDigit(text[at])) return std::nullopt;
        *field = 10 * *field + static_cast<unsigned>(text[at] - '0');
    }
    return fields;
}

std::optional<sys_seconds> timeOf(const Fields& fields) {
    const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(fields.year)),
                                           std::chrono::month(fields.month),
                                           std::chrono::day(fields.day));
    // 60 is a leap second.
    if (!date.ok() || fields.hour > 23 || fields.minute > 59 || fields.second > 60)
        return std::nullopt;
    return sys_days(date) + std::chrono::hours(fields.hour) + std::chrono::minutes(fields.minute) +
           seconds(fields.second);
}

/// The year that two digits mean: the one of this century, or, if that is more than 50 years ahead,
/// of the last.
unsigned fullYear(unsigned digits, system_clock::time_point now) {
    const std::chrono::year_month_day today(std::chrono::floor<std::chrono::days>(now));
    const int thisYear = static_cast<int>(today.year());
    int year = thisYear - thisYear % 100 + static_cast<int>(digits);
    if (year > thisYear + 50) year -= 100;
    return static_cast<unsigned>(std::max(year, 0));
}

}  // namespace

std::optional<sys_seconds> parseHTTPDate(std::string_view text, system_clock::time_point now) {
    constexpr std::size_t dayName = 3;
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos) {
        const auto fields =
            read(text.substr(std::min(dayName, text.size())), " Mmm _D hh:mm:ss YYYY");
        return fields ? timeOf(*fields) : std::nullopt;
    }
    const std::string_view rest = text.substr(comma + 1);
    if (const auto fields = read(rest, " DD Mmm YYYY hh:mm:ss GMT")) return timeOf(*fields);
    auto fields = read(rest, " DD-Mmm-YY hh:mm:ss GMT");
    if (!fields) return std::nullopt;
    fields->year = fullYear(fields->year, now);
    return timeOf(*fields);
}

std::optional<seconds> retryAfter(const HalvardSling::Headers& headers,
                                  system_clock::time_point now) {
    const auto text = headers.value("Retry-After");
    if (!text) return std::nullopt;
    // Longer than anybody waits, and short enough to reckon with.
    constexpr std::int64_t longest = std::int64_t{1} << 32;
    if (const auto number = KestrinInternal::decimalNumber(*text))
        return seconds(std::min(*number, longest));
    const auto until = parseHTTPDate(*text, now);
    if (!until) return std::nullopt;
    const auto date = headers.value("Date");
    const auto from = date ? parseHTTPDate(*date, now) : std::nullopt;
    const auto wait = *until - from.value_or(std::chrono::floor<seconds>(now));
    return std::max(wait, seconds(0));
}

}  // namespace KestrinHousehold::internal
