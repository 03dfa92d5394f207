#pragma once

#include <exception>
#include <optional>

namespace HalvardSling {

struct SlingError : std::exception {
    explicit SlingError(int aStatus) : status(aStatus) {}
    std::optional<int> statusCode() const { return status; }

    int status;
};

}  // namespace HalvardSling
