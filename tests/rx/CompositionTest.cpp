// The operators that join, choose, repeat and move sequences.

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <rxcpp/rx.hpp>

#include "RxTestSupport.hpp"
#include "support/Rounds.hpp"

using rx_test::event_log;
using rx_test::events;
using rx_test::make_error;
using rx_test::observable_of_int;
using rx_test::subscriber_of_int;
using rxcpp::schedulers::run_loop;

namespace op = rxcpp::operators;

namespace {

observable_of_int just(int value) {
    return rxcpp::observable<>::just(value);
}

observable_of_int failing(const std::string& text) {
    return rxcpp::observable<>::error<int>(std::runtime_error(text));
}

/// A source that the test emits from, and that notes its teardown.
class driven {
  public:
    driven(std::string name, event_log& log) : name_(std::move(name)), log_(log) {}

    observable_of_int source() {
        return rxcpp::observable<>::create<int>([this](subscriber_of_int to) {
            log_.note("subscribe " + name_);
            to.add([this] { log_.note("teardown " + name_); });
            to_ = std::move(to);
        });
    }
    const subscriber_of_int& to() const { return *to_; }
    bool is_started() const { return to_.has_value(); }

  private:
    std::string name_;
    event_log& log_;
    std::optional<subscriber_of_int> to_;
};

observable_of_int up_to(int last) {
    return rxcpp::observable<>::create<int>([last](const subscriber_of_int& to) {
        for (int value = 1; value <= last; ++value)
            to.on_next(value);
        to.on_completed();
    });
}

void run(const run_loop& loop) {
    while (!loop.empty() && loop.peek().when <= loop.now())
        loop.dispatch();
}

TEST(RxFilter, PassesOnTheValuesThatSatisfyTheFunction) {
    event_log log;
    rx_test::subscribe(up_to(4) | op::filter([](int value) { return value % 2 == 0; }), log);
    EXPECT_EQ(log.seen(), (events{"next 2", "next 4", "completed"}));
}

TEST(RxFilter, AThrowBecomesTheErrorAndEndsTheSource) {
    event_log log;
    driven source("a", log);
    rx_test::subscribe(
        source.source() | op::filter([](int) -> bool { throw std::runtime_error("thrown"); }), log);
    source.to().on_next(1);
    EXPECT_EQ(log.seen(), (events{"subscribe a", "error thrown", "teardown a"}));
}

TEST(RxFilter, EachSubscriptionHasItsOwnCopyOfTheFunction) {
    event_log log;
    const auto first = up_to(2) | op::filter([count = 0](int) mutable { return ++count == 1; });
    rx_test::subscribe(first, log);
    rx_test::subscribe(first, log);
    EXPECT_EQ(log.seen(), (events{"next 1", "completed", "next 1", "completed"}));
}

TEST(RxTake, EndsTheSourceWithTheLastValueBeforeItCompletes) {
    event_log log;
    driven source("a", log);
    rx_test::subscribe(source.source() | op::take(2), log);
    source.to().on_next(1);
    source.to().on_next(2);
    source.to().on_next(3);
    EXPECT_EQ(log.seen(), (events{"subscribe a", "next 1", "next 2", "teardown a", "completed"}));
}

TEST(RxTake, AnEndThatComesBeforePassesUnchanged) {
    event_log log;
    rx_test::subscribe(up_to(1) | op::take(2), log);
    rx_test::subscribe(failing("e") | op::take(2), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "completed", "error e"}));
}

TEST(RxTake, NoneIsOne) {
    event_log log;
    rx_test::subscribe(up_to(3) | op::take(0), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "completed"}));
}

TEST(RxTake, AValueThatIsEmittedWithinTheLastOneIsDropped) {
    event_log log;
    driven source("a", log);
    (source.source() | op::take(1)).subscribe([&](int value) {
        log.note("next " + std::to_string(value));
        if (value == 1) source.to().on_next(2);
    });
    source.to().on_next(1);
    EXPECT_EQ(log.seen(), (events{"subscribe a", "next 1", "teardown a"}));
}

TEST(RxFinally, IsCalledAfterTheEnd) {
    event_log log;
    const auto note = [&log] { log.note("finally"); };
    rx_test::subscribe(just(1) | op::finally(note), log);
    rx_test::subscribe(failing("e") | op::finally(note), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "completed", "finally", "error e", "finally"}));
}

