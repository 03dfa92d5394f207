#include <concepts>
#include <string>
#include <type_traits>

#include <rxcpp/rx-lite.hpp>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

#include "ServiceFixture.hpp"

namespace {

using HalvardSling::Observable;
using HalvardSling::Response;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::APIParams;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationManagerError;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::WebService;
using KestrinProfile::Profile;
using KestrinProfile::ProfileError;
using KestrinProfile::ProfileOperation;
using TestSupport::Observed;
using TestSupport::ServiceFixture;

static_assert(std::is_empty_v<Profile> && std::is_nothrow_default_constructible_v<Profile>);
static_assert(std::same_as<decltype(Profile().requestAnonymousBind()), Observable<AnonymousBind>>);

/// A JSON Web Token that expired on 2001-09-09: {"exp":1000000000}.
constexpr const char* expiredToken = "e30.eyJleHAiOjEwMDAwMDAwMDB9.c2ln";

using RequestAnonymousBind = ServiceFixture;

TEST_F(RequestAnonymousBind, AsksForTheParentByDefaultAndStoresWhatItGets) {
    transport->willAnswer(200, R"({"profileId":"parent","token":"t1"})");
    const Observed<AnonymousBind> observed(profile.requestAnonymousBind());
    ASSERT_TRUE(observed.completed());
    ASSERT_EQ(observed.values().size(), 1U);
    EXPECT_EQ(observed.values()[0], AnonymousBind("parent", "t1"));
    EXPECT_EQ(ConfigurationManager::profileBind(true), AnonymousBind("parent", "t1"));

    const auto sent = transport->requests().at(0);
    EXPECT_EQ(sent.url, "https://api.example.com/personalization-bind-anonymous?profile=parent");
    EXPECT_EQ(*sent.body, R"({"profileId":"parent"})");
}

TEST_F(RequestAnonymousBind, TheDefaultIsTheParentAtTheTimeOfTheCall) {
    transport->willAnswer(200, R"({"profileId":"other","token":"t"})");
    manager.configure({.parentProfileID = "other",
                       .brand = {},
                       .services = manager.currentConfiguration()->services});
    EXPECT_TRUE(Observed<AnonymousBind>(profile.requestAnonymousBind()).completed());
    EXPECT_EQ(*transport->requests().at(0).body, R"({"profileId":"other"})");
}

TEST_F(RequestAnonymousBind, CarriesNoBindEvenWhereOneIsHeld) {
    hold("parent", "secret");
    transport->willAnswer(200, R"({"profileId":"p2","token":"t"})");
    EXPECT_TRUE(Observed<AnonymousBind>(profile.requestAnonymousBind("p2")).completed());
    const auto sent = transport->requests().at(0);
    EXPECT_FALSE(sent.headers.value("Authorization"));
    EXPECT_FALSE(sent.headers.value("PXRO-PROFILE-ID"));
}

TEST_F(RequestAnonymousBind, AHeldValidBindOfTheProfileAnswersOnceWithoutARequest) {
    hold("parent", "held");
    const Observed<AnonymousBind> observed(profile.requestAnonymousBind());
    EXPECT_TRUE(observed.endedAtOnce());
    EXPECT_TRUE(observed.completed());
    ASSERT_EQ(observed.values().size(), 1U);
    EXPECT_EQ(observed.values()[0], AnonymousBind("parent", "held"));
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(RequestAnonymousBind, AHeldBindAnswersWithoutTheServiceBeingConfigured) {
    hold("parent", "held");
    configureWith({});
    EXPECT_TRUE(Observed<AnonymousBind>(profile.requestAnonymousBind()).completed());
}

TEST_F(RequestAnonymousBind, AHeldBindOfAnotherProfileLeadsToARequest) {
    hold("parent", "held");
    transport->willAnswer(200, R"({"profileId":"p2","token":"t2"})");
    const Observed<AnonymousBind> observed(profile.requestAnonymousBind("p2"));
    ASSERT_EQ(observed.values().size(), 1U);
    EXPECT_EQ(observed.values()[0], AnonymousBind("p2", "t2"));
    EXPECT_EQ(transport->requests().size(), 1U);
}

TEST_F(RequestAnonymousBind, OnlyTheParentsHeldBindAnswers) {
    hold("p2", "held");
    transport->willAnswer(200, R"({"profileId":"p2","token":"new"})");
    EXPECT_EQ(Observed<AnonymousBind>(profile.requestAnonymousBind("p2")).values().at(0).token,
              "new");
}

TEST_F(RequestAnonymousBind, AHeldBindThatIsInvalidLeadsToARequest) {
    hold("parent", expiredToken);
    transport->willAnswer(200, R"({"profileId":"parent","token":"new"})");
    EXPECT_EQ(Observed<AnonymousBind>(profile.requestAnonymousBind()).values().at(0).token, "new");
    EXPECT_EQ(transport->requests().size(), 1U);
}

TEST_F(RequestAnonymousBind, WithoutAProfileIdentifierItFailsHeldBindOrNot) {
    EXPECT_EQ(
        Observed<AnonymousBind>(profile.requestAnonymousBind(std::nullopt)).error<ProfileError>(),
        ProfileError::profileIDValdationFailure);
    hold("parent", "held");
    EXPECT_EQ(
        Observed<AnonymousBind>(profile.requestAnonymousBind(std::nullopt)).error<ProfileError>(),
        ProfileError::profileIDValdationFailure);
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(RequestAnonymousBind, AnEmptyProfileIdentifierIsPresentAndIsSent) {
    transport->willAnswer(200, R"({"profileId":"x","token":"t"})");
    EXPECT_TRUE(Observed<AnonymousBind>(profile.requestAnonymousBind("")).completed());
    EXPECT_EQ(*transport->requests().at(0).body, R"({"profileId":""})");
}

TEST_F(RequestAnonymousBind, AReplyWithoutAValidBindFailsAndStoresNothing) {
    const std::vector<std::string> bodies{
        "{}",
        R"({"profileId":"parent"})",
        R"({"token":"t"})",
        R"({"profileId":1,"token":"t"})",
        R"({"profileId":"parent","token":null})",
        R"({"profileId":"","token":"t"})",
        R"({"profileId":"parent","token":""})",
        R"({"data":{"profileId":"parent","token":"t"}})",
        std::string(R"({"profileId":"parent","token":")") + expiredToken + "\"}"};
    for (const auto& body : bodies) {
        transport->willAnswer(200, body);
        const Observed<AnonymousBind> observed(profile.requestAnonymousBind());
        EXPECT_EQ(observed.error<ProfileError>(), ProfileError::anonymousBindSerializationError)
            << body;
        EXPECT_TRUE(observed.values().empty()) << body;
    }
    EXPECT_FALSE(ConfigurationManager::profileBind(true));
}

TEST_F(RequestAnonymousBind, ABindThatNoHeaderCanCarryFailsAndStoresNothing) {
    const std::string secret = "s3cret";
    for (const std::string& spoilt : std::vector<std::string>{
             secret + "\\r\\nX: y", secret + "\\u0000", secret + "ö", secret + " ", " " + secret,
             "\\t" + secret, secret + "\\u007f", secret + std::string(2'000'000, 'x')}) {
        for (const std::string field : {"token", "profileId"}) {
            const std::string other = field == "token" ? "profileId" : "token";
            transport->willAnswer(
                200, R"({")" + field + R"(":")" + spoilt + R"(",")" + other + R"(":"parent"})");
            const auto error =
                Observed<AnonymousBind>(profile.requestAnonymousBind()).error<ProfileError>();
            ASSERT_EQ(error, ProfileError::anonymousBindSerializationError);
            EXPECT_THAT(error->what(), testing::Not(testing::HasSubstr(secret)));
        }
    }
    EXPECT_FALSE(ConfigurationManager::profileBind(true));
    EXPECT_FALSE(manager.bind(false));
}

TEST_F(RequestAnonymousBind, AHeldBindThatNoHeaderCanCarryIsReplacedByARequest) {
    hold("parent", "held\r\n");
    transport->willAnswer(200, R"({"profileId":"parent","token":"new"})");
    EXPECT_EQ(Observed<AnonymousBind>(profile.requestAnonymousBind()).values().at(0).token, "new");
    EXPECT_EQ(ConfigurationManager::profileBind(true), AnonymousBind("parent", "new"));
    EXPECT_EQ(transport->requests().size(), 1U);
}

TEST_F(RequestAnonymousBind, AReplyThatIsNoDictionaryFailsEarlier) {
    transport->willAnswer(200, "[]");
    EXPECT_EQ(Observed<AnonymousBind>(profile.requestAnonymousBind()).error<SlingError>()->kind(),
              SlingErrorKind::malformedReply);
}

TEST_F(RequestAnonymousBind, ForbiddenRepliesCauseTwoReactionsAndTheSameError) {
    transport->willAnswer(403, "blocked");
    const auto error = Observed<AnonymousBind>(profile.requestAnonymousBind()).error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->statusCode(), 403);
    EXPECT_EQ(error->reply()->body, "blocked");
    EXPECT_EQ(reactions, 2);
}

TEST_F(RequestAnonymousBind, A403FromTheGuardCausesOneReaction) {
    WebService guarded = service(ProfileOperation::anonymousBind);
    guarded.guard = [](const WebService&, const APIParams&) -> std::optional<Observable<Response>> {
        return rxcpp::observable<>::error<Response>(SlingError::httpStatus(403, "guard", {}));
    };
    ServiceTable table;
    table.add(std::move(guarded));
    configureWith(std::move(table));
    EXPECT_EQ(
        Observed<AnonymousBind>(profile.requestAnonymousBind()).error<SlingError>()->statusCode(),
        403);
    EXPECT_EQ(reactions, 1);
    EXPECT_TRUE(transport->requests().empty());
}

TEST_F(RequestAnonymousBind, OtherFailuresCauseNoReaction) {
    for (const int status : {401, 404, 500}) {
        transport->willAnswer(status);
        EXPECT_EQ(Observed<AnonymousBind>(profile.requestAnonymousBind())
                      .error<SlingError>()
                      ->statusCode(),
                  status);
    }
    transport->willAnswer(200, "{}");
    EXPECT_TRUE(
        Observed<AnonymousBind>(profile.requestAnonymousBind()).error<ProfileError>().has_value());
    EXPECT_EQ(reactions, 0);
}

TEST_F(RequestAnonymousBind, TheDefaultReactionDropsTheHeldBinds) {
    manager.setForbiddenReplyReaction({});
    hold("parent", "held");
    hold("p2", "held too");
    transport->willAnswer(403);
    EXPECT_TRUE(Observed<AnonymousBind>(profile.requestAnonymousBind("p3")).error<SlingError>());
    EXPECT_FALSE(ConfigurationManager::profileBind(true));
}

TEST_F(RequestAnonymousBind, AnUnconfiguredServiceIsTheConfigurationLibrarysError) {
    configureWith({});
    const auto error =
        Observed<AnonymousBind>(profile.requestAnonymousBind()).error<ConfigurationManagerError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 3);
}

TEST_F(RequestAnonymousBind, NeitherErrorsNorTheirTextsHoldTheToken) {
    transport->willAnswer(200, R"({"profileId":"parent","token":"s3cret)");
    const auto error = Observed<AnonymousBind>(profile.requestAnonymousBind()).error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), testing::Not(testing::HasSubstr("s3cret")));
}

TEST_F(RequestAnonymousBind, ASubscriptionThatComesTwiceRequestsTwice) {
    transport->willAnswer(200, R"({"profileId":"parent","token":"t1"})");
    transport->willAnswer(200, R"({"profileId":"parent","token":"t2"})");
    const auto observable = profile.requestAnonymousBind();
    EXPECT_EQ(Observed<AnonymousBind>(observable).values().at(0).token, "t1");
    EXPECT_EQ(Observed<AnonymousBind>(observable).values().at(0).token, "t2");
}

}  // namespace
