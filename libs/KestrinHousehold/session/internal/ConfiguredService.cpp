#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/internal/ConfiguredService.hpp>

namespace KestrinHousehold::internal {

using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::WebService;

std::shared_ptr<const WebService> configuredService(KestrinProfile::ProfileOperation operation) {
    const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
    if (!configuration || !configuration->services) return nullptr;
    const WebService* const service = configuration->services->find(rawValue(operation));
    return service == nullptr ? nullptr : std::shared_ptr<const WebService>(configuration, service);
}

}  // namespace KestrinHousehold::internal
