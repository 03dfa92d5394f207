#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

/// Answers every request, but none before so many have come.
RawServer::Script answeringFrom(std::size_t count) {
    return [count](RawConnection& connection) {
        while (connection.readRequest())
            if (!connection.awaitRequests(count) || !connection.send(httpReply(200, "x"))) return;
    };
}

std::vector<Responses> sentTimes(std::size_t count, const TransportRequest& request,
                                 const std::shared_ptr<Transport>& transport) {
    std::vector<Responses> all;
    all.reserve(count);
    while (all.size() < count)
        all.push_back(sent(request, transport));
    return all;
}

std::size_t completed(const std::vector<Responses>& all) {
    return static_cast<std::size_t>(std::ranges::count_if(all, &Responses::completed));
}

/// Reads a request and leaves it without an answer.
void neverAnswer(RawConnection& connection) {
    if (connection.readRequest()) connection.awaitClose();
}

// A request in flight has a connection to itself, so the connections tell how many there were.

TEST(Concurrency, OfAThousandRequests64GoSideBySideFromTheStart) {
    const RawServer server(answeringFrom(64));
    const auto all = sentTimes(1000, requestTo(server.url()), curlTransport());
    EXPECT_EQ(completed(all), 1000U);
    EXPECT_EQ(server.requests().size(), 1000U);
    EXPECT_EQ(server.connections(), 64U);
}

TEST(Concurrency, AsManyAsAllowedAreInFlightAndNoMore) {
    for (const std::size_t allowed : {std::size_t{1}, std::size_t{3}, std::size_t{0}}) {
        const RawServer server(answeringFrom(allowed));
        const auto all =
            sentTimes(20, requestTo(server.url()), curlTransport({.maxInFlight = allowed}));
        EXPECT_EQ(completed(all), 20U);
        EXPECT_EQ(server.connections(), std::max<std::size_t>(allowed, 1));
    }
}

TEST(Concurrency, WhatWaitsIsSentInTheOrderItCame) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport({.maxInFlight = 1});
    std::vector<Responses> all;
    for (int i = 0; i < 50; ++i)
        all.push_back(sent(requestTo(server.url("/" + std::to_string(i))), transport));
    EXPECT_EQ(completed(all), 50U);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 50U);
    for (std::size_t i = 0; i < requests.size(); ++i)
        EXPECT_TRUE(requests[i].starts_with("GET /" + std::to_string(i) + " "));
}

TEST(Concurrency, TimeSpentWaitingCounts) {
    const RawServer server(&neverAnswer);
    const auto transport = curlTransport({.maxInFlight = 1});
    const Responses blocking = sent(requestTo(server.url()), transport);
    ASSERT_TRUE(server.awaitRequests(1));
    auto request = requestTo(server.url("/waits"));
    request.policy.totalTimeout = 100ms;
    const auto start = Clock::now();
    EXPECT_THAT(sent(request, transport), FailsWith(SlingErrorKind::totalTimeout));
    EXPECT_GE(Clock::now() - start, 100ms);
    EXPECT_EQ(server.requests().size(), 1U);
}

TEST(Concurrency, WaitingRequestsTimeOutInTheOrderOfTheirDeadlines) {
    const RawServer server(&neverAnswer);
    const auto transport = curlTransport({.maxInFlight = 1});
    const Responses blocking = sent(requestTo(server.url()), transport);
    // A deadline lies between these, for time passes while a request is sent.
    struct Deadline {
        Clock::time_point earliest;
        Clock::time_point latest;
    };
    std::map<int, Deadline> deadlines;
    std::vector<int> order;
    Tally ended;
    for (const int time : {150, 50, 100}) {
        const std::chrono::milliseconds limit(time);
        auto request = requestTo(server.url());
        request.policy.totalTimeout = limit;
        const auto before = Clock::now();
        transport->send(checked(request), [&, time](const TransportResult&) {
            order.push_back(time);
            ended.add();
        });
        deadlines[time] = {before + limit, Clock::now() + limit};
    }
    ASSERT_TRUE(ended.reaches(3));
    for (std::size_t i = 1; i < order.size(); ++i)
        EXPECT_LE(deadlines[order[i - 1]].earliest, deadlines[order[i]].latest)
            << order[i - 1] << " before " << order[i];
}

constexpr bool underSanitizer = UNDER_SANITIZER != 0;

long residentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:") {
            long value = 0;
            status >> value;
            return value;
        }
    return 0;
}

TEST(Concurrency, AHundredThousandWaitingRequestsAreCheap) {
    constexpr std::size_t count = 100'000;
    const RawServer server(&neverAnswer);
    std::atomic<std::size_t> cancelled{0};
    const auto request = checked(requestTo(server.url()));
    const long before = residentKiB();
    {
        const auto transport = curlTransport();
        std::vector<TransferID> transfers;
        for (std::size_t i = 0; i < count; ++i)
            transfers.push_back(transport->send(request, [&](const TransportResult& result) {
                const auto* const error = std::get_if<SlingError>(&result);
                if (error != nullptr && error->kind() == SlingErrorKind::cancelled) ++cancelled;
            }));
        ASSERT_TRUE(server.awaitRequests(64));
        RecordProperty("KiBPerWaitingRequest",
                       std::to_string(static_cast<double>(residentKiB() - before) / count));
        // A sanitizer's bookkeeping is not ours.
        if (!underSanitizer) {
            EXPECT_LT(residentKiB() - before, static_cast<long>(count));  // 1 KiB each
        }
        for (std::size_t i = 0; i < count / 2; ++i)
            transport->cancel(transfers[2 * i]);
    }
    EXPECT_EQ(cancelled, count / 2);
}

TEST(Concurrency, RequestsFromManyThreadsAreAllAnswered) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    std::atomic<std::size_t> answered{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&] { answered += completed(sentTimes(100, requestTo(server.url()), transport)); });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(answered, 400U);
}

TEST(Concurrency, EventsComeOneAfterTheOtherOnOneThread) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    std::atomic<int> inside{0};
    Tally ended;
    std::atomic<bool> overlapped{false};
    std::mutex mutex;
    std::vector<std::thread::id> threads;
    for (int i = 0; i < 100; ++i)
        Sling(requestTo(server.url()))
            .responses(transport)
            .subscribe(
                [&](const Response&) {
                    if (++inside > 1) overlapped = true;
                    std::this_thread::yield();
                    --inside;
                    const std::scoped_lock lock(mutex);
                    threads.push_back(std::this_thread::get_id());
                },
                [&](const std::exception_ptr&) { ended.add(); }, [&] { ended.add(); });
    ASSERT_TRUE(ended.reaches(100));
    EXPECT_FALSE(overlapped);
    ASSERT_EQ(threads.size(), 100U);
    EXPECT_THAT(threads, testing::Each(threads.front()));
    EXPECT_NE(threads.front(), std::this_thread::get_id());
}

}  // namespace
