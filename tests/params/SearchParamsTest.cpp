#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/params/SearchParams.hpp>

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

// What clients can and cannot write.
template <class Params>
concept ClientWritesSearch = requires(Params params) { params.search = "text"; };
template <class Params>
concept ClientWritesBrandID = requires(Params params) { params.brandID = "acme"; };
template <class Params>
concept ClientWritesOperation =
    requires(Params params) { params.operation() = std::optional(ProfileOperation::validate); } ||
    requires(Params params) { params.operation_ = std::optional(ProfileOperation::validate); } ||
    requires(Params params) { params.operation = std::optional(ProfileOperation::validate); };
template <class Params>
concept ClientWritesType = requires(Params params) { params.type() = Types::show; } ||
                           requires(Params params) { params.type_ = Types::show; } ||
                           requires(Params params) { params.type = Types::show; };
template <class Params>
concept ClientWritesBind =
    requires(Params params) { params.bind() = std::optional(AnonymousBind()); } ||
    requires(Params params) { params.bind_ = std::optional(AnonymousBind()); } ||
    requires(Params params) { params.bind = std::optional(AnonymousBind()); };

struct OpenParams {
    std::optional<ProfileOperation> operation_;
    Types type_;
    std::optional<AnonymousBind> bind_;
};
static_assert(ClientWritesOperation<OpenParams> && ClientWritesType<OpenParams> &&
              ClientWritesBind<OpenParams>);
static_assert(ClientWritesSearch<SearchParams> && ClientWritesBrandID<SearchParams>);
static_assert(!ClientWritesOperation<SearchParams>);
static_assert(!ClientWritesType<SearchParams>);
static_assert(!ClientWritesBind<SearchParams>);

class SearchParamsTest : public TestSupport::ParamsFixture {
  protected:
    [[nodiscard]] SearchParams full(std::optional<ProfileOperation> operation) const {
        SearchParams params("x y/z", Types::video, bind, "acme");
        setOperation(params, operation);
        return params;
    }
};

TEST_F(SearchParamsTest, NamesTheKeyAndTheMark) {
    EXPECT_STREQ(SearchParams::Keys::type, "type");
    EXPECT_STREQ(SearchParams::Keys::term, "TERM");
}

TEST_F(SearchParamsTest, StartsEmpty) {
    const SearchParams params;
    EXPECT_EQ(params.search, "");
    EXPECT_EQ(params.type(), Types::none);
    EXPECT_EQ(params.bind(), std::nullopt);
    EXPECT_EQ(params.brandID, "acme");
    EXPECT_EQ(params.operation(), std::nullopt);
    EXPECT_FALSE(params.hasValidParams());
}

TEST_F(SearchParamsTest, IsInvalidUntilTheOperationIsSet) {
    holdBoth();
    SearchParams params;
    EXPECT_FALSE(params.hasValidParams());
    setOperation(params, ProfileOperation::addSearchHistory);
    EXPECT_TRUE(params.hasValidParams());
}

TEST_F(SearchParamsTest, KeepsWhatIsGiven) {
    holdBoth();
    const auto params = full(std::nullopt);
    EXPECT_EQ(params.search, "x y/z");
    EXPECT_EQ(params.type(), Types::video);
    EXPECT_EQ(params.bind(), bind);
    EXPECT_EQ(params.brandID, "acme");
    EXPECT_EQ(SearchParams("", Types::none, bind, std::nullopt).brandID, std::nullopt);
}

TEST_F(SearchParamsTest, TakesTheSelectedProfilesBindWhereNoneIsGiven) {
    holdBoth();
    EXPECT_EQ(SearchParams().bind(), childBind);
    EXPECT_EQ(SearchParams("a", Types::none, std::nullopt, "acme").bind(), childBind);
    manager.selectProfile("parent");
    EXPECT_EQ(SearchParams().bind(), parentBind);
}

TEST_F(SearchParamsTest, AsksForTheBrandAtEachCall) {
    EXPECT_EQ(SearchParams().brandID, "acme");
    configure("zenith");
    EXPECT_EQ(SearchParams().brandID, "zenith");
    configure(std::nullopt);
    EXPECT_EQ(SearchParams().brandID, std::nullopt);
    manager.removeConfiguration();
    EXPECT_EQ(SearchParams().brandID, std::nullopt);
}

