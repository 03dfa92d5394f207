#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <support/Waiting.hpp>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinHousehold/testing/FakeScheduler.hpp>
#include <KestrinHousehold/time/TimerThread.hpp>

using KestrinHousehold::FakeScheduler;
using KestrinHousehold::Scheduler;
using KestrinHousehold::TimerThread;
using testing::ElementsAre;
using namespace std::chrono_literals;

namespace {

/// What every scheduler keeps, and how to let its time pass until a task has run.
template <class T>
class EveryScheduler : public testing::Test {
  protected:
    T scheduler;

    void letRun(std::future<void> task) {
        if constexpr (std::is_same_v<T, FakeScheduler>) scheduler.advance(1h);
        task.get();
    }

    /// A task that comes after all those that were added for the next hour, or for now.
    std::future<void> last(std::chrono::nanoseconds delay) {
        auto done = std::make_shared<std::promise<void>>();
        scheduler.after(delay, [done] { done->set_value(); });
        return done->get_future();
    }
};
using Schedulers = testing::Types<FakeScheduler, TimerThread>;
TYPED_TEST_SUITE(EveryScheduler, Schedulers);

}  // namespace

TYPED_TEST(EveryScheduler, RunsTasksThatAreDueInTheOrderInWhichTheyCame) {
    std::vector<int> order;
    for (int i = 1; i <= 3; ++i)
        this->scheduler.after(0ms, [&order, i] { order.push_back(i); });
    this->letRun(this->last(0ms));
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TYPED_TEST(EveryScheduler, RunsNoTaskThatWasCancelled) {
    bool ran = false;
    const auto task = this->scheduler.after(1h, [&] { ran = true; });
    this->scheduler.cancel(task);
    this->letRun(this->last(1ms));
    EXPECT_FALSE(ran);
}

TYPED_TEST(EveryScheduler, LetsGoOfWhatACancelledTaskHolds) {
    auto held = std::make_shared<int>(1);
    const auto task = this->scheduler.after(1h, [held] {});
    EXPECT_EQ(held.use_count(), 2);
    this->scheduler.cancel(task);
    EXPECT_EQ(held.use_count(), 1);
}

TYPED_TEST(EveryScheduler, IgnoresCancellingWhatHasRunOrNeverWas) {
    auto done = this->last(0ms);
    this->letRun(std::move(done));
    this->scheduler.cancel(1);
    this->scheduler.cancel(0);
    this->scheduler.cancel(99);
}

TYPED_TEST(EveryScheduler, RunsWhatATaskAdds) {
    std::promise<void> done;
    this->scheduler.after(0ms, [&] { this->scheduler.after(0ms, [&] { done.set_value(); }); });
    this->letRun(done.get_future());
}

TYPED_TEST(EveryScheduler, RunsNothingInsideTheCallThatAddsIt) {
    thread_local bool isInside = false;
    std::promise<bool> ranInside;
    isInside = true;
    this->scheduler.after(-1s, [&] { ranInside.set_value(isInside); });
    isInside = false;
    this->letRun(this->last(0ms));
    EXPECT_FALSE(ranInside.get_future().get());
}

TYPED_TEST(EveryScheduler, TakesTheLongestDelay) {
    bool ran = false;
    this->scheduler.after(std::chrono::nanoseconds::max(), [&] { ran = true; });
    this->letRun(this->last(1ms));
    EXPECT_FALSE(ran);
}

TYPED_TEST(EveryScheduler, DropsWhatStillWaitsAtItsEnd) {
    auto held = std::make_shared<int>(1);
    {
        TypeParam ending;
        ending.after(1h, [held] {});
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST(FakeSchedulerTest, RunsTasksInTheOrderOfTheirTimes) {
    FakeScheduler scheduler;
    std::vector<int> order;
    scheduler.after(2ms, [&] { order.push_back(3); });
    scheduler.after(1ms, [&] { order.push_back(2); });
    scheduler.after(-1s, [&] { order.push_back(1); });
    scheduler.advance(1s);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST(FakeSchedulerTest, ShowsEachTaskTheTimeAtWhichItIsDue) {
    FakeScheduler scheduler(Scheduler::WallTime(100s));
    std::vector<Scheduler::WallTime> seen;
    scheduler.after(3s, [&] { seen.push_back(scheduler.wallTime()); });
    scheduler.after(7s, [&] { seen.push_back(scheduler.wallTime()); });
    EXPECT_EQ(scheduler.nextDelay(), 3s);
    scheduler.advance(10s);
    EXPECT_THAT(seen, ElementsAre(Scheduler::WallTime(103s), Scheduler::WallTime(107s)));
    EXPECT_EQ(scheduler.wallTime(), Scheduler::WallTime(110s));
    EXPECT_EQ(scheduler.waiting(), 0U);
    EXPECT_EQ(scheduler.nextDelay(), std::nullopt);
}

TEST(FakeSchedulerTest, KeepsDelaysWhenTheClockIsSet) {
    FakeScheduler scheduler;
    scheduler.after(5s, [] {});
    scheduler.setWallTime(Scheduler::WallTime(0s));
    EXPECT_EQ(scheduler.nextDelay(), 5s);
    scheduler.advance(5s);
    EXPECT_EQ(scheduler.wallTime(), Scheduler::WallTime(5s));
    EXPECT_EQ(scheduler.waiting(), 0U);
}

#ifdef __linux__
namespace {

std::size_t threads() {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

}  // namespace

TEST(TimerThreadTest, HasAThreadOnlyWhileATaskWaits) {
    // A sanitizer starts a thread of its own beside the first one, and a thread that was joined is
    // listed for another moment.
    std::string first;
    std::thread([&] { first = "/proc/self/task/" + std::to_string(gettid()); }).join();
    ASSERT_TRUE(TestSupport::eventually([&] { return !std::filesystem::exists(first); }));
    TimerThread scheduler;
    const auto before = threads();
    const auto waiting = scheduler.after(1h, [] {});
    EXPECT_EQ(threads(), before + 1);
    scheduler.cancel(waiting);
    EXPECT_TRUE(TestSupport::eventually([&] { return threads() == before; }));

    std::promise<void> again;
    scheduler.after(0ms, [&] { again.set_value(); });
    again.get_future().get();
    EXPECT_TRUE(TestSupport::eventually([&] { return threads() == before; }));
}
#endif

TEST(TimerThreadTest, RunsAnEarlierTaskWhileItWaitsForALaterOne) {
    TimerThread scheduler;
    scheduler.after(1h, [] {});
    std::promise<void> ran;
    scheduler.after(0ms, [&] { ran.set_value(); });
    ran.get_future().get();
}

TEST(TimerThreadTest, MayBeDestroyedByItsOwnTask) {
    auto scheduler = std::make_unique<TimerThread>();
    std::promise<void> destroyed;
    scheduler->after(0ms, [&] {
        scheduler.reset();
        destroyed.set_value();
    });
    destroyed.get_future().get();
}

TEST(TimerThreadTest, WaitsAtItsEndForTheTaskThatRuns) {
    std::atomic ended = false;
    std::promise<void> begun;
    std::promise<void> goOn;
    auto scheduler = std::make_unique<TimerThread>();
    scheduler->after(0ms, [&] {
        begun.set_value();
        goOn.get_future().get();
        ended = true;
    });
    begun.get_future().get();
    std::thread helper([&] { goOn.set_value(); });
    scheduler.reset();
    EXPECT_TRUE(ended);
    helper.join();
}
