#pragma once

#include <string>
#include <string_view>

#include <internal/Quoting.hpp>

namespace KestrinProfileCLI {

/// A JSON object that is written member by member. A dictionary looks for each key among those that
/// it has, which for the services of a large configuration would take long.
class ObjectText {
  public:
    /// @param json  the value, as JSON has it
    void add(std::string_view key, std::string_view json) {
        text_.append(text_.empty() ? "" : ",")
            .append(KestrinInternal::inQuotes(key))
            .append(":")
            .append(json);
    }
    void addText(std::string_view key, std::string_view text) {
        add(key, KestrinInternal::inQuotes(text));
    }
    [[nodiscard]] bool empty() const noexcept { return text_.empty(); }
    [[nodiscard]] std::string text() const { return "{" + text_ + "}"; }

  private:
    std::string text_;
};

}  // namespace KestrinProfileCLI
