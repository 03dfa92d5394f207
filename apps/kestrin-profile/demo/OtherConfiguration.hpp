#pragma once

#include <memory>
#include <string>

#include <KestrinConfigManager/Configuration.hpp>

namespace KestrinProfileCLI {

/// Puts another configuration in the place of the current one for as long as it lives.
class OtherConfiguration {
  public:
    explicit OtherConfiguration(KestrinConfigManager::Configuration other);
    OtherConfiguration(const OtherConfiguration&) = delete;
    OtherConfiguration(OtherConfiguration&&) = delete;
    OtherConfiguration& operator=(const OtherConfiguration&) = delete;
    OtherConfiguration& operator=(OtherConfiguration&&) = delete;
    ~OtherConfiguration();

  private:
    std::shared_ptr<const KestrinConfigManager::Configuration> former_;
};

/// The current configuration without any service.
[[nodiscard]] KestrinConfigManager::Configuration withoutServices();

/// The current configuration with every service at another place, where it is reached in clear
/// text.
/// @param origin  e.g. "http://127.0.0.1:8480"
[[nodiscard]] KestrinConfigManager::Configuration withServicesAt(const std::string& origin);

}  // namespace KestrinProfileCLI
