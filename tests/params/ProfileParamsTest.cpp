#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/params/ProfileParams.hpp>

#include "model/Equivalence.hpp"
#include "params/ParamsFixture.hpp"

namespace KestrinProfile {
namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::TextMap;
using TestSupport::allOperations;
using TestSupport::bodyText;
using TestSupport::nameOf;
using TestSupport::setBind;
using TestSupport::setOperation;
using TestSupport::setType;
using enum ProfileOperation;

static_assert(std::is_same_v<decltype(ProfileParams::progress), std::optional<std::intptr_t>>);

// What clients can and cannot write. The positive ones show that the questions can be answered yes.
template <class Params>
concept ClientWritesBrandID = requires(Params params) { params.brandID = "acme"; };
template <class Params>
concept ClientWritesProgress = requires(Params params) { params.progress = 1; };
template <class Params>
concept ClientWritesOperation =
    requires(Params params) { params.operation() = std::optional(validate); } ||
    requires(Params params) { params.operation_ = std::optional(validate); } ||
    requires(Params params) { params.operation = std::optional(validate); };
template <class Params>
concept ClientWritesType =
    requires(Params params) { params.type() = std::optional(Types::show); } ||
    requires(Params params) { params.type_ = std::optional(Types::show); } ||
    requires(Params params) { params.type = std::optional(Types::show); };
template <class Params>
concept ClientWritesBind =
    requires(Params params) { params.bind() = std::optional(AnonymousBind()); } ||
    requires(Params params) { params.bind_ = std::optional(AnonymousBind()); } ||
    requires(Params params) { params.bind = std::optional(AnonymousBind()); };

/// A record whose every field is open.
struct OpenParams {
    std::optional<ProfileOperation> operation_;
    std::optional<Types> type_;
    std::optional<AnonymousBind> bind_;
};
static_assert(ClientWritesOperation<OpenParams> && ClientWritesType<OpenParams> &&
              ClientWritesBind<OpenParams>);
static_assert(ClientWritesBrandID<ProfileParams> && ClientWritesProgress<ProfileParams>);
static_assert(!ClientWritesOperation<ProfileParams>);
static_assert(!ClientWritesType<ProfileParams>);
static_assert(!ClientWritesBind<ProfileParams>);

class ProfileParamsTest : public TestSupport::ParamsFixture {
  protected:
    /// Every field present.
    [[nodiscard]] ProfileParams full(std::optional<ProfileOperation> operation) const {
        ProfileParams params(
            bind, "acme",
            std::vector{UserProfileElement("1", Types::show, 7, true), UserProfileElement()});
        params.videoID = "v1";
        params.showID = "s1";
        params.progress = 120;
        params.isComplete = true;
        params.userName = "x y/z";
        setType(params, Types::video);
        setOperation(params, operation);
        return params;
    }

