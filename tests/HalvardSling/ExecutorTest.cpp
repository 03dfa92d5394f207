#include <atomic>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <HalvardSling/rx/Executor.hpp>
#include <HalvardSling/rx/Sling.hpp>
#include <HalvardSling/testing/FakeTransport.hpp>

#include "ExecutorQueue.hpp"
#include "Transfers.hpp"
#include "support/Rounds.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Texts = std::vector<std::string>;

/// A source that a test emits from, and what its subscriber got of it over an executor.
struct Delivered {
    explicit Delivered(Executor executor) {
        (rxcpp::observable<>::create<int>([this](rxcpp::subscriber<int> to) {
             to.add([this] { ++teardowns; });
             source = std::move(to);
         }) |
         deliverOn(std::move(executor)))
            .subscribe(
                subscription, [this](int value) { events.push_back(std::to_string(value)); },
                [this](const std::exception_ptr&) { events.push_back("error"); },
                [this] { events.push_back("completed"); });
    }
    Delivered(const Delivered&) = delete;
    Delivered& operator=(const Delivered&) = delete;

    std::optional<rxcpp::subscriber<int>> source;
    rxcpp::composite_subscription subscription;
    int teardowns = 0;
    Texts events;
};

TEST(DeliverOn, MovesAllEventsToTheExecutorInTheirOrder) {
    ExecutorQueue queue;
    Delivered delivered(queue.executor());
    delivered.source->on_next(1);
    delivered.source->on_next(2);
    delivered.source->on_completed();
    EXPECT_THAT(delivered.events, IsEmpty());
    queue.runAll();
    EXPECT_THAT(delivered.events, ElementsAre("1", "2", "completed"));
    EXPECT_FALSE(delivered.subscription.is_subscribed());
}

TEST(DeliverOn, MovesAnErrorThereAfterTheValues) {
    ExecutorQueue queue;
    Delivered delivered(queue.executor());
    delivered.source->on_next(1);
    delivered.source->on_error(std::make_exception_ptr(std::runtime_error("e")));
    queue.runAll();
    EXPECT_THAT(delivered.events, ElementsAre("1", "error"));
}

TEST(DeliverOn, NothingBeginsAfterUnsubscribe) {
    ExecutorQueue queue;
    Delivered delivered(queue.executor());
    delivered.source->on_next(1);
    delivered.subscription.unsubscribe();
    EXPECT_EQ(delivered.teardowns, 1);
    queue.runAll();
    delivered.source->on_next(2);
    queue.runAll();
    EXPECT_THAT(delivered.events, IsEmpty());
}

TEST(DeliverOn, AnEventMayUnsubscribeFromThoseThatWaitBehindIt) {
    ExecutorQueue queue;
    rxcpp::composite_subscription subscription;
    std::vector<int> values;
    (rxcpp::observable<>::create<int>([](const rxcpp::subscriber<int>& to) {
         to.on_next(1);
         to.on_next(2);
     }) |
     deliverOn(queue.executor()))
        .subscribe(subscription, [&](int value) {
            values.push_back(value);
            subscription.unsubscribe();
        });
    queue.runAll();
    EXPECT_THAT(values, ElementsAre(1));
}

TEST(DeliverOn, UnsubscribingLetsGoOfWhatWaits) {
    ExecutorQueue queue;
    const auto value = std::make_shared<int>(1);
    rxcpp::composite_subscription subscription;
    (rxcpp::observable<>::just(value) | deliverOn(queue.executor()))
        .subscribe(subscription, [](const std::shared_ptr<int>&) {});
    const auto waiting = value.use_count();
    subscription.unsubscribe();
    EXPECT_EQ(waiting, 2);
    EXPECT_EQ(value.use_count(), 1);
}

TEST(DeliverOn, AnExecutorThatCallsAtOnceDeliversAtOnce) {
    Delivered delivered([](const std::function<void()>& task) { task(); });
    delivered.source->on_next(1);
    EXPECT_THAT(delivered.events, ElementsAre("1"));
    delivered.source->on_completed();
    EXPECT_THAT(delivered.events, ElementsAre("1", "completed"));
}

TEST(DeliverOn, AnEventThatEmitsAgainComesBeforeItsSuccessor) {
    std::optional<rxcpp::subscriber<int>> source;
    Texts events;
    (rxcpp::observable<>::create<int>([&](rxcpp::subscriber<int> to) { source = std::move(to); }) |
     deliverOn([](const std::function<void()>& task) {
         task();
     })).subscribe([&](int value) {
        events.push_back("begin " + std::to_string(value));
        if (value == 1) source->on_next(2);
        events.push_back("end " + std::to_string(value));
    });
    source->on_next(1);
    EXPECT_THAT(events, ElementsAre("begin 1", "end 1", "begin 2", "end 2"));
}

