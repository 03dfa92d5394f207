#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "Gzip.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;
using testing::StartsWith;

namespace {

/// The head and body of the one request that a server receives.
std::string received(const TransportRequest& request, CurlTransport::Options options = {}) {
    const RawServer server(RawServer::answering(httpReply(200, "")));
    TransportRequest there = request;
    there.url = server.url(request.url);
    there.policy.allowsCleartext = true;
    const Responses responses = sent(there, curlTransport(std::move(options)));
    EXPECT_TRUE(responses.completed());
    const auto requests = server.requests();
    return requests.size() == 1 ? requests.front() : "not one request";
}

TransportRequest request(std::string method, std::string path = "/") {
    return requestTo(std::move(path), std::move(method));
}

TEST(CurlTransport, DeliversStatusHeadersBodyAndURL) {
    const RawServer server(RawServer::answering(
        httpReply(201, "hello", "X-One: 1\r\nx-two:\t two words \r\nX-One: again\r\nEmpty:\r\n")));
    const auto reply = replyOf(sent(requestTo(server.url("/path?query=1")), curlTransport()));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status(), 201);
    EXPECT_EQ(reply->body(), "hello");
    EXPECT_EQ(reply->effectiveURL(), server.url("/path?query=1"));
    EXPECT_THAT(std::vector(reply->headers().begin(), reply->headers().end()),
                ElementsAre(Pair("X-One", "1"), Pair("x-two", "two words"), Pair("X-One", "again"),
                            Pair("Empty", ""), Pair("Content-Length", "5")));
}

TEST(CurlTransport, TakesRepliesWithoutABody) {
    for (const char* const reply :
         {"HTTP/1.1 204 No Content\r\n\r\n", "HTTP/1.1 304 Not Modified\r\nETag: \"1\"\r\n\r\n",
          "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"}) {
        const RawServer server(RawServer::answering(reply));
        EXPECT_THAT(sent(requestTo(server.url()), curlTransport()),
                    Answers(std::stoi(std::string(reply).substr(9, 3)), ""));
    }
}

TEST(CurlTransport, TakesABodyThatEndsWithTheConnection) {
    const RawServer server([](RawConnection& connection) {
        connection.readRequest();
        connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nup to the end");
    });
    EXPECT_THAT(sent(requestTo(server.url()), curlTransport()), Answers(200, "up to the end"));
}

TEST(CurlTransport, TakesAHeadReplyThatAnnouncesALength) {
    const RawServer server(RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n"));
    const auto reply = replyOf(sent(requestTo(server.url(), "HEAD"), curlTransport()));
    ASSERT_TRUE(reply);
    EXPECT_EQ(headerOf(*reply, "Content-Length"), "500");
    EXPECT_EQ(reply->body(), "");
}

TEST(CurlTransport, ShowsTheHeadersOfTheFinalReplyOnly) {
    const RawServer server(
        RawServer::answering("HTTP/1.1 103 Early Hints\r\nLink: early\r\n\r\n"
                             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nX-Final: yes\r\n\r\n"
                             "4\r\nbody\r\n0\r\nX-Trailer: no\r\n\r\n"));
    const auto reply = replyOf(sent(requestTo(server.url()), curlTransport()));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->body(), "body");
    EXPECT_EQ(headerOf(*reply, "Link"), "(none)");
    EXPECT_EQ(headerOf(*reply, "X-Final"), "yes");
    EXPECT_EQ(headerOf(*reply, "X-Trailer"), "(none)");
}

TEST(CurlTransport, AsksForGzipAndDecodesIt) {
    const RawServer server(
        RawServer::answering(httpReply(200, gzipped("plain text"), "Content-Encoding: gzip\r\n")));
    EXPECT_THAT(sent(requestTo(server.url()), curlTransport()), Answers(200, "plain text"));
    EXPECT_THAT(server.requests().at(0), HasSubstr("\r\nAccept-Encoding: gzip\r\n"));
}

TEST(CurlTransport, DecodesEveryCodingThatItTakes) {
    for (const auto& [coding, body] : {std::pair("x-gzip", gzipped("plain text")),
                                       std::pair("Deflate", deflated("plain text"))}) {
        const RawServer server(RawServer::answering(
            httpReply(200, body, std::string("Content-Encoding: ") + coding + "\r\n")));
        EXPECT_THAT(sent(requestTo(server.url()), curlTransport()), Answers(200, "plain text"))
            << coding;
    }
}

