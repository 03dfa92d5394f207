#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace HalvardSling {

/// The header fields of one HTTP message, in order. Names are compared without regard to letter
/// case (RFC 9110, section 5.1); a name may occur more than once.
class Headers {
  public:
    using Field = std::pair<std::string, std::string>;

    Headers() = default;
    Headers(std::initializer_list<Field> fields) : fields_(fields) {}

    /// The value of the first field with this name, or absent where there is none. The view lives
    /// as long as this object is neither changed nor destroyed.
    [[nodiscard]] std::optional<std::string_view> value(std::string_view name) const;

    /// Makes room for so many fields in all.
    void reserve(std::size_t count) { fields_.reserve(count); }

    /// Appends a field; one of the same name stays.
    void add(std::string name, std::string value);

    /// Sets a field: replaces every one of the same name.
    void set(std::string name, std::string value);

    /// Removes every field of this name.
    void remove(std::string_view name);

    [[nodiscard]] auto begin() const noexcept { return fields_.begin(); }
    [[nodiscard]] auto end() const noexcept { return fields_.end(); }
    [[nodiscard]] std::size_t size() const noexcept { return fields_.size(); }
    [[nodiscard]] bool empty() const noexcept { return fields_.empty(); }

    /// Whether two header names are the same name.
    [[nodiscard]] static bool sameName(std::string_view left, std::string_view right) noexcept;

  private:
    std::vector<Field> fields_;
};

}  // namespace HalvardSling
