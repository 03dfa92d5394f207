#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string_view>

#include <internal/ASCII.hpp>

namespace KestrinInternal {

namespace internal {

/// The numbers of a date.
struct HTTPDateFields {
    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
};

inline unsigned* httpDateField(HTTPDateFields& fields, char mark) noexcept {
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
inline unsigned httpDateMonth(std::string_view name) noexcept {
    constexpr std::string_view names = "JanFebMarAprMayJunJulAugSepOctNovDec";
    for (std::size_t month = 0; month < 12; ++month)
        if (names.substr(3 * month, 3) == name) return static_cast<unsigned>(month + 1);
    return 0;
}

/// Reads a text of a form: Y, D, h, m and s stand for a digit of that field, _ for a blank or a
/// digit of the day, Mmm for a month's name; every other character for itself.
inline std::optional<HTTPDateFields> readHTTPDate(std::string_view text, std::string_view form) {
    if (text.size() != form.size()) return std::nullopt;
    HTTPDateFields fields;
    for (std::size_t at = 0; at < form.size(); ++at) {
        const char mark = form[at];
        if (form.substr(at, 3) == "Mmm") {
            fields.month = httpDateMonth(text.substr(at, 3));
            at += 2;
            continue;
        }
        if (mark == '_' && text[at] == ' ') continue;
        unsigned* const field = httpDateField(fields, mark == '_' ? 'D' : mark);
        if (field == nullptr && text[at] == mark) continue;
        if (field == nullptr || !isDigit(text[at])) return std::nullopt;
        *field = 10 * *field + static_cast<unsigned>(text[at] - '0');
    }
    return fields;
}

inline std::optional<std::chrono::sys_seconds> timeOf(const HTTPDateFields& fields) {
    const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(fields.year)),
                                           std::chrono::month(fields.month),
                                           std::chrono::day(fields.day));
    // 60 is a leap second.
    if (!date.ok() || fields.hour > 23 || fields.minute > 59 || fields.second > 60)
        return std::nullopt;
    // From the first step in seconds: minutes may have 32 bits, which end in the year 6053.
    return std::chrono::sys_seconds(std::chrono::sys_days(date)) + std::chrono::hours(fields.hour) +
           std::chrono::minutes(fields.minute) + std::chrono::seconds(fields.second);
}

/// The year that two digits mean: the one of this century, or, if that is more than 50 years ahead,
/// of the last.
inline unsigned fullYear(unsigned digits, std::chrono::system_clock::time_point now) {
    const std::chrono::year_month_day today(std::chrono::floor<std::chrono::days>(now));
    const int thisYear = static_cast<int>(today.year());
    int year = thisYear - thisYear % 100 + static_cast<int>(digits);
    if (year > thisYear + 50) year -= 100;
    return static_cast<unsigned>(std::max(year, 0));
}

}  // namespace internal

/// A date as HTTP writes it (RFC 9110, section 5.6.7), in its three forms. Absent: it is none.
/// @param now  decides the century of the form that has a year of two digits
[[nodiscard]] inline std::optional<std::chrono::sys_seconds> parseHTTPDate(
    std::string_view text, std::chrono::system_clock::time_point now) {
    using internal::readHTTPDate;
    using internal::timeOf;
    constexpr std::size_t dayName = 3;
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos) {
        const auto fields =
            readHTTPDate(text.substr(std::min(dayName, text.size())), " Mmm _D hh:mm:ss YYYY");
        return fields ? timeOf(*fields) : std::nullopt;
    }
    const std::string_view rest = text.substr(comma + 1);
    if (const auto fields = readHTTPDate(rest, " DD Mmm YYYY hh:mm:ss GMT")) return timeOf(*fields);
    auto fields = readHTTPDate(rest, " DD-Mmm-YY hh:mm:ss GMT");
    if (!fields) return std::nullopt;
    fields->year = internal::fullYear(fields->year, now);
    return timeOf(*fields);
}

}  // namespace KestrinInternal
