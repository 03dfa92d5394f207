#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "support/Rounds.hpp"
#include "support/SystemCalls.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

void neverAnswer(RawConnection& connection) {
    if (connection.readRequest()) connection.awaitClose();
}

bool isCancelled(const TransportResult& result) {
    const auto* const error = std::get_if<SlingError>(&result);
    return error != nullptr && error->kind() == SlingErrorKind::cancelled;
}

TEST(Lifetime, AnUnusedTransportEnds) {
    const CurlTransport unused;
}

TEST(Lifetime, OpenTransfersEndAsCancelledInTheirOrder) {
    const RawServer server(&neverAnswer);
    std::vector<int> ended;
    {
        CurlTransport transport({.maxInFlight = 4});
        for (int i = 0; i < 10; ++i)
            transport.send(checked(requestTo(server.url())), [&, i](const TransportResult& result) {
                EXPECT_TRUE(isCancelled(result));
                ended.push_back(i);
            });
        ASSERT_TRUE(server.awaitRequests(4));
    }
    EXPECT_THAT(ended, testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_TRUE(server.awaitClosed(4));
}

TEST(Lifetime, MayEndInsideTheLastEventOfASubscription) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    for (int i = 0; i < 200; ++i) {
        auto transport = curlTransport();
        std::promise<void> ended;
        Sling(requestTo(server.url()))
            .responses(transport)
            .subscribe([](const Response&) {}, [](const std::exception_ptr&) {},
                       [&] {
                           transport.reset();
                           ended.set_value();
                       });
        ended.get_future().wait();
    }
}

TEST(Lifetime, AbandonedTransfersEndWithoutAWord) {
    const RawServer server(&neverAnswer);
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    CurlTransport transport({.log = [](const TransferLog&) { ADD_FAILURE(); }});
    const auto complain = [held](const TransportResult&) { ADD_FAILURE(); };
    held.reset();
    transport.send(checked(requestTo(server.url())), complain);
    ASSERT_TRUE(server.awaitRequests(1));
    transport.abandon();
    EXPECT_TRUE(server.awaitClosed(1));
    transport.send(checked(requestTo(server.url())), complain);
    transport.cancel(1);
    transport.abandon();
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(watched.use_count(), 1);  // ours alone
}

TEST(Lifetime, AbandoningWaitsForTheCompletionThatRuns) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    CurlTransport transport;
    std::promise<void> running;
    std::promise<void> abandoning;
    std::atomic<bool> returned{false};
    std::atomic<bool> waited{false};
    transport.send(checked(requestTo(server.url())), [&, test = thisThread()](const auto&) {
        running.set_value();
        abandoning.get_future().wait();
        waited = eventually([&] { return returned || isWaiting(test); }) && !returned;
    });
    running.get_future().wait();
    abandoning.set_value();
    transport.abandon();
    EXPECT_TRUE(waited);
    returned = true;
}

TEST(Idle, TheThreadWaitsAndNoTimeWakesIt) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    CurlTransport transport;
    std::promise<pid_t> thread;
    transport.send(checked(requestTo("http://name.invalid/")), [&](const TransportResult&) {
        transport.send(checked(requestTo(server.url())),
                       [&](const TransportResult&) { thread.set_value(thisThread()); });
    });
    const pid_t transports = thread.get_future().get();
    EXPECT_TRUE(eventually([&] { return isWaitingWithoutEnd(transports); }));
}

/// Whether all threads but these come to wait for what no time brings.
bool allWaitWithoutEnd(const std::vector<pid_t>& but) {
    return eventually([&] {
        return std::ranges::all_of(otherThreads(), [&](pid_t thread) {
            return std::ranges::find(but, thread) != but.end() || isWaitingWithoutEnd(thread);
        });
    });
}

TEST(Idle, NoTimeWakesAnyOfItsThreads) {
    const auto before = otherThreads();
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    ASSERT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
    EXPECT_TRUE(allWaitWithoutEnd(before));
}

TEST(Idle, NoTimeWakesAnyOfItsThreadsWhileAServerThinks) {
    const auto before = otherThreads();
    const RawServer server(&neverAnswer);
    const auto transport = curlTransport();
    auto request = requestTo(server.url());
    request.policy.connectTimeout = request.policy.totalTimeout = std::chrono::hours(500);
    const Responses open = sent(request, transport);
    ASSERT_TRUE(server.awaitRequests(1));
    EXPECT_TRUE(allWaitWithoutEnd(before));
}

TEST(Lifetime, NoThreadRemains) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto before = otherThreads();
    ASSERT_THAT(sent(requestTo(server.url()), curlTransport()), Answers(200, "x"));
    // The server's thread for the connection ends with it.
    EXPECT_TRUE(eventually([&] { return otherThreads() == before; }));
}

/// Runs the program that ends in a certain way.
/// @return its exit code, 0 for a clean exit
int exitOf(const std::string& way, const std::string& url) {
    const int status = std::system((EXIT_PROGRAM " " + way + " " + url).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Leaves "/silent" without an answer, and answers "/after/N" once there were so many of those.
void answerTo(RawConnection& connection) {
    const std::string after = "GET /after/";
    while (const auto request = connection.readRequest()) {
        if (request->starts_with("GET /silent ")) return connection.awaitClose();
        const bool waits = request->starts_with(after);
        if (waits && !connection.awaitRequests(1 + std::stoul(request->substr(after.size()))))
            return;
        connection.send(httpReply(200, "x"));
    }
}

TEST(Exit, IsCleanInEveryStateOfTheDefaultTransport) {
    for (std::size_t round = 0; round < roundsOf(1); ++round)
        for (const char* const way :
             {"unused", "made", "idle", "replaced", "open", "many-open", "replaced-open",
              "kept-open", "in-completion", "during-completion", "busy", "orphan", "late-use"}) {
            const RawServer server(&answerTo);
            EXPECT_EQ(exitOf(way, server.url("")), 0) << way;
        }
}

}  // namespace
