#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <HalvardSling/rx/Future.hpp>
#include <HalvardSling/rx/Sling.hpp>
#include <HalvardSling/testing/FakeTransport.hpp>

#include "Transfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

TEST(ToFuture, GivesTheValue) {
    EXPECT_EQ(toFuture(rxcpp::observable<>::just(1)).get(), 1);
}

TEST(ToFuture, GivesAValueThatComesOnAnotherThread) {
    std::thread emitter;
    auto future =
        toFuture(rxcpp::observable<>::create<int>([&emitter](const rxcpp::subscriber<int>& to) {
            emitter = std::thread([to] {
                to.on_next(1);
                to.on_completed();
            });
        }));
    EXPECT_EQ(future.get(), 1);
    emitter.join();
}

TEST(ToFuture, ThrowsTheErrorItself) {
    auto future = toFuture(rxcpp::observable<>::error<int>(std::out_of_range("e")));
    EXPECT_THROW(future.get(), std::out_of_range);
}

TEST(ToFuture, ThrowsWithoutAValue) {
    EXPECT_THROW(toFuture(rxcpp::observable<>::empty<int>()).get(), std::logic_error);
}

TEST(ToFuture, ThrowsAtASecondValueAndUnsubscribes) {
    int teardowns = 0;
    auto future =
        toFuture(rxcpp::observable<>::create<int>([&teardowns](const rxcpp::subscriber<int>& to) {
            to.add([&teardowns] { ++teardowns; });
            to.on_next(1);
            to.on_next(2);
            EXPECT_EQ(teardowns, 1);
        }));
    EXPECT_THROW(future.get(), std::logic_error);
}

TEST(ToFuture, IsBrokenWhereTheSourceGoesAwayWithoutAnEvent) {
    auto future = toFuture(rxcpp::observable<>::never<int>());
    try {
        future.get();
        FAIL() << "a value out of nothing";
    } catch (const std::future_error& error) {
        EXPECT_EQ(error.code(), std::future_errc::broken_promise);
    }
}

TEST(ToFuture, GivesTheReplyOfARequest) {
    const auto transport = std::make_shared<FakeTransport>();
    transport->willAnswer(204);
    EXPECT_EQ(toFuture(Sling(requestTo("http://127.0.0.1/")).responses(transport)).get().status(),
              204);
}

}  // namespace
