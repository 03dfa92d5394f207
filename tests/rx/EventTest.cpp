// The order and number of events between a source and its subscriber.

#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "RxTestSupport.hpp"

using rx_test::event_log;
using rx_test::events;
using rx_test::make_error;
using rx_test::observable_of_int;
using rx_test::subscriber_of_int;

namespace {

template <class F>
auto source_of(F run) {
    return rxcpp::observable<>::create<int>(std::move(run));
}

TEST(RxEvents, ValuesArriveInOrderAndTheCompletionIsLast) {
    event_log log;
    rx_test::subscribe(source_of([](subscriber_of_int to) {
                           to.on_next(1);
                           to.on_next(2);
                           to.on_completed();
                       }),
                       log);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "completed"}));
}

TEST(RxEvents, NothingFollowsACompletion) {
    event_log log;
    rx_test::subscribe(source_of([](subscriber_of_int to) {
                           to.on_completed();
                           to.on_next(1);
                           to.on_error(make_error("late"));
                           to.on_completed();
                       }),
                       log);
    EXPECT_EQ(log.seen(), (events{"completed"}));
}

TEST(RxEvents, NothingFollowsAnError) {
    event_log log;
    rx_test::subscribe(source_of([](subscriber_of_int to) {
                           to.on_error(make_error("first"));
                           to.on_next(1);
                           to.on_completed();
                           to.on_error(make_error("second"));
                       }),
                       log);
    EXPECT_EQ(log.seen(), (events{"error first"}));
}

TEST(RxEvents, NothingFollowsAnUnsubscribe) {
    event_log log;
    std::optional<subscriber_of_int> emitter;
    const auto subscription =
        rx_test::subscribe(source_of([&](subscriber_of_int to) { emitter = to; }), log);
    emitter->on_next(1);
    subscription.unsubscribe();
    emitter->on_next(2);
    emitter->on_error(make_error("late"));
    emitter->on_completed();
    EXPECT_EQ(log.seen(), (events{"next 1"}));
}

TEST(RxEvents, TheSourceCanEndItsOwnSubscription) {
    event_log log;
    const auto subscription = rx_test::subscribe(source_of([](subscriber_of_int to) {
                                                     to.on_next(1);
                                                     to.unsubscribe();
                                                     to.on_next(2);
                                                 }),
                                                 log);
    EXPECT_EQ(log.seen(), (events{"next 1"}));
    EXPECT_FALSE(subscription.is_subscribed());
}

