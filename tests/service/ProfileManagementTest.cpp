#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

#include "ServiceFixture.hpp"

namespace {

using HalvardSling::Observable;
using HalvardSling::Response;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::AnonymousBind;
using KestrinProfile::Profile;
using KestrinProfile::ProfileError;
using KestrinProfile::ProfileOperation;
using KestrinProfile::ProfileParams;
using KestrinProfile::User;
using KestrinProfile::UserParams;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using TestSupport::Observed;
using TestSupport::ServiceFixture;

class ProfileManagement : public ServiceFixture {
  protected:
    ProfileManagement() {
        hold("parent", "token");
        manager.selectProfile("parent");
    }

    [[nodiscard]] std::string lastURL() const { return transport->requests().back().url; }
};

/// A change of a profile, to test what editing and deleting share.
struct Change {
    const char* name;
    Observable<Response> (Profile::*method)(UserParams) const;
    ProfileOperation operation;
};

const std::vector<Change> changes{
    {"edit", &Profile::editProfile, ProfileOperation::editProfile},
    {"delete", &Profile::deleteProfile, ProfileOperation::deleteProfile}};

using ChangingAProfile = ProfileManagement;

TEST_F(ChangingAProfile, GoesOutForAnotherProfileThanTheParentUnderItsOwnOperation) {
    for (const auto& change : changes) {
        transport->willAnswer(200, "raw");
        UserParams params({}, User("p2", "Ann"));
        params.operation = ProfileOperation::createProfile;
        const Observed<Response> observed((profile.*change.method)(params));
        ASSERT_TRUE(observed.completed()) << change.name;
        EXPECT_EQ(observed.values()[0].body(), "raw");
        EXPECT_EQ(lastURL(), "https://api.example.com/" + std::string(rawValue(change.operation)) +
                                 "?profile=p2");
        EXPECT_EQ(transport->requests().back().headers.value("PXRO-PROFILE-ID"), "parent");
        EXPECT_EQ(params.operation, ProfileOperation::createProfile);
    }
}

TEST_F(ChangingAProfile, IsRefusedWithoutAUserThatNamesAProfile) {
    const std::vector<std::optional<User>> users{std::nullopt,
                                                 User::withoutProfileID("Ann", "a", "g"), User("")};
    for (const auto& change : changes) {
        for (const auto& user : users) {
            const Observed<Response> observed((profile.*change.method)(UserParams({}, user)));
            EXPECT_EQ(observed.error<ProfileError>(), ProfileError::userInvalidForOperation)
                << change.name;
        }
    }
    EXPECT_THAT(transport->requests(), IsEmpty());
}

TEST_F(ChangingAProfile, IsRefusedForTheParent) {
    for (const auto& change : changes)
        EXPECT_EQ(Observed<Response>((profile.*change.method)(UserParams({}, User("parent"))))
                      .error<ProfileError>(),
                  ProfileError::parentInvalidForOperation)
            << change.name;
    EXPECT_THAT(transport->requests(), IsEmpty());
}

TEST_F(ChangingAProfile, IsRefusedBeforeTheServiceIsLookedUp) {
    manager.configure({.parentProfileID = "parent", .brand = {}, .services = nullptr});
    for (const auto& change : changes) {
        EXPECT_TRUE(
            Observed<Response>((profile.*change.method)(UserParams())).error<ProfileError>());
        EXPECT_EQ(Observed<Response>((profile.*change.method)(UserParams({}, User("parent"))))
                      .error<ProfileError>(),
                  ProfileError::parentInvalidForOperation);
    }
}

TEST_F(ChangingAProfile, ComparesIdentifiersAsPlainText) {
    transport->willAnswer(200);
    EXPECT_TRUE(
        Observed<Response>(profile.editProfile(UserParams({}, User("Parent")))).completed());
}

TEST_F(ChangingAProfile, SendsTheUserWhenEditingAndNothingWhenDeleting) {
    transport->willAnswer(200);
    transport->willAnswer(200);
    const UserParams params({}, User("p2", "Ann", "cat"));
    EXPECT_TRUE(Observed<Response>(profile.editProfile(params)).completed());
    EXPECT_EQ(*transport->requests().back().body,
              R"({"username":"Ann","avatar":"cat","default":false})");
    EXPECT_TRUE(Observed<Response>(profile.deleteProfile(params)).completed());
    EXPECT_EQ(transport->requests().back().body, nullptr);
}

using ValidatingAName = ProfileManagement;

TEST_F(ValidatingAName, EmitsTheRawResponse) {
    transport->willAnswer(200, "anything");
    ProfileParams params;
    params.userName = "x y/z";
    const Observed<Response> observed(profile.validateProfileName(params));
    ASSERT_TRUE(observed.completed());
    EXPECT_EQ(observed.values()[0].body(), "anything");
    EXPECT_EQ(params.operation(), std::nullopt);
}

TEST_F(ValidatingAName, ANameThatIsRefusedIsTheServicesError) {
    transport->willAnswer(422, R"({"detail":"taken"})");
    ProfileParams params;
    params.userName = "Ann";
    const auto error = Observed<Response>(profile.validateProfileName(params)).error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->statusCode(), 422);
    EXPECT_THAT(error->reply()->body, HasSubstr("taken"));
}

