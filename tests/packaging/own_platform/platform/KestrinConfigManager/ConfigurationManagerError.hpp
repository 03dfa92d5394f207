#pragma once

#include <exception>
#include <string_view>

namespace KestrinConfigManager {

struct ConfigurationManagerError : std::exception {
    enum Case { first, second, third, serviceNotConfigured };
    ConfigurationManagerError(Case aValue, std::string_view, std::string_view) : value(aValue) {}

    Case value;
};

}  // namespace KestrinConfigManager
