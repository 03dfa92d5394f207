// The default transport of a build without one.

#include <memory>

#include <gmock/gmock.h>

#include <HalvardSling/testing/FakeTransport.hpp>

#include "Transfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

TEST(NoTransport, ARequestFailsAndSaysWhatToDo) {
    const Observed<Response> refused(Sling(requestTo("https://example.test/")).responses());
    ASSERT_TRUE(refused.error<SlingError>());
    EXPECT_EQ(refused.error<SlingError>()->kind(), SlingErrorKind::cannotConnect);
    EXPECT_THAT(refused.error<SlingError>()->what(), testing::HasSubstr("setDefaultTransport"));
    EXPECT_EQ(refused.error<SlingError>()->context()->method, "GET");
}

TEST(NoTransport, TheOneThatTheApplicationSetsIsUsed) {
    const auto cold = Sling(requestTo("https://example.test/")).responses();
    EXPECT_TRUE(Observed<Response>(cold).error<SlingError>());
    const auto fake = std::make_shared<FakeTransport>();
    fake->willAnswer(200, "x");
    setDefaultTransport(fake);
    EXPECT_TRUE(Observed<Response>(cold).completed());
    setDefaultTransport(nullptr);
}

}  // namespace
