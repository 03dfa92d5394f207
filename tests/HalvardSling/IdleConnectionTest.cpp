// What comes over a connection that waits for its next request is the reply of none.

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "support/Certificates.hpp"
#include "support/HTTP2Connection.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

/// What nobody asked for, and whether the connection is closed behind it.
const std::vector<std::pair<std::string, bool>>& unsolicited() {
    static const std::vector<std::pair<std::string, bool>> all{
        {"HTTP/1.1 408 Request Timeout\r\nConnection: close\r\nContent-Length: 0\r\n\r\n", true},
        {"HTTP/1.1 408 Request Timeout\r\nConnection: close\r\n\r\n", true},
        {httpReply(200, "fake"), false},
        {httpReply(200, "fake"), true},
        {httpReply(403, "fake"), false},
        {httpReply(302, "", "Location: /fake\r\n"), false},
        {"HTTP/1.1 200 OK\r\nX-Half: ", false},
        {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nfake", false},
        {"HTTP/1.1 100 Continue\r\n\r\n", false},
        {"\r\n", false},
        {"x", false},
        {std::string(100'000, 'x'), false},
    };
    return all;
}

class IdleConnection : public testing::TestWithParam<bool> {
  protected:
    [[nodiscard]] std::optional<ServerTLS> tls() const {
        if (!GetParam()) return std::nullopt;
        return ServerTLS{.certificateFile = certificate.certificateFile(),
                         .keyFile = certificate.keyFile()};
    }

    Certificate certificate;
    CurlTransport::Options trusting{.caBundleFile = certificate.certificateFile()};
};

TEST_P(IdleConnection, IsNotUsedAgainOnceSomethingCameUnasked) {
    for (const auto& [bytes, closes] : unsolicited())
        for (const char* const method : {"GET", "POST"}) {
            Tally proceed;
            Tally arrived;
            const RawServer server(
                [&, &text = bytes, ends = closes](RawConnection& connection) {
                    if (connection.index() > 0)
                        return RawServer::answering(httpReply(200, "own"))(connection);
                    if (!connection.readRequest() || !connection.send(httpReply(200, "first")))
                        return;
                    // The client's next step, so that this comes behind its reply.
                    static_cast<void>(proceed.reaches(1));
                    connection.send(text);
                    connection.awaitArrival();
                    if (ends) connection.close();
                    arrived.add();
                    while (connection.readRequest())
                        connection.send(httpReply(200, "late"));
                },
                tls());
            const auto transport = curlTransport(trusting);
            ASSERT_THAT(sent(requestTo(server.url()), transport), Answers(200, "first"));
            proceed.add();
            ASSERT_TRUE(arrived.reaches(1));
            EXPECT_THAT(sent(requestTo(server.url(), method), transport), Answers(200, "own"))
                << method << " after " << bytes.substr(0, 60);
            EXPECT_EQ(server.connections(), 2U);
            EXPECT_EQ(server.requests().size(), 2U);
        }
}

TEST_P(IdleConnection, IsUsedAgainAsLongAsNothingComes) {
    const RawServer server(RawServer::answering(httpReply(200, "x")), tls());
    const auto transport = curlTransport(trusting);
    for (int i = 0; i < 50; ++i)
        ASSERT_THAT(sent(requestTo(server.url(), i % 2 == 0 ? "GET" : "POST"), transport),
                    Answers(200, "x"));
    EXPECT_EQ(server.connections(), 1U);
}

TEST_P(IdleConnection, IsOneOfManyAndOnlyThoseAreGivenUpThatGotSomething) {
    constexpr std::size_t many = 8;
    Tally proceed;
    Tally arrived;
    const RawServer server(
        [&](RawConnection& connection) {
            if (!connection.readRequest() || !connection.awaitRequests(many) ||
                !connection.send(httpReply(200, "first")))
                return;
            static_cast<void>(proceed.reaches(1));
            if (connection.index() % 2 == 0) connection.send(httpReply(200, "fake"));
            connection.awaitArrival();
            arrived.add();
            RawServer::answering(httpReply(200, "own"))(connection);
        },
        tls());
    const auto transport = curlTransport(trusting);
    const auto sentMany = [&] {
        std::vector<Responses> all;
        for (std::size_t i = 0; i < many; ++i)
            all.push_back(sent(requestTo(server.url(), "POST"), transport));
        return all;
    };
    for (const auto& each : sentMany())
        EXPECT_THAT(each, Answers(200, "first"));
    proceed.add();
    ASSERT_TRUE(arrived.reaches(many));
    for (const auto& each : sentMany()) {
        const auto reply = replyOf(each);
        ASSERT_TRUE(reply);
        EXPECT_NE(reply->body(), "fake");
    }
    EXPECT_LE(server.connections(), many + many / 2);
}

TEST_P(IdleConnection, ThatBroughtMoreThanItsReplyIsNotUsedAgain) {
    const std::string first = httpReply(200, "first");
    const std::string chunked =
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n0\r\n\r\n";
    const std::string fake = httpReply(200, "fake");
    std::vector<std::vector<std::string>> pieces{
        {first + fake},   {first, fake},   {first + fake.substr(0, 20), fake.substr(20)},
        {chunked + fake}, {chunked, fake}, {"HTTP/1.1 204 No Content\r\n\r\n" + fake}};
    // Over TLS such a rest is in the TLS library's hands, and libcurl tells nothing of it.
    if (!GetParam()) pieces.push_back({first.substr(0, first.size() - 5), "first" + fake});
    for (const auto& each : pieces) {
        Tally arrived;
        const RawServer server(
            [&](RawConnection& connection) {
                if (connection.index() > 0)
                    return RawServer::answering(httpReply(200, "own"))(connection);
                if (!connection.readRequest()) return;
                for (const auto& piece : each)
                    connection.send(piece);
                connection.awaitArrival();
                arrived.add();
                while (connection.readRequest())
                    connection.send(httpReply(200, "own"));
            },
            tls());
        const auto transport = curlTransport(trusting);
        ASSERT_TRUE(replyOf(sent(requestTo(server.url()), transport)));
        ASSERT_TRUE(arrived.reaches(1));
        EXPECT_THAT(sent(requestTo(server.url(), "POST"), transport), Answers(200, "own"))
            << each.front();
    }
}

INSTANTIATE_TEST_SUITE_P(Over, IdleConnection, testing::Bool(),
                         [](const auto& each) { return each.param ? "TLS" : "Cleartext"; });

// HTTP/2, where some frames come without being asked for.

using enum HTTP2Connection::Ends;

class IdleHTTP2Connection : public testing::Test {
  protected:
    /// Sends frames between two requests.
    /// @return the outcome of the second one, and how many connections there were
    std::pair<Responses, std::size_t> outcome(const std::string& frames) {
        Tally arrived;
        Tally proceed;
        const RawServer server(
            [&](RawConnection& raw) {
                HTTP2Connection connection(raw);
                const auto answer = [&](std::uint32_t stream, const std::string& body) {
                    connection.sendHead(stream, body.size());
                    connection.send(HTTP2Connection::data(stream, body, yes));
                };
                const auto first = connection.readRequest();
                if (!first) return;
                answer(*first, raw.index() == 0 ? "first" : "own");
                static_cast<void>(proceed.reaches(1));
                if (raw.index() == 0) connection.send(frames);
                raw.awaitArrival();
                arrived.add();
                while (const auto stream = connection.readRequest())
                    answer(*stream, "own");
            },
            ServerTLS{.certificateFile = certificate.certificateFile(),
                      .keyFile = certificate.keyFile(),
                      .protocol = "h2"});
        const auto transport = curlTransport({.caBundleFile = certificate.certificateFile()});
        EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "first"));
        proceed.add();
        EXPECT_TRUE(arrived.reaches(1));
        auto second = sent(requestTo(server.url()), transport);
        EXPECT_TRUE(second.ended());
        return {std::move(second), server.connections()};
    }

    Certificate certificate;
};

TEST_F(IdleHTTP2Connection, IsUsedAgainAfterFramesOfTheConnection) {
    for (const auto& frames : {HTTP2Connection::frame(6, 0, 0, "12345678"),  // PING
                               HTTP2Connection::frame(4, 0, 0, ""),          // SETTINGS
                               HTTP2Connection::frame(8, 0, 0, HTTP2Connection::number(5)),
                               HTTP2Connection::frame(0xFA, 0, 0, "unknown")}) {
        const auto [second, connections] = outcome(frames);
        EXPECT_THAT(second, Answers(200, "own"));
        EXPECT_EQ(connections, 1U);
    }
}

TEST_F(IdleHTTP2Connection, BringsNoReplyBeforeItsRequest) {
    const std::string fake =
        HTTP2Connection::frame(1, 4, 3, "\x88") + HTTP2Connection::data(3, "fake", yes);
    for (const auto& frames :
         {fake, HTTP2Connection::data(1, "fake", yes) + fake,
          HTTP2Connection::frame(7, 0, 0, HTTP2Connection::number(1) + HTTP2Connection::number(0)) +
              fake}) {
        const auto [second, connections] = outcome(frames);
        EXPECT_THAT(second, Answers(200, "own"));
    }
}

}  // namespace
