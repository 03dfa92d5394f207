#include <chrono>

#include <gmock/gmock.h>
#include <openssl/ssl.h>

#include "CurlTransfers.hpp"
#include "support/Certificates.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

ServerTLS tlsWith(const Certificate& certificate, std::optional<int> latestVersion = std::nullopt) {
    return {.certificateFile = certificate.certificateFile(),
            .keyFile = certificate.keyFile(),
            .latestVersion = latestVersion};
}

TransportRequest secureRequestTo(std::string url) {
    auto request = requestTo(std::move(url));
    request.policy.allowsCleartext = false;
    return request;
}

class TLSTest : public testing::Test {
  protected:
    Certificate certificate;
    CurlTransport::Options trusting{.caBundleFile = certificate.certificateFile()};
};

TEST_F(TLSTest, ATrustedServerIsSpokenTo) {
    const RawServer server(RawServer::answering(httpReply(200, "x")), tlsWith(certificate));
    const auto transport = curlTransport(trusting);
    const auto reply = replyOf(sent(secureRequestTo(server.url()), transport));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->body(), "x");
    EXPECT_GT(reply->timings().tlsHandshake, reply->timings().connect);
    EXPECT_THAT(sent(secureRequestTo(server.url()), transport), Answers(200, "x"));
    EXPECT_EQ(server.connections(), 1U);
}

TEST_F(TLSTest, ACertificateThatNobodyVouchesForIsRefused) {
    const RawServer server(RawServer::answering(httpReply(200, "x")), tlsWith(certificate));
    EXPECT_THAT(sent(secureRequestTo(server.url()), curlTransport()),
                FailsWith(SlingErrorKind::tls));
    const Certificate another;
    EXPECT_THAT(sent(secureRequestTo(server.url()),
                     curlTransport({.caBundleFile = another.certificateFile()})),
                FailsWith(SlingErrorKind::tls));
    EXPECT_EQ(server.requests().size(), 0U);
}

TEST_F(TLSTest, ACertificateForAnotherHostIsRefused) {
    const Certificate elsewhere("elsewhere.example");
    const RawServer server(RawServer::answering(httpReply(200, "x")), tlsWith(elsewhere));
    EXPECT_THAT(sent(secureRequestTo(server.url()),
                     curlTransport({.caBundleFile = elsewhere.certificateFile()})),
                FailsWith(SlingErrorKind::tls));
    EXPECT_EQ(server.requests().size(), 0U);
}

TEST_F(TLSTest, ACABundleThatIsMissingTrustsNobody) {
    const RawServer server(RawServer::answering(httpReply(200, "x")), tlsWith(certificate));
    EXPECT_THAT(sent(secureRequestTo(server.url()), curlTransport({.caBundleFile = "/none.pem"})),
                FailsWith(SlingErrorKind::tls));
}

TEST_F(TLSTest, OldVersionsAreRefused) {
    const RawServer old(RawServer::answering(httpReply(200, "x")),
                        tlsWith(certificate, TLS1_1_VERSION));
    EXPECT_THAT(sent(secureRequestTo(old.url()), curlTransport(trusting)),
                FailsWith(SlingErrorKind::tls));
    const RawServer current(RawServer::answering(httpReply(200, "x")),
                            tlsWith(certificate, TLS1_2_VERSION));
    EXPECT_THAT(sent(secureRequestTo(current.url()), curlTransport(trusting)), Answers(200, "x"));
}

TEST_F(TLSTest, AServerWithoutTLSIsRefused) {
    const RawServer server([](RawConnection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        connection.awaitClose();
    });
    EXPECT_THAT(sent(secureRequestTo("https://127.0.0.1:" + std::to_string(server.port()) + "/"),
                     curlTransport(trusting)),
                FailsWith(SlingErrorKind::tls));
}

TEST_F(TLSTest, AHandshakeThatNeverEndsIsAConnectTimeout) {
    const RawServer server([](RawConnection& connection) { connection.awaitClose(); });
    auto request = secureRequestTo("https://127.0.0.1:" + std::to_string(server.port()) + "/");
    request.policy.connectTimeout = 150ms;
    EXPECT_THAT(sent(request, curlTransport(trusting)), FailsWith(SlingErrorKind::connectTimeout));
}

TEST_F(TLSTest, UnsubscribingInTheHandshakeClosesTheConnection) {
    const RawServer server([](RawConnection& connection) { connection.awaitClose(); });
    Responses open =
        sent(secureRequestTo("https://127.0.0.1:" + std::to_string(server.port()) + "/"),
             curlTransport(trusting));
    ASSERT_TRUE(server.awaitConnections(1));
    open.unsubscribe();
    EXPECT_TRUE(server.awaitClosed(1));
    EXPECT_FALSE(open.endedAtOnce());
}

TEST_F(TLSTest, RequestsGoSideBySideAlsoToAServerWithoutHTTP2) {
    const RawServer server(
        [](RawConnection& connection) {
            if (connection.readRequest() && connection.awaitRequests(8))
                connection.send(httpReply(200, "x"));
        },
        tlsWith(certificate));
    const auto transport = curlTransport(trusting);
    std::vector<Responses> all;
    for (int i = 0; i < 8; ++i)
        all.push_back(sent(secureRequestTo(server.url()), transport));
    for (const auto& each : all)
        EXPECT_THAT(each, Answers(200, "x"));
}

TEST_F(TLSTest, AChangeIsNeverSentTwice) {
    const RawServer server(
        [](RawConnection& connection) {
            if (connection.readRequest()) connection.send(httpReply(200, "x"));
            connection.readRequest();
        },
        tlsWith(certificate));
    const auto transport = curlTransport(trusting);
    ASSERT_THAT(sent(secureRequestTo(server.url()), transport), Answers(200, "x"));
    auto change = secureRequestTo(server.url());
    change.method = "POST";
    EXPECT_THAT(sent(change, transport), FailsWith(SlingErrorKind::connectionLost));
    EXPECT_EQ(server.requests().size(), 2U);
}

}  // namespace
