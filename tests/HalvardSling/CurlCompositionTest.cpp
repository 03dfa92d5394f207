#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <utility>

#include <gmock/gmock.h>

#include <HalvardSling/rx/Coroutine.hpp>
#include <HalvardSling/rx/Future.hpp>

#include "CoroutineTask.hpp"
#include "CurlTransfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

/// What an executor was handed, for another thread to call.
class PostedFunctions {
  public:
    void add(std::function<void()> function) {
        {
            const std::scoped_lock lock(mutex_);
            functions_.push_back(std::move(function));
        }
        isThere_.notify_one();
    }

    /// The first one, which it waits for.
    std::function<void()> take() {
        std::unique_lock lock(mutex_);
        isThere_.wait(lock, [this] { return !functions_.empty(); });
        auto function = std::move(functions_.front());
        functions_.pop_front();
        return function;
    }

  private:
    std::mutex mutex_;
    std::condition_variable isThere_;
    std::deque<std::function<void()>> functions_;
};

Observable<Response> repliesOf(const RawServer& server, std::shared_ptr<Transport> transport) {
    return Sling(requestTo(server.url())).responses(std::move(transport));
}

struct Outcome {
    int status = 0;
    bool onTransportThread = false;
};

Task await(Observable<Response> replies, std::promise<Outcome>& outcome) {
    const auto first = co_await replies;
    const auto second = co_await replies;
    outcome.set_value({first.status() + second.status(), isTransportThread()});
}

Task awaitOn(Observable<Response> replies, Executor executor, Outcome& outcome) {
    const auto reply = co_await resumeOn(replies, std::move(executor));
    outcome = {reply.status(), isTransportThread()};
}

TEST(CurlComposition, ACoroutineGoesOnOnTheTransportsThread) {
    // What has come before the coroutine is suspended would not suspend it.
    std::promise<void> suspended;
    const auto isSuspended = suspended.get_future().share();
    const RawServer server([isSuspended](RawConnection& connection) {
        while (connection.readRequest()) {
            isSuspended.wait();
            connection.send(httpReply(200, "x"));
        }
    });
    const auto transport = curlTransport();
    std::promise<Outcome> promise;
    auto task = std::make_unique<Task>(await(repliesOf(server, transport), promise));
    suspended.set_value();
    const Outcome outcome = promise.get_future().get();
    EXPECT_EQ(outcome.status, 400);
    EXPECT_TRUE(outcome.onTransportThread);
    // Destroyed where it ran, as nobody else knows that it is suspended.
    std::promise<void> destroyed;
    transport->send(checked(requestTo(server.url())), [&](const TransportResult&) {
        task.reset();
        destroyed.set_value();
    });
    destroyed.get_future().wait();
}

TEST(CurlComposition, ACoroutineGoesOnWhereItsExecutorCalls) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    std::promise<std::function<void()>> posted;
    Outcome outcome;
    const Task task = awaitOn(
        repliesOf(server, transport),
        [&posted](std::function<void()> function) { posted.set_value(std::move(function)); },
        outcome);
    posted.get_future().get()();
    EXPECT_TRUE(task.done());
    EXPECT_EQ(outcome.status, 200);
    EXPECT_FALSE(outcome.onTransportThread);
}

TEST(CurlComposition, TheEndOfACoroutineClosesTheConnection) {
    const RawServer server([](RawConnection& connection) {
        if (connection.readRequest()) connection.awaitClose();
    });
    const auto transport = curlTransport();
    std::promise<Outcome> promise;
    Task task = await(repliesOf(server, transport), promise);
    ASSERT_TRUE(server.awaitRequests(1));
    task.destroy();
    EXPECT_TRUE(server.awaitClosed(1));
}

TEST(CurlComposition, AFutureGivesTheReply) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    EXPECT_EQ(toFuture(repliesOf(server, curlTransport())).get().status(), 200);
}

TEST(CurlComposition, EventsArriveWhereTheExecutorCalls) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    PostedFunctions posted;
    // Last, for its thread posts: the end may come in a function of its own, after the reply's.
    const auto transport = curlTransport();
    bool onTransportThread = true;
    bool hasEnded = false;
    (repliesOf(server, transport) |
     deliverOn([&posted](std::function<void()> function) { posted.add(std::move(function)); }))
        .subscribe([&](const Response&) { onTransportThread = isTransportThread(); },
                   [&](const std::exception_ptr&) { hasEnded = true; }, [&] { hasEnded = true; });
    while (!hasEnded)
        posted.take()();
    EXPECT_FALSE(onTransportThread);
}

}  // namespace
