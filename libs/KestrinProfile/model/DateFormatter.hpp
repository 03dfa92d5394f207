#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <KestrinProfile/Export.hpp>

namespace KestrinProfile {

/// A point in time, UTC, to the microsecond. A clock's own time, which is finer on some platforms,
/// has to be rounded to it: `std::chrono::floor<std::chrono::microseconds>(clock::now())`.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

/// Makes texts from dates and dates from texts. An implementation answers from any number of
/// threads at once.
class KESTRIN_PROFILE_EXPORT DateFormatter {
  public:
    /// Formatters are destroyed as what they are.
    virtual ~DateFormatter();

    /// The text of a date.
    [[nodiscard]] virtual std::string text(Date date) const = 0;

    /// The date that a text stands for; absent if it stands for none.
    [[nodiscard]] virtual std::optional<Date> date(std::string_view text) const = 0;

    /// The shared formatter, through which the service's dates are written, read and compared:
    /// the pattern yyyy-MM-dd'T'HH:mm:ss.SSSXXXXX (Unicode TR35) in the proleptic Gregorian
    /// calendar and UTC, for the years 0001 to 9999. Built once; it lives until the process has
    /// ended and never changes.
    ///
    /// It writes 2017-03-09T18:25:43.511Z: always UTC, always three fraction digits, rounded down
    /// to the millisecond, also before 1970. A year outside its range is written in full, with a
    /// minus sign before the year 0000, so that no two milliseconds share a text; such a text is
    /// not read back.
    ///
    /// It reads exactly that form: fixed counts of ASCII digits, a day that exists, no hour 24, no
    /// second 60, three fraction digits, then `Z` or an offset ±hh:mm or ±hh:mm:ss of at most 18
    /// hours. A text that differs, or goes on after it, is no date; nor is one whose offset puts it
    /// outside the years 0001 to 9999, so that every date that was read can be written and read
    /// again.
    [[nodiscard]] static const DateFormatter& iso8601();

  protected:
    DateFormatter() = default;
    DateFormatter(const DateFormatter&) = default;
    DateFormatter(DateFormatter&&) = default;
    DateFormatter& operator=(const DateFormatter&) = default;
    DateFormatter& operator=(DateFormatter&&) = default;
};

}  // namespace KestrinProfile
