#include <vector>

#include <gmock/gmock.h>

#include <KestrinProfile/params/AnonymousBindParams.hpp>

#include "model/Equivalence.hpp"
#include "params/ParamsFixture.hpp"

namespace KestrinProfile {
namespace {

using KestrinConfigManager::TextMap;
using TestSupport::bodyText;

class AnonymousBindParamsTest : public TestSupport::ParamsFixture {};

TEST_F(AnonymousBindParamsTest, SendsTheProfileInBodyAndURL) {
    EXPECT_STREQ(AnonymousBindParams::Keys::profileID, "profileId");
    const AnonymousBindParams params("p1", ProfileOperation::anonymousBind);
    EXPECT_EQ(params.profileID, "p1");
    EXPECT_EQ(params.operation, ProfileOperation::anonymousBind);
    EXPECT_EQ(bodyText(params), R"({"profileId":"p1"})");
    EXPECT_EQ(params.URLMapping(), (TextMap{{"%UXID%", "p1"}}));
    EXPECT_TRUE(params.hasValidParams());
}

TEST_F(AnonymousBindParamsTest, AnEmptyProfileIsSentAsWell) {
    const AnonymousBindParams params("", ProfileOperation::anonymousBind);
    EXPECT_EQ(bodyText(params), R"({"profileId":""})");
    EXPECT_EQ(params.URLMapping(), (TextMap{{"%UXID%", ""}}));
    EXPECT_TRUE(params.hasValidParams());
}

TEST_F(AnonymousBindParamsTest, IdentifiersAreNotEncoded) {
    const AnonymousBindParams params("a b/c", ProfileOperation::anonymousBind);
    EXPECT_EQ(params.URLMapping(), (TextMap{{"%UXID%", "a b/c"}}));
}

TEST_F(AnonymousBindParamsTest, CarriesNoBindEvenWhereOneIsHeld) {
    holdBoth();
    const AnonymousBindParams params("child", ProfileOperation::anonymousBind);
    EXPECT_EQ(params.headers(), std::nullopt);
    EXPECT_EQ(params.urlEncodedString(), std::nullopt);
    EXPECT_EQ(params.queryParameters(), std::nullopt);
    EXPECT_FALSE(params.removeUserAgent());
}

TEST_F(AnonymousBindParamsTest, EveryOperationGivesTheSameAnswers) {
    const AnonymousBindParams first("p1", ProfileOperation::testOperation);
    for (const auto operation : TestSupport::allOperations()) {
        if (!operation) continue;
        const AnonymousBindParams params("p1", *operation);
        EXPECT_EQ(bodyText(params), bodyText(first));
        EXPECT_EQ(params.URLMapping(), first.URLMapping());
        EXPECT_TRUE(params.hasValidParams());
        EXPECT_EQ(params, first);
    }
}

TEST_F(AnonymousBindParamsTest, EqualityIgnoresTheOperation) {
    EXPECT_EQ(AnonymousBindParams("p1", ProfileOperation::anonymousBind),
              AnonymousBindParams("p1", ProfileOperation::validate));
    EXPECT_FALSE(AnonymousBindParams("p1", ProfileOperation::anonymousBind) ==
                 AnonymousBindParams("p2", ProfileOperation::anonymousBind));
    std::vector<AnonymousBindParams> all;
    for (const auto* profileID : {"", "p1", "P1", "p1 "})
        for (const auto operation : {ProfileOperation::anonymousBind, ProfileOperation::validate})
            all.emplace_back(profileID, operation);
    TestSupport::expectEquivalence(all, 4);
}

}  // namespace
}  // namespace KestrinProfile
