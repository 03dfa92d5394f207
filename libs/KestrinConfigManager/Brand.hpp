#pragma once

#include <string>

namespace KestrinConfigManager {

/// The brand that the application is built for.
struct Brand {
    std::string rawValue;  ///< the service's name of the brand

    friend bool operator==(const Brand&, const Brand&) = default;
};

}  // namespace KestrinConfigManager
