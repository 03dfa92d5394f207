#include <rxcpp/operators/rx-tap.hpp>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/SlingBuild.hpp>
#include <KestrinHousehold/session/internal/ConfiguredService.hpp>
#include <KestrinHousehold/session/internal/Forbidden.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::Observable;
using HalvardSling::Response;
using KestrinConfigManager::APIParams;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinConfigManager::WebService;

namespace {

void react(const std::exception_ptr& error) {
    if (isForbidden(error)) ConfigurationManager::sharedInstance().reactToForbiddenReply();
}

}  // namespace

std::shared_ptr<const WebService> configuredService(KestrinProfile::ProfileOperation operation) {
    const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
    if (!configuration || !configuration->services) return nullptr;
    const WebService* const service = configuration->services->find(rawValue(operation));
    return service == nullptr ? nullptr : std::shared_ptr<const WebService>(configuration, service);
}

Observable<Response> responsesOf(KestrinProfile::ProfileOperation operation,
                                 const APIParams& params) {
    const auto service = configuredService(operation);
    if (!service)
        return rxcpp::observable<>::error<Response>(ConfigurationManagerError(
            ConfigurationManagerError::Case::serviceNotConfigured, rawValue(operation),
            "the configuration has no such service"));
    if (const auto answer = service->configurationGuard(params)) return *answer;
    return KestrinConfigManager::build(params, *service).responses() |
           rxcpp::operators::tap([](const Response&) {}, &react);
}

}  // namespace KestrinHousehold::internal
