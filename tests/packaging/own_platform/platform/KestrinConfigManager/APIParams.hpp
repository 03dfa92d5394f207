#pragma once

#include <optional>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/TextMap.hpp>

namespace KestrinConfigManager {

class APIParams {
  public:
    virtual ~APIParams() = default;
    virtual std::optional<TextMap> headers() const { return std::nullopt; }
    virtual std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation() const {
        return std::nullopt;
    }
    virtual bool hasValidParams() const { return true; }
    virtual std::optional<TextMap> URLMapping() const { return std::nullopt; }
};

}  // namespace KestrinConfigManager
