// The date reader and writer, beside the C library's calendar.

#include <chrono>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>

#include <KestrinProfile/model/DateFormatter.hpp>

#include "fuzz/Expect.hpp"

namespace {

using Fuzz::expect;
using KestrinProfile::Date;
using KestrinProfile::DateFormatter;

/// Whether a text has the form of another one, whose letters d stand for digits.
bool hasForm(std::string_view text, std::string_view form) {
    if (text.size() != form.size()) return false;
    for (std::size_t i = 0; i < form.size(); ++i)
        if (form[i] == 'd' ? text[i] < '0' || text[i] > '9' : text[i] != form[i]) return false;
    return true;
}

int number(std::string_view text, std::size_t at, std::size_t digits) {
    return std::stoi(std::string(text.substr(at, digits)));
}

/// Seconds of an offset; absent if it is none.
std::optional<int> offsetOf(std::string_view text) {
    if (text == "Z") return 0;
    if (text.empty() || (text[0] != '+' && text[0] != '-')) return std::nullopt;
    const std::string_view clock = text.substr(1);
    if (!hasForm(clock, "dd:dd") && !hasForm(clock, "dd:dd:dd")) return std::nullopt;
    const int minutes = number(clock, 3, 2);
    const int seconds = clock.size() > 5 ? number(clock, 6, 2) : 0;
    const int all = 3600 * number(clock, 0, 2) + 60 * minutes + seconds;
    if (minutes > 59 || seconds > 59 || all > 18 * 3600) return std::nullopt;
    return text[0] == '-' ? -all : all;
}

/// The date that a text stands for, as milliseconds since 1970.
std::optional<std::int64_t> reference(std::string_view text) {
    constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd.ddd";
    if (text.size() < form.size() || !hasForm(text.substr(0, form.size()), form))
        return std::nullopt;
    const auto offset = offsetOf(text.substr(form.size()));
    if (!offset) return std::nullopt;

    std::tm fields{};
    fields.tm_year = number(text, 0, 4) - 1900;
    fields.tm_mon = number(text, 5, 2) - 1;
    fields.tm_mday = number(text, 8, 2);
    fields.tm_hour = number(text, 11, 2);
    fields.tm_min = number(text, 14, 2);
    fields.tm_sec = number(text, 17, 2);
    std::tm carried = fields;
    const std::time_t local = ::timegm(&carried);
    // It carries what does not exist over to what does.
    if (carried.tm_year != fields.tm_year || carried.tm_mon != fields.tm_mon ||
        carried.tm_mday != fields.tm_mday || carried.tm_hour != fields.tm_hour ||
        carried.tm_min != fields.tm_min || carried.tm_sec != fields.tm_sec ||
        fields.tm_year == -1900)
        return std::nullopt;
    const std::time_t utc = local - *offset;
    std::tm there{};
    if (::gmtime_r(&utc, &there) == nullptr) return std::nullopt;
    if (there.tm_year < 1 - 1900 || there.tm_year > 9999 - 1900) return std::nullopt;
    return std::int64_t{utc} * 1000 + number(text, 20, 3);
}

void read(std::string_view text) {
    const auto date = DateFormatter::iso8601().date(text);
    const auto expected = reference(text);
    expect(date.has_value() == expected.has_value(), "both read a date, or none");
    if (!date || !expected) return;
    expect(date->time_since_epoch() == std::chrono::milliseconds(*expected), "both the same");
    expect(DateFormatter::iso8601().date(DateFormatter::iso8601().text(*date)) == date,
           "it is written and read again");
}

void write(std::int64_t microseconds) {
    const DateFormatter& formatter = DateFormatter::iso8601();
    const Date date{std::chrono::microseconds(microseconds)};
    const std::string text = formatter.text(date);
    expect(text.ends_with('Z'), "a date is written in UTC");
    if (const auto again = formatter.date(text))
        expect(*again == std::chrono::floor<std::chrono::milliseconds>(date),
               "a date is written to the millisecond");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    read(Fuzz::textOf(data, size));
    std::int64_t microseconds = 0;
    if (size >= sizeof(microseconds)) {
        std::memcpy(&microseconds, data, sizeof(microseconds));
        write(microseconds);
    }
    return 0;
}
