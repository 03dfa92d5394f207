#include <cstdio>
#include <exception>
#include <memory>

#include <HalvardSling/testing/FakeTransport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/service/Profile.hpp>

int main() {
    const auto transport = std::make_shared<HalvardSling::FakeTransport>();
    transport->willAnswer(200, R"({"profileId":"parent","token":"t"})");
    HalvardSling::setDefaultTransport(transport);

    KestrinConfigManager::WebService service;
    service.operation = "personalization-bind-anonymous";
    service.url = KestrinConfigManager::URLTemplate("https://api.example.com/%UXID%");
    KestrinConfigManager::ServiceTable services;
    services.add(service);
    KestrinConfigManager::ConfigurationManager::sharedInstance().configure(
        {.parentProfileID = "parent",
         .brand = {},
         .services = std::make_shared<const KestrinConfigManager::ServiceTable>(services)});

    int result = 1;
    KestrinProfile::Profile().requestAnonymousBind().subscribe(
        [&](const auto& bind) { result = bind.token == "t" ? 0 : 1; },
        [](const std::exception_ptr&) { std::puts("failed"); });
    return result;
}
