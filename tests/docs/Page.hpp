#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

/// A page of the documentation, as far as tests read it.
class Page {
  public:
    using Row = std::vector<std::string>;

    /// @param name  the file's name in docs/
    explicit Page(std::string_view name);

    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    /// The rows of the first table below a line, without its head.
    /// @throws std::runtime_error if there is no such line or no table
    [[nodiscard]] std::vector<Row> tableBelow(std::string_view line) const;

    /// What stands between ```json and ```, in order.
    [[nodiscard]] std::vector<std::string> jsonBlocks() const;

  private:
    std::string text_;
};

/// The texts between backticks, in order.
std::vector<std::string> codeIn(std::string_view text);

/// The texts between double quotes, in order.
std::vector<std::string> quotedIn(std::string_view text);

}  // namespace TestSupport
