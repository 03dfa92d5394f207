#pragma once

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <HalvardSling/Export.hpp>

namespace HalvardSling {

/// The header fields of one HTTP message, in order. Names are compared without regard to letter
/// case (RFC 9110, section 5.1); a name may occur more than once.
///
/// All texts lie in one piece of memory. Views of them live as long as the object is neither
/// changed nor destroyed.
class HALVARD_SLING_EXPORT Headers {
  public:
    /// Name and value.
    using Field = std::pair<std::string_view, std::string_view>;
    class Iterator;

    /// No fields.
    Headers() = default;
    /// These fields, in this order.
    Headers(std::initializer_list<Field> fields);

    /// The value of the first field with this name, or absent where there is none.
    [[nodiscard]] std::optional<std::string_view> value(std::string_view name) const;

    /// Makes room.
    /// @param fields  so many in all
    /// @param bytes   so many in all their names and values
    void reserve(std::size_t fields, std::size_t bytes);

    /// Appends a field; one of the same name stays.
    /// @param name, value  copied; no views of this object's own
    void add(std::string_view name, std::string_view value);

    /// Sets a field: replaces every one of the same name.
    /// @param name, value  copied; no views of this object's own
    void set(std::string_view name, std::string_view value);

    /// Removes every field of this name.
    void remove(std::string_view name);

    /// The first field.
    [[nodiscard]] Iterator begin() const noexcept;
    /// Behind the last field.
    [[nodiscard]] Iterator end() const noexcept;
    /// How many fields there are.
    [[nodiscard]] std::size_t size() const noexcept { return ends_.size(); }
    /// Whether there is no field.
    [[nodiscard]] bool empty() const noexcept { return ends_.empty(); }

    /// Whether a field may have this name: a token (RFC 9110, section 5.6.2).
    [[nodiscard]] static bool isValidName(std::string_view name) noexcept;

    /// Whether a field may have this value: it holds only 0x20 to 0x7E and tab.
    [[nodiscard]] static bool isValidValue(std::string_view value) noexcept;

    /// Whether two header names are the same name.
    [[nodiscard]] static bool sameName(std::string_view left, std::string_view right) noexcept;

  private:
    /// Where a field's texts end; the name begins where the field before ends.
    struct Ends {
        std::size_t name;
        std::size_t value;
    };

    std::string texts_;
    std::vector<Ends> ends_;
};

/// Goes through the fields in order. Dereferencing makes the field, a pair of views.
class Headers::Iterator {
  public:
    /// What the standard library asks of an iterator.
    /// @{
    using iterator_concept = std::forward_iterator_tag;
    using iterator_category = std::input_iterator_tag;
    using value_type = Field;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = Field;
    /// @}

    /// Equal to nothing but its like.
    Iterator() = default;

    /// The field.
    [[nodiscard]] Field operator*() const noexcept {
        const std::string_view name(begin_, ends_->name - start_);
        return {name, {begin_ + name.size(), ends_->value - ends_->name}};
    }

    /// Goes to the next field.
    Iterator& operator++() noexcept {
        begin_ += ends_->value - start_;
        start_ = ends_->value;
        ++ends_;
        return *this;
    }

    /// Goes to the next field. @return what it was before
    Iterator operator++(int) noexcept {  // NOLINT(cert-dcl21-cpp): as iterators do
        const Iterator before = *this;
        ++*this;
        return before;
    }

    /// Whether both are at the same field of the same object.
    friend bool operator==(const Iterator& left, const Iterator& right) noexcept {
        return left.ends_ == right.ends_;
    }

  private:
    friend class Headers;
    Iterator(const char* begin, const Ends* ends) noexcept : begin_(begin), ends_(ends) {}

    const char* begin_ = nullptr;  // of the field's name
    const Ends* ends_ = nullptr;
    std::size_t start_ = 0;  // where the field before ends
};

inline Headers::Iterator Headers::begin() const noexcept {
    return {texts_.data(), ends_.data()};
}

inline Headers::Iterator Headers::end() const noexcept {
    return {nullptr, ends_.data() + ends_.size()};
}

}  // namespace HalvardSling