TEST(CurlTransport, AsksForAnotherEncodingWhereTheRequestDoes) {
    auto get = request("GET");
    get.headers = {{"accept-encoding", "identity"}};
    const auto head = received(get);
    EXPECT_THAT(head, HasSubstr("\r\naccept-encoding: identity\r\n"));
    EXPECT_THAT(head, Not(HasSubstr("gzip")));
}

TEST(CurlTransport, SendsMethodPathAndQueryAsTheyAre) {
    EXPECT_THAT(received(request("GET", "/v1/a%41b//c;d?x=%2e&y=a+b&z")),
                StartsWith("GET /v1/a%41b//c;d?x=%2e&y=a+b&z HTTP/1.1\r\n"));
    for (const char* const method : {"DELETE", "PATCH", "PUT", "POST", "OPTIONS"})
        EXPECT_THAT(received(request(method, "/x")),
                    StartsWith(std::string(method) + " /x HTTP/1.1\r\n"));
}

TEST(CurlTransport, EscapesWhatARequestLineCannotCarry) {
    EXPECT_THAT(received(request("GET", "/\xC3\xA4\"<>{}|^`\\?q=\xC3\xBC|")),
                StartsWith("GET /%C3%A4%22%3C%3E%7B%7D%7C%5E%60%5C?q=%C3%BC%7C HTTP/1.1\r\n"));
}

TEST(CurlTransport, DoesNotSendTheFragment) {
    EXPECT_THAT(received(request("GET", "/a?b#c")), StartsWith("GET /a?b HTTP/1.1\r\n"));
}

TEST(CurlTransport, SendsHeadersAsTheyAre) {
    auto get = request("GET");
    get.headers = {{"X-Case-Kept", "a  b\tc"},
                   {"x-empty", ""},
                   {"X-Blank", "  "},
                   {"X-Two", "1"},
                   {"X-Two", "2"}};
    EXPECT_THAT(received(get), HasSubstr("\r\nX-Case-Kept: a  b\tc\r\nx-empty:\r\nX-Blank:\r\n"
                                         "X-Two: 1\r\nX-Two: 2\r\n"));
}

TEST(CurlTransport, SendsABodyWithItsLengthAndNoTypeOfItsOwn) {
    auto post = request("POST");
    post.body = bodyOf(std::string("{\"a\":\"\0\"}", 9));
    const std::string message = received(post);
    EXPECT_THAT(message, HasSubstr("\r\nContent-Length: 9\r\n"));
    EXPECT_THAT(message, Not(HasSubstr("Content-Type")));
    EXPECT_THAT(message, EndsWith(std::string("\r\n\r\n{\"a\":\"\0\"}", 13)));

    post.headers = {{"Content-Type", "application/json"}};
    EXPECT_THAT(received(post), HasSubstr("\r\nContent-Type: application/json\r\n"));
    for (const char* const method : {"PUT", "PATCH", "DELETE"}) {
        post.method = method;
        EXPECT_THAT(received(post), HasSubstr("\r\nContent-Length: 9\r\n")) << method;
    }
}

TEST(CurlTransport, AnnouncesAnEmptyBodyWhereTheMethodMeansToHaveOne) {
    for (const char* const method : {"POST", "PUT", "PATCH"})
        EXPECT_THAT(received(request(method)), HasSubstr("\r\nContent-Length: 0\r\n")) << method;
    for (const char* const method : {"GET", "DELETE"})
        EXPECT_THAT(received(request(method)), Not(HasSubstr("Content-Length"))) << method;
}

TEST(CurlTransport, SendsALargeBodyWithoutAskingFirst) {
    auto post = request("POST");
    post.body = bodyOf(std::string(3'000'000, 'x'));
    const std::string message = received(post);
    EXPECT_THAT(message.substr(0, 500), Not(HasSubstr("Expect")));
    EXPECT_GT(message.size(), 3'000'000U);
}

TEST(CurlTransport, DoesNotSendFramingOfTheCaller) {
    auto post = request("POST");
    post.body = bodyOf("12345");
    post.headers = {
        {"content-length", "3"}, {"Transfer-Encoding", "chunked"}, {"Expect", "100-continue"}};
    const std::string message = received(post);
    EXPECT_THAT(message, HasSubstr("\r\nContent-Length: 5\r\n"));
    EXPECT_THAT(message, Not(HasSubstr("content-length")));
    EXPECT_THAT(message, Not(HasSubstr("Transfer-Encoding")));
    EXPECT_THAT(message, Not(HasSubstr("Expect")));
}

