#pragma once

#include <memory>
#include <optional>

#include <KestrinConfigManager/Brand.hpp>
#include <KestrinConfigManager/WebService.hpp>

namespace KestrinConfigManager {

struct Configuration {
    std::optional<Brand> brand;
    std::shared_ptr<const ServiceTable> services = std::make_shared<const ServiceTable>();
};

}  // namespace KestrinConfigManager
