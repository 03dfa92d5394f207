#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include <HalvardSling/testing/FakeTransport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/service/Profile.hpp>

#include "support/Observed.hpp"

namespace TestSupport {

/// A configured shared instance without binds, a transport that sends nothing, and a count of the
/// reactions to forbidden replies.
class ServiceFixture : public testing::Test {
  protected:
    ServiceFixture() {
        HalvardSling::setDefaultTransport(transport);
        manager.setForbiddenReplyReaction([this] { ++reactions; });
        manager.dropBinds();
        configure();
    }

    ~ServiceFixture() override {
        manager.setForbiddenReplyReaction({});
        manager.dropBinds();
        manager.removeConfiguration();
        HalvardSling::setDefaultTransport(nullptr);
    }

    /// A service of its own for every operation but `testOperation`.
    void configure() {
        KestrinConfigManager::ServiceTable table;
        for (std::size_t ordinal = 1; ordinal < KestrinProfile::profileOperationCount; ++ordinal)
            table.add(service(static_cast<KestrinProfile::ProfileOperation>(ordinal)));
        configureWith(std::move(table));
    }

    void configureWith(KestrinConfigManager::ServiceTable table) {
        manager.configure({.parentProfileID = "parent",
                           .brand = KestrinConfigManager::Brand{"acme"},
                           .services = std::make_shared<const KestrinConfigManager::ServiceTable>(
                               std::move(table))});
    }

    static KestrinConfigManager::WebService service(KestrinProfile::ProfileOperation operation) {
        KestrinConfigManager::WebService service;
        service.operation = rawValue(operation);
        service.method = "POST";
        service.url = KestrinConfigManager::URLTemplate("https://api.example.com/" +
                                                        service.operation + "?profile=%UXID%");
        service.body = KestrinConfigManager::BodyForm::json;
        return service;
    }

    void hold(const std::string& profileID, const std::string& token) {
        manager.setBindProfileID(profileID);
        manager.setBindToken(token);
    }

    KestrinConfigManager::ConfigurationManager& manager =
        KestrinConfigManager::ConfigurationManager::sharedInstance();
    std::shared_ptr<HalvardSling::FakeTransport> transport =
        std::make_shared<HalvardSling::FakeTransport>();
    KestrinProfile::Profile profile;
    int reactions = 0;
};

}  // namespace TestSupport
