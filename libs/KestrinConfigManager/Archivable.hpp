#pragma once

#include <concepts>
#include <optional>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinConfigManager {

/// A record that can be kept on the device: `encode` writes it whole, `fromEncoded` reads it back.
template <class Record>
concept Archivable =
    requires(const Record& record, const HalvardSling::JSONDictionary& dictionary) {
        { Record::fromEncoded(dictionary) } -> std::same_as<std::optional<Record>>;
        { record.encode() } -> std::same_as<HalvardSling::JSONDictionary>;
    };

}  // namespace KestrinConfigManager