TEST(DeliverOn, AnExecutorThatDropsTheFunctionEndsTheSubscription) {
    ExecutorQueue queue;
    Delivered delivered(queue.executor());
    delivered.source->on_next(1);
    EXPECT_EQ(delivered.teardowns, 0);
    queue.dropAll();
    EXPECT_EQ(delivered.teardowns, 1);
    EXPECT_FALSE(delivered.subscription.is_subscribed());
    delivered.source->on_next(2);
    queue.runAll();
    EXPECT_THAT(delivered.events, IsEmpty());
}

TEST(DeliverOn, AnExecutorThatThrowsEndsTheSubscription) {
    Delivered delivered(
        [](const std::function<void()>&) { throw std::runtime_error("shut down"); });
    EXPECT_NO_THROW(delivered.source->on_next(1));
    EXPECT_EQ(delivered.teardowns, 1);
    EXPECT_FALSE(delivered.subscription.is_subscribed());
    EXPECT_THAT(delivered.events, IsEmpty());
}

TEST(DeliverOn, AFunctionThatIsCalledTwiceDeliversOnce) {
    Delivered delivered([](const std::function<void()>& task) {
        task();
        task();
    });
    delivered.source->on_next(1);
    EXPECT_THAT(delivered.events, ElementsAre("1"));
}

TEST(DeliverOn, WhatACompletionThrowsReachesTheExecutor) {
    ExecutorQueue queue;
    (rxcpp::observable<>::just(1) | deliverOn(queue.executor()))
        .subscribe([](int) {}, [] { throw std::runtime_error("thrown"); });
    EXPECT_THROW(queue.runAll(), std::runtime_error);
}

TEST(DeliverOn, EventsComeOneAtATimeThoughTheExecutorHasManyThreads) {
    static const int count = static_cast<int>(roundsOf(200));
    std::vector<std::thread> threads;
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::vector<int> values;
    std::promise<void> completed;
    (rxcpp::observable<>::create<int>([](const rxcpp::subscriber<int>& to) {
         for (int value = 0; value < count; ++value)
             to.on_next(value);
         to.on_completed();
     }) |
     deliverOn([&threads](std::function<void()> task) { threads.emplace_back(std::move(task)); }))
        .subscribe(
            [&](int value) {
                if (++inside > 1) overlapped = true;
                values.push_back(value);
                --inside;
            },
            [&completed] { completed.set_value(); });
    completed.get_future().wait();
    for (auto& thread : threads)
        thread.join();
    EXPECT_FALSE(overlapped);
    ASSERT_EQ(values.size(), static_cast<std::size_t>(count));
    for (int value = 0; value < count; ++value)
        EXPECT_EQ(values[static_cast<std::size_t>(value)], value);
}

TEST(DeliverOn, UnsubscribingOnTheExecutorsThreadStopsWhatAnotherThreadEmits) {
    for (std::size_t round = 0; round < roundsOf(200); ++round) {
        ExecutorQueue queue;
        Delivered delivered(queue.executor());
        std::thread emitter([source = *delivered.source] {
            for (int value = 0; value < 20; ++value)
                source.on_next(value);
            source.on_completed();
        });
        queue.runAll();
        delivered.subscription.unsubscribe();
        const auto seen = delivered.events.size();
        emitter.join();
        queue.runAll();
        EXPECT_EQ(delivered.events.size(), seen);
        EXPECT_EQ(delivered.teardowns, 1);
    }
}

TEST(DeliverOn, ARequestIsCancelledWithItsSubscription) {
    const auto transport = std::make_shared<FakeTransport>();
    ExecutorQueue queue;
    rxcpp::composite_subscription subscription;
    const auto replies =
        Sling(requestTo("http://127.0.0.1/")).responses(transport) | deliverOn(queue.executor());
    replies.subscribe(subscription, [](const Response&) {}, [](std::exception_ptr) {});
    EXPECT_EQ(transport->waiting().size(), 1U);
    subscription.unsubscribe();
    EXPECT_EQ(transport->cancelled(), 1U);
}

TEST(DeliverOn, ARequestsEndIsDeliveredThereToo) {
    const auto transport = std::make_shared<FakeTransport>();
    transport->willAnswer(404);
    ExecutorQueue queue;
    const auto replies =
        Sling(requestTo("http://127.0.0.1/")).responses(transport) | deliverOn(queue.executor());
    Observed<Response> observed(replies);
    EXPECT_FALSE(observed.endedAtOnce());
    queue.runAll();
    ASSERT_TRUE(observed.endedAtOnce());
    EXPECT_EQ(observed.error<SlingError>().value().kind(), SlingErrorKind::httpStatus);
}

}  // namespace
