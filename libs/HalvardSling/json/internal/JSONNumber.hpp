#pragma once

#include <string>
#include <string_view>

namespace HalvardSling::internal {

/// Whether two JSON numbers have the same value, as decimals: 1.0 equals 10e-1, and -0.0 equals
/// 0e5. With exponents of 19 digits and more they are equal only if their texts are.
[[nodiscard]] bool areEqualNumbers(std::string_view left, std::string_view right);

/// A JSON text in which no number has an exponent of more than nine digits: those of longer ones
/// are replaced by as many zeros, so that everything stays in its place.
[[nodiscard]] std::string withShortExponents(std::string_view text);

}  // namespace HalvardSling::internal
