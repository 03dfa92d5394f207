// map and tap.

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <rxcpp/operators/rx-map.hpp>
#include <rxcpp/operators/rx-tap.hpp>

#include "RxTestSupport.hpp"

using rx_test::event_log;
using rx_test::events;
using rx_test::make_error;
using rx_test::observable_of_int;
using rx_test::subscriber_of_int;
using rxcpp::operators::map;
using rxcpp::operators::tap;

namespace {

template <class F>
auto source_of(F run) {
    return rxcpp::observable<>::create<int>(std::move(run));
}

auto one_and_two() {
    return source_of([](subscriber_of_int to) {
        to.on_next(1);
        to.on_next(2);
        to.on_completed();
    });
}

auto failing_with(std::exception_ptr error) {
    return source_of([error](subscriber_of_int to) {
        to.on_next(1);
        to.on_error(error);
    });
}

TEST(RxMap, TurnsEachValueIntoAnotherOneOfAnyType) {
    std::vector<std::string> received;
    const rxcpp::observable<std::string> texts =
        one_and_two() | map([](int value) { return value + 1; }) |
        map([](int value) { return "value " + std::to_string(value); });
    texts.subscribe([&](std::string text) { received.push_back(std::move(text)); });
    EXPECT_THAT(received, testing::ElementsAre("value 2", "value 3"));
}

TEST(RxMap, IsAMemberToo) {
    event_log log;
    const auto mapped =
        one_and_two().map([](int value) { return 10 * value; }).tap([](int) {}).as_dynamic();
    rx_test::subscribe(mapped, log);
    EXPECT_EQ(log.seen(), (events{"next 10", "next 20", "completed"}));
}

TEST(RxMap, OneOperatorCanBeAppliedToSeveralSources) {
    event_log log;
    const auto negate = map([](int value) { return -value; });
    rx_test::subscribe(rxcpp::observable<>::just(1) | negate, log);
    rx_test::subscribe(rxcpp::observable<>::just(2) | negate | negate, log);
    EXPECT_EQ(log.seen(), (events{"next -1", "completed", "next 2", "completed"}));
}

TEST(RxMap, EachSubscriptionHasItsOwnCopyOfTheFunction) {
    event_log log;
    const auto numbered = one_and_two() | map([count = 0](int) mutable { return ++count; });
    rx_test::subscribe(numbered, log);
    rx_test::subscribe(numbered, log);
    EXPECT_EQ(log.seen(),
              (events{"next 1", "next 2", "completed", "next 1", "next 2", "completed"}));
}

TEST(RxMap, AReturnedReferenceIsEmittedAsAValue) {
    static const std::string text = "constant";
    const auto mapped =
        rxcpp::observable<>::just(1) | map([](int) -> const std::string& { return text; });
    static_assert(std::is_same_v<decltype(mapped)::value_type, std::string>);
    std::string received;
    mapped.subscribe([&](std::string value) { received = std::move(value); });
    EXPECT_EQ(received, "constant");
}

TEST(RxMap, ErrorsKeepTheirTypeAndIdentity) {
    struct special : std::runtime_error {
        using std::runtime_error::runtime_error;
        int code = 7;
    };
    const std::exception_ptr sent = std::make_exception_ptr(special("e"));
    std::exception_ptr received;
    const rxcpp::observable<std::string> chain =
        failing_with(sent) | map([](int value) { return value; }) |
        map([](int value) { return std::to_string(value); });
    chain.subscribe([](const std::string&) {}, [&](std::exception_ptr error) { received = error; });
    EXPECT_EQ(received, sent);
    int code = 0;
    try {
        std::rethrow_exception(received);
    } catch (const special& exception) {
        code = exception.code;
    }
    EXPECT_EQ(code, 7);
}

TEST(RxMap, AnExceptionBecomesTheErrorAndEndsTheSource) {
    event_log log;
    const auto source = source_of([&](subscriber_of_int to) {
        to.add(log.on_teardown());
        EXPECT_NO_THROW(to.on_next(1));
        EXPECT_FALSE(to.is_subscribed());
        to.on_next(2);
        to.on_completed();
    });
    rx_test::subscribe(source | map([](int) -> int { throw std::runtime_error("thrown"); }) |
                           map([](int value) { return value; }),
                       log);
    EXPECT_EQ(log.seen(), (events{"error thrown", "teardown"}));
}

TEST(RxMap, AnExceptionBehindAnotherMapEndsTheSourceToo) {
    event_log log;
    const observable_of_int source = source_of([&](subscriber_of_int to) {
        to.add(log.on_teardown());
        to.on_next(1);
        EXPECT_FALSE(to.is_subscribed());
    });
    const observable_of_int first = source | map([](int value) { return value; });
    rx_test::subscribe(first | map([](int) -> int { throw std::runtime_error("thrown"); }), log);
    EXPECT_EQ(log.seen(), (events{"error thrown", "teardown"}));
}

TEST(RxMap, AnExceptionOfTheValueFunctionReachesItsOwnErrorFunctionOnce) {
    event_log log;
    (one_and_two() | map([](int value) { return value; }) | tap([](int) {}))
        .subscribe([](int) { throw std::runtime_error("thrown"); }, log.on_error(),
                   log.on_completed());
    EXPECT_EQ(log.seen(), (events{"error thrown"}));
}

TEST(RxMap, AnExceptionOfTheErrorFunctionAboutAValueDoesNotPassBackThroughAMap) {
    int errors = 0;
    const auto fail = [&errors](std::exception_ptr) {
        ++errors;
        throw std::logic_error("thrown");
    };
    (source_of([](subscriber_of_int to) {
         EXPECT_NO_THROW(to.on_next(1));
         EXPECT_FALSE(to.is_subscribed());
     }) |
     map([](int value) {
         return value;
     })).subscribe([](int) { throw std::runtime_error("first"); }, fail);
    EXPECT_EQ(errors, 1);
}

TEST(RxMap, AnExceptionOfAnErrorOrCompletionFunctionPassesBackThroughAMap) {
    const auto identity = map([](int value) { return value; });
    (source_of([](subscriber_of_int to) {
         EXPECT_THROW(to.on_error(make_error("e")), std::logic_error);
     }) |
     identity)
        .subscribe([](int) {}, [](std::exception_ptr) { throw std::logic_error("thrown"); });
    (source_of([](subscriber_of_int to) { EXPECT_THROW(to.on_completed(), std::logic_error); }) |
     identity)
        .subscribe([](int) {}, [] { throw std::logic_error("thrown"); });
}

TEST(RxMap, UnsubscribingInTheFunctionDropsItsResult) {
    event_log log;
    rxcpp::composite_subscription subscription;
    (one_and_two() | map([subscription](int value) {
         subscription.unsubscribe();
         return value;
     })).subscribe(subscription, log.on_next(), log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(), events{});
}

TEST(RxMap, UnsubscribingDownstreamReachesTheSourceThroughTheChain) {
    event_log log;
    const auto subscription =
        rx_test::subscribe(source_of([&](subscriber_of_int to) { to.add(log.on_teardown()); }) |
                               map([](int value) { return value; }) | tap([](int) {}),
                           log);
    subscription.unsubscribe();
    EXPECT_EQ(log.seen(), (events{"teardown"}));
}

TEST(RxTap, SeesEachEventBeforeTheSubscriberDoes) {
    event_log log;
    rx_test::subscribe(
        one_and_two() | tap([&](int value) { log.note("tap " + std::to_string(value)); },
                            [](std::exception_ptr) {}, [&] { log.note("tap completed"); }),
        log);
    EXPECT_EQ(log.seen(),
              (events{"tap 1", "next 1", "tap 2", "next 2", "tap completed", "completed"}));
}

TEST(RxTap, SeesAnErrorFirstAndPassesItUnchanged) {
    event_log log;
    const std::exception_ptr sent = make_error("e");
    std::exception_ptr tapped;
    std::exception_ptr received;
    (failing_with(sent) | tap([](int) {},
                              [&](std::exception_ptr error) {
                                  log.note("tap");
                                  tapped = error;
                              }))
        .subscribe([](int) {},
                   [&](std::exception_ptr error) {
                       log.note("subscriber");
                       received = error;
                   });
    EXPECT_EQ(log.seen(), (events{"tap", "subscriber"}));
    EXPECT_EQ(tapped, sent);
    EXPECT_EQ(received, sent);
}

TEST(RxTap, TakesAnErrorFunctionAlone) {
    event_log log;
    rx_test::subscribe(failing_with(make_error("e")) | tap([&](std::exception_ptr error) {
                           log.note("tap " + rx_test::text_of(error));
                       }),
                       log);
    EXPECT_EQ(log.seen(), (events{"next 1", "tap e", "error e"}));
}

TEST(RxTap, TakesAValueAndACompletionFunction) {
    event_log log;
    rx_test::subscribe(one_and_two() | tap([](int) {}, [&] { log.note("tap completed"); }), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "tap completed", "completed"}));
}

