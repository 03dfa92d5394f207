#pragma once

#include <map>
#include <string>

namespace KestrinConfigManager {

using TextMap = std::map<std::string, std::string, std::less<>>;

}  // namespace KestrinConfigManager
