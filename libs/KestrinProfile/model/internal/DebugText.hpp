#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <KestrinProfile/model/DateFormatter.hpp>

namespace KestrinProfile::internal {

// The values of fields as descriptions show them: for people and logs, never read back.

/// A text between double quotes. NUL, tab, line feed, carriage return, both quotes and the
/// backslash become \0 \t \n \r \" \' \\, the other ASCII control characters \u{01} with two
/// upper-case hexadecimal digits; every other byte stays as it is.
[[nodiscard]] std::string debugText(std::string_view text);

/// An integer in decimal.
[[nodiscard]] std::string debugText(std::int64_t integer);

/// `true` or `false`.
[[nodiscard]] std::string debugText(std::same_as<bool> auto boolean) {
    return boolean ? "true" : "false";
}

/// A date in UTC without its fraction, which is cut off: 2017-03-09 18:25:43 +0000.
[[nodiscard]] std::string debugText(Date date);

/// A field: `nil` if it is absent, otherwise its debug text in `Optional(…)`.
template <class Value>
[[nodiscard]] std::string debugText(const std::optional<Value>& field) {
    return field ? "Optional(" + debugText(*field) + ")" : "nil";
}

}  // namespace KestrinProfile::internal
