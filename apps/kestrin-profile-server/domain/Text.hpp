#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace KestrinProfileServer {

/// The longest text that the service takes as one value, in bytes.
constexpr std::size_t longestText = 2048;

/// The code points of well-formed UTF-8.
[[nodiscard]] std::u32string codePointsOf(std::string_view text);

/// The UTF-8 form of code points.
[[nodiscard]] std::string toUTF8(std::u32string_view codePoints);

/// Whether the code point is a C0 or C1 control character or DEL.
[[nodiscard]] bool isControl(char32_t codePoint);

/// The code points without white space at both ends.
[[nodiscard]] std::u32string trimmed(std::u32string_view codePoints);

/// The code points one by one without the difference of upper and lower case: Unicode's simple case
/// folding (The Unicode Standard, 5.18; CaseFolding.txt).
[[nodiscard]] std::u32string caseFolded(std::u32string_view codePoints);

/// The version of Unicode by which `caseFolded` folds.
[[nodiscard]] std::string caseFoldingVersion();

/// The beginning of `text` for messages and the log: at most `limit` bytes of it, cut between code
/// points, always well-formed UTF-8 (if `text` is not, its bytes beyond ASCII become question
/// marks). Characters that are not shown, or that change how others are, are escaped: "\u202e".
[[nodiscard]] std::string excerptOf(std::string_view text, std::size_t limit = 80);

}  // namespace KestrinProfileServer
