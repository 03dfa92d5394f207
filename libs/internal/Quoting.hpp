#pragma once

#include <ranges>
#include <string>
#include <string_view>

#include <internal/EditDistance.hpp>
#include <internal/Hex.hpp>

namespace KestrinInternal {

/// A text as JSON has it: in double quotes, with quotes, backslashes and control characters
/// escaped.
[[nodiscard]] inline std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20) {
            result += "\\u00";
            appendHex(result, c, lowerHexDigits);
            continue;
        }
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result += '"';
}

/// Texts in quotes, separated by commas.
[[nodiscard]] inline std::string listInQuotes(const std::ranges::input_range auto& texts) {
    std::string result;
    for (const std::string_view text : texts)
        result.append(result.empty() ? "" : ", ").append(inQuotes(text));
    return result;
}

/// The end of a message about a name that is none of the known ones.
[[nodiscard]] inline std::string suggestion(std::string_view name,
                                            const std::ranges::forward_range auto& known) {
    const auto meant = nearestName(name, known);
    return meant ? "; did you mean " + inQuotes(*meant) + "?"
                 : "; known are " + listInQuotes(known);
}

}  // namespace KestrinInternal