TEST_F(SearchParamsTest, HeadersAreThoseOfTheBind) {
    EXPECT_EQ(full(std::nullopt).headers(), bindHeaders);
    EXPECT_EQ(SearchParams().headers(), TextMap());
}

TEST_F(SearchParamsTest, AnswersTheSameForEveryOperation) {
    for (const auto operation : allOperations()) {
        const auto params = full(operation);
        SCOPED_TRACE(nameOf(operation));
        EXPECT_EQ(bodyText(params), R"({"type":"TERM"})");
        EXPECT_EQ(params.URLMapping(),
                  (TextMap{{"%SEARCH%", "x%20y%2Fz"}, {"%BRANDNAME%", "acme"}, {"%UXID%", "p1"}}));
        EXPECT_EQ(params.hasValidParams(), operation.has_value());
        EXPECT_EQ(params.urlEncodedString(), std::nullopt);
        EXPECT_EQ(params.queryParameters(), std::nullopt);
        EXPECT_FALSE(params.removeUserAgent());
    }
}

TEST_F(SearchParamsTest, NeedsBindAndBrandForEveryOperation) {
    for (const auto operation : allOperations()) {
        auto params = full(operation);
        params.brandID.reset();
        EXPECT_FALSE(params.hasValidParams()) << nameOf(operation);
        params = full(operation);
        setBind(params, std::nullopt);
        EXPECT_FALSE(params.hasValidParams()) << nameOf(operation);
    }
}

TEST_F(SearchParamsTest, AnEmptySearchTextIsValidAndMapped) {
    SearchParams params("", Types::none, bind, "acme");
    setOperation(params, ProfileOperation::deleteSearchHistory);
    EXPECT_TRUE(params.hasValidParams());
    EXPECT_EQ(params.URLMapping(),
              (TextMap{{"%SEARCH%", ""}, {"%BRANDNAME%", "acme"}, {"%UXID%", "p1"}}));
    params.brandID = "";
    EXPECT_TRUE(params.hasValidParams());
}

TEST_F(SearchParamsTest, MapsOnlyWhatIsPresent) {
    EXPECT_EQ(SearchParams("a", Types::none, std::nullopt, std::nullopt).URLMapping(),
              (TextMap{{"%SEARCH%", "a"}}));
    EXPECT_EQ(SearchParams("a", Types::none, AnonymousBind("p 1", "t"), "b/c").URLMapping(),
              (TextMap{{"%SEARCH%", "a"}, {"%BRANDNAME%", "b/c"}, {"%UXID%", "p 1"}}));
}

TEST_F(SearchParamsTest, TheContentKindIsNotSent) {
    for (const auto type :
         {Types::show, Types::video, Types::game, Types::collection, Types::none}) {
        const SearchParams params("x y/z", type, bind, "acme");
        EXPECT_EQ(bodyText(params), R"({"type":"TERM"})");
        EXPECT_EQ(params.URLMapping(), full(std::nullopt).URLMapping());
        EXPECT_EQ(params == full(std::nullopt), type == Types::video);
    }
}

TEST_F(SearchParamsTest, EqualityComparesFiveFields) {
    const auto params = full(ProfileOperation::addSearchHistory);
    EXPECT_EQ(params, full(ProfileOperation::addSearchHistory));

    std::vector<SearchParams> others(7, params);
    setOperation(others[0], std::nullopt);
    setOperation(others[1], ProfileOperation::deleteSearchHistory);
    setBind(others[2], std::nullopt);
    setBind(others[3], AnonymousBind("p1", "t2"));
    others[4].search = "";
    others[5].brandID.reset();
    others[6].brandID = "other";
    for (const auto& other : others) {
        EXPECT_FALSE(params == other);
        EXPECT_FALSE(other == params);
    }
}

TEST_F(SearchParamsTest, EqualityIsAnEquivalence) {
    std::vector<SearchParams> all;
    for (const auto* search : {"", "a"})
        for (const auto type : {Types::none, Types::video})
            for (const auto& token : {"t1", "t2"})
                for (int copy = 0; copy < 2; ++copy)
                    all.emplace_back(search, type, AnonymousBind("p1", token), "acme");
    TestSupport::expectEquivalence(all, 2 * 2 * 2);
}

}  // namespace
}  // namespace KestrinProfile
