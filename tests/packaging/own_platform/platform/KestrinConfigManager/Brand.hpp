#pragma once

#include <string>

namespace KestrinConfigManager {

struct Brand {
    std::string rawValue;
};

}  // namespace KestrinConfigManager
