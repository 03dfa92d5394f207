// The clock that tokens and time stamps follow, and that the admin interface sets.
#include <string>

#include <gtest/gtest.h>

#include <kestrin-profile-server/domain/DevelopmentClock.hpp>
#include <kestrin-profile-server/domain/Members.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

TEST(DevelopmentClockTest, followsItsSourceUntilItIsChanged) {
    Milliseconds source = 1000;
    DevelopmentClock clock([&] { return source; });
    EXPECT_EQ(clock.now(), 1000);
    source = 2000;
    EXPECT_EQ(clock.now(), 2000);
    EXPECT_EQ(clock.offset(), 0);
    clock.advance(-500);
    EXPECT_EQ(clock.now(), 1500);
    source = 3000;
    EXPECT_EQ(clock.now(), 2500);
    clock.reset();
    EXPECT_EQ(clock.now(), 3000);
}

TEST(DevelopmentClockTest, standsStillAndGoesOnFromThere) {
    Milliseconds source = 1000;
    DevelopmentClock clock([&] { return source; });
    clock.freeze(true);
    EXPECT_TRUE(clock.isFrozen());
    source = 5000;
    EXPECT_EQ(clock.now(), 1000);
    clock.advance(1);
    EXPECT_EQ(clock.now(), 1001);
    clock.set(-7);
    EXPECT_EQ(clock.now(), -7);
    EXPECT_TRUE(clock.isFrozen());
    clock.freeze(true);
    EXPECT_EQ(clock.now(), -7);
    clock.freeze(false);
    EXPECT_EQ(clock.now(), -7);
    source = 5010;
    EXPECT_EQ(clock.now(), 3);
    clock.set(100);
    source = 5011;
    EXPECT_EQ(clock.now(), 101);
}

TEST(TimeTest, isReadAsItIsWritten) {
    for (const Milliseconds time : {Milliseconds{0}, startTime, Milliseconds{951782400007}})
        EXPECT_EQ(timeIn(timestampText(time)), time);
    EXPECT_EQ(timeIn("1970-01-01T00:00:01Z"), 1000);
    EXPECT_EQ(timeIn("1970-01-01T00:00:00.5Z"), 500);
    EXPECT_EQ(timeIn("1970-01-01T00:00:00.05Z"), 50);
    for (const char* const wrong :
         {"", "1970-01-01", "1970-01-01T00:00:00", "1970-01-01 00:00:00Z", "1970-13-01T00:00:00Z",
          "1970-02-29T00:00:00Z", "1970-01-01T24:00:00Z", "1970-01-01T00:60:00Z",
          "1970-01-01T00:00:60Z", "1970-01-01T00:00:00.Z", "1970-01-01T00:00:00.1234Z",
          "1970-01-01T00:00:00+01:00", "x970-01-01T00:00:00Z", "1970-01-01T00:00:00Zx"}) {
        EXPECT_EQ(timeIn(wrong), std::nullopt) << wrong;
    }
}

class ClockTest : public testing::Test {
  protected:
    std::string outcomeOfRead() {
        return outcomeOf(client.call(parent, "GET", "/v1/history?brand=b&profile=parent&v=1"));
    }

    TestService service{withAdmin};
    AdminClient admin{service.baseURL()};
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
};

TEST_F(ClockTest, tellsTheTime) {
    const auto clock = admin.get("clock");
    EXPECT_EQ(clock.at("now"), "2017-03-09T18:25:43.511Z");
    EXPECT_EQ(clock.at("frozen"), false);
    EXPECT_EQ(clock.at("offsetSeconds").to_number<double>(), 0.0);
}

TEST_F(ClockTest, tokensExpireByIt) {
    EXPECT_EQ(outcomeOfRead(), "200");
    EXPECT_EQ(admin.call("POST", "clock/advance", R"({"seconds":3599.0})").status, 200);
    EXPECT_EQ(outcomeOfRead(), "200");
    const auto clock = admin.call("POST", "clock/advance", R"({"seconds":1.5})").json();
    EXPECT_EQ(clock.at("now"), "2017-03-09T19:25:44.011Z");
    EXPECT_EQ(clock.at("offsetSeconds").to_number<double>(), 3600.5);
    EXPECT_EQ(outcomeOfRead(), "403 token-refused");
    admin.call("POST", "clock/advance", R"({"seconds":-10})");
    EXPECT_EQ(outcomeOfRead(), "200");
}

TEST_F(ClockTest, timeStampsAreThoseOfAFrozenClock) {
    EXPECT_EQ(admin.call("PUT", "clock", R"({"now":"2017-03-09T18:30:00Z","frozen":true})").status,
              200);
    service.advance(std::chrono::hours(5));
    client.call(parent, "PUT", "/v1/favorites/show?show=s&brand=b&profile=parent&v=1");
    const auto list = client.call(parent, "GET", "/v1/favorites?brand=b&profile=parent&v=1").json();
    EXPECT_EQ(list.at("elements").at(0).at("autoAddTimestamp"), "2017-03-09T18:30:00.000Z");
    EXPECT_EQ(admin.get("status").at("now"), "2017-03-09T18:30:00.000Z");
    EXPECT_EQ(admin.call("PUT", "clock", R"({"frozen":false})").json().at("frozen"), false);
    service.advance(std::chrono::seconds(1));
    EXPECT_EQ(admin.get("clock").at("now"), "2017-03-09T18:30:01.000Z");
}

TEST_F(ClockTest, whatIsNoTimeIsRefused) {
    for (const char* const body : {R"({"now":"yesterday"})", R"({"now":1})", R"({"frozen":"true"})",
                                   R"({"color":"red"})", R"([])", R"("x")"}) {
        EXPECT_EQ(outcomeOf(admin.call("PUT", "clock", body)), "400 invalid-request") << body;
    }
    for (const char* const body :
         {R"({})", R"({"seconds":"1"})", R"({"seconds":1e300})", R"({"seconds":null})"}) {
        EXPECT_EQ(outcomeOf(admin.call("POST", "clock/advance", body)), "400 invalid-request")
            << body;
    }
    EXPECT_EQ(outcomeOf(admin.call("PUT", "clock")), "400 missing-body");
    EXPECT_EQ(outcomeOf(admin.call("PUT", "clock", "{")), "400 malformed-json");
    EXPECT_EQ(admin.get("clock").at("now"), "2017-03-09T18:25:43.511Z");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
