// Built without and with optimisation, since compilers differ there about coroutines.

#include <atomic>
#include <coroutine>
#include <cstddef>
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

#include <HalvardSling/rx/Coroutine.hpp>
#include <HalvardSling/rx/Sling.hpp>
#include <HalvardSling/testing/FakeTransport.hpp>

#include "CoroutineTask.hpp"
#include "ExecutorQueue.hpp"
#include "Transfers.hpp"
#include "support/Rounds.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Texts = std::vector<std::string>;

/// Awaits whatever it is given, and notes what came.
template <class Awaitable>
Task noted(Awaitable awaitable, Texts& texts) {
    try {
        texts.push_back("value " + std::to_string(co_await awaitable));
    } catch (const std::exception& error) {
        texts.push_back(std::string("error ") + error.what());
    }
}

Task notedOn(rxcpp::observable<int> source, Executor executor, Texts& texts) {
    try {
        texts.push_back("value " + std::to_string(co_await resumeOn(source, std::move(executor))));
    } catch (const std::exception& error) {
        texts.push_back(std::string("error ") + error.what());
    }
}

/// A source that the test emits from.
struct Driven {
    rxcpp::observable<int> source() {
        return rxcpp::observable<>::create<int>([this](rxcpp::subscriber<int> to) {
            to.add([this] { ++teardowns; });
            emitter = std::move(to);
        });
    }
    void emit(int value) const {
        emitter->on_next(value);
        emitter->on_completed();
    }

    std::optional<rxcpp::subscriber<int>> emitter;
    std::atomic<int> teardowns{0};
};

rxcpp::observable<int> just(int value) {
    return rxcpp::observable<>::just(value);
}

void callAtOnce(const std::function<void()>& task) {
    task();
}

TEST(Coroutine, AwaitsTheValueOfAnObservable) {
    Texts texts;
    const Task task = noted(just(1), texts);
    EXPECT_THAT(texts, ElementsAre("value 1"));
    EXPECT_TRUE(task.done());
}

TEST(Coroutine, AwaitsAnObservableWhoseTypeIsNotHidden) {
    Texts texts;
    const Task task = noted(rxcpp::observable<>::just(1), texts);
    EXPECT_THAT(texts, ElementsAre("value 1"));
}

TEST(Coroutine, GoesOnWithinTheEventThatEndsTheWait) {
    Driven driven;
    Texts texts;
    const Task task = noted(driven.source(), texts);
    driven.emitter->on_next(1);
    EXPECT_THAT(texts, IsEmpty());
    driven.emitter->on_completed();
    EXPECT_THAT(texts, ElementsAre("value 1"));
}

TEST(Coroutine, GoesOnOnTheThreadThatDelivers) {
    Driven driven;
    std::thread::id resumedBy;
    const Task task = [](rxcpp::observable<int> source, std::thread::id& by) -> Task {
        static_cast<void>(co_await source);
        by = std::this_thread::get_id();
    }(driven.source(), resumedBy);
    std::thread deliverer([&driven] { driven.emit(1); });
    const auto id = deliverer.get_id();
    deliverer.join();
    EXPECT_EQ(resumedBy, id);
}

TEST(Coroutine, AnErrorIsThrownAsTheExceptionThatItIs) {
    struct Special : std::runtime_error {
        using std::runtime_error::runtime_error;
        int code = 7;
    };
    int code = 0;
    const Task task = [](rxcpp::observable<int> source, int& seen) -> Task {
        try {
            static_cast<void>(co_await source);
        } catch (const Special& error) {
            seen = error.code;
        }
    }(rxcpp::observable<>::error<int>(Special("e")), code);
    EXPECT_EQ(code, 7);
}

TEST(Coroutine, NoValueIsAnError) {
    Texts texts;
    const Task task = noted(rxcpp::observable<>::empty<int>(), texts);
    EXPECT_THAT(texts, ElementsAre(HasSubstr("without a value")));
}

TEST(Coroutine, ASecondValueIsAnErrorAndEndsTheSubscription) {
    Driven driven;
    Texts texts;
    const Task task = noted(driven.source(), texts);
    driven.emitter->on_next(1);
    driven.emitter->on_next(2);
    EXPECT_THAT(texts, ElementsAre(HasSubstr("second value")));
    EXPECT_EQ(driven.teardowns, 1);
    driven.emitter->on_completed();
    EXPECT_EQ(texts.size(), 1U);
}