TEST(RxTap, WithoutAnErrorFunctionLetsErrorsPass) {
    event_log log;
    rx_test::subscribe(failing_with(make_error("e")) | tap([](int) {}) | tap(), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "error e"}));
}

TEST(RxTap, AnExceptionAboutAValueBecomesTheErrorWhichTheTapSeesToo) {
    event_log log;
    const auto source = source_of([&](subscriber_of_int to) {
        to.add(log.on_teardown());
        EXPECT_NO_THROW(to.on_next(1));
        EXPECT_FALSE(to.is_subscribed());
        to.on_next(2);
    });
    rx_test::subscribe(
        source | tap([](int) { throw std::runtime_error("thrown"); },
                     [&](std::exception_ptr error) { log.note("tap " + rx_test::text_of(error)); }),
        log);
    EXPECT_EQ(log.seen(), (events{"tap thrown", "error thrown", "teardown"}));
}

TEST(RxTap, AnExceptionAboutATerminalEventEscapesToTheEmitterAndStopsTheEvent) {
    event_log log;
    const auto fail_on_error = [](std::exception_ptr) { throw std::logic_error("thrown"); };
    const auto fail_on_completed = [] { throw std::logic_error("thrown"); };
    rx_test::subscribe(source_of([](subscriber_of_int to) {
                           EXPECT_THROW(to.on_error(make_error("e")), std::logic_error);
                           EXPECT_FALSE(to.is_subscribed());
                       }) | tap([](int) {}, fail_on_error),
                       log);
    rx_test::subscribe(source_of([](subscriber_of_int to) {
                           EXPECT_THROW(to.on_completed(), std::logic_error);
                           EXPECT_FALSE(to.is_subscribed());
                       }) | tap([](int) {}, fail_on_completed),
                       log);
    EXPECT_EQ(log.seen(), events{});
}

