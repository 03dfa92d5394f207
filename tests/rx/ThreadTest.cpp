// What may happen on several threads at once.

#include <array>
#include <atomic>
#include <cstddef>
#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <rxcpp/operators/rx-map.hpp>
#include <rxcpp/operators/rx-tap.hpp>

#include "RxTestSupport.hpp"
#include "support/Rounds.hpp"

using rx_test::event_log;
using rx_test::events;
using rx_test::observable_of_int;
using rx_test::subscriber_of_int;

namespace {

const std::size_t races = TestSupport::roundsOf(500);

/// Runs all functions at the same time, as nearly as threads can.
template <class... F>
void race(F... functions) {
    std::atomic<int> waiting{sizeof...(F)};
    const auto run = [&waiting](auto function) {
        --waiting;
        while (waiting > 0) {
            std::this_thread::yield();
        }
        function();
    };
    std::array threads{std::thread(run, functions)...};
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(RxThreads, AnotherThreadCanEmit) {
    event_log log;
    std::thread emitter;
    rx_test::subscribe(rxcpp::observable<>::create<int>([&emitter](subscriber_of_int to) {
                           emitter = std::thread([to] {
                               to.on_next(1);
                               to.on_next(2);
                               to.on_completed();
                           });
                       }) | rxcpp::operators::map([](int value) { return 10 * value; }),
                       log);
    emitter.join();
    EXPECT_EQ(log.seen(), (events{"next 10", "next 20", "completed"}));
}

TEST(RxThreads, UnsubscribingDoesNotWaitForAValueAndDropsTheNextOne) {
    std::promise<void> value_arrived;
    std::promise<void> unsubscribed;
    std::vector<int> received;
    int teardowns = 0;
    std::thread emitter;
    const auto subscription =
        rxcpp::observable<>::create<int>([&](subscriber_of_int to) {
            to.add([&teardowns] { ++teardowns; });
            emitter = std::thread([to] {
                to.on_next(1);
                to.on_next(2);
                to.on_completed();
            });
        })
            .subscribe(
                [&](int value) {
                    received.push_back(value);
                    value_arrived.set_value();
                    unsubscribed.get_future().wait();
                },
                [](std::exception_ptr) {}, [&received] { received.push_back(-1); });
    value_arrived.get_future().wait();
    subscription.unsubscribe();
    EXPECT_EQ(teardowns, 1);
    unsubscribed.set_value();
    emitter.join();
    EXPECT_THAT(received, testing::ElementsAre(1));
    EXPECT_EQ(teardowns, 1);
}

TEST(RxThreads, UnsubscribingWhileAChainEmitsStopsItAndRunsTheTeardownOnce) {
    for (std::size_t run = 0; run < races; ++run) {
        std::atomic<int> teardowns{0};
        std::atomic<bool> stop{false};
        int received = 0;
        std::optional<subscriber_of_int> emitter;
        const observable_of_int source =
            rxcpp::observable<>::create<int>([&](subscriber_of_int to) {
                to.add([&] {
                    ++teardowns;
                    stop = true;
                });
                emitter = to;
            }) |
            rxcpp::operators::map([](int value) { return value + 1; }) |
            rxcpp::operators::tap([](int) {});
        const auto subscription = source.subscribe([&received](int) { ++received; });
        int sent = 0;
        race([subscription] { subscription.unsubscribe(); },
             [&] {
                 while (!stop) {
                     emitter->on_next(++sent);
                 }
                 emitter->on_completed();
             });
        EXPECT_EQ(teardowns, 1);
        EXPECT_LE(received, sent);
        const int received_before = received;
        emitter->on_next(0);
        EXPECT_EQ(received, received_before);
    }
}

TEST(RxThreads, TwoThreadsThatUnsubscribeRunTheTeardownOnce) {
    for (std::size_t run = 0; run < races; ++run) {
        std::atomic<int> teardowns{0};
        rxcpp::composite_subscription subscription;
        subscription.add([&teardowns] { ++teardowns; });
        subscription.add([&teardowns] { ++teardowns; });
        race([subscription] { subscription.unsubscribe(); },
             [subscription] { subscription.unsubscribe(); });
        EXPECT_EQ(teardowns, 2);
    }
}

TEST(RxThreads, AFunctionSubscriptionThatTwoThreadsEndRunsOnce) {
    constexpr int rounds = 10;
    constexpr std::size_t count = 20'000;
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::atomic<int>> ran(count);
        std::vector<rxcpp::subscription> subscriptions;
        for (auto& times : ran) {
            subscriptions.push_back(rxcpp::make_subscription([&times] { ++times; }));
        }
        // Both walk the same way, so that the one behind catches up and they meet often.
        const auto end_all = [&subscriptions] {
            for (const auto& subscription : subscriptions) {
                subscription.unsubscribe();
            }
        };
        race(end_all, end_all);
        for (const auto& times : ran) {
            ASSERT_EQ(times, 1);
        }
    }
}

TEST(RxThreads, ACompletionAndAnUnsubscribeRunTheTeardownOnce) {
    for (std::size_t run = 0; run < races; ++run) {
        std::atomic<int> teardowns{0};
        std::atomic<int> completions{0};
        std::optional<subscriber_of_int> emitter;
        const auto subscription = rxcpp::observable<>::create<int>([&](subscriber_of_int to) {
                                      to.add([&teardowns] { ++teardowns; });
                                      emitter = to;
                                  }).subscribe([](int) {}, [&completions] { ++completions; });
        race([&emitter] { emitter->on_completed(); },
             [subscription] { subscription.unsubscribe(); });
        EXPECT_EQ(teardowns, 1);
        EXPECT_LE(completions, 1);
    }
}

TEST(RxThreads, AnActionAddedDuringAnUnsubscribeRunsOnce) {
    for (std::size_t run = 0; run < races; ++run) {
        constexpr int actions = 8;
        std::atomic<int> ran{0};
        rxcpp::composite_subscription subscription;
        race(
            [&] {
                for (int action = 0; action < actions; ++action) {
                    subscription.add([&ran] { ++ran; });
                }
            },
            [subscription] { subscription.unsubscribe(); });
        EXPECT_EQ(ran, actions);
    }
}

TEST(RxThreads, ActionsCanBeAddedAndRemovedByManyThreads) {
    std::atomic<int> kept{0};
    std::atomic<int> removed{0};
    rxcpp::composite_subscription subscription;
    const auto work = [&] {
        for (std::size_t round = 0; round < races; ++round) {
            const auto name = subscription.add([&removed] { ++removed; });
            subscription.remove(name);
        }
        subscription.add([&kept] { ++kept; });
    };
    race(work, work, work);
    EXPECT_EQ(kept, 0);
    subscription.unsubscribe();
    EXPECT_EQ(kept, 3);
    EXPECT_EQ(removed, 0);
}

TEST(RxThreads, TheLastHandlesCanBeDroppedByDifferentThreads) {
    for (std::size_t run = 0; run < races; ++run) {
        const auto captured = std::make_shared<int>(0);
        std::optional<subscriber_of_int> emitter;
        std::optional<rxcpp::composite_subscription> subscription =
            rxcpp::observable<>::create<int>([&, captured](subscriber_of_int to) {
                to.add([captured] { ++*captured; });
                emitter = to;
            }).subscribe([captured](int) { ++*captured; });
        race([&emitter] { emitter.reset(); }, [&subscription] { subscription.reset(); });
        EXPECT_EQ(captured.use_count(), 1);
        EXPECT_EQ(*captured, 0);
    }
}

TEST(RxThreads, OneObservableCanBeSubscribedByManyThreads) {
    static constexpr int values = 500;
    const observable_of_int source =
        rxcpp::observable<>::create<int>([](subscriber_of_int to) {
            for (int value = 0; value < values; ++value) {
                to.on_next(value);
            }
            to.on_completed();
        }) |
        rxcpp::operators::map([count = 0](int) mutable { return ++count; });
    const auto work = [&source] {
        int last = 0;
        bool completed = false;
        source.subscribe([&last](int value) { last = value; }, [&completed] { completed = true; });
        EXPECT_EQ(last, values);
        EXPECT_TRUE(completed);
    };
    race(work, work, work);
}

}  // namespace
