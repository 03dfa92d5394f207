#include "OtherConfiguration.hpp"

#include <utility>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/WebService.hpp>

namespace KestrinProfileCLI {

using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::URLTemplate;
using KestrinConfigManager::WebService;

namespace {

WebService at(const std::string& origin, WebService service) {
    service.url = URLTemplate(origin + service.url.text().substr(service.url.pathBegin()));
    service.policy.allowsCleartext = true;
    return service;
}

}  // namespace

OtherConfiguration::OtherConfiguration(Configuration other)
    : former_(ConfigurationManager::sharedInstance().currentConfiguration()) {
    ConfigurationManager::sharedInstance().configure(std::move(other));
}

OtherConfiguration::~OtherConfiguration() {
    ConfigurationManager::sharedInstance().configure(*former_);
}

Configuration withoutServices() {
    Configuration configuration = *ConfigurationManager::sharedInstance().currentConfiguration();
    configuration.services = std::make_shared<const ServiceTable>();
    return configuration;
}

Configuration withServicesAt(const std::string& origin) {
    Configuration configuration = *ConfigurationManager::sharedInstance().currentConfiguration();
    ServiceTable services;
    for (const auto& [operation, service] : *configuration.services)
        services.add(at(origin, service));
    configuration.services = std::make_shared<const ServiceTable>(std::move(services));
    return configuration;
}

}  // namespace KestrinProfileCLI
