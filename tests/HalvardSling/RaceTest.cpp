// Threads that meet at bad moments. Each test ends by itself; what goes wrong shows under
// ThreadSanitizer or AddressSanitizer, or as a completion that comes twice or too late.

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "support/Rounds.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

/// Runs a function on several threads at a time, each with its own random numbers.
template <class Work>
void onThreads(unsigned count, Work work) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < count; ++i)
        threads.emplace_back([&work, i] {
            std::minstd_rand random(i + 1);
            work(random);
        });
    for (auto& thread : threads)
        thread.join();
}

/// Lets the others go on for a while that is another each time.
void letOthersRun(std::minstd_rand& random) {
    spin(static_cast<unsigned>(random() % 30'000));
}

TEST(Race, CancellingMeetsCompletion) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport({.maxInFlight = 8});
    const auto request = checked(requestTo(server.url()));
    std::atomic<int> twice{0};
    onThreads(4, [&](std::minstd_rand& random) {
        for (std::size_t i = 0; i < roundsOf(100); ++i) {
            const auto begun = std::make_shared<std::atomic<int>>(0);
            const TransferID transfer =
                transport->send(request, [begun, &twice](const TransportResult&) {
                    if (++*begun > 1) ++twice;
                });
            letOthersRun(random);
            transport->cancel(transfer);
            transport->cancel(transfer);
        }
    });
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
    EXPECT_EQ(twice, 0);
}

TEST(Race, UnsubscribingMeetsEveryEvent) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport({.maxInFlight = 8});
    std::atomic<int> wrong{0};
    onThreads(4, [&](std::minstd_rand& random) {
        for (std::size_t i = 0; i < roundsOf(100); ++i) {
            const auto events = std::make_shared<std::atomic<int>>(0);
            const rxcpp::composite_subscription subscription;
            Sling(requestTo(server.url()))
                .responses(transport)
                .subscribe(
                    subscription, [events](const Response&) { ++*events; },
                    [&](const std::exception_ptr&) { ++wrong; },
                    [events, &wrong] {
                        if (*events != 1) ++wrong;
                    });
            letOthersRun(random);
            subscription.unsubscribe();
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
}

TEST(Race, TwoThreadsUnsubscribeTheSame) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    for (std::size_t i = 0; i < roundsOf(100); ++i) {
        Responses open = sent(requestTo(server.url()), transport);
        onThreads(2, [&](std::minstd_rand& random) {
            letOthersRun(random);
            open.unsubscribe();
        });
    }
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
}

TEST(Race, TheEndOfTheTransportMeetsUnsubscribing) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    std::minstd_rand random(1);
    for (std::size_t i = 0; i < roundsOf(50); ++i) {
        auto transport = curlTransport();
        std::vector<Observed<Response>> open;
        for (int each = 0; each < 10; ++each)
            open.emplace_back(Sling(requestTo(server.url())).responses(transport));
        std::thread unsubscribing([&] {
            for (auto& each : open)
                each.unsubscribe();
        });
        letOthersRun(random);
        transport.reset();
        unsubscribing.join();
    }
}

TEST(Race, ReplacingTheDefaultMeetsSubscribing) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    Tally ended;
    std::thread replacing([&] {
        for (std::size_t count = 0; count < 200 && ended.reaches(count); ++count)
            setDefaultTransport(nullptr);
    });
    onThreads(2, [&](std::minstd_rand&) {
        for (int i = 0; i < 100; ++i)
            if (Observed<Response>(Sling(requestTo(server.url())).responses()).ended()) ended.add();
    });
    replacing.join();
    setDefaultTransport(nullptr);
    EXPECT_EQ(ended.count(), 200U);
}

}  // namespace
