// Heads of replies with characters that no head may hold, and statuses with a body that is none.

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "Gzip.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

/// Answers every request in this way and closes.
RawServer::Script sending(std::string bytes) {
    return [bytes = std::move(bytes)](RawConnection& connection) {
        if (connection.readRequest()) connection.send(bytes);
    };
}

Responses answerOf(const std::string& reply) {
    const RawServer server(sending(reply));
    auto responses = sent(requestTo(server.url()), curlTransport());
    EXPECT_TRUE(responses.ended());
    return responses;
}

TEST(HostileHead, WithAControlCharacterIsMalformed) {
    for (int code = 0; code <= 0x7F; ++code) {
        const bool isControl = (code < 0x20 && code != '\t' && code != '\n') || code == 0x7F;
        if (!isControl) continue;
        const std::string c(1, static_cast<char>(code));
        for (const std::string& line :
             {"X-Test: a" + c + "b", "X-Test: " + c + "b", "X-Te" + c + "st: b", " folded: " + c,
              "no colon" + c + "at all", "X-Test: a" + c})
            for (const std::string& reply :
                 {"HTTP/1.1 200 OK\r\n" + line + "\r\nContent-Length: 2\r\n\r\n{}",
                  "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n" + line + "\r\n\r\n{}",
                  "HTTP/1.1 103 Early\r\n" + line +
                      "\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}",
                  "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n" + line +
                      "\r\n\r\n"})
                EXPECT_THAT(answerOf(reply),
                            testing::AnyOf(FailsWith(SlingErrorKind::malformedReply),
                                           FailsWith(SlingErrorKind::connectionLost)))
                    << code << " in " << line;
        EXPECT_THAT(answerOf("HTTP/1.1 200 O" + c + "K\r\nContent-Length: 2\r\n\r\n{}"),
                    FailsWith(SlingErrorKind::malformedReply))
            << code;
    }
}

TEST(HostileHead, BringsOnlyFieldsWithANameThatIsOne) {
    const RawServer server(
        sending("HTTP/1.1 200 OK\r\nX Y: 1\r\nX-(Z): 2\r\nX-\xC3\xB6: 3\r\n: 4\r\n"
                "X-Text: \xC3\xB6\t\"x\"\r\nX-Name : 5\r\nContent-Length: 2\r\n"
                "\r\n{}"));
    const auto reply = replyOf(sent(requestTo(server.url()), curlTransport()));
    ASSERT_TRUE(reply);
    std::vector<std::string> names;
    for (const auto& [name, value] : reply->headers())
        names.emplace_back(name);
    EXPECT_THAT(names, testing::ElementsAre("X-Text", "X-Name", "Content-Length"));
    EXPECT_EQ(headerOf(*reply, "X-Text"), "\xC3\xB6\t\"x\"");
}

// A status of 400 or above.

class StatusWithoutItsBody : public testing::TestWithParam<int> {
  protected:
    /// Expects the status, and this of its body.
    void expectStatus(const std::string& rest, const std::string& body,
                      const TransportRequest& limits = requestTo("")) {
        const RawServer server(
            sending("HTTP/1.1 " + std::to_string(GetParam()) + " Status\r\n" + rest));
        auto request = limits;
        request.url = server.url();
        const auto error = sent(request, curlTransport()).error<SlingError>();
        ASSERT_TRUE(error);
        EXPECT_EQ(error->statusCode(), GetParam()) << rest.substr(0, 80) << error->what();
        EXPECT_EQ(error->reply() != nullptr ? error->reply()->body : "no reply", body);
    }
};

TEST_P(StatusWithoutItsBody, CountsIfItWasCut) {
    expectStatus("Content-Length: 100\r\n\r\nhalf", "half");
    expectStatus("Content-Length: 100\r\n\r\n", "");
    expectStatus("Transfer-Encoding: chunked\r\n\r\n5\r\nhal", "hal");
    expectStatus("Transfer-Encoding: chunked\r\n\r\nno size\r\n", "");
    expectStatus("Content-Encoding: gzip\r\n\r\n" + gzipped("half").substr(0, 17), "ha");
}

TEST_P(StatusWithoutItsBody, CountsIfItIsBadlyCoded) {
    expectStatus("Content-Encoding: gzip\r\nContent-Length: 7\r\n\r\ngarbage", "");
    expectStatus("Content-Encoding: unheard-of\r\nContent-Length: 7\r\n\r\ngarbage", "");
    const auto good = gzipped("text");
    expectStatus("Content-Encoding: gzip\r\n\r\n" + good.substr(0, good.size() - 8) + "12345678",
                 "text");
    expectStatus("Content-Encoding: gzip\r\n\r\n" + good + "more", "text");
}

TEST_P(StatusWithoutItsBody, CountsIfItIsTooLong) {
    auto request = requestTo("");
    request.policy.maxBodyBytes = 10;
    expectStatus("Content-Length: 20\r\n\r\nthis is twenty bytes", "this is tw", request);
    expectStatus("Content-Encoding: gzip\r\n\r\n" + gzipped("this is twenty bytes"), "this is tw",
                 request);
    expectStatus("Content-Encoding: gzip\r\n\r\n" + gzipBomb(1'000'000), "aaaaaaaaaa", request);
    request.policy.maxHeaderBytes = 300;
    expectStatus(
        "Transfer-Encoding: chunked\r\n\r\n0\r\nX-Trailer: " + std::string(400, 'x') + "\r\n\r\n",
        "", request);
}

TEST_P(StatusWithoutItsBody, CountsIfItsLengthCannotBeUnderstood) {
    expectStatus("Content-Length: 99999999999999999999999\r\n\r\nsome", "");
    expectStatus("Content-Length: 4\r\nContent-Length: 5\r\n\r\nsome", "");
}

TEST_P(StatusWithoutItsBody, CountsIfItsTimeIsUp) {
    const RawServer server([](RawConnection& connection) {
        if (!connection.readRequest()) return;
        connection.send("HTTP/1.1 " + std::to_string(GetParam()) +
                        " Status\r\nContent-Length: 100\r\n\r\nhalf");
        connection.awaitClose();
    });
    auto request = requestTo(server.url());
    request.policy.totalTimeout = 200ms;
    const auto error = sent(request, curlTransport()).error<SlingError>();
    ASSERT_TRUE(error);
    // A machine that is slow enough does not get as far as the status.
    if (error->kind() == SlingErrorKind::totalTimeout) return;
    EXPECT_EQ(error->statusCode(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Of, StatusWithoutItsBody, testing::Values(400, 401, 403, 404, 500, 503));

}  // namespace