TEST(CurlTransport, SendsAUserAgentUnlessToldOtherwise) {
    EXPECT_THAT(received(request("GET")), HasSubstr("\r\nUser-Agent: KestrinProfile/"));
    EXPECT_THAT(received(request("GET"), {.userAgent = "Player/2"}),
                HasSubstr("\r\nUser-Agent: Player/2\r\n"));

    auto own = request("GET");
    own.headers = {{"user-agent", "Own/1"}};
    EXPECT_THAT(received(own), HasSubstr("\r\nuser-agent: Own/1\r\n"));
    EXPECT_THAT(received(own), Not(HasSubstr("User-Agent")));

    auto none = request("GET");
    none.sendsUserAgent = false;
    EXPECT_THAT(received(none), Not(HasSubstr("User-Agent")));
    EXPECT_THAT(received(request("GET"), {.userAgent = ""}), Not(HasSubstr("User-Agent")));
}

TEST(CurlTransport, UsesAConnectionAgain) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    for (int i = 0; i < 5; ++i)
        ASSERT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
    EXPECT_EQ(server.connections(), 1U);
}

TEST(CurlTransport, MeasuresTheStagesThatTookPlace) {
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    const auto first = replyOf(sent(requestTo(server.url()), transport));
    const auto second = replyOf(sent(requestTo(server.url()), transport));
    ASSERT_TRUE(first && second);
    EXPECT_GT(first->timings().connect.count(), 0);
    EXPECT_EQ(first->timings().tlsHandshake.count(), 0);
    EXPECT_GE(first->timings().firstByte, first->timings().connect);
    EXPECT_GE(first->timings().total, first->timings().firstByte);
    EXPECT_EQ(second->timings().nameLookup.count(), 0);
    EXPECT_EQ(second->timings().connect.count(), 0);
    EXPECT_GT(second->timings().total.count(), 0);
}

TEST(CurlTransport, ReportsAnErrorStatusWithItsReply) {
    const RawServer server(RawServer::answering(httpReply(404, "not here", "X-Reason: gone\r\n")));
    const auto error =
        sent(requestTo(server.url("/secret?token=1")), curlTransport()).error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), SlingErrorKind::httpStatus);
    EXPECT_EQ(error->statusCode(), 404);
    ASSERT_NE(error->reply(), nullptr);
    EXPECT_EQ(error->reply()->body, "not here");
    EXPECT_EQ(error->reply()->headers.value("x-reason"), "gone");
    EXPECT_THAT(error->what(), HasSubstr("http://127.0.0.1:" + std::to_string(server.port())));
    EXPECT_THAT(error->what(), Not(HasSubstr("secret")));
}

TEST(CurlTransport, TakesStatusesBelow400AsReplies) {
    for (const int status : {200, 206, 300, 302, 399}) {
        const RawServer server(
            RawServer::answering(httpReply(status, "x", "Location: /elsewhere\r\n")));
        EXPECT_THAT(sent(requestTo(server.url()), curlTransport()), Answers(status, "x"));
    }
}

TEST(CurlTransport, TakesErrorStatusesOfEveryKind) {
    for (const int status : {400, 401, 403, 407, 417, 429, 500, 503, 599}) {
        const RawServer server(RawServer::answering(httpReply(status, "x")));
        EXPECT_THAT(sent(requestTo(server.url()), curlTransport()),
                    FailsWith(SlingErrorKind::httpStatus))
            << status;
        EXPECT_EQ(server.requests().size(), 1U) << status;
    }
}

TEST(CurlTransport, KeepsNoMoreOfAnErrorsBodyThanItsBound) {
    const RawServer server([](RawConnection& connection) {
        connection.readRequest();
        connection.send("HTTP/1.1 500 Broken\r\nContent-Length: 100000000\r\n\r\n");
        while (connection.send(std::string(100'000, 'e'))) {
        }
    });
    const auto error = sent(requestTo(server.url()), curlTransport()).error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->statusCode(), 500);
    EXPECT_EQ(error->reply()->body, std::string(ErrorReply::maxBodyBytes, 'e'));
}

TEST(CurlTransport, UserAgentHasTheVersion) {
    EXPECT_THAT(CurlTransport::defaultUserAgent(), testing::MatchesRegex("KestrinProfile/[0-9.]+"));
}

}  // namespace
