#pragma once

#include <functional>
#include <map>
#include <string>

namespace KestrinConfigManager {

/// A map from text to text: headers, placeholder values, query parameters.
using TextMap = std::map<std::string, std::string, std::less<>>;

}  // namespace KestrinConfigManager
