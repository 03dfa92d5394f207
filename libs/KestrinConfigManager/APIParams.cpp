#include <KestrinConfigManager/APIParams.hpp>

namespace KestrinConfigManager {

APIParams::~APIParams() = default;

std::optional<TextMap> APIParams::headers() const {
    return std::nullopt;
}

std::optional<HalvardSling::JSONDictionary> APIParams::dictionaryRepresentation() const {
    return std::nullopt;
}

std::optional<std::string> APIParams::urlEncodedString() const {
    return std::nullopt;
}

bool APIParams::hasValidParams() const {
    return true;
}

std::optional<TextMap> APIParams::URLMapping() const {
    return std::nullopt;
}

std::optional<TextMap> APIParams::queryParameters() const {
    return std::nullopt;
}

bool APIParams::removeUserAgent() const {
    return false;
}

}  // namespace KestrinConfigManager
