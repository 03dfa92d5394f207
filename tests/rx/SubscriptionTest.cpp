// Subscriptions and what runs when they end.

#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "RxTestSupport.hpp"

using rx_test::event_log;
using rx_test::events;
using rx_test::make_error;
using rx_test::subscriber_of_int;

namespace {

/// A source that counts its teardowns and then does what the test wants.
template <class F>
auto torn_down(int& teardowns, F emit) {
    return rxcpp::observable<>::create<int>([&teardowns, emit](subscriber_of_int to) {
        to.add([&teardowns] { ++teardowns; });
        emit(to);
    });
}

void subscribe_quietly(const rxcpp::observable<int>& source) {
    source.subscribe([](int) {}, [](std::exception_ptr) {}, [] {});
}

TEST(RxTeardown, RunsOnceOnCompletion) {
    int teardowns = 0;
    subscribe_quietly(torn_down(teardowns, [](const subscriber_of_int& to) {
        to.on_completed();
        to.on_completed();
    }));
    EXPECT_EQ(teardowns, 1);
}

TEST(RxTeardown, RunsOnceOnAnError) {
    int teardowns = 0;
    subscribe_quietly(torn_down(teardowns, [](const subscriber_of_int& to) {
        to.on_error(make_error("e"));
        to.on_completed();
    }));
    EXPECT_EQ(teardowns, 1);
}

TEST(RxTeardown, RunsOnceOnUnsubscribe) {
    int teardowns = 0;
    const auto subscription =
        torn_down(teardowns, [](const subscriber_of_int&) {}).subscribe([](int) {});
    EXPECT_EQ(teardowns, 0);
    subscription.unsubscribe();
    EXPECT_EQ(teardowns, 1);
    subscription.unsubscribe();
    EXPECT_EQ(teardowns, 1);
}

TEST(RxTeardown, DoesNotRunAgainOnUnsubscribeAfterCompletion) {
    int teardowns = 0;
    const auto subscription = torn_down(teardowns, [](const subscriber_of_int& to) {
                                  to.on_completed();
                              }).subscribe([](int) {});
    subscription.unsubscribe();
    EXPECT_EQ(teardowns, 1);
}

TEST(RxTeardown, RunsWhenAnEventIsDroppedInItsFavour) {
    int teardowns = 0;
    std::optional<subscriber_of_int> emitter;
    const auto subscription = torn_down(teardowns, [&](const subscriber_of_int& to) {
                                  emitter = to;
                              }).subscribe([](int) {});
    subscription.unsubscribe();
    emitter->on_completed();
    EXPECT_EQ(teardowns, 1);
}

TEST(RxTeardown, DoesNotRunWhenEverythingIsDroppedWithoutAnEnd) {
    int teardowns = 0;
    subscribe_quietly(torn_down(teardowns, [](const subscriber_of_int&) {}));
    EXPECT_EQ(teardowns, 0);
}

TEST(RxTeardown, AllActionsRunOnce) {
    std::vector<int> ran(10, 0);
    rxcpp::composite_subscription subscription;
    for (int& count : ran) {
        subscription.add([&count] { ++count; });
    }
    subscription.unsubscribe();
    EXPECT_THAT(ran, testing::Each(1));
}

TEST(RxTeardown, AnActionAddedAfterTheEndRunsAtOnce) {
    rxcpp::composite_subscription subscription;
    subscription.unsubscribe();
    int ran = 0;
    subscription.add([&ran] { ++ran; });
    EXPECT_EQ(ran, 1);
    EXPECT_THROW(subscription.add([] { throw std::runtime_error("thrown"); }), std::runtime_error);
}

TEST(RxTeardown, AnActionAddedToASubscriberAfterItsTerminalEventRunsAtOnce) {
    event_log log;
    rx_test::subscribe(rxcpp::observable<>::create<int>([&](subscriber_of_int to) {
                           to.on_completed();
                           to.add(log.on_teardown());
                           log.note("emitter goes on");
                       }),
                       log);
    EXPECT_EQ(log.seen(), (events{"completed", "teardown", "emitter goes on"}));
}

TEST(RxTeardown, AnActionMayUseTheSubscriptionThatEnds) {
    event_log log;
    rxcpp::composite_subscription subscription;
    subscription.add([&] {
        EXPECT_FALSE(subscription.is_subscribed());
        subscription.unsubscribe();
        subscription.add([&] { log.note("added on the way"); });
        log.note("first");
    });
    subscription.unsubscribe();
    EXPECT_EQ(log.seen(), (events{"added on the way", "first"}));
}

TEST(RxTeardown, AnActionOfAnySizeWorks) {
    struct ballast {
        char bytes[200] = {};
    };
    int small = 0;
    int large = 0;
    const ballast weight;
    rxcpp::composite_subscription subscription;
    subscription.add([&small] { ++small; });
    subscription.add([&large, weight] { large += 1 + weight.bytes[0]; });
    subscription.unsubscribe();
    EXPECT_EQ(small, 1);
    EXPECT_EQ(large, 1);
}

TEST(RxTeardown, WhatAnActionHoldsIsReleasedAfterItRan) {
    const auto captured = std::make_shared<int>(0);
    rxcpp::composite_subscription subscription;
    subscription.add([captured] { ++*captured; });
    subscription.add([captured] { ++*captured; });
    EXPECT_EQ(captured.use_count(), 3);
    subscription.unsubscribe();
    EXPECT_EQ(*captured, 2);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(RxTeardown, WhatAnActionHoldsIsReleasedWithTheLastHandle) {
    const auto captured = std::make_shared<int>(0);
    {
        rxcpp::composite_subscription subscription;
        subscription.add([captured] { ++*captured; });
    }
    EXPECT_EQ(*captured, 0);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(RxTeardown, AnExceptionEscapesFromADirectUnsubscribe) {
    rxcpp::composite_subscription subscription;
    subscription.add([] { throw std::runtime_error("thrown"); });
    EXPECT_THROW(subscription.unsubscribe(), std::runtime_error);
    EXPECT_FALSE(subscription.is_subscribed());
    EXPECT_NO_THROW(subscription.unsubscribe());
}

TEST(RxTeardownDeathTest, AnExceptionTerminatesWhenAnEventEndsTheSubscription) {
    const auto fail_on_end = [](const subscriber_of_int& to) {
        to.add([] { throw std::runtime_error("thrown"); });
    };
    rx_test::expect_terminates([fail_on_end] {
        subscribe_quietly(rxcpp::observable<>::create<int>([fail_on_end](subscriber_of_int to) {
            fail_on_end(to);
            to.on_completed();
        }));
    });
    rx_test::expect_terminates([fail_on_end] {
        subscribe_quietly(rxcpp::observable<>::create<int>([fail_on_end](subscriber_of_int to) {
            fail_on_end(to);
            to.on_error(make_error("e"));
        }));
    });
}

TEST(RxSubscription, CopiesShareTheirState) {
    const rxcpp::composite_subscription first;
    const rxcpp::composite_subscription second = first;
    const rxcpp::composite_subscription other;
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first == other);
    EXPECT_TRUE(first != other);
    second.unsubscribe();
    EXPECT_FALSE(first.is_subscribed());
    EXPECT_TRUE(other.is_subscribed());
}

TEST(RxSubscription, TheSubscriptionOfASubscriberIsTheOneThatSubscribeReturns) {
    std::optional<rxcpp::composite_subscription> inside;
    const auto outside = rxcpp::observable<>::create<int>([&](subscriber_of_int to) {
                             inside = to.get_subscription();
                         }).subscribe([](int) {});
    EXPECT_EQ(*inside, outside);
}

TEST(RxSubscription, ARemovedActionNeitherRunsNorHoldsAnything) {
    const auto captured = std::make_shared<int>(0);
    int kept = 0;
    rxcpp::composite_subscription subscription;
    const auto name = subscription.add([captured] { ++*captured; });
    subscription.add([&kept] { ++kept; });
    subscription.remove(name);
    EXPECT_EQ(captured.use_count(), 1);
    subscription.unsubscribe();
    EXPECT_EQ(*captured, 0);
    EXPECT_EQ(kept, 1);
}

TEST(RxSubscription, RemovingTwiceOrAfterTheEndDoesNothing) {
    int ran = 0;
    rxcpp::composite_subscription subscription;
    const auto first = subscription.add([&ran] { ran += 1; });
    const auto second = subscription.add([&ran] { ran += 10; });
    subscription.remove(first);
    subscription.remove(first);
    subscription.unsubscribe();
    subscription.remove(second);
    EXPECT_EQ(ran, 10);
}

TEST(RxSubscription, RemovingUnderTheNameOfAnotherSubscriptionDoesNothing) {
    int ran = 0;
    rxcpp::composite_subscription first;
    rxcpp::composite_subscription second;
    const auto name = first.add([&ran] { ran += 1; });
    second.add([&ran] { ran += 10; });
    second.remove(name);
    second.unsubscribe();
    EXPECT_EQ(ran, 10);
    first.unsubscribe();
    EXPECT_EQ(ran, 11);
}

TEST(RxSubscription, ClearRunsTheActionsAndLeavesTheSubscriptionOpen) {
    int ran = 0;
    rxcpp::composite_subscription subscription;
    subscription.add([&ran] { ran += 1; });
    subscription.clear();
    EXPECT_EQ(ran, 1);
    EXPECT_TRUE(subscription.is_subscribed());
    subscription.add([&ran] { ran += 10; });
    subscription.unsubscribe();
    EXPECT_EQ(ran, 11);
}

TEST(RxSubscription, TheEmptyOneHasEndedFromTheStart) {
    const auto empty = rxcpp::composite_subscription::empty();
    EXPECT_FALSE(empty.is_subscribed());
    EXPECT_EQ(empty, rxcpp::composite_subscription::empty());
    int ran = 0;
    empty.add([&ran] { ++ran; });
    EXPECT_EQ(ran, 1);
}

TEST(RxSubscription, AMemberEndsWithItsParentButNotTheOtherWayRound) {
    rxcpp::composite_subscription parent;
    rxcpp::composite_subscription child;
    int ran = 0;
    parent.add(child);
    child.add([&ran] { ++ran; });
    parent.unsubscribe();
    EXPECT_FALSE(child.is_subscribed());
    EXPECT_EQ(ran, 1);

    rxcpp::composite_subscription other_parent;
    rxcpp::composite_subscription other_child;
    other_parent.add(other_child);
    other_child.unsubscribe();
    EXPECT_TRUE(other_parent.is_subscribed());
}

TEST(RxSubscription, ARemovedMemberOutlivesItsParent) {
    rxcpp::composite_subscription parent;
    rxcpp::composite_subscription child;
    const auto name = parent.add(child);
    parent.remove(name);
    parent.unsubscribe();
    EXPECT_TRUE(child.is_subscribed());
}

TEST(RxSubscription, AMemberAddedAfterTheEndEndsAtOnce) {
    rxcpp::composite_subscription parent;
    parent.unsubscribe();
    rxcpp::composite_subscription child;
    parent.add(child);
    EXPECT_FALSE(child.is_subscribed());
}

TEST(RxSubscriptionDeathTest, AddingASubscriptionToItselfTerminates) {
    rx_test::expect_terminates([] {
        rxcpp::composite_subscription subscription;
        subscription.add(subscription);
    });
}

TEST(RxSubscription, AFunctionSubscriptionRunsOnceForAllItsParents) {
    int ran = 0;
    const auto function = rxcpp::make_subscription([&ran] { ++ran; });
    EXPECT_TRUE(function.is_subscribed());
    rxcpp::composite_subscription first;
    rxcpp::composite_subscription second;
    first.add(function);
    second.add(function);
    first.unsubscribe();
    second.unsubscribe();
    function.unsubscribe();
    EXPECT_EQ(ran, 1);
    EXPECT_FALSE(function.is_subscribed());
}

TEST(RxSubscription, ASubscriptionWithoutAFunctionHasEnded) {
    EXPECT_FALSE(rxcpp::make_subscription().is_subscribed());
    EXPECT_FALSE(rxcpp::subscription().is_subscribed());
}

TEST(RxSubscription, ACompositeConvertsToAPlainSubscriptionOfTheSameState) {
    const rxcpp::composite_subscription composite;
    const rxcpp::subscription plain = composite;
    EXPECT_TRUE(plain == composite);
    plain.unsubscribe();
    EXPECT_FALSE(composite.is_subscribed());
}

TEST(RxSubscription, HandlesCanBeKeptInOrderedContainers) {
    const rxcpp::composite_subscription first;
    const rxcpp::composite_subscription second;
    const std::set<rxcpp::composite_subscription> handles{first, second, first};
    EXPECT_EQ(handles.size(), 2U);
    EXPECT_EQ(handles.count(first), 1U);
}

TEST(RxSubscription, AHandleCanBeDroppedByItsOwnAction) {
    auto handle = std::make_unique<rxcpp::composite_subscription>();
    int ran = 0;
    handle->add([&] {
        handle.reset();
        ++ran;
    });
    rxcpp::composite_subscription(*handle).unsubscribe();
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(handle, nullptr);
}

}  // namespace
