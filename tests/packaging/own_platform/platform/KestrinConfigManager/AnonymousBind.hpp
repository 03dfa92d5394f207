#pragma once

#include <optional>
#include <string>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinConfigManager {

struct AnonymousBind {
    static std::optional<AnonymousBind> fromJSON(const HalvardSling::JSONDictionary& json) {
        return AnonymousBind{std::string(json.text("who").value_or("")),
                             std::string(json.text("secret").value_or(""))};
    }
    bool isValid() const { return !token.empty(); }
    friend bool operator==(const AnonymousBind&, const AnonymousBind&) = default;

    std::string profileID;
    std::string token;
};

}  // namespace KestrinConfigManager
