#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include <KestrinC/kestrin_profile.h>

namespace KestrinJava {

// What crosses the border to Java is bytes: numbers in the machine's order, texts as their length
// (-1: absent) and UTF-8. The other side is Wire.java.

/// Writes what Java reads.
class Writer {
  public:
    /// A number, or a Boolean, which is one byte.
    template <class Number>
    void number(Number value) {
        static_assert(std::is_arithmetic_v<Number>);
        char bytes[sizeof value];
        std::memcpy(bytes, &value, sizeof value);
        bytes_.append(bytes, sizeof bytes);
    }

    /// How many of something follow; -1: it is absent.
    void count(std::size_t count) {
        if (count > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
            throw std::length_error("more than an array of Java's holds");
        number(static_cast<std::int32_t>(count));
    }

    void absent() { number(std::int32_t{-1}); }

    void text(kestrin_text value) {
        if (value.data == nullptr) return absent();
        count(value.length);
        bytes_.append(value.data, value.length);
    }

    /// A value that says whether it is there.
    template <class Optional>
    void optional(const Optional& value) {
        number(value.present);
        if (value.present) number(value.value);
    }

    [[nodiscard]] const std::string& bytes() const noexcept { return bytes_; }

  private:
    std::string bytes_;
};

/// Reads what Java has written. The texts point into it.
class Reader {
  public:
    explicit Reader(std::string_view bytes) noexcept : rest_(bytes) {}

    [[nodiscard]] bool hasMore() const noexcept { return !rest_.empty(); }

    template <class Number>
    [[nodiscard]] Number number() {
        Number value{};
        std::memcpy(&value, take(sizeof value), sizeof value);
        return value;
    }

    [[nodiscard]] bool boolean() { return number<std::uint8_t>() != 0; }

    /// How many of something follow; -1: it is absent.
    [[nodiscard]] std::int32_t count() { return number<std::int32_t>(); }

    [[nodiscard]] kestrin_text text() {
        const std::int32_t length = count();
        if (length < 0) return {};
        const auto size = static_cast<std::size_t>(length);
        return {take(size), size};
    }

    [[nodiscard]] kestrin_optional_int64 optionalNumber() {
        const bool present = boolean();
        return {present, present ? number<std::int64_t>() : 0};
    }

    [[nodiscard]] kestrin_optional_bool optionalBoolean() {
        const bool present = boolean();
        return {present, present && boolean()};
    }

  private:
    const char* take(std::size_t count) {
        if (count > rest_.size()) throw std::logic_error("Wire.java has written too little");
        const char* const taken = rest_.data();
        rest_.remove_prefix(count);
        return taken;
    }

    std::string_view rest_;
};

}  // namespace KestrinJava
