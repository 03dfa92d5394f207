// The factories, the forms of subscribe, and the conversion to observable<T>.

#include <exception>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <rxcpp/operators/rx-map.hpp>

#include "RxTestSupport.hpp"

using rx_test::event_log;
using rx_test::events;
using rx_test::make_error;
using rx_test::observable_of_int;
using rx_test::subscriber_of_int;

namespace {

TEST(RxSources, JustEmitsItsValueToEachSubscriberAndCompletes) {
    event_log log;
    const auto source = rxcpp::observable<>::just(7);
    rx_test::subscribe(source, log);
    rx_test::subscribe(source, log);
    EXPECT_EQ(log.seen(), (events{"next 7", "completed", "next 7", "completed"}));
}

TEST(RxSources, JustKeepsItsValueForTheNextSubscriber) {
    const auto source = rxcpp::observable<>::just(std::string(100, 'x'));
    static_assert(std::is_same_v<decltype(source)::value_type, std::string>);
    for (int run = 0; run < 2; ++run) {
        std::string received;
        source.subscribe([&](std::string value) { received = std::move(value); });
        EXPECT_EQ(received, std::string(100, 'x'));
    }
}

TEST(RxSources, JustDoesNotCompleteAfterAnUnsubscribe) {
    event_log log;
    rxcpp::composite_subscription subscription;
    rxcpp::observable<>::just(7).subscribe(
        subscription,
        [&](int value) {
            log.on_next()(value);
            subscription.unsubscribe();
        },
        log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(), (events{"next 7"}));
}

TEST(RxSources, EmptyOnlyCompletes) {
    event_log log;
    const auto subscription = rx_test::subscribe(rxcpp::observable<>::empty<int>(), log);
    EXPECT_EQ(log.seen(), (events{"completed"}));
    EXPECT_FALSE(subscription.is_subscribed());
}

TEST(RxSources, NeverDoesNothing) {
    event_log log;
    const auto subscription = rx_test::subscribe(rxcpp::observable<>::never<int>(), log);
    EXPECT_EQ(log.seen(), events{});
    EXPECT_TRUE(subscription.is_subscribed());
}

TEST(RxSources, ErrorTakesAnExceptionObjectAndKeepsItsType) {
    struct special : std::runtime_error {
        using std::runtime_error::runtime_error;
    };
    std::string caught;
    rxcpp::observable<>::error<int>(special("e"))
        .subscribe([](int) {},
                   [&](std::exception_ptr error) {
                       try {
                           std::rethrow_exception(error);
                       } catch (const special& exception) {
                           caught = exception.what();
                       }
                   });
    EXPECT_EQ(caught, "e");
}

TEST(RxSources, ErrorPassesAnExceptionPointerAsItIs) {
    const std::exception_ptr given = make_error("e");
    const auto source = rxcpp::observable<>::error<int>(given);
    for (int run = 0; run < 2; ++run) {
        std::exception_ptr received;
        source.subscribe([](int) {}, [&](std::exception_ptr error) { received = error; });
        EXPECT_EQ(received, given);
    }
}

TEST(RxSources, TheSameFactoriesAreFreeFunctions) {
    event_log log;
    rx_test::subscribe(rxcpp::sources::create<int>([](subscriber_of_int to) { to.on_next(1); }),
                       log);
    rx_test::subscribe(rxcpp::sources::just(2), log);
    rx_test::subscribe(rxcpp::sources::error<int>(std::runtime_error("e")), log);
    rx_test::subscribe(rxcpp::sources::empty<int>(), log);
    rx_test::subscribe(rxcpp::sources::never<int>(), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "completed", "error e", "completed"}));
}

TEST(RxSources, AnExceptionOfTheCreateFunctionBecomesTheError) {
    event_log log;
    rx_test::subscribe(rxcpp::observable<>::create<int>([&](subscriber_of_int to) {
                           to.add(log.on_teardown());
                           to.on_next(1);
                           throw std::runtime_error("thrown");
                       }),
                       log);
    EXPECT_EQ(log.seen(), (events{"next 1", "error thrown", "teardown"}));
}

TEST(RxSources, AnExceptionOfTheCreateFunctionAfterTheEndIsDropped) {
    event_log log;
    EXPECT_NO_THROW(rx_test::subscribe(rxcpp::observable<>::create<int>([](subscriber_of_int to) {
                                           to.on_completed();
                                           throw std::runtime_error("thrown");
                                       }),
                                       log));
    EXPECT_NO_THROW(rx_test::subscribe(rxcpp::observable<>::create<int>([](subscriber_of_int to) {
                                           to.unsubscribe();
                                           throw std::runtime_error("thrown");
                                       }),
                                       log));
    EXPECT_EQ(log.seen(), (events{"completed"}));
}

