#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "Transfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

TransportRequest plain(std::string method) {
    return requestTo("/" + method, method);
}

TransportRequest withBody(std::string method, std::string body) {
    auto request = plain(std::move(method));
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

/// What a server receives when these are sent one after the other through one handle.
std::vector<std::string> received(const std::vector<TransportRequest>& requests) {
    const RawServer server(RawServer::answering(httpReply(200, "")));
    const auto transport = curlTransport({.maxInFlight = 1});
    for (auto request : requests) {
        request.url = server.url(request.url);
        EXPECT_TRUE(replyOf(sent(request, transport))) << request.method;
    }
    auto all = server.requests();
    // The port is another one each time.
    for (auto& each : all)
        each.replace(each.find("Host: "),
                     each.find("\r\n", each.find("Host: ")) - each.find("Host: "), "Host");
    return all;
}

TEST(HandleReuse, ARequestTakesNothingOverFromTheOneBeforeIt) {
    const auto requests = shapes();
    for (const auto& first : requests)
        for (const auto& second : requests) {
            const auto both = received({first, second});
            ASSERT_EQ(both.size(), 2U);
            EXPECT_EQ(both.front(), received({first}).front());
            EXPECT_EQ(both.back(), received({second}).front()) << "after " << both.front();
        }
}

TEST(HandleReuse, EveryOriginGetsItsOwnRequestsHoweverManyThereAre) {
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

TEST(HandleReuse, EveryReplyComesWholeWhateverTheSizeOfTheOneBeforeIt) {
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
