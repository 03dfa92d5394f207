#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KestrinProfileCLI {

/// How text is marked on a terminal that has colours.
enum class Mark { plain, strong, good, bad, faint };

/// The program's output: results on standard output, everything else on standard error. Colours
/// only on a terminal, and never where NO_COLOR is set (https://no-color.org).
class Terminal {
  public:
    Terminal();

    /// Prints a line of a result.
    void line(std::string_view text) const;

    /// Prints a table: a heading, then rows; columns as wide as their longest cell.
    void table(const std::vector<std::string>& heading,
               const std::vector<std::vector<std::string>>& rows) const;

    /// Prints a line for people on standard error.
    void note(std::string_view text) const;

    /// Prints an error and, where there is any, what to do next.
    void failure(std::string_view message, std::string_view advice) const;

    /// The text as it is marked on standard output.
    [[nodiscard]] std::string marked(Mark mark, std::string_view text) const;

  private:
    bool outHasColours_;
    bool errHasColours_;
};

/// The number of columns that a UTF-8 text takes, one for each code point.
[[nodiscard]] std::size_t columnsOf(std::string_view text) noexcept;

/// A text of a service's or a person's as it may be shown: control characters become '?', so that
/// none reaches the terminal.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace KestrinProfileCLI
