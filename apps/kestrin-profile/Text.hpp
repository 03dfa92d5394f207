#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace KestrinProfileCLI {

/// The number of a terminal's columns that a UTF-8 text takes: none for combining marks, two for
/// wide characters (East Asian ones, emoji), one for every other. Colours take none.
[[nodiscard]] std::size_t columnsOf(std::string_view text) noexcept;

/// A text of a service's or a person's as it may be shown: control characters (also those beyond
/// ASCII, and those that turn the direction of writing) and bytes that are no UTF-8 become '?', so
/// that none reaches the terminal.
[[nodiscard]] std::string printable(std::string_view text);

/// A JSON text with the characters that `printable` would replace as escapes, which mean the same.
[[nodiscard]] std::string printableJSON(std::string_view json);

/// The text with blanks after it, so that it takes this many columns.
[[nodiscard]] std::string padded(std::string text, std::size_t columns);

/// The text, cut if it takes more than this many columns, which are at least one; then it ends with
/// an ellipsis, and without a colour.
[[nodiscard]] std::string shortened(std::string_view text, std::size_t columns);

/// The text in lines of at most this many columns, broken at blanks alone: what is longer than a
/// line stands in one of its own. At least one line.
[[nodiscard]] std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

/// How many there are, in words: "1 entry", "2 entries".
[[nodiscard]] std::string countOf(std::size_t count, std::string_view one, std::string_view many);

/// The texts with a separator between them.
[[nodiscard]] std::string joined(const std::vector<std::string>& texts, std::string_view separator);

/// The text with every occurrence of a non-empty part replaced.
[[nodiscard]] std::string replaced(std::string text, std::string_view part,
                                   std::string_view replacement);

}  // namespace KestrinProfileCLI
