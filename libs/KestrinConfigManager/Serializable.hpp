#pragma once

#include <concepts>
#include <optional>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinConfigManager {

/// Base of a record that travels as JSON. The record supplies
///   static std::optional<Record> fromJSON(const JSONDictionary&)   reads a reply
/// and, if it is sent in requests,
///   std::optional<JSONDictionary> serialized() const               writes a request body
/// A record that is never sent leaves `serialized` out and has the default below.
struct Serializable {
    /// Default: absent, the record has no request form.
    [[nodiscard]] static std::optional<HalvardSling::JSONDictionary> serialized() {
        return std::nullopt;
    }

    friend bool operator==(const Serializable&, const Serializable&) = default;
};

/// A record that keeps the contract of `Serializable`.
template <class Record>
concept SerializableRecord =
    std::derived_from<Record, Serializable> &&
    requires(const Record& record, const HalvardSling::JSONDictionary& dictionary) {
        { Record::fromJSON(dictionary) } -> std::same_as<std::optional<Record>>;
        { record.serialized() } -> std::same_as<std::optional<HalvardSling::JSONDictionary>>;
    };

}  // namespace KestrinConfigManager
