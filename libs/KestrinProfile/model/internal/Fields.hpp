#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinProfile/model/DateFormatter.hpp>

namespace KestrinProfile::internal {

// How the fields of every record are read and written. A record lists its fields once for each of
// its forms, and hands the list one of these two.

/// Reads fields from a dictionary, and is the only place that decides what a field takes:
///  - a text is a JSON string, an empty one included;
///  - an integer is a JSON number without fraction and exponent that fits 64 bits signed: 1.0, 1e3
///    and 9223372036854775808 are none;
///  - a Boolean is `true` or `false`: neither 0 and 1 nor the texts "true" and "false".
/// A key that is missing, a null and a value of any other kind leave the field absent. Nothing
/// fails, whatever the dictionary holds.
class FieldReader {
  public:
    explicit FieldReader(const HalvardSling::JSONDictionary& from) : from_(from) {}

    void operator()(std::string_view key, std::optional<std::string>& field) const {
        field.reset();
        if (const auto text = from_.text(key)) field.emplace(*text);
    }
    void operator()(std::string_view key, std::optional<std::int64_t>& field) const {
        field = from_.integer(key);
    }
    void operator()(std::string_view key, std::optional<bool>& field) const {
        field = from_.boolean(key);
    }
    /// A Boolean that is never absent: false if there is none.
    void operator()(std::string_view key, bool& field) const {
        field = from_.boolean(key).value_or(false);
    }
    /// A date, as a text that the formatter reads.
    void operator()(std::string_view key, std::optional<Date>& field,
                    const DateFormatter& formatter) const {
        const auto text = from_.text(key);
        field = text ? formatter.date(*text) : std::nullopt;
    }

  private:
    const HalvardSling::JSONDictionary& from_;
};

/// Writes fields to a dictionary, in the order in which they are given. An absent field leaves no
/// key, never a null.
class FieldWriter {
  public:
    explicit FieldWriter(HalvardSling::JSONDictionary& to) : to_(to) {}

    void operator()(std::string_view key, std::string_view value) const { to_.setText(key, value); }
    void operator()(std::string_view key, std::int64_t value) const { to_.setInteger(key, value); }
    void operator()(std::string_view key, std::same_as<bool> auto value) const {
        to_.setBoolean(key, value);
    }
    template <class Value>
    void operator()(std::string_view key, const std::optional<Value>& field) const {
        if (field) (*this)(key, *field);
    }
    void operator()(std::string_view key, const std::optional<Date>& field,
                    const DateFormatter& formatter) const {
        if (field) to_.setText(key, formatter.text(*field));
    }

  private:
    HalvardSling::JSONDictionary& to_;
};

}  // namespace KestrinProfile::internal
