#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <HalvardSling/testing/FakeTransport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/Household.hpp>
#include <KestrinHousehold/testing/FakeScheduler.hpp>

namespace {

// [testing]
TEST(YourOwnCode, TriesAgainWhenTheServiceIsBusy) {
    const auto transport = std::make_shared<HalvardSling::FakeTransport>();
    HalvardSling::setDefaultTransport(transport);
    auto& manager = KestrinConfigManager::ConfigurationManager::sharedInstance();
    ASSERT_TRUE(manager.load(CONFIGURATION).empty());
    manager.storeBind({"parent", "a token"});

    KestrinHousehold::HouseholdOptions options;
    const auto time = std::make_shared<KestrinHousehold::FakeScheduler>();
    options.scheduler = time;
    const KestrinHousehold::Household household(options);

    transport->willAnswer(503);
    transport->willAnswer(200, R"({"data":[]})");
    bool hasCome = false;
    household.session().history().subscribe([&](const auto&) { hasCome = true; },
                                            [](const std::exception_ptr&) {}, [] {});
    EXPECT_FALSE(hasCome);
    time->advance(std::chrono::seconds(1));
    EXPECT_TRUE(hasCome);
    EXPECT_EQ(transport->requests().size(), 2U);
    HalvardSling::setDefaultTransport(nullptr);
}
// [end]

}  // namespace
