#pragma once

#include <optional>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinConfigManager {

struct Serializable {
    static std::optional<HalvardSling::JSONDictionary> serialized() { return std::nullopt; }
    friend bool operator==(const Serializable&, const Serializable&) = default;
};

template <class Record>
concept SerializableRecord = requires { &Record::serialized; };

}  // namespace KestrinConfigManager
