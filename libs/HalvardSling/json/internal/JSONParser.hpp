#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <variant>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <HalvardSling/json/internal/JSONDocument.hpp>

namespace HalvardSling::internal {

/// Reads a JSON text whose top is a dictionary. No dictionary of the document holds a key twice.
/// @param text    the document keeps it and refers to it
/// @param limits  a text that exceeds one of them is a failure
[[nodiscard]] std::variant<std::shared_ptr<const JSONDocument>, JSONFailure> parseJSON(
    std::shared_ptr<const std::string> text, const JSONLimits& limits);

}  // namespace HalvardSling::internal
