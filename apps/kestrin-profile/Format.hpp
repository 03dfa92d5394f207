#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <KestrinProfile/model/DateFormatter.hpp>

namespace KestrinProfileCLI {

/// Seconds as h:mm:ss, e.g. 0:20:34.
[[nodiscard]] std::string durationText(std::int64_t seconds);

/// The seconds that SECONDS, m:ss or h:mm:ss stand for; absent where the text is none of them, or
/// more than a service can count (2^53 - 1).
[[nodiscard]] std::optional<std::int64_t> durationOf(std::string_view text);

/// The time that a number of seconds stands for, e.g. "2.5"; absent unless it is from `least` to
/// `most`.
[[nodiscard]] std::optional<std::chrono::duration<double>> secondsOf(
    const std::string& text, std::chrono::duration<double> least,
    std::chrono::duration<double> most);

/// How long something has waited, in one unit, e.g. "59 s", "3 min", "23 h" or "2 d".
[[nodiscard]] std::string ageText(std::chrono::seconds age);

/// A date to the second, e.g. "2017-03-09 18:25:43".
/// @param utc  in UTC; otherwise in the local time zone
[[nodiscard]] std::string dateText(KestrinProfile::Date date, bool utc);

/// A bar of ten columns of which a part is full. Anything above zero shows, and nothing below the
/// whole shows as the whole.
/// @param whole  more than zero
[[nodiscard]] std::string bar(std::int64_t part, std::int64_t whole);

}  // namespace KestrinProfileCLI
