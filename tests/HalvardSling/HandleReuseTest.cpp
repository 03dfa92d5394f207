#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <curl/curl.h>
#include <gmock/gmock.h>

#include <HalvardSling/curl/internal/CurlExchangePool.hpp>
#include <HalvardSling/curl/internal/CurlSockets.hpp>

#include "CurlTransfers.hpp"

using namespace HalvardSling;
using namespace HalvardSling::internal;
using namespace TestSupport;

namespace {

TransportRequest plain(const std::string& method) {
    return requestTo("/" + method, method);
}

TransportRequest withBody(const std::string& method, std::string body) {
    auto request = plain(method);
    request.body = bodyOf(std::move(body));
    return request;
}

/// One request of each shape that differs in what libcurl is told.
std::vector<TransportRequest> shapes() {
    std::vector<TransportRequest> all{
        plain("GET"),
        plain("HEAD"),
        plain("DELETE"),
        plain("OPTIONS"),
        plain("POST"),
        plain("PUT"),
        withBody("POST", "one"),
        withBody("POST", ""),
        withBody("PATCH", "twenty characters..."),
        withBody("DELETE", "why"),
    };
    all.front().headers = {{"X-One", "1"}, {"Authorization", "JWT t"}};
    all[4].headers = {{"Content-Type", "text/plain"}};
    for (const std::size_t silent : {0U, 6U})
        all.push_back(all[silent]);
    all[all.size() - 2].sendsUserAgent = false;
    all.back().headers = {{"User-Agent", "another"}};
    return all;
}

constexpr unsigned firstMended = 0x080100;  // 8.1.0

/// Both ways to use libcurl's handles, with whatever libcurl is installed. Replies are ordinary
/// ones.
class HandleReuse : public testing::TestWithParam<HandleUse> {
  protected:
    /// Sends these one after the other, without the transport; returns what a server receives.
    std::vector<std::string> received(const std::vector<TransportRequest>& requests) {
        const RawServer server(RawServer::answering(httpReply(200, "")));
        CurlSockets sockets;
        CurlExchangePool pool(options, sockets, 1, GetParam());
        for (auto request : requests) {
            request.url = server.url(request.url);
            const auto ready = checked(request);
            auto exchange = pool.take(ready.url().origin());
            const auto now = std::chrono::steady_clock::now();
            const CurlExchange::Span span{.started = now, .deadline = now + std::chrono::hours(1)};
            EXPECT_FALSE(exchange->prepare(ready, span, 1));
            const auto result = exchange->result(curl_easy_perform(exchange->easy()));
            EXPECT_TRUE(std::holds_alternative<Response>(result)) << request.method;
            pool.keep(std::move(exchange));
        }
        auto all = server.requests();
        // The port and the identifier are others each time.
        for (auto& each : all)
            for (const std::string_view name : {"Host: ", "X-Request-ID: "}) {
                const auto at = each.find(name);
                each.erase(at, each.find("\r\n", at) - at);
            }
        return all;
    }

    const CurlTransport::Options options;
};

TEST_P(HandleReuse, ARequestTakesNothingOverFromTheOneBeforeIt) {
    const auto requests = shapes();
    for (const auto& first : requests)
        for (const auto& second : requests) {
            const auto both = received({first, second});
            ASSERT_EQ(both.size(), 2U);
            EXPECT_EQ(both.front(), received({first}).front());
            EXPECT_EQ(both.back(), received({second}).front()) << "after " << both.front();
        }
}

TEST_P(HandleReuse, AHandleWaitsForTheNextRequestOnlyIfItMayBeUsedAgain) {
    const RawServer server(RawServer::answering(httpReply(200, "")));
    CurlSockets sockets;
    CurlExchangePool pool(options, sockets, 1, GetParam());
    const auto request = checked(requestTo(server.url()));
    auto exchange = pool.take(request.url().origin());
    EXPECT_FALSE(exchange->prepare(request, {}, 1));
    const CURL* const first = exchange->easy();
    EXPECT_NE(first, nullptr);
    pool.keep(std::move(exchange));
    exchange = pool.take(request.url().origin());
    EXPECT_EQ(exchange->easy(), GetParam() == HandleUse::often ? first : nullptr);
}

INSTANTIATE_TEST_SUITE_P(Uses, HandleReuse, testing::Values(HandleUse::once, HandleUse::often),
                         [](const auto& each) {
                             return each.param == HandleUse::once ? "Once" : "Often";
                         });

TEST(HandleUse, IsOnceWithALibcurlThatKeepsAPointerToAFreedHeader) {
    EXPECT_EQ(safeHandleUse(firstMended - 1), HandleUse::once);
    EXPECT_EQ(safeHandleUse(0x075801), HandleUse::once);  // 7.88.1
    EXPECT_EQ(safeHandleUse(firstMended), HandleUse::often);
    EXPECT_EQ(safeHandleUse(0x090000), HandleUse::often);
}

TEST(OneTransport, EveryOriginGetsItsOwnRequestsHoweverManyThereAre) {
    constexpr int origins = 12;  // more than handles are kept where one transfer is in flight
    std::vector<std::unique_ptr<RawServer>> servers;
    for (int i = 0; i < origins; ++i)
        servers.push_back(std::make_unique<RawServer>(
            RawServer::answering(httpReply(200, "server " + std::to_string(i)))));
    const auto transport = curlTransport({.maxInFlight = 1});
    for (const char* const path : {"/one", "/two?2", "/three"})
        for (std::size_t i = 0; i < servers.size(); ++i) {
            const auto url = servers[i]->url(path);
            EXPECT_THAT(sent(requestTo(url), transport),
                        Answers(200, "server " + std::to_string(i)));
            EXPECT_THAT(servers[i]->requests().back(),
                        testing::StartsWith("GET " + std::string(path) + " HTTP/1.1\r\nHost: " +
                                            url.substr(7, url.find('/', 7) - 7) + "\r\n"));
        }
}

TEST(OneTransport, EveryReplyComesWholeWhateverTheSizeOfTheOneBeforeIt) {
    const std::string small = "small";
    const std::string large(3'000'000, 'l');
    const RawServer server([&](RawConnection& connection) {
        while (const auto request = connection.readRequest()) {
            const bool isLarge = request->starts_with("GET /large ");
            if (!connection.send(httpReply(200, isLarge ? large : small))) return;
        }
    });
    const auto transport = curlTransport({.maxInFlight = 1});
    for (const bool isLarge : {false, true, true, false, false, true})
        EXPECT_THAT(sent(requestTo(server.url(isLarge ? "/large" : "/small")), transport),
                    Answers(200, isLarge ? large : small));
    EXPECT_EQ(server.connections(), 1U);
}

}  // namespace
