#include <chrono>
#include <optional>

#include <gtest/gtest.h>

#include <KestrinHousehold/outbox/internal/Backoff.hpp>

namespace {

using KestrinHousehold::OutboxOptions;
using KestrinHousehold::internal::backoff;
using std::chrono::nanoseconds;
using namespace std::chrono_literals;

const OutboxOptions options;

TEST(Backoff, DoublesUpToFiveMinutes) {
    EXPECT_EQ(backoff(options, 1, std::nullopt, 0), 1s);
    EXPECT_EQ(backoff(options, 2, std::nullopt, 0), 2s);
    EXPECT_EQ(backoff(options, 9, std::nullopt, 0), 256s);
    EXPECT_EQ(backoff(options, 10, std::nullopt, 0), 300s);
    EXPECT_EQ(backoff(options, 1'000'000, std::nullopt, 0), 300s);
}

TEST(Backoff, IsLessByUpToAHalf) {
    EXPECT_EQ(backoff(options, 3, std::nullopt, 0.5), 3s);
    EXPECT_EQ(backoff(options, 3, std::nullopt, 1), 2s);
}

TEST(Backoff, IsNeverShorterThanTheServiceAsks) {
    EXPECT_EQ(backoff(options, 1, 120s, 0), 120s);
    EXPECT_EQ(backoff(options, 10, 7s, 0), 7s);
}

TEST(Backoff, SpreadsDevicesThatTheServiceHasToldTheSame) {
    EXPECT_EQ(backoff(options, 1, 120s, 0.5), 150s);
    EXPECT_EQ(backoff(options, 1, 120s, 1), 180s);
    EXPECT_EQ(backoff(options, 10, 7s, 1), 307s);
    EXPECT_EQ(backoff(options, 1, 0s, 1), 1s);
}

TEST(Backoff, WaitsForADayAtTheMostAndItsHalf) {
    EXPECT_EQ(backoff(options, 1, 1'000'000h, 0), 24h);
    EXPECT_EQ(backoff(options, 1, 1'000'000h, 1), 36h);
}

TEST(Backoff, TakesOptionsOfAnySize) {
    OutboxOptions none;
    none.firstDelay = 0s;
    EXPECT_EQ(backoff(none, 5, std::nullopt, 0), 0s);
    OutboxOptions endless;
    endless.firstDelay = nanoseconds::max();
    endless.longestDelay = nanoseconds::max();
    EXPECT_GT(backoff(endless, 31, 24h, 1), 24h * 365 * 100);
}

}  // namespace