TEST(RxSources, AnExceptionOfAHandlerEscapesFromSubscribeIfTheFactoryEmitted) {
    const auto fail = [](std::exception_ptr) { throw std::logic_error("thrown"); };
    const auto fail_to_complete = [] { throw std::logic_error("thrown"); };
    const auto throwing = rxcpp::observable<>::create<int>(
        [](subscriber_of_int) { throw std::runtime_error("first"); });
    EXPECT_THROW(throwing.subscribe([](int) {}, fail), std::logic_error);
    EXPECT_THROW(observable_of_int(throwing).subscribe([](int) {}, fail), std::logic_error);
    EXPECT_THROW(rxcpp::observable<>::error<int>(1).subscribe([](int) {}, fail), std::logic_error);
    EXPECT_THROW(rxcpp::observable<>::just(1).subscribe([](int) {}, fail_to_complete),
                 std::logic_error);
    EXPECT_THROW(rxcpp::observable<>::empty<int>().subscribe([](int) {}, fail_to_complete),
                 std::logic_error);
}

TEST(RxSources, ACreateFunctionMayTakeItsSubscriberAsAuto) {
    event_log log;
    rx_test::subscribe(rxcpp::observable<>::create<int>([](auto to) {
                           to.on_next(1);
                           to.on_completed();
                       }),
                       log);
    EXPECT_EQ(log.seen(), (events{"next 1", "completed"}));
}

TEST(RxSubscribe, TakesAnyPrefixOfTheFunctions) {
    event_log log;
    const auto source = rxcpp::observable<>::just(1);
    source.subscribe();
    source.subscribe(log.on_next());
    source.subscribe(log.on_next(), log.on_error());
    source.subscribe(log.on_next(), log.on_completed());
    source.subscribe(log.on_next(), log.on_error(), log.on_completed());
    EXPECT_EQ(log.seen(),
              (events{"next 1", "next 1", "next 1", "completed", "next 1", "completed"}));
}

TEST(RxSubscribe, TakesASubscriptionBeforeTheFunctions) {
    event_log log;
    const auto source = rxcpp::observable<>::just(1);
    using lifetime = rxcpp::composite_subscription;
    source.subscribe(lifetime());
    source.subscribe(lifetime(), log.on_next());
    source.subscribe(lifetime(), log.on_next(), log.on_error());
    source.subscribe(lifetime(), log.on_next(), log.on_completed());
    const lifetime mine;
    EXPECT_EQ(source.subscribe(mine, log.on_next(), log.on_error(), log.on_completed()), mine);
    EXPECT_FALSE(mine.is_subscribed());
    EXPECT_EQ(log.seen(),
              (events{"next 1", "next 1", "next 1", "completed", "next 1", "completed"}));
}

TEST(RxSubscribe, OneSubscriptionCanBoundSeveralSubscribers) {
    event_log log;
    rxcpp::composite_subscription shared;
    std::vector<subscriber_of_int> emitters;
    const auto source = rxcpp::observable<>::create<int>(
        [&emitters](subscriber_of_int to) { emitters.push_back(to); });
    source.subscribe(shared, log.on_next());
    source.subscribe(shared, log.on_next());
    ASSERT_EQ(emitters.size(), 2U);
    emitters[0].on_next(1);
    emitters[1].on_next(2);
    emitters[0].on_completed();
    emitters[1].on_next(3);
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2"}));
}

TEST(RxSubscribe, TakesASubscriber) {
    event_log log;
    const auto made =
        rxcpp::make_subscriber<int>(log.on_next(), log.on_error(), log.on_completed());
    const subscriber_of_int dynamic = made.as_dynamic();
    const auto result = rxcpp::observable<>::just(1).subscribe(dynamic);
    EXPECT_EQ(result, made.get_subscription());
    EXPECT_FALSE(dynamic.is_subscribed());
    EXPECT_EQ(log.seen(), (events{"next 1", "completed"}));
}

TEST(RxSubscribe, ASubscriberCanBeMadeForALifetimeThatExists) {
    event_log log;
    const rxcpp::composite_subscription lifetime;
    const subscriber_of_int made = rxcpp::make_subscriber<int>(lifetime, log.on_next());
    EXPECT_EQ(made.get_subscription(), lifetime);
    made.on_next(1);
    lifetime.unsubscribe();
    made.on_next(2);
    EXPECT_EQ(log.seen(), (events{"next 1"}));
}

