#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/params/UserParams.hpp>

#include "params/ParamsFixture.hpp"

namespace KestrinProfile {
namespace {

using KestrinConfigManager::TextMap;
using TestSupport::allOperations;
using TestSupport::bodyText;
using TestSupport::nameOf;
using enum ProfileOperation;

template <class Params>
concept Comparable = requires(const Params& params) { params == params; };
static_assert(!Comparable<UserParams>);

class UserParamsTest : public TestSupport::ParamsFixture {
  protected:
    [[nodiscard]] UserParams params(std::optional<ProfileOperation> operation,
                                    std::optional<User> user) const {
        UserParams made(bind, std::move(user));
        made.operation = operation;
        return made;
    }

    const User newUser = User::withoutProfileID("Ada", "owl", "kids");
    const User knownUser = User("u1", "Ada", "owl", "kids", true);
};

TEST_F(UserParamsTest, StartsEmpty) {
    const UserParams made;
    EXPECT_EQ(made.operation, std::nullopt);
    EXPECT_EQ(made.bind, std::nullopt);
    EXPECT_EQ(made.user, std::nullopt);
    EXPECT_FALSE(made.hasValidParams());
    EXPECT_EQ(made.URLMapping(), TextMap());
    EXPECT_EQ(made.headers(), TextMap());
    EXPECT_EQ(bodyText(made), "absent");
}

TEST_F(UserParamsTest, KeepsWhatIsGiven) {
    holdBoth();
    const UserParams made(bind, knownUser);
    EXPECT_EQ(made.bind, bind);
    EXPECT_EQ(made.user, knownUser);
    EXPECT_EQ(made.operation, std::nullopt);
}

TEST_F(UserParamsTest, TakesTheParentsBindWhereNoneIsGiven) {
    holdBoth();
    EXPECT_EQ(UserParams().bind, parentBind);
    EXPECT_EQ(UserParams(std::nullopt, newUser).bind, parentBind);
    manager.dropBinds();
    hold(childBind);
    EXPECT_EQ(UserParams().bind, std::nullopt) << "the selected profile's bind will not do";
}

TEST_F(UserParamsTest, ItsFieldsAreTheClients) {
    UserParams made;
    made.bind = bind;
    made.user = knownUser;
    made.operation = deleteProfile;
    EXPECT_TRUE(made.hasValidParams());
}

TEST_F(UserParamsTest, HeadersAreThoseOfTheBind) {
    EXPECT_EQ(UserParams(bind).headers(), bindHeaders);
    EXPECT_EQ(UserParams().headers(), TextMap());
}

/// The mapping with this value of "%UXID%"; without the placeholder where there is none.
TextMap uxid(const std::optional<std::string>& value) {
    TextMap mapping;
    if (value) mapping.emplace("%UXID%", *value);
    return mapping;
}

/// What an operation answers with no user, with one that has no identifier, and with one that has.
struct Row {
    std::vector<bool> valid{true, true, true};
    std::vector<std::optional<std::string>> uxid{"p1", "p1", "p1"};
    std::vector<std::string> body{"absent", "absent", "absent"};
};

const std::string newBody = R"({"username":"Ada","avatar":"owl","group":"kids","default":false})";
const std::string knownBody = R"({"username":"Ada","avatar":"owl","group":"kids","default":true})";

const std::map<std::optional<ProfileOperation>, Row> rows{
    {createProfile, {.valid = {false, true, true}, .body = {"absent", newBody, knownBody}}},
    {editProfile,
     {.valid = {false, false, true},
      .uxid = {std::nullopt, std::nullopt, "u1"},
      .body = {"absent", newBody, knownBody}}},
    {deleteProfile, {.valid = {false, false, true}, .uxid = {std::nullopt, std::nullopt, "u1"}}},
};

TEST_F(UserParamsTest, AnswersForItsOperation) {
    const std::vector<std::optional<User>> users{std::nullopt, newUser, knownUser};
    for (const auto operation : allOperations()) {
        const auto found = rows.find(operation);
        const Row row = found == rows.end() ? Row() : found->second;
        for (std::size_t at = 0; at < users.size(); ++at) {
            SCOPED_TRACE(nameOf(operation) + ", user " + std::to_string(at));
            const auto made = params(operation, users[at]);
            EXPECT_EQ(made.hasValidParams(), row.valid[at]);
            EXPECT_EQ(made.URLMapping(), uxid(row.uxid[at]));
            EXPECT_EQ(bodyText(made), row.body[at]);
            EXPECT_EQ(made.headers(), bindHeaders);
            EXPECT_EQ(made.urlEncodedString(), std::nullopt);
            EXPECT_EQ(made.queryParameters(), std::nullopt);
            EXPECT_FALSE(made.removeUserAgent());
        }
    }
}

TEST_F(UserParamsTest, WithoutABindNothingIsValid) {
    for (const auto operation : allOperations()) {
        SCOPED_TRACE(nameOf(operation));
        auto made = params(operation, knownUser);
        made.bind.reset();
        EXPECT_FALSE(made.hasValidParams());
        const bool addressesUser = operation == editProfile || operation == deleteProfile;
        EXPECT_EQ(made.URLMapping(), addressesUser ? uxid("u1") : uxid(std::nullopt));
        EXPECT_EQ(made.headers(), TextMap());
    }
}

TEST_F(UserParamsTest, AnEditWithoutAnIdentifierDoesNotFallBackOnTheBind) {
    const auto made = params(editProfile, newUser);
    EXPECT_FALSE(made.hasValidParams());
    EXPECT_EQ(made.URLMapping(), TextMap());
}

TEST_F(UserParamsTest, AnEmptyIdentifierCountsAsPresent) {
    for (const auto operation : {editProfile, deleteProfile}) {
        const auto made = params(operation, User(""));
        EXPECT_TRUE(made.hasValidParams());
        EXPECT_EQ(made.URLMapping(), uxid(""));
    }
}

TEST_F(UserParamsTest, CreateAndEditDifferOnlyInTheURL) {
    const auto create = params(createProfile, knownUser);
    const auto edit = params(editProfile, knownUser);
    EXPECT_EQ(bodyText(create), bodyText(edit));
    EXPECT_EQ(create.URLMapping(), uxid("p1"));
    EXPECT_EQ(edit.URLMapping(), uxid("u1"));
}

TEST_F(UserParamsTest, TheBodyLeavesOutAbsentTexts) {
    EXPECT_EQ(bodyText(params(createProfile, User("u1"))), R"({"default":false})");
}

}  // namespace
}  // namespace KestrinProfile