TEST(RxTap, UnsubscribingInTheValueFunctionDropsTheValue) {
    event_log log;
    rxcpp::composite_subscription subscription;
    (one_and_two() | tap([&](int) {
         subscription.unsubscribe();
     })).subscribe(subscription, log.on_next(), log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(), events{});
}

TEST(RxPipe, TakesAnyFunctionOfAnObservable) {
    event_log log;
    const auto twice = [](auto source) {
        return source | map([](int value) { return 2 * value; });
    };
    rx_test::subscribe(one_and_two() | twice, log);
    const observable_of_int named = one_and_two();
    rx_test::subscribe(named | twice, log);
    EXPECT_EQ(log.seen(),
              (events{"next 2", "next 4", "completed", "next 2", "next 4", "completed"}));
}

TEST(RxPipe, WhatTheFunctionsOfAChainHoldIsReleasedWithTheEmitter) {
    const auto captured = std::make_shared<int>(1);
    std::vector<subscriber_of_int> emitters;
    std::vector<rxcpp::composite_subscription> held;
    {
        const observable_of_int chain =
            source_of([&](subscriber_of_int to) { emitters.push_back(to); }) |
            map([captured](int value) { return value + *captured; }) | tap([captured](int) {});
        held.push_back(chain.subscribe([captured](int) {}));
    }
    EXPECT_EQ(captured.use_count(), 4);
    emitters.clear();
    EXPECT_EQ(captured.use_count(), 1);
}

}  // namespace