TEST(RxSubscribe, ASubscriberCanShareTheLifetimeOfAnother) {
    event_log log;
    const subscriber_of_int origin =
        rxcpp::make_subscriber<int>(log.on_next(), log.on_error(), log.on_completed());
    const auto lengths = rxcpp::make_subscriber<std::string>(
        origin,
        [origin](const std::string& text) { origin.on_next(static_cast<int>(text.size())); },
        [origin](std::exception_ptr error) { origin.on_error(error); },
        [origin] { origin.on_completed(); });
    EXPECT_EQ(lengths.get_subscription(), origin.get_subscription());
    lengths.on_next(std::string("four"));
    lengths.on_completed();
    EXPECT_FALSE(origin.is_subscribed());
    EXPECT_EQ(log.seen(), (events{"next 4", "completed"}));
}

TEST(RxSubscribe, TheObserverOfASubscriberCanBeUsedWithAnotherLifetime) {
    event_log log;
    const auto origin =
        rxcpp::make_subscriber<int>(log.on_next(), log.on_error(), log.on_completed());
    const rxcpp::composite_subscription lifetime;
    rxcpp::observable<>::just(1).subscribe(origin, lifetime);
    EXPECT_FALSE(lifetime.is_subscribed());
    EXPECT_TRUE(origin.is_subscribed());
    EXPECT_EQ(log.seen(), (events{"next 1", "completed"}));
}

TEST(RxObservable, EverySourceConvertsToTheDynamicType) {
    event_log log;
    observable_of_int source = rxcpp::observable<>::just(1);
    rx_test::subscribe(source, log);
    source = rxcpp::observable<>::create<int>([](subscriber_of_int to) { to.on_next(2); });
    rx_test::subscribe(source, log);
    source = rxcpp::observable<>::just(3) | rxcpp::operators::map([](int value) { return value; });
    rx_test::subscribe(source, log);
    const auto dynamic = rxcpp::observable<>::just(4).as_dynamic();
    static_assert(std::is_same_v<decltype(dynamic), const observable_of_int>);
    rx_test::subscribe(dynamic.as_dynamic(), log);
    EXPECT_EQ(log.seen(), (events{"next 1", "completed", "next 2", "next 3", "completed", "next 4",
                                  "completed"}));
}

observable_of_int doubled(observable_of_int source) {
    return source | rxcpp::operators::map([](int value) { return 2 * value; });
}

TEST(RxObservable, AChainCanBeReturnedFromAFunction) {
    event_log log;
    rx_test::subscribe(doubled(doubled(rxcpp::observable<>::just(3))), log);
    EXPECT_EQ(log.seen(), (events{"next 12", "completed"}));
}

TEST(RxObservable, CopiesRunIndependently) {
    std::vector<subscriber_of_int> emitters;
    const observable_of_int original = rxcpp::observable<>::create<int>(
        [&emitters](subscriber_of_int to) { emitters.push_back(to); });
    auto copy = std::make_unique<observable_of_int>(original);
    event_log first;
    event_log second;
    const auto subscription = rx_test::subscribe(original, first);
    rx_test::subscribe(*copy, second);
    copy.reset();
    ASSERT_EQ(emitters.size(), 2U);
    emitters[0].on_next(1);
    emitters[1].on_next(2);
    subscription.unsubscribe();
    emitters[0].on_next(3);
    emitters[1].on_next(4);
    emitters[1].on_completed();
    EXPECT_EQ(first.seen(), (events{"next 1"}));
    EXPECT_EQ(second.seen(), (events{"next 2", "next 4", "completed"}));
}

TEST(RxObservable, CanBeKeptInContainers) {
    std::vector<observable_of_int> in_order;
    std::map<std::string, observable_of_int> by_name;
    for (int value = 1; value <= 3; ++value) {
        in_order.push_back(rxcpp::observable<>::just(value));
        by_name[std::to_string(value)] = in_order.back();
    }
    event_log log;
    for (const auto& source : in_order) {
        source.subscribe(log.on_next());
    }
    in_order.clear();
    by_name.at("2").subscribe(log.on_next());
    EXPECT_EQ(log.seen(), (events{"next 1", "next 2", "next 3", "next 2"}));
}

TEST(RxUtil, AnErrorPointerIsAnExceptionPointer) {
    static_assert(std::is_same_v<rxcpp::util::error_ptr, std::exception_ptr>);
    const auto made = rxcpp::util::make_error_ptr(std::runtime_error("e"));
    EXPECT_EQ(rxcpp::util::what(made), "e");
    EXPECT_EQ(rxcpp::util::make_error_ptr(made), made);
    EXPECT_THROW(rxcpp::util::rethrow_exception(made), std::runtime_error);
    try {
        throw std::runtime_error("caught");
    } catch (...) {
        EXPECT_EQ(rxcpp::util::what(rxcpp::util::current_exception()), "caught");
    }
}

}  // namespace
