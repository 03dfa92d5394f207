#include <stdexcept>
#include <string>

#include <rxcpp/rx-lite.hpp>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinProfile/model/ProfileError.hpp>
#include <KestrinProfile/params/AnonymousBindParams.hpp>

#include "CreateProfileRequest.hpp"
#include "ServiceFixture.hpp"

namespace {

using HalvardSling::Observable;
using HalvardSling::Response;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::APIParams;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::WebService;
using KestrinProfile::AnonymousBindParams;
using KestrinProfile::Profile;
using KestrinProfile::ProfileError;
using KestrinProfile::ProfileOperation;
using TestSupport::Observed;
using TestSupport::ServiceFixture;

class Pipeline : public ServiceFixture {
  protected:
    static Observable<Response> request(
        std::optional<ProfileOperation> operation = ProfileOperation::validate,
        bool requireBind = false) {
        const auto createProfileRequest = opened(TestSupport::CreateProfileRequest());
        return (Profile().*createProfileRequest)(
            AnonymousBindParams("p1", ProfileOperation::validate), operation, requireBind);
    }

    /// Makes the service of `validate` answer by this guard.
    void guardWith(WebService::Guard guard) {
        WebService guarded = service(ProfileOperation::validate);
        guarded.guard = std::move(guard);
        ServiceTable table;
        table.add(std::move(guarded));
        configureWith(std::move(table));
    }
};

TEST_F(Pipeline, AnAbsentOperationFailsEvenWhereNothingIsConfigured) {
    manager.removeConfiguration();
    const Observed<Response> observed(request(std::nullopt));
    EXPECT_EQ(observed.error<ProfileError>(), ProfileError::parameterOperationMismatch);
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(Pipeline, WithoutAConfigurationTheErrorIsTheFourthOfTheConfigurationLibrary) {
    manager.removeConfiguration();
    const Observed<Response> observed(request());
    ASSERT_TRUE(observed.error<ConfigurationManagerError>());
    EXPECT_EQ(observed.error<ConfigurationManagerError>()->code(), 3);
    EXPECT_FALSE(observed.error<ProfileError>());
}

TEST_F(Pipeline, WithoutAServiceTableTheErrorIsTheSame) {
    manager.configure({.parentProfileID = "parent", .brand = {}, .services = nullptr});
    EXPECT_EQ(Observed<Response>(request()).error<ConfigurationManagerError>()->code(), 3);
}

TEST_F(Pipeline, AnOperationThatTheTableLacksFailsInTheSameWay) {
    const Observed<Response> observed(request(ProfileOperation::testOperation));
    EXPECT_EQ(observed.error<ConfigurationManagerError>()->code(), 3);
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(Pipeline, ServicesAreFoundByTheExactNameOnly) {
    WebService shouting = service(ProfileOperation::validate);
    shouting.operation = "PERSONALIZATION-VALIDATOR";
    ServiceTable table;
    table.add(std::move(shouting));
    configureWith(std::move(table));
    EXPECT_EQ(Observed<Response>(request()).error<ConfigurationManagerError>()->code(), 3);
}

TEST_F(Pipeline, EveryOperationGoesToTheServiceOfItsName) {
    transport->alwaysAnswer([](const auto&) {
        return Response(
            {.status = 200, .headers = {}, .body = {}, .effectiveURL = {}, .timings = {}});
    });
    for (std::size_t ordinal = 1; ordinal < KestrinProfile::profileOperationCount; ++ordinal) {
        const auto operation = static_cast<ProfileOperation>(ordinal);
        ASSERT_TRUE(Observed<Response>(request(operation)).completed()) << ordinal;
        EXPECT_EQ(transport->requests().back().url,
                  "https://api.example.com/" + std::string(rawValue(operation)) + "?profile=p1");
    }
}

TEST_F(Pipeline, TheRequestIsBuiltFromTheRecord) {
    transport->willAnswer(200);
    EXPECT_TRUE(Observed<Response>(request()).completed());
    const auto sent = transport->requests().at(0);
    EXPECT_EQ(sent.method, "POST");
    EXPECT_EQ(*sent.body, R"({"profileId":"p1"})");
}

TEST_F(Pipeline, TheResponseIsEmittedUnread) {
    transport->willAnswer(201, "not JSON");
    const Observed<Response> observed(request());
    ASSERT_EQ(observed.values().size(), 1U);
    EXPECT_EQ(observed.values()[0].status(), 201);
    EXPECT_EQ(observed.values()[0].body(), "not JSON");
}

TEST_F(Pipeline, NothingIsSentBeforeSubscriptionAndEachSubscriptionSendsOnce) {
    transport->willAnswer(200);
    transport->willAnswer(200);
    const auto observable = request();
    EXPECT_EQ(transport->requests().size(), 0U);
    EXPECT_TRUE(Observed<Response>(observable).completed());
    EXPECT_EQ(transport->requests().size(), 1U);
    EXPECT_TRUE(Observed<Response>(observable).completed());
    EXPECT_EQ(transport->requests().size(), 2U);
}

TEST_F(Pipeline, AnObservableFromTheGuardIsTheAnswerAndNothingIsSent) {
    guardWith([](const WebService&, const APIParams&) -> std::optional<Observable<Response>> {
        return rxcpp::observable<>::just(Response(
            {.status = 299, .headers = {}, .body = {}, .effectiveURL = {}, .timings = {}}));
    });
    const Observed<Response> observed(request());
    ASSERT_EQ(observed.values().size(), 1U);
    EXPECT_EQ(observed.values()[0].status(), 299);
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(Pipeline, A403FromTheGuardCausesNoReaction) {
    guardWith([](const WebService&, const APIParams&) -> std::optional<Observable<Response>> {
        return rxcpp::observable<>::error<Response>(SlingError::httpStatus(403, "guard", {}));
    });
    EXPECT_EQ(Observed<Response>(request()).error<SlingError>()->statusCode(), 403);
    EXPECT_EQ(reactions, 0);
}

TEST_F(Pipeline, TheGuardIsGivenTheRecordAndTheServiceOnEveryCall) {
    int asked = 0;
    guardWith([&](const WebService& service, const APIParams& params) {
        ++asked;
        EXPECT_EQ(service.operation, "personalization-validator");
        EXPECT_EQ(params.URLMapping()->at("%UXID%"), "p1");
        return std::optional<Observable<Response>>();
    });
    transport->willAnswer(200);
    EXPECT_TRUE(Observed<Response>(request()).completed());
    EXPECT_EQ(asked, 1);
}

TEST_F(Pipeline, A403ReplyCausesOneReactionAndIsStillDelivered) {
    transport->willAnswer(403, "blocked");
    const auto error = Observed<Response>(request()).error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->statusCode(), 403);
    EXPECT_EQ(error->reply()->body, "blocked");
    EXPECT_EQ(reactions, 1);
}

TEST_F(Pipeline, TheReactionComesBeforeTheErrorReachesTheSubscriber) {
    transport->willAnswer(403);
    int reactionsSeen = -1;
    request().subscribe([](const Response&) {},
                        [&](const std::exception_ptr&) { reactionsSeen = reactions; });
    EXPECT_EQ(reactionsSeen, 1);
}

TEST_F(Pipeline, OtherStatusesCauseNoReaction) {
    for (const int status : {400, 401, 404, 422, 500, 503}) {
        transport->willAnswer(status);
        EXPECT_EQ(Observed<Response>(request()).error<SlingError>()->statusCode(), status);
    }
    EXPECT_EQ(reactions, 0);
}

TEST_F(Pipeline, AnErrorWithoutAStatusCausesNoReaction) {
    transport->willAnswer(SlingError(SlingErrorKind::cannotConnect, "nobody there"));
    EXPECT_EQ(Observed<Response>(request()).error<SlingError>()->kind(),
              SlingErrorKind::cannotConnect);
    EXPECT_EQ(reactions, 0);
}

TEST_F(Pipeline, RequireBindChangesNothing) {
    for (const bool requireBind : {false, true}) {
        transport->willAnswer(200, "same");
        const Observed<Response> observed(request(ProfileOperation::validate, requireBind));
        ASSERT_TRUE(observed.completed());
        EXPECT_EQ(observed.values()[0].body(), "same");
    }
    ASSERT_EQ(transport->requests().size(), 2U);
    EXPECT_EQ(transport->requests()[0].url, transport->requests()[1].url);
    EXPECT_EQ(*transport->requests()[0].body, *transport->requests()[1].body);
}

TEST_F(Pipeline, ARequestThatCannotBeBuiltFailsThroughTheSequence) {
    WebService broken = service(ProfileOperation::validate);
    broken.headers.set("X-Broken", "line\nbreak");
    ServiceTable table;
    table.add(std::move(broken));
    configureWith(std::move(table));
    EXPECT_EQ(Observed<Response>(request()).error<SlingError>()->kind(),
              SlingErrorKind::forbiddenHeader);
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(Pipeline, UnsubscribingCancelsTheTransfer) {
    Observed<Response> observed(request());
    ASSERT_EQ(transport->waiting().size(), 1U);
    observed.unsubscribe();
    EXPECT_EQ(transport->cancelled(), 1U);
    EXPECT_FALSE(observed.endedAtOnce());
}

}  // namespace
