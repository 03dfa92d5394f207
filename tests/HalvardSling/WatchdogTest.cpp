#include <chrono>

#include <gmock/gmock.h>

#include <HalvardSling/transport/internal/Watchdog.hpp>

#include "support/SystemCalls.hpp"
#include "support/Waiting.hpp"

using namespace TestSupport;
using namespace std::chrono_literals;
using HalvardSling::internal::Watchdog;

namespace {

class WatchdogTest : public testing::Test {
  protected:
    Tally atWork;
    Tally atRest;
    Watchdog watchdog{1ms, [this](bool isAtWork) { (isAtWork ? atWork : atRest).add(); }};
};

TEST_F(WatchdogTest, LooksAgainAndAgainWhileThereIsWork) {
    watchdog.noteWork();
    EXPECT_TRUE(atWork.reaches(3));
}

TEST_F(WatchdogTest, LooksAtWorkHoweverShortTheWorkBeforeWas) {
    for (unsigned i = 0; i < 300; ++i) {
        for (unsigned piece = 0; piece < 50; ++piece) {
            watchdog.noteWork();
            watchdog.noteRest();
            spin(100 * piece);
        }
        const auto before = atWork.count();
        watchdog.noteWork();
        ASSERT_TRUE(atWork.reaches(before + 1));
        const auto rests = atRest.count();
        watchdog.noteRest();
        // It may fall asleep then, or not yet.
        const std::size_t looks = i % 3;
        ASSERT_TRUE(atRest.reaches(rests + looks));
    }
}

TEST_F(WatchdogTest, HasNoThreadBeforeTheFirstWork) {
    const auto before = otherThreads().size();
    watchdog.noteRest();
    EXPECT_EQ(otherThreads().size(), before);
}

TEST_F(WatchdogTest, LooksNoMoreOnceItIsStopped) {
    watchdog.noteWork();
    ASSERT_TRUE(atWork.reaches(1));
    watchdog.stop();
    const auto looks = atWork.count();
    watchdog.noteRest();
    watchdog.noteWork();
    EXPECT_EQ(atWork.count(), looks);
}

}  // namespace
