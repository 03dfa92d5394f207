// The default transport of a build with libcurl.

#include <memory>
#include <sys/resource.h>

#include <gmock/gmock.h>

#include <HalvardSling/testing/FakeTransport.hpp>

#include "CurlTransfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::HasSubstr;

namespace {

class DefaultCurlTransportTest : public testing::Test {
  protected:
    ~DefaultCurlTransportTest() override { setDefaultTransport(nullptr); }
};

TEST_F(DefaultCurlTransportTest, IsACurlTransportThatStays) {
    const auto transport = defaultTransport();
    EXPECT_NE(std::dynamic_pointer_cast<CurlTransport>(transport), nullptr);
    EXPECT_EQ(defaultTransport(), transport);
}

TEST_F(DefaultCurlTransportTest, FailsTheRequestWhereTheProcessMayOpenNoFileForIt) {
    if (UNDER_SANITIZER) GTEST_SKIP() << "a sanitizer opens files to look at memory";
    const auto cold = Sling(requestTo("https://api.example.com/x")).responses();
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{.rlim_cur = 0, .rlim_max = usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const Observed<Response> refused(cold);
    setrlimit(RLIMIT_NOFILE, &usual);
    ASSERT_TRUE(refused.error<SlingError>());
    EXPECT_EQ(refused.error<SlingError>()->kind(), SlingErrorKind::cannotConnect);
    EXPECT_THAT(refused.error<SlingError>()->what(), HasSubstr("no transport could be set up"));
    EXPECT_NE(defaultTransport(), nullptr);
}

TEST_F(DefaultCurlTransportTest, EndsWhatIsOpenWhenReplaced) {
    const RawServer silent([](RawConnection& connection) {
        connection.readRequest();
        connection.awaitClose();
    });
    const Observed<Response> open(Sling(requestTo(silent.url())).responses());
    ASSERT_TRUE(silent.awaitRequests(1));
    setDefaultTransport(std::make_shared<FakeTransport>());
    EXPECT_EQ(open.error<SlingError>()->kind(), SlingErrorKind::cancelled);
    EXPECT_TRUE(silent.awaitClosed(1));
}

}  // namespace
