#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "SlowNames.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

void neverAnswer(RawConnection& connection) {
    if (connection.readRequest()) connection.awaitClose();
}

class Unsubscribe : public testing::Test {
  protected:
    std::shared_ptr<CurlTransport> transport = curlTransport();
};

TEST_F(Unsubscribe, BeforeTheRequestWasSent) {
    const RawServer silent(&neverAnswer);
    transport = curlTransport({.maxInFlight = 1});
    Responses first = sent(requestTo(silent.url("/first")), transport);
    ASSERT_TRUE(silent.awaitRequests(1));
    Responses waiting = sent(requestTo(silent.url("/waiting")), transport);
    waiting.unsubscribe();
    first.unsubscribe();
    ASSERT_TRUE(silent.awaitClosed(1));
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
    EXPECT_EQ(silent.requests().size(), 1U);
    EXPECT_FALSE(waiting.endedAtOnce());
    EXPECT_FALSE(first.endedAtOnce());
}

TEST_F(Unsubscribe, RightAfterSubscribing) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    for (int i = 0; i < 100; ++i)
        sent(requestTo(server.url()), transport).unsubscribe();
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
}

TEST_F(Unsubscribe, WhileTheServerThinksClosesTheConnection) {
    const RawServer server(&neverAnswer);
    Responses open = sent(requestTo(server.url()), transport);
    ASSERT_TRUE(server.awaitRequests(1));
    open.unsubscribe();
    EXPECT_TRUE(server.awaitClosed(1));
    EXPECT_FALSE(open.endedAtOnce());
}

TEST_F(Unsubscribe, InTheMiddleOfTheBodyClosesTheConnection) {
    std::promise<void> isUnderWay;
    const RawServer server([&](RawConnection& connection) {
        connection.readRequest();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100000000\r\n\r\n");
        // More than the system holds for a client that does not read.
        connection.send(std::string(30'000'000, 'x'));
        isUnderWay.set_value();
        connection.awaitClose();
    });
    auto request = requestTo(server.url());
    request.policy.maxBodyBytes = 100'000'000;
    Responses open = sent(request, transport);
    isUnderWay.get_future().wait();
    open.unsubscribe();
    EXPECT_TRUE(server.awaitClosed(1));
    EXPECT_FALSE(open.endedAtOnce());
}

TEST_F(Unsubscribe, InTheMiddleOfALargeUploadClosesTheConnection) {
    std::promise<void> isUnderWay;
    std::promise<void> isUnsubscribed;
    const RawServer server([&](RawConnection& connection) {
        connection.read(1'000'000);
        isUnderWay.set_value();
        isUnsubscribed.get_future().wait();
        connection.awaitClose();
    });
    auto request = requestTo(server.url(), "POST");
    request.body = bodyOf(std::string(50'000'000, 'x'));
    Responses open = sent(request, transport);
    isUnderWay.get_future().wait();
    open.unsubscribe();
    isUnsubscribed.set_value();
    EXPECT_TRUE(server.awaitClosed(1));
    EXPECT_FALSE(open.endedAtOnce());
}

TEST_F(Unsubscribe, FromAnotherThread) {
    const RawServer server(&neverAnswer);
    Responses open = sent(requestTo(server.url()), transport);
    ASSERT_TRUE(server.awaitRequests(1));
    std::thread([&] { open.unsubscribe(); }).join();
    EXPECT_TRUE(server.awaitClosed(1));
    EXPECT_FALSE(open.endedAtOnce());
}

TEST_F(Unsubscribe, InsideOnNextIsTheLastEvent) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const rxcpp::composite_subscription subscription;
    std::atomic<int> others{0};
    std::promise<void> received;
    Sling(requestTo(server.url()))
        .responses(transport)
        .subscribe(
            subscription,
            [&](const Response&) {
                subscription.unsubscribe();
                received.set_value();
            },
            [&](const std::exception_ptr&) { ++others; }, [&] { ++others; });
    received.get_future().wait();
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
    EXPECT_EQ(others, 0);
    EXPECT_EQ(server.connections(), 1U);
}

TEST_F(Unsubscribe, AnotherOneInsideOnNext) {
    const RawServer silent(&neverAnswer);
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    Responses other = sent(requestTo(silent.url()), transport);
    ASSERT_TRUE(silent.awaitRequests(1));
    Sling(requestTo(server.url())).responses(transport).subscribe([&](const Response&) {
        other.unsubscribe();
    });
    EXPECT_TRUE(silent.awaitClosed(1));
    EXPECT_FALSE(other.endedAtOnce());
}

TEST_F(Unsubscribe, AfterTheEndChangesNothing) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    Responses done = sent(requestTo(server.url()), transport);
    ASSERT_THAT(done, Answers(200, "x"));
    done.unsubscribe();
    EXPECT_THAT(done, Answers(200, "x"));
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
    EXPECT_EQ(server.connections(), 1U);
}

TEST_F(Unsubscribe, AfterTheTransportIsGone) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    Observed<Response> done(Sling(requestTo(server.url())).responses(transport));
    ASSERT_TRUE(done.completed());
    transport.reset();
    done.unsubscribe();
    EXPECT_EQ(server.connections(), 1U);
}

TEST_F(Unsubscribe, FreesThePlaceForTheNext) {
    const RawServer silent(&neverAnswer);
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    transport = curlTransport({.maxInFlight = 1});
    Responses blocking = sent(requestTo(silent.url()), transport);
    ASSERT_TRUE(silent.awaitRequests(1));
    const Responses next = sent(requestTo(server.url()), transport);
    EXPECT_FALSE(next.endedAtOnce());
    blocking.unsubscribe();
    EXPECT_THAT(next, Answers(200, "x"));
}

TEST_F(Unsubscribe, DuringASlowNameLookupHoldsUpNobody) {
    const SlowNameLookup lookup;
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    Responses looking = sent(requestTo(SlowNameLookup::url), transport);
    ASSERT_TRUE(lookup.hasBegun());
    looking.unsubscribe();
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
    EXPECT_FALSE(looking.endedAtOnce());
}

TEST_F(Unsubscribe, ASlowNameLookupHoldsUpNobodyWhenItTimesOut) {
    const SlowNameLookup lookup;
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    auto slow = requestTo(SlowNameLookup::url);
    slow.policy.connectTimeout = 100ms;
    EXPECT_THAT(sent(slow, transport), FailsWith(SlingErrorKind::connectTimeout));
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
}

}  // namespace
