#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

#include <internal/ASCII.hpp>

namespace KestrinInternal {

/// The largest integer that every reader of JSON keeps exactly.
inline constexpr std::int64_t largestExactInteger = (std::int64_t{1} << 53) - 1;

/// The number that a text of decimal digits stands for; absent for every other text, and beyond
/// `largestExactInteger`.
[[nodiscard]] inline std::optional<std::int64_t> decimalNumber(std::string_view digits) noexcept {
    if (digits.empty() || !isDigit(digits.front())) return std::nullopt;
    std::int64_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc{} || stop != end || number > largestExactInteger) return std::nullopt;
    return number;
}

}  // namespace KestrinInternal