TEST(Coroutine, AnErrorAfterTheValueIsTheError) {
    Driven driven;
    Texts texts;
    const Task task = noted(driven.source(), texts);
    driven.emitter->on_next(1);
    driven.emitter->on_error(std::make_exception_ptr(std::runtime_error("late")));
    EXPECT_THAT(texts, ElementsAre("error late"));
}

TEST(Coroutine, AValueThatCannotBeMadeFromNothingIsMovedOut) {
    struct Text {
        explicit Text(std::string content) : text(std::move(content)) {}
        std::string text;
    };
    std::string seen;
    const Task task = [](std::string& text) -> Task {
        text = (co_await rxcpp::observable<>::just(Text("t"))).text;
    }(seen);
    EXPECT_EQ(seen, "t");
}

Task addAll(int count, Executor executor, int& sum) {
    for (int value = 0; value < count; ++value)
        sum += executor ? co_await resumeOn(just(1), executor) : co_await just(1);
}

TEST(Coroutine, AHundredThousandAwaitsThatEndAtOnceNeedNoStack) {
    int sum = 0;
    const Task task = addAll(100'000, {}, sum);
    EXPECT_EQ(sum, 100'000);
}

TEST(Coroutine, NeitherDoThoseOverAnExecutorThatCallsAtOnce) {
    int sum = 0;
    const Task task = addAll(100'000, &callAtOnce, sum);
    EXPECT_EQ(sum, 100'000);
}

TEST(Coroutine, NeitherDoThoseOverAQueue) {
    ExecutorQueue queue;
    int sum = 0;
    const Task task = addAll(100'000, queue.executor(), sum);
    queue.runAll();
    EXPECT_EQ(sum, 100'000);
}

TEST(Coroutine, ItsEndCancelsWhatItWaitsFor) {
    Driven driven;
    Texts texts;
    Task task = noted(driven.source(), texts);
    task.destroy();
    EXPECT_EQ(driven.teardowns, 1);
    driven.emit(1);
    EXPECT_THAT(texts, IsEmpty());
}

/// A coroutine that begins when it is resumed, and that nobody owns.
struct Lazy {
    struct promise_type {
        Lazy get_return_object() {
            return {std::coroutine_handle<promise_type>::from_promise(*this)};
        }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        void unhandled_exception() const noexcept { std::terminate(); }
    };

    std::coroutine_handle<> handle;
};

Lazy goesOn(rxcpp::observable<int> source, bool& wentOn) {
    static_cast<void>(co_await source);
    wentOn = true;
}

TEST(Coroutine, ItMayBeDestroyedByTheSourceThatItSubscribesTo) {
    std::coroutine_handle<> handle;
    bool wentOn = false;
    bool subscribed = true;
    handle = goesOn(rxcpp::observable<>::create<int>(
                        [&handle, &subscribed](const rxcpp::subscriber<int>& to) {
                            handle.destroy();
                            subscribed = to.is_subscribed();
                        }),
                    wentOn)
                 .handle;
    handle.resume();
    EXPECT_FALSE(subscribed);
    EXPECT_FALSE(wentOn);
}

TEST(Coroutine, GoesOnWhereTheExecutorCalls) {
    Driven driven;
    ExecutorQueue queue;
    Texts texts;
    const Task task = notedOn(driven.source(), queue.executor(), texts);
    driven.emit(1);
    EXPECT_THAT(texts, IsEmpty());
    queue.runAll();
    EXPECT_THAT(texts, ElementsAre("value 1"));
}

TEST(Coroutine, GoesOnThereThoughTheValueWasThereAtOnce) {
    ExecutorQueue queue;
    Texts texts;
    const Task task = notedOn(just(1), queue.executor(), texts);
    EXPECT_THAT(texts, IsEmpty());
    queue.runAll();
    EXPECT_THAT(texts, ElementsAre("value 1"));
}

TEST(Coroutine, GoesOnOnAnotherThreadThoughTheValueWasThereAtOnce) {
    for (std::size_t round = 0; round < roundsOf(200); ++round) {
        std::thread executing;
        std::thread::id resumedBy;
        std::promise<void> resumed;
        const Task task = [](std::thread& thread, std::thread::id& by,
                             std::promise<void>& over) -> Task {
            static_cast<void>(co_await resumeOn(just(1), [&thread](std::function<void()> function) {
                thread = std::thread(std::move(function));
            }));
            by = std::this_thread::get_id();
            over.set_value();
        }(executing, resumedBy, resumed);
        resumed.get_future().wait();
        EXPECT_NE(resumedBy, std::this_thread::get_id());
        executing.join();
    }
}

TEST(Coroutine, AnExecutorThatThrowsAtOnceThrowsThere) {
    Texts texts;
    const Task task = notedOn(
        just(1), [](const std::function<void()>&) { throw std::runtime_error("shut down"); },
        texts);
    EXPECT_THAT(texts, ElementsAre("error shut down"));
}

TEST(Coroutine, AnExecutorThatThrowsLaterLeavesItSuspended) {
    Driven driven;
    Texts texts;
    Task task = notedOn(
        driven.source(),
        [](const std::function<void()>&) { throw std::runtime_error("shut down"); }, texts);
    EXPECT_NO_THROW(driven.emit(1));
    EXPECT_FALSE(task.done());
    task.destroy();
    EXPECT_THAT(texts, IsEmpty());
}

TEST(Coroutine, AnExecutorThatDropsItsFunctionLeavesItSuspended) {
    Driven driven;
    ExecutorQueue queue;
    Texts texts;
    Task task = notedOn(driven.source(), queue.executor(), texts);
    driven.emit(1);
    queue.dropAll();
    EXPECT_FALSE(task.done());
    task.destroy();
    EXPECT_THAT(texts, IsEmpty());
}

TEST(Coroutine, ItIsNotResumedAfterItsEndThoughTheExecutorHasTheFunction) {
    Driven driven;
    ExecutorQueue queue;
    Texts texts;
    Task task = notedOn(driven.source(), queue.executor(), texts);
    driven.emit(1);
    EXPECT_EQ(queue.size(), 1U);
    task.destroy();
    queue.runAll();
    EXPECT_THAT(texts, IsEmpty());
}

TEST(Coroutine, ItMayBeDestroyedOnTheExecutorsThreadWhileAnotherThreadDelivers) {
    for (std::size_t round = 0; round < roundsOf(500); ++round) {
        Driven driven;
        ExecutorQueue queue;
        Texts texts;
        Task task = notedOn(driven.source(), queue.executor(), texts);
        std::atomic<bool> go{false};
        std::thread deliverer([&driven, &go] {
            while (!go)
                std::this_thread::yield();
            driven.emit(1);
        });
        go = true;
        if (round % 2 == 0) queue.runAll();
        const bool done = task.done();
        task.destroy();
        deliverer.join();
        queue.runAll();
        EXPECT_EQ(texts.size(), done ? 1U : 0U);
        EXPECT_EQ(driven.teardowns, 1);
    }
}

TEST(Coroutine, TheReplyMayComeWhileItIsStillSubscribing) {
    for (std::size_t round = 0; round < roundsOf(500); ++round) {
        std::thread deliverer;
        std::promise<int> got;
        const Task task = [](std::thread& thread, std::promise<int>& promise) -> Task {
            promise.set_value(co_await rxcpp::observable<>::create<int>(
                [&thread](const rxcpp::subscriber<int>& to) {
                    thread = std::thread([to] {
                        to.on_next(1);
                        to.on_completed();
                    });
                }));
        }(deliverer, got);
        EXPECT_EQ(got.get_future().get(), 1);
        deliverer.join();
    }
}

Task statuses(std::shared_ptr<Transport> transport, std::vector<int>& seen) {
    for (int request = 0; request < 3; ++request) {
        const auto replies = Sling(requestTo("http://127.0.0.1/")).responses(transport);
        try {
            seen.push_back((co_await replies).status());
        } catch (const SlingError& error) {
            seen.push_back(error.kind() == SlingErrorKind::httpStatus ? 400 : -1);
        }
    }
}

Response answerOf(int status) {
    ResponseParts parts;
    parts.status = status;
    return Response(std::move(parts));
}

TEST(Coroutine, AwaitsRequestsOneAfterTheOther) {
    const auto transport = std::make_shared<FakeTransport>();
    transport->willAnswer(200);
    std::vector<int> seen;
    const Task task = statuses(transport, seen);
    EXPECT_THAT(seen, ElementsAre(200));
    const auto waiting = transport->waiting();
    ASSERT_EQ(waiting.size(), 1U);
    transport->willAnswer(404);
    transport->answer(waiting.front(), answerOf(204));
    EXPECT_THAT(seen, ElementsAre(200, 204, 400));
}

TEST(Coroutine, ItsEndCancelsTheRequest) {
    const auto transport = std::make_shared<FakeTransport>();
    std::vector<int> seen;
    Task task = statuses(transport, seen);
    EXPECT_EQ(transport->waiting().size(), 1U);
    task.destroy();
    EXPECT_EQ(transport->cancelled(), 1U);
    EXPECT_THAT(seen, IsEmpty());
}

}  // namespace