TEST(RxFinally, IsCalledOnceOnUnsubscribing) {
    event_log log;
    driven source("a", log);
    const auto subscription =
        rx_test::subscribe(source.source() | op::finally([&log] { log.note("finally"); }), log);
    subscription.unsubscribe();
    subscription.unsubscribe();
    source.to().on_completed();
    EXPECT_THAT(log.seen(), testing::UnorderedElementsAre("subscribe a", "teardown a", "finally"));
}

TEST(RxOnErrorResumeNext, GoesOnWithTheOtherSourceAfterAnError) {
    event_log log;
    std::string seen;
    const auto other = [&seen](std::exception_ptr error) {
        seen = rx_test::text_of(error);
        return just(2);
    };
    rx_test::subscribe((just(1) | op::concat(failing("e"))) | op::on_error_resume_next(other), log);
    rx_test::subscribe(failing("f") | op::switch_on_error(other), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "completed", "next 2", "completed"}));
    EXPECT_EQ(seen, "f");
}

TEST(RxOnErrorResumeNext, PassesOnTheErrorOfTheOtherSourceAndWhatTheFunctionThrows) {
    event_log log;
    rx_test::subscribe(
        failing("e") | op::on_error_resume_next([](std::exception_ptr) { return failing("f"); }),
        log);
    rx_test::subscribe(
        failing("e") | op::on_error_resume_next([](std::exception_ptr) -> observable_of_int {
            throw std::runtime_error("thrown");
        }),
        log);
    EXPECT_EQ(log.seen(), (events{"error f", "error thrown"}));
}

TEST(RxOnErrorResumeNext, TheTeardownOfTheSourceRunsWhenTheOtherHasBeenSubscribed) {
    event_log log;
    driven first("a", log);
    driven second("b", log);
    const auto subscription = rx_test::subscribe(
        first.source() |
            op::on_error_resume_next([&](std::exception_ptr) { return second.source(); }),
        log);
    first.to().on_error(make_error("e"));
    subscription.unsubscribe();
    EXPECT_EQ(log.seen(), (events{"subscribe a", "subscribe b", "teardown a", "teardown b"}));
}

TEST(RxRetry, SubscribesAgainUntilTheSourceDoesNotFail) {
    event_log log;
    int attempts = 0;
    const observable_of_int source =
        rxcpp::observable<>::create<int>([&attempts](const subscriber_of_int& to) {
            to.on_next(++attempts);
            if (attempts < 3)
                to.on_error(make_error("e"));
            else
                to.on_completed();
        });
    rx_test::subscribe(source | op::retry(), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "next 3", "completed"}));
}

