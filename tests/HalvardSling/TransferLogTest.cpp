#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "Gzip.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;

namespace {

using Clock = std::chrono::steady_clock;

class TransferLogTest : public testing::Test {
  protected:
    /// The records, once there are so many.
    [[nodiscard]] std::vector<TransferLog> records(std::size_t count) {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, patience, [&] { return log.size() >= count; }));
        return log;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<TransferLog> log;
    std::shared_ptr<CurlTransport> transport =
        curlTransport({.maxInFlight = 1, .log = [this](const TransferLog& record) {
                           const std::scoped_lock lock(mutex);
                           log.push_back(record);
                           changed.notify_all();
                       }});
};

TEST_F(TransferLogTest, TellsOfEachReply) {
    const std::string body = gzipped(std::string(1000, 'x'));
    const RawServer server(
        RawServer::answering(httpReply(200, body, "Content-Encoding: gzip\r\n")));
    auto request = requestTo(server.url("/v1/7"), "POST");
    request.body = bodyOf("123");
    request.pathTemplate = "/v1/{id}";
    ASSERT_TRUE(sent(request, transport).completed());
    ASSERT_TRUE(sent(request, transport).completed());
    const auto all = records(2);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_NE(all[0].transfer, all[1].transfer);
    EXPECT_EQ(all[0].method, "POST");
    EXPECT_EQ(all[0].origin, "http://127.0.0.1:" + std::to_string(server.port()));
    EXPECT_EQ(all[0].pathTemplate, "/v1/{id}");
    EXPECT_EQ(all[0].status, 200);
    EXPECT_EQ(all[0].error, std::nullopt);
    EXPECT_EQ(all[0].bytesSent, 3U);
    EXPECT_EQ(all[0].bytesReceived, body.size());
    EXPECT_EQ(all[0].httpVersion, "1.1");
    EXPECT_EQ(all[0].redirects, 0);
    EXPECT_GT(all[0].timings.total.count(), 0);
    EXPECT_FALSE(all[0].reusedConnection);
    EXPECT_TRUE(all[1].reusedConnection);
}

TEST_F(TransferLogTest, TellsOfErrorsAndErrorStatuses) {
    const RawServer server(RawServer::answering(httpReply(503, "")));
    EXPECT_FALSE(sent(requestTo(server.url()), transport).completed());
    EXPECT_FALSE(sent(requestTo("http://name.invalid/"), transport).completed());
    const auto all = records(2);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].status, 503);
    EXPECT_EQ(all[0].error, std::nullopt);
    EXPECT_EQ(all[1].status, std::nullopt);
    EXPECT_EQ(all[1].error, SlingErrorKind::nameNotResolved);
    EXPECT_EQ(all[1].origin, "http://name.invalid:80");
    EXPECT_EQ(all[1].httpVersion, "");
    EXPECT_FALSE(all[1].reusedConnection);
}

TEST_F(TransferLogTest, TellsOfRedirects) {
    const RawServer server([](RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(request->starts_with("GET /b ")
                                ? httpReply(200, "")
                                : httpReply(303, "", "Location: /b\r\n"));
    });
    auto request = requestTo(server.url("/a"), "POST");
    request.policy.maxRedirects = 5;
    ASSERT_TRUE(sent(request, transport).completed());
    const auto all = records(1);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].redirects, 1);
    EXPECT_EQ(all[0].method, "GET");
    EXPECT_EQ(all[0].status, 200);
}

TEST_F(TransferLogTest, TellsOfCancelledTransfersAndOfWaiting) {
    const RawServer server([](RawConnection& connection) {
        if (connection.readRequest()) connection.awaitClose();
    });
    Responses open = sent(requestTo(server.url()), transport);
    ASSERT_TRUE(server.awaitRequests(1));
    const auto start = Clock::now();
    Responses waiting = sent(requestTo(server.url()), transport);
    const auto shortest = Clock::now();
    // Takes some time.
    EXPECT_TRUE(sent(requestTo("http://name.invalid/"), curlTransport()).ended());
    const auto waited = std::chrono::floor<std::chrono::microseconds>(Clock::now() - shortest);
    waiting.unsubscribe();
    static_cast<void>(records(1));
    const auto longest = Clock::now() - start;
    open.unsubscribe();
    const auto all = records(2);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].error, SlingErrorKind::cancelled);
    EXPECT_GE(all[0].waited, waited);
    EXPECT_LE(all[0].waited, longest);
    EXPECT_EQ(all[0].timings.total.count(), 0);
    EXPECT_EQ(all[1].error, SlingErrorKind::cancelled);
    EXPECT_LT(all[1].transfer, all[0].transfer);
}

TEST_F(TransferLogTest, HoldsNoSecret) {
    const RawServer server(
        RawServer::answering(httpReply(200, "secret", "Set-Cookie: secret\r\n")));
    auto request = requestTo(server.url("/secret?token=secret"), "POST");
    request.headers = {{"Authorization", "secret"}};
    request.body = bodyOf("secret");
    ASSERT_TRUE(sent(request, transport).completed());
    const auto all = records(1);
    for (const auto& record : all)
        for (const auto& text :
             {record.method, record.origin, record.pathTemplate, record.httpVersion})
            EXPECT_THAT(text, Not(HasSubstr("secret")));
}

TEST_F(TransferLogTest, MayUseTheTransport) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto request = checked(requestTo(server.url()));
    std::atomic<int> records{0};
    std::promise<void> second;
    std::shared_ptr<CurlTransport> own;
    own = curlTransport({.log = [&](const TransferLog&) {
        if (++records == 1) own->send(request, [&](const TransportResult&) { second.set_value(); });
    }});
    own->send(request, [](const TransportResult&) {});
    EXPECT_EQ(second.get_future().wait_for(patience), std::future_status::ready);
}

}  // namespace
