#pragma once

#include <string>
#include <variant>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/http/URL.hpp>

namespace HalvardSling::internal {

/// Who replied, for an error's text.
[[nodiscard]] inline std::string originText(const Response& response) {
    const auto url = URL::parse(response.effectiveURL());
    const auto* const parsed = std::get_if<URL>(&url);
    return parsed != nullptr ? parsed->origin().text() : "an unknown origin";
}

}  // namespace HalvardSling::internal