TEST(RxRetry, PassesOnTheErrorOfTheLastAttempt) {
    event_log log;
    rx_test::subscribe((just(1) | op::concat(failing("e"))) | op::retry(2), log);
    rx_test::subscribe(failing("e") | op::retry(1), log);
    rx_test::subscribe(failing("e") | op::retry(0), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 1", "error e", "error e", "completed"}));
}

TEST(RxRetry, TheTeardownOfAnAttemptRunsBeforeTheNextOne) {
    event_log log;
    driven source("a", log);
    const auto subscription = rx_test::subscribe(source.source() | op::retry(), log);
    const auto first = source.to();
    first.on_error(make_error("e"));
    subscription.unsubscribe();
    source.to().on_error(make_error("e"));
    EXPECT_EQ(log.seen(), (events{"subscribe a", "teardown a", "subscribe a", "teardown a"}));
}

TEST(RxFlatMap, MergesWhatTheFunctionReturns) {
    event_log log;
    driven first("a", log);
    driven second("b", log);
    rx_test::subscribe(
        up_to(2) | op::flat_map([&](int value) { return (value == 1 ? first : second).source(); }),
        log);
    second.to().on_next(1);
    first.to().on_next(2);
    first.to().on_completed();
    second.to().on_completed();
    EXPECT_EQ(log.seen(), (events{"subscribe a", "subscribe b", "next 1", "next 2", "teardown a",
                                  "completed", "teardown b"}));
}

TEST(RxFlatMap, MayChangeTheType) {
    const auto texts = up_to(2) | op::flat_map([](int value) {
                           return rxcpp::observable<>::just(std::to_string(value));
                       });
    static_assert(std::is_same_v<decltype(texts)::value_type, std::string>);
    std::string seen;
    texts.subscribe([&seen](const std::string& text) { seen += text; });
    EXPECT_EQ(seen, "12");
}

TEST(RxFlatMap, AnErrorEndsEverything) {
    event_log log;
    driven outer("o", log);
    driven inner("i", log);
    rx_test::subscribe(outer.source() | op::flat_map([&](int) { return inner.source(); }), log);
    outer.to().on_next(1);
    inner.to().on_error(make_error("e"));
    outer.to().on_next(2);
    EXPECT_THAT(log.seen(), testing::UnorderedElementsAre("subscribe o", "subscribe i", "error e",
                                                          "teardown i", "teardown o"));
}

TEST(RxFlatMap, AThrowBecomesTheErrorAndEndsTheSource) {
    event_log log;
    driven outer("o", log);
    rx_test::subscribe(outer.source() | op::flat_map([](int) -> observable_of_int {
                           throw std::runtime_error("thrown");
                       }),
                       log);
    outer.to().on_next(1);
    EXPECT_EQ(log.seen(), (events{"subscribe o", "error thrown", "teardown o"}));
}

TEST(RxFlatMap, UnsubscribingEndsAllSources) {
    event_log log;
    driven outer("o", log);
    driven inner("i", log);
    const auto subscription =
        rx_test::subscribe(outer.source() | op::flat_map([&](int) { return inner.source(); }), log);
    outer.to().on_next(1);
    subscription.unsubscribe();
    inner.to().on_next(1);
    EXPECT_THAT(log.seen(), testing::UnorderedElementsAre("subscribe o", "subscribe i",
                                                          "teardown i", "teardown o"));
}

TEST(RxConcatMap, SubscribesToOneAfterTheOther) {
    event_log log;
    driven first("a", log);
    driven second("b", log);
    rx_test::subscribe(up_to(2) | op::concat_map([&](int value) {
                           return (value == 1 ? first : second).source();
                       }),
                       log);
    EXPECT_FALSE(second.is_started());
    first.to().on_next(1);
    first.to().on_completed();
    second.to().on_next(2);
    second.to().on_completed();
    EXPECT_EQ(log.seen(), (events{"subscribe a", "next 1", "teardown a", "subscribe b", "next 2",
                                  "completed", "teardown b"}));
}

TEST(RxConcatMap, AThrowBecomesTheErrorAndEndsTheSource) {
    event_log log;
    driven outer("o", log);
    rx_test::subscribe(outer.source() | op::concat_map([](int) -> observable_of_int {
                           throw std::runtime_error("thrown");
                       }),
                       log);
    outer.to().on_next(1);
    EXPECT_EQ(log.seen(), (events{"subscribe o", "error thrown", "teardown o"}));
}

TEST(RxMerge, PassesOnValuesAsTheyComeAndCompletesWithTheLast) {
    event_log log;
    driven first("a", log);
    driven second("b", log);
    rx_test::subscribe(first.source() | op::merge(second.source()), log);
    second.to().on_next(1);
    first.to().on_next(2);
    second.to().on_completed();
    first.to().on_next(3);
    first.to().on_completed();
    EXPECT_EQ(log.seen(), (events{"subscribe a", "subscribe b", "next 1", "next 2", "teardown b",
                                  "next 3", "completed", "teardown a"}));
}

TEST(RxMerge, DoesNotSubscribeToWhatComesAfterAnError) {
    event_log log;
    driven second("b", log);
    rx_test::subscribe(failing("e") | op::merge(second.source(), second.source()), log);
    EXPECT_EQ(log.seen(), (events{"error e"}));
}

TEST(RxMerge, TakesAnObservableOfObservables) {
    event_log log;
    rx_test::subscribe(up_to(2) | op::map([](int value) { return just(10 * value); }) | op::merge(),
                       log);
    EXPECT_EQ(log.seen(), (events{"next 10", "next 20", "completed"}));
}

TEST(RxMerge, SourcesOnSeveralThreadsAreSerializedByACoordination) {
    const int count = static_cast<int>(TestSupport::roundsOf(500));
    std::vector<std::thread> threads;
    const auto source = [&threads, count] {
        return rxcpp::observable<>::create<int>([&threads, count](const subscriber_of_int& to) {
            threads.emplace_back([to, count] {
                for (int value = 0; value < count; ++value)
                    to.on_next(value);
                to.on_completed();
            });
        });
    };
    // Neither is atomic: two events at a time would lose values, and a thread sanitizer tells.
    int values = 0;
    int completions = 0;
    const auto merged =
        source() | op::merge(rxcpp::serialize_one_worker(rxcpp::schedulers::make_immediate()),
                             source().as_dynamic(), source().as_dynamic());
    merged.subscribe([&values](int) { ++values; }, [&completions] { ++completions; });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(values, 3 * count);
    EXPECT_EQ(completions, 1);
}

TEST(RxConcat, SubscribesToTheNextWhenTheOneBeforeHasCompleted) {
    event_log log;
    driven first("a", log);
    driven second("b", log);
    rx_test::subscribe(first.source() | op::concat(second.source()), log);
    first.to().on_next(1);
    EXPECT_FALSE(second.is_started());
    first.to().on_completed();
    second.to().on_next(2);
    second.to().on_completed();
    EXPECT_EQ(log.seen(), (events{"subscribe a", "next 1", "teardown a", "subscribe b", "next 2",
                                  "completed", "teardown b"}));
}

TEST(RxConcat, AnErrorEndsEverything) {
    event_log log;
    driven second("b", log);
    rx_test::subscribe(failing("e") | op::concat(second.source()), log);
    EXPECT_EQ(log.seen(), (events{"error e"}));
}

TEST(RxConcat, TakesAnObservableOfObservables) {
    event_log log;
    rx_test::subscribe(up_to(2) | op::map([](int value) { return up_to(value); }) | op::concat(),
                       log);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 1", "next 2", "completed"}));
}

TEST(RxZip, CombinesTheValuesOneByOne) {
    event_log log;
    driven first("a", log);
    driven second("b", log);
    rx_test::subscribe(
        first.source() | op::zip([](int a, int b) { return 10 * a + b; }, second.source()), log);
    first.to().on_next(1);
    first.to().on_next(2);
    second.to().on_next(3);
    second.to().on_next(4);
    first.to().on_completed();
    second.to().on_completed();
    EXPECT_EQ(log.seen(), (events{"subscribe a", "subscribe b", "next 13", "next 24", "teardown a",
                                  "completed", "teardown b"}));
}

TEST(RxZip, MakesATupleWithoutAFunction) {
    const auto zipped = just(1) | op::zip(rxcpp::observable<>::just(std::string("b")), just(3));
    static_assert(std::is_same_v<decltype(zipped)::value_type, std::tuple<int, std::string, int>>);
    std::tuple<int, std::string, int> seen;
    zipped.subscribe([&seen](const std::tuple<int, std::string, int>& value) { seen = value; });
    EXPECT_EQ(seen, std::make_tuple(1, std::string("b"), 3));
}

TEST(RxZip, CompletesWithAValueWhenNoMoreCanCome) {
    event_log log;
    driven first("a", log);
    driven second("b", log);
    rx_test::subscribe(
        first.source() | op::zip([](int a, int b) { return 10 * a + b; }, second.source()), log);
    first.to().on_next(1);
    first.to().on_completed();
    second.to().on_next(2);
    EXPECT_THAT(log.seen(),
                testing::UnorderedElementsAre("subscribe a", "subscribe b", "teardown a", "next 12",
                                              "completed", "teardown b"));
}

TEST(RxZip, AnErrorOrAThrowEndsEverything) {
    event_log log;
    driven first("a", log);
    rx_test::subscribe(
        first.source() |
            op::zip([](int, int) -> int { throw std::runtime_error("thrown"); }, just(1)),
        log);
    first.to().on_next(1);
    EXPECT_EQ(log.seen(), (events{"subscribe a", "error thrown", "teardown a"}));
}

TEST(RxZip, SourcesOnSeveralThreadsAreSerializedByACoordination) {
    const int count = static_cast<int>(TestSupport::roundsOf(500));
    std::vector<std::thread> threads;
    const auto source = [&threads, count] {
        return rxcpp::observable<>::create<int>([&threads, count](const subscriber_of_int& to) {
            threads.emplace_back([to, count] {
                for (int value = 0; value < count; ++value)
                    to.on_next(value);
                to.on_completed();
            });
        });
    };
    int pairs = 0;
    bool alike = true;
    const auto zipped =
        source() | op::zip(
                       rxcpp::serialize_one_worker(rxcpp::schedulers::make_immediate()),
                       [](int a, int b) { return a - b; }, source());
    zipped.subscribe([&](int difference) {
        ++pairs;
        alike = alike && difference == 0;
    });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(pairs, count);
    EXPECT_TRUE(alike);
}

TEST(RxObserveOn, MovesAllEventsToTheLoop) {
    event_log log;
    const run_loop loop;
    rx_test::subscribe(up_to(2) | op::observe_on(rxcpp::observe_on_run_loop(loop)), log);
    rx_test::subscribe(failing("e") | op::observe_on(rxcpp::observe_on_run_loop(loop)), log);
    EXPECT_EQ(log.seen(), events{});
    run(loop);
    EXPECT_THAT(log.seen(),
                testing::UnorderedElementsAre("next 1", "next 2", "completed", "error e"));
}

TEST(RxObserveOn, NothingIsDeliveredAfterUnsubscribing) {
    event_log log;
    const run_loop loop;
    driven source("a", log);
    const auto subscription =
        rx_test::subscribe(source.source() | op::observe_on(rxcpp::observe_on_run_loop(loop)), log);
    source.to().on_next(1);
    subscription.unsubscribe();
    run(loop);
    EXPECT_EQ(log.seen(), (events{"subscribe a", "teardown a"}));
}

TEST(RxObserveOn, TakesEventsFromAnotherThread) {
    event_log log;
    const run_loop loop;
    std::thread emitter;
    rx_test::subscribe(rxcpp::observable<>::create<int>([&emitter](const subscriber_of_int& to) {
                           emitter = std::thread([to] {
                               to.on_next(1);
                               to.on_next(2);
                               to.on_completed();
                           });
                       }) | op::observe_on(rxcpp::observe_on_run_loop(loop)),
                       log);
    while (log.seen().size() < 3)
        run(loop);
    emitter.join();
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "completed"}));
}