using CreatingAProfile = ProfileManagement;

TEST_F(CreatingAProfile, EmitsTheUserOfTheReply) {
    transport->willAnswer(201, R"({"profileId":"p2","username":"Ann","default":false})");
    const Observed<User> observed(
        profile.createProfile(UserParams({}, User::withoutProfileID("Ann", "cat", "kids"))));
    ASSERT_THAT(observed.values(), SizeIs(1));
    EXPECT_EQ(observed.values()[0], User("p2", "Ann"));
    EXPECT_EQ(*transport->requests().back().body,
              R"({"username":"Ann","avatar":"cat","group":"kids","default":false})");
    EXPECT_THAT(lastURL(), HasSubstr("personalization-create-profile?profile=parent"));
}

TEST_F(CreatingAProfile, EveryDictionaryIsAUser) {
    transport->willAnswer(200, "{}");
    const Observed<User> observed(profile.createProfile(UserParams({}, User("p2"))));
    ASSERT_THAT(observed.values(), SizeIs(1));
    EXPECT_EQ(observed.values()[0].profileID, std::nullopt);
    EXPECT_FALSE(observed.values()[0].defaultUser);
}

using ListingProfiles = ProfileManagement;

TEST_F(ListingProfiles, EmitsTheUsersInTheOrderOfTheReply) {
    transport->willAnswer(200, R"({"data":[{"profileId":"p1","username":"Bob","avatar":"dog",)"
                               R"("group":"g","default":true},{"username":"Ann"},{}]})");
    const Observed<std::vector<User>> observed(profile.getProfiles());
    ASSERT_THAT(observed.values(), SizeIs(1));
    const auto users = observed.values()[0];
    ASSERT_THAT(users, SizeIs(3));
    EXPECT_EQ(users[0], User("p1", "Bob", "dog", "g", true));
    EXPECT_EQ(users[1].username, "Ann");
    EXPECT_EQ(users[1].profileID, std::nullopt);
    EXPECT_EQ(users[2].username, std::nullopt);
}

TEST_F(ListingProfiles, AnEmptyListIsNoError) {
    transport->willAnswer(200, R"({"data":[]})");
    const Observed<std::vector<User>> observed(profile.getProfiles());
    ASSERT_THAT(observed.values(), SizeIs(1));
    EXPECT_THAT(observed.values()[0], IsEmpty());
}

TEST_F(ListingProfiles, FailsWithoutAnArrayOfDictionariesUnderData) {
    for (const auto* const body : {"{}", R"({"data":null})", R"({"data":{}})", R"({"data":"x"})",
                                   R"({"data":[{},1]})", R"({"Data":[]})"}) {
        transport->willAnswer(200, body);
        EXPECT_EQ(Observed<std::vector<User>>(profile.getProfiles()).error<ProfileError>(),
                  ProfileError::userSerializationError)
            << body;
    }
}

TEST_F(ListingProfiles, AReplyThatIsNoDictionaryFailsEarlier) {
    transport->willAnswer(200, "[]");
    EXPECT_EQ(Observed<std::vector<User>>(profile.getProfiles()).error<SlingError>()->kind(),
              SlingErrorKind::malformedReply);
}

TEST_F(ListingProfiles, UsesTheParentsHeldBindUnlessAnotherIsGiven) {
    transport->willAnswer(200, R"({"data":[]})");
    transport->willAnswer(200, R"({"data":[]})");
    EXPECT_TRUE(Observed<std::vector<User>>(profile.getProfiles()).completed());
    EXPECT_EQ(transport->requests().back().headers.value("Authorization"), "JWT token");
    EXPECT_TRUE(
        Observed<std::vector<User>>(profile.getProfiles(AnonymousBind("p2", "other"))).completed());
    EXPECT_EQ(transport->requests().back().headers.value("Authorization"), "JWT other");
    EXPECT_EQ(transport->requests().back().headers.value("PXRO-PROFILE-ID"), "p2");
    EXPECT_EQ(transport->requests().back().body, nullptr);
}

TEST_F(ListingProfiles, WithoutAnyBindTheGuardRefuses) {
    manager.dropBinds();
    EXPECT_TRUE(Observed<std::vector<User>>(profile.getProfiles())
                    .error<KestrinConfigManager::ConfigurationManagerError>());
    EXPECT_THAT(transport->requests(), IsEmpty());
}

}  // namespace
