#pragma once

#include <optional>
#include <string_view>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/APIParams.hpp>

namespace KestrinConfigManager {

struct WebService {
    std::optional<HalvardSling::Observable<HalvardSling::Response>> configurationGuard(
        const APIParams&) const {
        return std::nullopt;
    }
};

struct ServiceTable {
    const WebService* find(std::string_view operation) const {
        return operation == "personalization-bind-anonymous" ? &only : nullptr;
    }

    WebService only;
};

}  // namespace KestrinConfigManager