TEST(RxTimeout, PassesOnWhatComesInTime) {
    event_log log;
    const run_loop loop;
    rx_test::subscribe(
        up_to(2) | op::timeout(std::chrono::hours(1), rxcpp::observe_on_run_loop(loop)), log);
    run(loop);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "completed"}));
}

TEST(RxTimeout, FailsWhenNothingHasComeAndEndsTheSource) {
    event_log log;
    const run_loop loop;
    driven source("a", log);
    bool known = false;
    const auto limited = source.source() |
                         op::timeout(rxcpp::observe_on_run_loop(loop), std::chrono::nanoseconds(1));
    limited.subscribe([](int) {},
                      [&](std::exception_ptr error) {
                          try {
                              std::rethrow_exception(error);
                          } catch (const rxcpp::timeout_error&) {
                              known = true;
                          }
                      });
    while (!loop.empty())
        loop.dispatch();
    EXPECT_TRUE(known);
    EXPECT_EQ(log.seen(), (events{"subscribe a", "teardown a"}));
}

TEST(RxTimeout, AValueStartsTheTimeAnew) {
    event_log log;
    const run_loop loop;
    driven source("a", log);
    const auto subscription = rx_test::subscribe(
        source.source() | op::timeout(std::chrono::hours(1), rxcpp::observe_on_run_loop(loop)),
        log);
    run(loop);
    const auto first = loop.peek().when;
    source.to().on_next(1);
    run(loop);
    EXPECT_EQ(loop.peek().when, first);  // the old limit is still there, and no longer counts
    loop.dispatch();
    EXPECT_EQ(log.seen(), (events{"subscribe a", "next 1"}));
    subscription.unsubscribe();
    run(loop);
    EXPECT_EQ(log.seen(), (events{"subscribe a", "next 1", "teardown a"}));
}

