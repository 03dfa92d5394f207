#pragma once

#include <cstdio>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <internal/Guarded.hpp>

#include "Text.hpp"

namespace KestrinProfileCLI {

/// How text is styled on a terminal that has colours.
enum class Style { plain, strong, good, bad, faint };

/// The program's output: results on standard output, everything else on standard error. Colours
/// only on a terminal, and never if NO_COLOR is set (https://no-color.org).
class Terminal {
  public:
    Terminal() : Terminal(stdout, stderr) {}

    /// Prints elsewhere.
    /// @param results   opened; both outlive this
    /// @param messages  for everything but results
    Terminal(std::FILE* results, std::FILE* messages);

    /// From now on a text is shown as "***" wherever it occurs: a token, for example, that a
    /// service repeats in what it says about an error. Ignores what is too short to be a secret.
    /// May be called while other threads print.
    void hide(std::string secret);

    /// Prints a line of a result.
    void line(std::string_view text) const;

    /// Prints a text of the program's own, as it is.
    void verbatim(std::string_view text) const;

    /// Prints a JSON document as a line of a result.
    void json(const HalvardSling::JSONDictionary& document) const;

    /// Prints a table: a heading, then rows; columns as wide as their longest cell. On a terminal
    /// that is narrower the widest columns are shortened.
    void table(const std::vector<std::string>& heading,
               const std::vector<std::vector<std::string>>& rows) const;

    /// The lines of such a table.
    [[nodiscard]] std::vector<std::string> tableLines(
        const std::vector<std::string>& heading,
        const std::vector<std::vector<std::string>>& rows) const;

    /// Clears the terminal and shows these lines, as many and as much of each as it has room for.
    void redraw(const std::vector<std::string>& lines) const;

    /// Sends what was printed on its way.
    /// @return whether all of it could be written
    [[nodiscard]] bool flush() const;

    /// Prints a line for people on standard error.
    void note(std::string_view text) const;

    /// Prints a JSON document as a line on standard error.
    void noteJSON(const HalvardSling::JSONDictionary& document) const;

    /// Prints an error and, unless it is empty, what to do next.
    void failure(std::string_view message, std::string_view advice) const;

    /// Shows progress on standard error, in place of the last progress shown. Does nothing unless
    /// that is a capable terminal. An empty text removes it.
    void progress(std::string_view text) const;

    /// Whether a person can be asked: what is asked is seen, and what is typed comes here.
    [[nodiscard]] bool canAsk() const noexcept { return inIsTerminal_ && errIsTerminal_; }

    /// Prints a question on standard error; the answer stands on the same line.
    void ask(std::string_view question) const;

    /// Whether results go to a terminal that can be redrawn.
    [[nodiscard]] bool canRedraw() const noexcept { return outIsCapable_; }

    /// The text as it is styled on standard output.
    [[nodiscard]] std::string styled(Style style, std::string_view text) const;

  private:
    [[nodiscard]] std::string withoutSecrets(std::string_view text) const;

    mutable KestrinInternal::Guarded<std::set<std::string>> secrets_;
    std::FILE* out_;
    std::FILE* err_;
    bool inIsTerminal_;
    bool outIsTerminal_;
    bool outIsCapable_;
    bool errIsTerminal_;
    bool errIsCapable_;
    bool outHasColours_;
    bool errHasColours_;
};

}  // namespace KestrinProfileCLI
