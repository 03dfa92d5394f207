#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/Archivable.hpp>
#include <KestrinConfigManager/Serializable.hpp>
#include <KestrinProfile/model/User.hpp>

#include "model/RecordSupport.hpp"

namespace KestrinProfile {
namespace {

using TestSupport::dictionary;

static_assert(KestrinConfigManager::SerializableRecord<User>);
static_assert(KestrinConfigManager::Archivable<User>);

// Three names and a flag would otherwise be a user with a profile identifier, and the flag a group.
static_assert(!std::is_constructible_v<User, std::string, std::string, std::string, bool>);
static_assert(!std::is_default_constructible_v<User>);

User fullUser() {
    return User("p1", "Ada", "owl", "kids", true);
}

TEST(UserTest, KeysAreTheWireNames) {
    EXPECT_STREQ(User::Keys::profileID, "profileId");
    EXPECT_STREQ(User::Keys::username, "username");
    EXPECT_STREQ(User::Keys::avatar, "avatar");
    EXPECT_STREQ(User::Keys::group, "group");
    EXPECT_STREQ(User::Keys::defaultUser, "default");
}

TEST(UserTest, MadeWithAnIdentifierAlone) {
    const User user("p1");
    EXPECT_EQ(user.profileID, "p1");
    EXPECT_EQ(user.username, std::nullopt);
    EXPECT_EQ(user.avatar, std::nullopt);
    EXPECT_EQ(user.group, std::nullopt);
    EXPECT_FALSE(user.defaultUser);
}

TEST(UserTest, MadeWithAnIdentifierAndEverythingElse) {
    const User user = fullUser();
    EXPECT_EQ(user.profileID, "p1");
    EXPECT_EQ(user.username, "Ada");
    EXPECT_EQ(user.avatar, "owl");
    EXPECT_EQ(user.group, "kids");
    EXPECT_TRUE(user.defaultUser);
}

TEST(UserTest, ThreeTextsStartWithTheIdentifier) {
    const User user("p1", "Ada", "owl");
    EXPECT_EQ(user.profileID, "p1");
    EXPECT_EQ(user.username, "Ada");
    EXPECT_EQ(user.avatar, "owl");
    EXPECT_EQ(user.group, std::nullopt);
}

TEST(UserTest, MadeWithoutAnIdentifier) {
    const User user = User::withoutProfileID("Ada", "owl", "kids");
    EXPECT_EQ(user.profileID, std::nullopt);
    EXPECT_EQ(user.username, "Ada");
    EXPECT_EQ(user.avatar, "owl");
    EXPECT_EQ(user.group, "kids");
    EXPECT_FALSE(user.defaultUser);
    EXPECT_TRUE(User::withoutProfileID("Ada", "owl", "kids", true).defaultUser);
}

TEST(UserTest, IsEqualIfAllFieldsAre) {
    const User user = fullUser();
    EXPECT_EQ(user, User("p1", "Ada", "owl", "kids", true));
    EXPECT_NE(user, User("p2", "Ada", "owl", "kids", true));
    EXPECT_NE(user, User("p1", "Ann", "owl", "kids", true));
    EXPECT_NE(user, User("p1", "Ada", "cat", "kids", true));
    EXPECT_NE(user, User("p1", "Ada", "owl", "adults", true));
    EXPECT_NE(user, User("p1", "Ada", "owl", "kids", false));
    EXPECT_NE(User("p1", ""), User("p1")) << "an absent text is not an empty one";
}

TEST(UserTest, ReadsAnEmptyDictionary) {
    const auto user = User::fromJSON({});
    ASSERT_TRUE(user);
    EXPECT_EQ(user->profileID, std::nullopt);
    EXPECT_EQ(user->username, std::nullopt);
    EXPECT_EQ(user->avatar, std::nullopt);
    EXPECT_EQ(user->group, std::nullopt);
    EXPECT_FALSE(user->defaultUser);
}

TEST(UserTest, ReadsAllFields) {
    const auto from = dictionary(R"({"profileId": "p1", "username": "Ada", "avatar": "owl",
                                     "group": "kids", "default": true, "other": 1})");
    EXPECT_EQ(User::fromJSON(from), fullUser());
    EXPECT_EQ(User::fromEncoded(from), fullUser());
}

TEST(UserTest, LeavesOutWhatHasTheWrongKind) {
    const auto from = dictionary(R"({"profileId": 1, "username": 7, "avatar": null,
                                     "group": ["kids"], "default": "true"})");
    const User nobody = *User::fromJSON({});
    EXPECT_EQ(User::fromJSON(from), nobody);
    EXPECT_EQ(User::fromEncoded(from), nobody);
    EXPECT_EQ(User::fromJSON(dictionary(R"({"default": 1})")), nobody);
}

TEST(UserTest, OneWrongFieldLeavesTheOthers) {
    const auto user = User::fromJSON(dictionary(R"({"username": 7, "avatar": "owl"})"));
    ASSERT_TRUE(user);
    EXPECT_EQ(user->username, std::nullopt);
    EXPECT_EQ(user->avatar, "owl");
}

TEST(UserTest, WritesItsTwoForms) {
    EXPECT_EQ(fullUser().serialized()->toJSON(),
              R"({"username":"Ada","avatar":"owl","group":"kids","default":true})");
    EXPECT_EQ(
        fullUser().encode().toJSON(),
        R"({"profileId":"p1","username":"Ada","avatar":"owl","group":"kids","default":true})");
}

TEST(UserTest, LeavesAbsentTextsOutOfBothForms) {
    const User user("p1", "Ada", std::nullopt, std::nullopt, true);
    EXPECT_EQ(user.serialized()->toJSON(), R"({"username":"Ada","default":true})");
    EXPECT_EQ(user.encode().toJSON(), R"({"profileId":"p1","username":"Ada","default":true})");

    const User nobody = *User::fromJSON({});
    EXPECT_EQ(nobody.serialized()->toJSON(), R"({"default":false})");
    EXPECT_EQ(nobody.encode().toJSON(), R"({"default":false})");
}

TEST(UserTest, OnlyTheArchiveKeepsTheIdentifier) {
    User user = fullUser();
    EXPECT_EQ(User::fromEncoded(user.encode()), user);
    EXPECT_NE(User::fromJSON(*user.serialized()), user);
    user.profileID.reset();
    EXPECT_EQ(User::fromJSON(*user.serialized()), user);
}

TEST(UserTest, EqualityComparesEveryField) {
    const User user = fullUser();
    EXPECT_EQ(user, fullUser());

    std::vector<User> others(9, user);
    others[0].profileID = "p2";
    others[1].profileID.reset();
    others[2].username = "Eve";
    others[3].username.reset();
    others[4].avatar = "";
    others[5].avatar.reset();
    others[6].group = "all";
    others[7].group.reset();
    others[8].defaultUser = false;
    for (const auto& other : others)
        EXPECT_NE(other, user);
    EXPECT_NE(others[4], others[5]) << "an empty text is not an absent one";
}

}  // namespace
}  // namespace KestrinProfile