/// A scheduler as a user writes one over a function that takes functions; for no later time.
class executor_scheduler : public rxcpp::schedulers::scheduler_interface {
  public:
    using executor = std::function<void(std::function<void()>)>;

    explicit executor_scheduler(executor run)
        : worker_(std::make_shared<executor_worker>(std::move(run))) {}

    clock_type::time_point now() const override { return clock_type::now(); }
    rxcpp::schedulers::worker create_worker(rxcpp::composite_subscription lifetime) const override {
        return rxcpp::schedulers::worker(std::move(lifetime), worker_);
    }

  private:
    class executor_worker : public rxcpp::schedulers::worker_interface {
      public:
        explicit executor_worker(executor run) : run_(std::move(run)) {}

        clock_type::time_point now() const override { return clock_type::now(); }
        void schedule(const rxcpp::schedulers::schedulable& what) const override {
            run_([what] {
                const rxcpp::schedulers::recursion again(true);
                if (what.is_subscribed()) what(again.get_recurse());
            });
        }
        void schedule(clock_type::time_point,
                      const rxcpp::schedulers::schedulable& what) const override {
            schedule(what);
        }

      private:
        executor run_;
    };

    std::shared_ptr<executor_worker> worker_;
};

TEST(RxScheduler, OneCanBeMadeOfAnExecutor) {
    event_log log;
    std::vector<std::function<void()>> tasks;
    const auto scheduler = rxcpp::schedulers::make_scheduler<executor_scheduler>(
        [&tasks](std::function<void()> task) { tasks.push_back(std::move(task)); });
    rx_test::subscribe(up_to(2) | op::observe_on(rxcpp::observe_on_one_worker(scheduler)), log);
    EXPECT_EQ(log.seen(), events{});
    for (std::size_t task = 0; task < tasks.size(); ++task) {
        const auto next = tasks[task];  // running one adds others
        next();
    }
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "completed"}));
}

