#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>

#include <HalvardSling/json/internal/JSONNumber.hpp>
#include <internal/ASCII.hpp>

namespace HalvardSling::internal {

namespace {

/// The number ±0.DIGITS × 10^exponent. The digits neither begin nor end with a zero, so that equal
/// numbers have equal members.
struct Decimal {
    bool isNegative = false;
    std::string digits;
    std::int64_t exponent = 0;

    friend bool operator==(const Decimal&, const Decimal&) = default;
};

/// The exponent behind an "e", 0 if there is none; absent if it has too many digits.
std::optional<std::int64_t> exponentOf(std::string_view number) {
    constexpr std::int64_t largest = 1'000'000'000'000'000'000;
    const std::size_t mark = number.find_first_of("eE");
    if (mark == std::string_view::npos) return 0;
    number.remove_prefix(mark + (number[mark + 1] == '+' ? 2 : 1));
    std::int64_t exponent = 0;
    const auto read = std::from_chars(number.data(), number.data() + number.size(), exponent);
    if (read.ec != std::errc() || exponent > largest || exponent < -largest) return std::nullopt;
    return exponent;
}

/// Absent if the exponent has too many digits.
std::optional<Decimal> decimalOf(std::string_view number) {
    const auto exponent = exponentOf(number);
    const std::string_view mantissa = number.substr(0, number.find_first_of("eE"));
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    const std::size_t first = mantissa.find_first_of("123456789");
    if (first == std::string_view::npos) return Decimal();
    if (!exponent) return std::nullopt;

    Decimal decimal{.isNegative = mantissa.front() == '-', .digits = {}, .exponent = *exponent};
    const std::size_t last = mantissa.find_last_of("123456789");
    decimal.digits = mantissa.substr(first, last + 1 - first);
    std::erase(decimal.digits, '.');
    decimal.exponent += static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
    if (point < first) ++decimal.exponent;  // for the point itself
    return decimal;
}

}  // namespace

bool areEqualNumbers(std::string_view left, std::string_view right) {
    if (left == right) return true;
    const auto decimal = decimalOf(left);
    return decimal && decimal == decimalOf(right);
}

std::string withShortExponents(std::string_view text) {
    constexpr std::ptrdiff_t mostDigits = 9;
    std::string result(text);
    const auto end = result.end();
    bool inText = false;
    for (auto at = result.begin(); at != end; ++at) {
        if (*at == '"')
            inText = !inText;
        else if (inText && *at == '\\')
            at += end - at > 1 ? 1 : 0;  // over a quote
        if (inText || (*at != 'e' && *at != 'E')) continue;
        auto digits = at + 1;
        if (digits != end && (*digits == '+' || *digits == '-')) ++digits;
        const auto behind = std::find_if_not(digits, end, KestrinInternal::isDigit);
        if (behind - digits > mostDigits) std::fill(digits, behind, '0');
        at = behind - 1;
    }
    return result;
}

}  // namespace HalvardSling::internal