TEST(RxEvents, UnsubscribingInsideAValueStopsTheNextOne) {
    event_log log;
    rxcpp::composite_subscription subscription;
    source_of([](subscriber_of_int to) {
        for (int value = 1; value <= 3; ++value) {
            to.on_next(value);
        }
        to.on_completed();
    })
        .subscribe(
            subscription,
            [&](int value) {
                log.on_next()(value);
                if (value == 2) {
                    subscription.unsubscribe();
                }
            },
            log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2"}));
}

TEST(RxEvents, EachSubscribeRunsTheSourceAnew) {
    int runs = 0;
    const observable_of_int source = source_of([&runs](subscriber_of_int to) {
        to.on_next(++runs);
        to.on_completed();
    });
    EXPECT_EQ(runs, 0) << "nothing may happen before the first subscribe";
    event_log log;
    rx_test::subscribe(source, log);
    rx_test::subscribe(source, log);
    EXPECT_EQ(log.seen(), (events{"next 1", "completed", "next 2", "completed"}));
}

TEST(RxEvents, ASubscriptionThatHasEndedBeforeDoesNotRunTheSource) {
    int runs = 0;
    rxcpp::composite_subscription ended;
    ended.unsubscribe();
    event_log log;
    const auto result = source_of([&runs](subscriber_of_int) {
                            ++runs;
                        }).subscribe(ended, log.on_next(), log.on_error(), log.on_completed());
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(result, ended);
    EXPECT_EQ(log.seen(), events{});
}

TEST(RxEvents, TheSubscriptionEndsAfterTheTerminalEventWasSeen) {
    for (const bool fails : {false, true}) {
        event_log log;
        rxcpp::composite_subscription subscription;
        const auto note_state = [&] {
            log.note(subscription.is_subscribed() ? "still subscribed" : "not subscribed");
        };
        source_of([&](subscriber_of_int to) {
            to.add([&] {
                note_state();
                log.note("teardown");
            });
            fails ? to.on_error(make_error("e")) : to.on_completed();
            log.note("emitter goes on");
        })
            .subscribe(
                subscription, [](int) {}, [&](std::exception_ptr) { note_state(); },
                [&] { note_state(); });
        EXPECT_EQ(log.seen(),
                  (events{"still subscribed", "not subscribed", "teardown", "emitter goes on"}));
    }
}

TEST(RxEvents, DroppingTheSubscriptionCancelsNothing) {
    event_log log;
    std::optional<subscriber_of_int> emitter;
    {
        const auto dropped = rx_test::subscribe(source_of([&](subscriber_of_int to) {
                                                    to.add(log.on_teardown());
                                                    emitter = to;
                                                }),
                                                log);
    }
    emitter->on_next(1);
    emitter->on_completed();
    EXPECT_EQ(log.seen(), (events{"next 1", "completed", "teardown"}));
}

TEST(RxEvents, DroppingTheObservableCancelsNothing) {
    event_log log;
    std::optional<subscriber_of_int> emitter;
    {
        const observable_of_int dropped = source_of([&](subscriber_of_int to) { emitter = to; });
        rx_test::subscribe(dropped, log);
    }
    emitter->on_next(1);
    EXPECT_EQ(log.seen(), (events{"next 1"}));
}

TEST(RxEvents, TheFunctionsAreReleasedWithTheLastSubscriberAlthoughTheSubscriptionIsHeld) {
    const auto captured = std::make_shared<int>(0);
    std::optional<subscriber_of_int> emitter;
    const auto subscription = source_of([&](subscriber_of_int to) {
                                  emitter = to;
                              }).subscribe([captured](int) {}, [captured](std::exception_ptr) {});
    EXPECT_EQ(captured.use_count(), 3);
    emitter.reset();
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_TRUE(subscription.is_subscribed());
}

TEST(RxEvents, AnErrorArrivesAsTheVeryExceptionThatWasSent) {
    const std::exception_ptr sent = make_error("e");
    std::exception_ptr received;
    source_of([&](subscriber_of_int to) {
        to.on_error(sent);
    }).subscribe([](int) {}, [&](std::exception_ptr error) { received = error; });
    EXPECT_EQ(received, sent);
}

TEST(RxEvents, ANullErrorPassesAsItIs) {
    int errors = 0;
    std::exception_ptr received = make_error("e");
    source_of([](subscriber_of_int to) { to.on_error(nullptr); })
        .subscribe([](int) {},
                   [&](std::exception_ptr error) {
                       ++errors;
                       received = error;
                   });
    EXPECT_EQ(errors, 1);
    EXPECT_EQ(received, nullptr);
}

TEST(RxEventsDeathTest, AnErrorThatNobodyHandlesTerminates) {
    rx_test::expect_terminates([] {
        source_of([](subscriber_of_int to) { to.on_error(make_error("e")); }).subscribe([](int) {});
    });
    rx_test::expect_terminates([] {
        source_of([](subscriber_of_int to) {
            to.on_error(make_error("e"));
        }).subscribe([](int) {}, [] {});
    });
    rx_test::expect_terminates(
        [] { source_of([](subscriber_of_int to) { to.on_error(make_error("e")); }).subscribe(); });
}

TEST(RxEventsDeathTest, AnExceptionOfTheValueFunctionThatNobodyHandlesTerminates) {
    rx_test::expect_terminates([] {
        source_of([](subscriber_of_int to) { to.on_next(1); }).subscribe([](int) {
            throw std::runtime_error("thrown");
        });
    });
}

TEST(RxEvents, AnExceptionOfTheValueFunctionReachesItsOwnErrorFunction) {
    event_log log;
    source_of([&](subscriber_of_int to) {
        to.add(log.on_teardown());
        EXPECT_NO_THROW(to.on_next(1));
        EXPECT_FALSE(to.is_subscribed());
        to.on_next(2);
        to.on_completed();
    })
        .subscribe([](int) { throw std::runtime_error("thrown"); }, log.on_error(),
                   log.on_completed());
    EXPECT_EQ(log.seen(), (events{"error thrown", "teardown"}));
}

TEST(RxEvents, AValueFunctionThatUnsubscribesAndThrowsStillGetsItsException) {
    event_log log;
    rxcpp::composite_subscription subscription;
    source_of([](subscriber_of_int to) { to.on_next(1); })
        .subscribe(
            subscription,
            [&](int) {
                subscription.unsubscribe();
                throw std::runtime_error("thrown");
            },
            log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(), (events{"error thrown"}));
}

TEST(RxEvents, AnExceptionOfTheErrorFunctionEscapesToTheEmitter) {
    event_log log;
    source_of([&](subscriber_of_int to) {
        to.add(log.on_teardown());
        EXPECT_THROW(to.on_error(make_error("e")), std::logic_error);
        EXPECT_FALSE(to.is_subscribed());
    }).subscribe([](int) {}, [](std::exception_ptr) { throw std::logic_error("thrown"); });
    EXPECT_EQ(log.seen(), (events{"teardown"}));
}

TEST(RxEvents, AnExceptionOfTheErrorFunctionAboutTheValueFunctionEscapesToTheEmitter) {
    source_of([](subscriber_of_int to) {
        EXPECT_THROW(to.on_next(1), std::logic_error);
        EXPECT_FALSE(to.is_subscribed());
    })
        .subscribe([](int) { throw std::runtime_error("first"); },
                   [](std::exception_ptr) { throw std::logic_error("second"); });
}

TEST(RxEvents, AnExceptionOfTheCompletionFunctionEscapesToTheEmitter) {
    event_log log;
    source_of([&](subscriber_of_int to) {
        to.add(log.on_teardown());
        EXPECT_THROW(to.on_completed(), std::logic_error);
        EXPECT_FALSE(to.is_subscribed());
    }).subscribe([](int) {}, log.on_error(), [] { throw std::logic_error("thrown"); });
    EXPECT_EQ(log.seen(), (events{"teardown"}));
}

TEST(RxEvents, SubscribingToAnotherSourceInsideAValueRunsItAtOnce) {
    event_log log;
    const auto inner = source_of([](subscriber_of_int to) {
        to.on_next(10);
        to.on_completed();
    });
    source_of([](subscriber_of_int to) {
        to.on_next(1);
        to.on_next(2);
        to.on_completed();
    })
        .subscribe(
            [&](int value) {
                log.on_next()(value);
                rx_test::subscribe(inner, log);
            },
            log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(), (events{"next 1", "next 10", "completed", "next 2", "next 10",
                                  "completed", "completed"}));
}

TEST(RxEvents, SubscribingToTheSameSourceInsideItsValueRunsItAgain) {
    event_log log;
    int depth = 0;
    const observable_of_int source = source_of([&depth](subscriber_of_int to) {
        to.on_next(depth);
        to.on_completed();
    });
    source.subscribe(
        [&](int value) {
            log.on_next()(value);
            if (++depth < 3) {
                rx_test::subscribe(source, log);
            }
        },
        log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(), (events{"next 0", "next 1", "completed", "completed"}));
}

TEST(RxEvents, SubscribingAgainInsideTheErrorFunctionWorks) {
    event_log log;
    int runs = 0;
    const observable_of_int source = source_of([&runs](subscriber_of_int to) {
        if (++runs == 1) {
            to.on_error(make_error("first try"));
        } else {
            to.on_next(runs);
            to.on_completed();
        }
    });
    source.subscribe(
        log.on_next(),
        [&](std::exception_ptr error) {
            log.on_error()(error);
            rx_test::subscribe(source, log);
        },
        log.on_completed());
    EXPECT_EQ(log.seen(), (events{"error first try", "next 2", "completed"}));
}

TEST(RxEvents, AnEmittedLvalueIsLeftAsItWas) {
    std::vector<std::string> received;
    rxcpp::observable<>::create<std::string>([](rxcpp::subscriber<std::string> to) {
        std::string value = "long enough to live on the heap, so that a move would show";
        to.on_next(value);
        to.on_next(value);
        to.on_next("a literal converts");
    }).subscribe([&](std::string value) { received.push_back(std::move(value)); });
    EXPECT_THAT(received,
                testing::ElementsAre("long enough to live on the heap, so that a move would show",
                                     "long enough to live on the heap, so that a move would show",
                                     "a literal converts"));
}

TEST(RxEvents, CopiesOfASubscriberAreOneSubscriber) {
    event_log log;
    source_of([](subscriber_of_int to) {
        const subscriber_of_int copy = to;
        copy.on_next(1);
        to.on_next(2);
        copy.on_completed();
        EXPECT_FALSE(to.is_subscribed());
        to.on_next(3);
    }).subscribe(log.on_next(), log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "completed"}));
}

}  // namespace