TEST(RxScheduler, AnActionMayAskToBeRunAgain) {
    const run_loop loop;
    const auto worker =
        rxcpp::schedulers::make_run_loop(loop).create_worker(rxcpp::composite_subscription());
    int runs = 0;
    worker.schedule([&runs](const rxcpp::schedulers::schedulable& self) {
        if (++runs < 3) self();
    });
    run(loop);
    EXPECT_EQ(runs, 3);
}

TEST(RxScheduler, NoActionBeginsAfterTheWorkersEnd) {
    const run_loop loop;
    const auto worker =
        rxcpp::schedulers::make_run_loop(loop).create_worker(rxcpp::composite_subscription());
    int runs = 0;
    worker.schedule([&runs](const rxcpp::schedulers::schedulable&) { ++runs; });
    worker.unsubscribe();
    run(loop);
    EXPECT_EQ(runs, 0);
}

TEST(RxScheduler, TheLoopTellsWhenItMustWakeEarlier) {
    run_loop loop;
    int wakes = 0;
    loop.set_notify_earlier_wakeup([&wakes](run_loop::clock_type::time_point) { ++wakes; });
    const auto worker =
        rxcpp::schedulers::make_run_loop(loop).create_worker(rxcpp::composite_subscription());
    const auto nothing = [](const rxcpp::schedulers::schedulable&) {};
    worker.schedule(loop.now() + std::chrono::hours(1), nothing);
    worker.schedule(loop.now() + std::chrono::hours(2), nothing);
    worker.schedule(nothing);
    EXPECT_EQ(wakes, 2);
}

TEST(RxCompose, TheOperatorsAreMembersToo) {
    event_log log;
    const auto value = up_to(3)
                           .filter([](int each) { return each > 1; })
                           .take(2)
                           .concat(just(9))
                           .flat_map([](int each) { return just(each); })
                           .concat_map([](int each) { return just(each); })
                           .merge(just(5))
                           .zip([](int a, int) { return a; }, up_to(9))
                           .retry(2)
                           .on_error_resume_next([](std::exception_ptr) { return just(0); })
                           .finally([] {})
                           .as_dynamic();
    rx_test::subscribe(value, log);
    EXPECT_EQ(log.seen(), (events{"next 2", "next 3", "next 9", "next 5", "completed"}));
}

}  // namespace