    /// No field present but bind and brand.
    [[nodiscard]] ProfileParams bare(std::optional<ProfileOperation> operation) const {
        ProfileParams params(bind, "acme");
        setOperation(params, operation);
        return params;
    }
};

TEST_F(ProfileParamsTest, NamesTheKeysOfTheBody) {
    EXPECT_STREQ(ProfileParams::Keys::type, "type");
    EXPECT_STREQ(ProfileParams::Keys::progress, "progress");
    EXPECT_STREQ(ProfileParams::Keys::isComplete, "isCompleted");
    EXPECT_STREQ(ProfileParams::Keys::elements, "elements");
}

TEST_F(ProfileParamsTest, StartsWithTheConfiguredBrandAndNothingElse) {
    const ProfileParams params;
    EXPECT_EQ(params.bind(), std::nullopt);
    EXPECT_EQ(params.type(), std::nullopt);
    EXPECT_EQ(params.operation(), std::nullopt);
    EXPECT_EQ(params.brandID, "acme");
    EXPECT_EQ(params.videoID, std::nullopt);
    EXPECT_EQ(params.showID, std::nullopt);
    EXPECT_FALSE(params.elements);
    EXPECT_EQ(params.progress, std::nullopt);
    EXPECT_EQ(params.isComplete, std::nullopt);
    EXPECT_EQ(params.userName, std::nullopt);
}

TEST_F(ProfileParamsTest, KeepsWhatIsGiven) {
    holdBoth();
    const ProfileParams params(bind, "other", std::vector{UserProfileElement("1")});
    EXPECT_EQ(params.bind(), bind);
    EXPECT_EQ(params.brandID, "other");
    EXPECT_EQ(params.elements, std::vector{UserProfileElement("1")});
    EXPECT_EQ(ProfileParams(bind, std::nullopt).brandID, std::nullopt);
}

TEST_F(ProfileParamsTest, TakesTheSelectedProfilesBindWhereNoneIsGiven) {
    holdBoth();
    EXPECT_EQ(ProfileParams().bind(), childBind);
    EXPECT_EQ(ProfileParams(std::nullopt, "acme").bind(), childBind);
    manager.selectProfile("parent");
    EXPECT_EQ(ProfileParams().bind(), parentBind);
    manager.selectProfile("stranger");
    EXPECT_EQ(ProfileParams().bind(), std::nullopt);
}

TEST_F(ProfileParamsTest, AsksForTheBrandAtEachCall) {
    EXPECT_EQ(ProfileParams().brandID, "acme");
    configure("zenith");
    EXPECT_EQ(ProfileParams().brandID, "zenith");
    configure(std::nullopt);
    EXPECT_EQ(ProfileParams().brandID, std::nullopt);
    manager.removeConfiguration();
    EXPECT_EQ(ProfileParams().brandID, std::nullopt);
}

TEST_F(ProfileParamsTest, HeadersAreThoseOfTheBind) {
    EXPECT_EQ(ProfileParams(bind).headers(), bindHeaders);
    EXPECT_EQ(ProfileParams().headers(), TextMap());
}

TEST_F(ProfileParamsTest, WithoutABindNothingIsAuthorised) {
    for (const auto operation : allOperations()) {
        auto params = full(operation);
        setBind(params, std::nullopt);
        EXPECT_EQ(params.headers(), TextMap());
        EXPECT_FALSE(params.URLMapping()->contains("%UXID%"));
        EXPECT_FALSE(params.hasValidParams()) << nameOf(operation);
    }
}

TEST_F(ProfileParamsTest, LeavesTheRestToTheDefaults) {
    for (const auto operation : allOperations()) {
        EXPECT_EQ(full(operation).urlEncodedString(), std::nullopt);
        EXPECT_EQ(full(operation).queryParameters(), std::nullopt);
        EXPECT_FALSE(full(operation).removeUserAgent());
    }
}

TEST_F(ProfileParamsTest, MapsEveryPresentValue) {
    for (const auto operation : allOperations()) {
        EXPECT_EQ(full(operation).URLMapping(), (TextMap{{"%SHOWID%", "s1"},
                                                         {"%BRANDNAME%", "acme"},
                                                         {"%VIDEO%", "v1"},
                                                         {"%UXID%", "p1"},
                                                         {"%USERNAME%", "x%20y%2Fz"}}))
            << nameOf(operation);
        EXPECT_EQ(bare(operation).URLMapping(),
                  (TextMap{{"%BRANDNAME%", "acme"}, {"%UXID%", "p1"}}));
    }
    EXPECT_EQ(ProfileParams(std::nullopt, std::nullopt).URLMapping(), TextMap());
}

TEST_F(ProfileParamsTest, EncodesOnlyTheUserName) {
    ProfileParams params(AnonymousBind("p 1/", "t"), "a b/c");
    params.videoID = "v?1";
    params.showID = "s#1";
    params.userName = "\xC3\xA9<>";
    EXPECT_EQ(params.URLMapping(), (TextMap{{"%SHOWID%", "s#1"},
                                            {"%BRANDNAME%", "a b/c"},
                                            {"%VIDEO%", "v?1"},
                                            {"%UXID%", "p 1/"},
                                            {"%USERNAME%", "\xC3\xA9<>"}}));
}

TEST_F(ProfileParamsTest, MapsEmptyTexts) {
    ProfileParams params(AnonymousBind(), "");
    params.videoID = "";
    params.showID = "";
    params.userName = "";
    EXPECT_EQ(params.URLMapping(), (TextMap{{"%SHOWID%", ""},
                                            {"%BRANDNAME%", ""},
                                            {"%VIDEO%", ""},
                                            {"%UXID%", ""},
                                            {"%USERNAME%", ""}}));
}

/// The bodies of the operations that have one, of a record with every field and of a bare one.
const std::map<std::optional<ProfileOperation>, std::pair<std::string, std::string>> bodies{
    {addVideoToHistory, {R"({"isCompleted":"true","type":"VIDEO","progress":"120"})", "{}"}},
    {addFavoriteShow, {R"({"type":"VIDEO"})", "absent"}},
    {addVideoToWatchList, {R"({"type":"VIDEO"})", "absent"}},
    {addFavoriteShows, {R"({"elements":[{"id":"1","type":"SHOW"},{}]})", "absent"}},
};

TEST_F(ProfileParamsTest, HasTheBodyOfItsOperation) {
    for (const auto operation : allOperations()) {
        const auto expected = bodies.find(operation);
        const auto& [whole, least] = expected == bodies.end()
                                         ? std::pair<std::string, std::string>("absent", "absent")
                                         : expected->second;
        EXPECT_EQ(bodyText(full(operation)), whole) << nameOf(operation);
        EXPECT_EQ(bodyText(bare(operation)), least) << nameOf(operation);
    }
}

TEST_F(ProfileParamsTest, WritesProgressAndCompletionAsTexts) {
    auto params = bare(addVideoToHistory);
    params.isComplete = false;
    EXPECT_EQ(bodyText(params), R"({"isCompleted":"false"})");
    params.isComplete.reset();
    setType(params, Types::none);
    EXPECT_EQ(bodyText(params), R"({"type":"none"})");
    setType(params, std::nullopt);
    const auto limits = {std::numeric_limits<std::intptr_t>::min(), std::intptr_t{-1},
                         std::intptr_t{0}, std::intptr_t{42},
                         std::numeric_limits<std::intptr_t>::max()};
    for (const auto progress : limits) {
        params.progress = progress;
        EXPECT_EQ(bodyText(params), R"({"progress":")" + std::to_string(progress) + R"("})");
    }
}

TEST_F(ProfileParamsTest, WritesTheKindOfEveryType) {
    const std::map<Types, std::string> kinds{{Types::show, "SHOW"},
                                             {Types::video, "VIDEO"},
                                             {Types::game, "GAME"},
                                             {Types::collection, "COLLECTION"},
                                             {Types::none, "none"}};
    for (const auto operation : {addVideoToHistory, addFavoriteShow, addVideoToWatchList})
        for (const auto& [type, kind] : kinds) {
            auto params = bare(operation);
            setType(params, type);
            EXPECT_EQ(bodyText(params), R"({"type":")" + kind + R"("})");
        }
}

TEST_F(ProfileParamsTest, WritesNoEntriesAsAnEmptyArray) {
    auto params = bare(addFavoriteShows);
    params.elements.emplace();
    EXPECT_EQ(bodyText(params), R"({"elements":[]})");
    EXPECT_FALSE(params.hasValidParams());
}

TEST_F(ProfileParamsTest, WritesTwoEntriesInTheirRequestForm) {
    auto params = bare(addFavoriteShows);
    params.elements = std::vector{UserProfileElement("2", Types::show, 1, false, Date()),
                                  UserProfileElement("1", Types::none)};
    EXPECT_EQ(bodyText(params),
              R"({"elements":[{"id":"2","type":"SHOW"},{"id":"1","type":"none"}]})");
    EXPECT_TRUE(params.hasValidParams());
}

/// A way to spoil a record.
struct Fault {
    std::string name;
    std::function<void(ProfileParams&)> make;
    std::set<std::optional<ProfileOperation>> spoils;
};

const std::vector<Fault> faults{
    {"no user name", [](auto& params) { params.userName.reset(); }, {validate}},
    {"an empty user name", [](auto& params) { params.userName = ""; }, {validate}},
    {"no video",
     [](auto& params) { params.videoID.reset(); },
     {getVideoProgress, removeVideoFromHistory, addVideoToWatchList, removeFromWatchList,
      addVideoToHistory}},
    {"an empty video", [](auto& params) { params.videoID = ""; }, {}},
    {"no progress", [](auto& params) { params.progress.reset(); }, {addVideoToHistory}},
    {"a negative progress", [](auto& params) { params.progress = -1; }, {addVideoToHistory}},
    {"the lowest progress",
     [](auto& params) { params.progress = std::numeric_limits<std::intptr_t>::min(); },
     {addVideoToHistory}},
    {"progress zero", [](auto& params) { params.progress = 0; }, {}},
    {"no show", [](auto& params) { params.showID.reset(); }, {addFavoriteShow, removeFavoriteShow}},
    {"an empty show", [](auto& params) { params.showID = ""; }, {}},
    {"no entries", [](auto& params) { params.elements.reset(); }, {addFavoriteShows}},
    {"an empty list of entries",
     [](auto& params) { params.elements->clear(); },
     {addFavoriteShows}},
    {"no completion", [](auto& params) { params.isComplete.reset(); }, {}},
    {"no content kind", [](auto& params) { setType(params, std::nullopt); }, {}},
    {"an empty brand", [](auto& params) { params.brandID = ""; }, {}},
    {"an empty bind", [](auto& params) { setBind(params, AnonymousBind()); }, {}},
};

TEST_F(ProfileParamsTest, IsValidWithAllThatItsOperationNeeds) {
    for (const auto operation : allOperations()) {
        EXPECT_TRUE(full(operation).hasValidParams()) << nameOf(operation);
        for (const auto& fault : faults) {
            auto params = full(operation);
            fault.make(params);
            EXPECT_EQ(params.hasValidParams(), !fault.spoils.contains(operation))
                << nameOf(operation) << " with " << fault.name;
        }
    }
}

TEST_F(ProfileParamsTest, NeedsABrandForEveryOperation) {
    for (const auto operation : allOperations()) {
        auto params = full(operation);
        params.brandID.reset();
        EXPECT_FALSE(params.hasValidParams()) << nameOf(operation);
    }
}

TEST_F(ProfileParamsTest, SomeOperationsNeedNothingElse) {
    const std::set<std::optional<ProfileOperation>> modest{
        std::nullopt,   testOperation, anonymousBind,  createProfile,    getProfiles,
        editProfile,    deleteProfile, getHistory,     clearHistory,     getFavorites,
        clearFavorites, getWatchList,  clearWatchList, addSearchHistory, deleteSearchHistory};
    for (const auto operation : allOperations())
        EXPECT_EQ(bare(operation).hasValidParams(), modest.contains(operation))
            << nameOf(operation);
}

TEST_F(ProfileParamsTest, ProgressAloneDoesNotMakeAVideoValid) {
    auto params = bare(addVideoToHistory);
    for (const auto progress : {-1, 0, 1}) {
        params.progress = progress;
        EXPECT_FALSE(params.hasValidParams()) << progress;
    }
}

TEST_F(ProfileParamsTest, EqualityComparesEightFields) {
    const auto params = full(getHistory);
    EXPECT_EQ(params, full(getHistory));

    const std::vector<std::function<void(ProfileParams&)>> differences{
        [](auto& other) { setBind(other, std::nullopt); },
        [](auto& other) { setBind(other, AnonymousBind("p1", "t2")); },
        [](auto& other) { setBind(other, AnonymousBind("p2", "t1")); },
        [](auto& other) { setType(other, std::nullopt); },
        [](auto& other) { setType(other, Types::show); },
        [](auto& other) { setOperation(other, std::nullopt); },
        [](auto& other) { setOperation(other, getFavorites); },
        [](auto& other) { other.brandID.reset(); },
        [](auto& other) { other.brandID = "other"; },
        [](auto& other) { other.videoID.reset(); },
        [](auto& other) { other.videoID = "v2"; },
        [](auto& other) { other.showID.reset(); },
        [](auto& other) { other.showID = "s2"; },
        [](auto& other) { other.progress.reset(); },
        [](auto& other) { other.progress = 121; },
        [](auto& other) { other.isComplete.reset(); },
        [](auto& other) { other.isComplete = false; },
    };
    for (std::size_t at = 0; at < differences.size(); ++at) {
        auto other = params;
        differences[at](other);
        EXPECT_FALSE(params == other) << at;
        EXPECT_FALSE(other == params) << at;
    }
}

TEST_F(ProfileParamsTest, EqualityLeavesOutEntriesAndUserName) {
    const auto params = full(getHistory);
    auto other = params;
    other.userName = "someone else";
    EXPECT_TRUE(params == other);
    other.userName.reset();
    EXPECT_TRUE(params == other);
    other.elements->clear();
    EXPECT_TRUE(params == other);
    other.elements.reset();
    EXPECT_TRUE(params == other);
}

TEST_F(ProfileParamsTest, EqualityIsAnEquivalence) {
    std::vector<ProfileParams> all;
    for (const auto operation : {std::optional<ProfileOperation>(), std::optional(getHistory)})
        for (const auto& brandID : {std::optional<std::string>(), std::optional<std::string>("")})
            for (const auto progress :
                 {std::optional<std::intptr_t>(), std::optional<std::intptr_t>(0)})
                for (const auto& userName :
                     {std::optional<std::string>(), std::optional<std::string>("a")}) {
                    auto params = bare(operation);
                    params.brandID = brandID;
                    params.progress = progress;
                    params.userName = userName;
                    all.push_back(params);
                }
    TestSupport::expectEquivalence(all, 2 * 2 * 2);
}

TEST_F(ProfileParamsTest, IsAValue) {
    const auto params = full(addVideoToHistory);
    auto copy = params;
    copy.videoID = "v2";
    setOperation(copy, clearHistory);
    EXPECT_EQ(params, full(addVideoToHistory));
}

}  // namespace
}  // namespace KestrinProfile
