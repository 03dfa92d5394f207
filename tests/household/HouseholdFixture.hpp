#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/testing/FakeTransport.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/session/Household.hpp>
#include <KestrinHousehold/testing/FakeScheduler.hpp>
#include <KestrinProfile/params/ProfileUtils.hpp>

#include "support/Observed.hpp"

namespace TestSupport {

/// The configuration that the project ships, no binds, a transport that sends nothing, and a time
/// that stands still. Delays are as long as the policy allows.
class HouseholdFixture : public testing::Test {
  protected:
    using Error = HalvardSling::SlingErrorKind;
    using Headers = HalvardSling::Headers;
    using Response = HalvardSling::Response;
    using SlingError = HalvardSling::SlingError;
    using TransportRequest = HalvardSling::TransportRequest;
    using TransportResult = HalvardSling::TransportResult;
    using Household = KestrinHousehold::Household;
    using HouseholdEvent = KestrinHousehold::HouseholdEvent;
    using HouseholdOptions = KestrinHousehold::HouseholdOptions;
    using ProfileSession = KestrinHousehold::ProfileSession;
    using RetryPolicy = KestrinHousehold::RetryPolicy;

    HouseholdFixture() {
        HalvardSling::setDefaultTransport(transport);
        manager.useBindStore(nullptr);
        manager.dropBinds();
        EXPECT_TRUE(manager.load(KESTRIN_EXAMPLE_CONFIGURATION).empty());
    }

    ~HouseholdFixture() override {
        manager.setForbiddenReplyReaction({});
        manager.setForbiddenReplyHandler({});
        manager.dropBinds();
        manager.removeConfiguration();
        HalvardSling::setDefaultTransport(nullptr);
    }

    HouseholdOptions options() {
        HouseholdOptions options;
        options.scheduler = scheduler;
        options.random = [] { return 1.0; };
        options.log = [this](const HouseholdEvent& event) {
            const std::scoped_lock lock(mutex_);
            events_.push_back(event.text());
        };
        return options;
    }

    Household household() { return Household(options()); }

    Household householdWith(RetryPolicy policy) {
        HouseholdOptions all = options();
        all.retry = std::move(policy);
        return Household(std::move(all));
    }

    /// What the log was told.
    std::vector<std::string> events() const {
        const std::scoped_lock lock(mutex_);
        return events_;
    }

    static TransportResult reply(int status, std::string body = "{}", Headers headers = {}) {
        return Response({.status = status,
                         .headers = std::move(headers),
                         .body = std::move(body),
                         .effectiveURL = {},
                         .timings = {}});
    }

    static TransportResult bindReply(const std::string& profileID, const std::string& token) {
        return reply(200, R"({"profileId":")" + profileID + R"(","token":")" + token + R"("})");
    }

    static TransportResult failure(Error kind) { return SlingError(kind, "as the test wants"); }

    static bool isForBind(const TransportRequest& request) {
        return request.operation == "personalization-bind-anonymous";
    }

    static std::string token(const TransportRequest& request) {
        const auto value = request.headers.value(KestrinProfile::ProfileHeaders::jwt);
        return value ? std::string(*value) : std::string();
    }

    static std::string profileID(const TransportRequest& request) {
        const auto value = request.headers.value(KestrinProfile::ProfileHeaders::profileID);
        return value ? std::string(*value) : std::string();
    }

    /// The requests so far, e.g. "personalization-history-get with JWT t1".
    std::vector<std::string> sent() const {
        std::vector<std::string> all;
        for (const auto& request : transport->requests())
            all.push_back(isForBind(request) ? "bind"
                                             : request.operation + " with " + token(request));
        return all;
    }

    /// Answers the one transfer that waits.
    void answer(TransportResult result) {
        const auto waiting = transport->waiting();
        ASSERT_EQ(waiting.size(), 1U);
        ASSERT_TRUE(transport->answer(waiting.front(), std::move(result)));
    }

    KestrinConfigManager::ConfigurationManager& manager =
        KestrinConfigManager::ConfigurationManager::sharedInstance();
    std::shared_ptr<HalvardSling::FakeTransport> transport =
        std::make_shared<HalvardSling::FakeTransport>();
    std::shared_ptr<KestrinHousehold::FakeScheduler> scheduler =
        std::make_shared<KestrinHousehold::FakeScheduler>();

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> events_;
};

}  // namespace TestSupport
