// An application's test against a development service of its own.

#include <string>

#include <gtest/gtest.h>

#include <HalvardSling/rx/Future.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinProfile/service/Profile.hpp>
#include <KestrinProfileTesting/DevelopmentService.hpp>
#include <KestrinProfileTesting/GoogleTest.hpp>

namespace {

using HalvardSling::Response;
using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::ConfigurationManager;
using KestrinProfile::Profile;
using KestrinProfile::ProfileParams;
using KestrinProfileTesting::came;
using KestrinProfileTesting::DevelopmentService;
using KestrinProfileTesting::exactly;
using KestrinProfileTesting::Fault;
using KestrinProfileTesting::Requests;

// [fixture]
class WatchListTest : public testing::Test {
  protected:
    WatchListTest() {
        service.admin().apply("empty");
        EXPECT_TRUE(manager.load(service.configuration()).empty());
        HalvardSling::toFuture<AnonymousBind>(Profile().requestAnonymousBind()).get();
    }
    ~WatchListTest() override {
        manager.dropBinds();
        manager.removeConfiguration();
    }

    static Response add(const std::string& videoID) {
        ProfileParams params;
        params.videoID = videoID;
        return HalvardSling::toFuture<Response>(Profile().addWatchListVideo(params)).get();
    }

    DevelopmentService service;
    ConfigurationManager& manager = ConfigurationManager::sharedInstance();
};
// [end]

// [verify]
TEST_F(WatchListTest, AVideoIsAddedOnce) {
    EXPECT_EQ(add("v1").status(), 204);
    EXPECT_TRUE(came(service.admin(), Requests().method("PUT").profile("parent").item("v1"),
                     exactly(1)));
}
// [end]

// [fault]
TEST_F(WatchListTest, ABusyServiceIsAnError) {
    service.admin().add(Fault::status(503).onMethod("PUT").times(1));
    EXPECT_THROW(add("v1"), HalvardSling::SlingError);
    EXPECT_EQ(add("v1").status(), 204) << "only once";
}
// [end]

}  // namespace
