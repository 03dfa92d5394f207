// Where a request ends, and what belongs to it: whatever two readers could see differently is
// refused, and the connection ends with it.
#include <string>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/error.hpp>
#include <gtest/gtest.h>

#include <kestrin-profile-server/http/MemoryBudget.hpp>
#include <kestrin-profile-server/http/RequestParser.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

constexpr const char* smuggled = "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n";

class FramingTest : public testing::Test {
  protected:
    /// The outcome of a request whose rest would be another request to a reader that ends it early.
    std::string outcome(const std::string& request) {
        const std::string answer = sendRaw(service.baseURL(), request + smuggled);
        EXPECT_EQ(answer.find("\"ok\""), std::string::npos) << "answered what was smuggled";
        return outcomeOfRaw(answer);
    }

    static std::string put(const std::string& headers, const std::string& body,
                           const std::string& version = "1.1") {
        return "PUT /v1/watchlist/video?video=v&brand=b&profile=parent&v=1 HTTP/" + version +
               "\r\nHost: x\r\n" + headers + "\r\n" + body;
    }

    /// The headers of a caller as lines.
    std::string credentials() {
        std::string lines;
        for (const auto& [name, value] : client.bind("parent").headers())
            lines.append(name).append(": ").append(value).append("\r\n");
        return lines;
    }

    TestService service;
    HouseholdClient client = service.client();
};

TEST_F(FramingTest, aTransferCodingIsRefusedInHTTP10) {
    for (const std::string connection : {"", "Connection: keep-alive\r\n"}) {
        EXPECT_EQ(outcome(put(connection + "Transfer-Encoding: chunked\r\n", "0\r\n\r\n", "1.0")),
                  "400 malformed-request")
            << connection;
    }
}

TEST_F(FramingTest, aLengthAndATransferCodingExcludeEachOther) {
    for (const std::string headers : {"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n",
                                      "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n",
                                      "Content-Length: 0\r\nTransfer-Encoding: chunked\r\n",
                                      "Content-Length: 5\r\nTransfer-Encoding: gzip\r\n",
                                      "Content-Length: 5\r\nTransfer-Encoding:\r\n",
                                      "Transfer-Encoding: identity\r\nContent-Length: 5\r\n"}) {
        EXPECT_EQ(outcome(put(headers, "0\r\n\r\n")), "400 malformed-request") << headers;
    }
}

TEST_F(FramingTest, theLengthIsOneNumber) {
    for (const std::string headers :
         {"Content-Length: 0\r\nContent-Length: 36\r\n",
          "Content-Length: 0\r\nContent-Length: 0\r\n", "Content-Length: 0, 0\r\n",
          "Content-Length: 0, 36\r\n", "Content-Length: 0,\r\n", "Content-Length:\r\n",
          "Content-Length: +0\r\n", "Content-Length: -0\r\n", "Content-Length: -1\r\n",
          "Content-Length: 0x0\r\n", "Content-Length: 0 0\r\n", "Content-Length: 0.0\r\n",
          "Content-Length: \"0\"\r\n", "Content-Length: 18446744073709551616\r\n",
          "Content-Length : 0\r\n"}) {
        EXPECT_EQ(outcome(put(headers, "")), "400 malformed-request") << headers;
    }
}

TEST_F(FramingTest, theTransferCodingIsChunkedOnce) {
    for (const std::string headers :
         {"Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n",
          "Transfer-Encoding: chunked\r\nTransfer-Encoding: identity\r\n",
          "Transfer-Encoding: identity\r\nTransfer-Encoding: chunked\r\n",
          "Transfer-Encoding:\r\nTransfer-Encoding: chunked\r\n",
          "Transfer-Encoding: chunked, chunked\r\n", "Transfer-Encoding: chunked;a=b\r\n",
          "Transfer-Encoding: ,chunked\r\n", "Transfer-Encoding: xchunked\r\n",
          "Transfer-Encoding: \"chunked\"\r\n", "Transfer-Encoding:\r\n",
          "Transfer-Encoding : chunked\r\n",
          "Transfer-Encoding: \x0B"
          "chunked\r\n"}) {
        EXPECT_EQ(outcome(put(headers, "0\r\n\r\n")), "400 malformed-request") << headers;
    }
}

TEST_F(FramingTest, chunksAreWellFormed) {
    for (const std::string body :
         {"\r\n", "-1\r\n", "0x1\r\na\r\n0\r\n\r\n", "+1\r\na\r\n0\r\n\r\n", "g\r\n", " 1\r\na\r\n",
          "1\r\nab\r\n0\r\n\r\n", "1\r\na0\r\n\r\n", "1\na\n0\n\n", "10000000000000000\r\n",
          "fffffffffffffffff\r\n", "1;\r\na\r\n0\r\n\r\n", "1;=b\r\na\r\n0\r\n\r\n",
          "1;a=\"b\r\na\"\r\n0\r\n\r\n", "1 \r\na\r\n0\r\n\r\n"}) {
        EXPECT_EQ(outcome(put("Transfer-Encoding: chunked\r\n", body)), "400 malformed-request")
            << body;
    }
}

TEST_F(FramingTest, linesEndWithCarriageReturnAndLineFeed) {
    for (const std::string request :
         {"GET /healthz HTTP/1.1\nHost: x\n\n", "GET /healthz HTTP/1.1\r\nHost: x\nA: b\r\n\r\n",
          "GET /healthz HTTP/1.1\r\nHost: x\rA: b\r\n\r\n",
          "GET /healthz HTTP/1.1\r\nHost: x\r\nA: b\rc\r\n\r\n", "GET  /healthz HTTP/1.1\r\n\r\n",
          "GET /healthz  HTTP/1.1\r\nHost: x\r\n\r\n"}) {
        EXPECT_EQ(outcome(request), "400 malformed-request") << request;
    }
    EXPECT_EQ(outcome(std::string("GET /healthz HTTP/1.1\r\nHost: x\r\nA: b\0c\r\n\r\n", 42)),
              "400 malformed-request");
}

TEST_F(FramingTest, aRequestHasOneHost) {
    for (const std::string hosts : {"", "Host: x\r\nHost: x\r\n", "Host: x\r\nHOST: y\r\n"}) {
        EXPECT_EQ(outcome("GET /healthz HTTP/1.1\r\n" + hosts + "\r\n"), "400 malformed-request")
            << hosts;
    }
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(), "GET /healthz HTTP/1.0\r\n\r\n")), "200");
}

TEST_F(FramingTest, chunksWithExtensionsAndTrailersAreABody) {
    const std::string answer =
        sendRaw(service.baseURL(),
                put(credentials() + "Content-Type: application/json\r\n"
                                    "Transfer-Encoding: Chunked\r\nConnection: close\r\n",
                    "0009;a;b=c;d=\"e\"\r\n{\"type\": \r\n8\r\n\"VIDEO\"}\r\n0;f\r\n"
                    "Signed: by me\r\n\r\n"));
    EXPECT_EQ(outcomeOfRaw(answer), "204") << answer;
}

TEST_F(FramingTest, aBodyMayComeByteByByte) {
    for (const std::string body : {"0\r\n\r\n", "0\r\nX-Trailer: x\r\n\r\n", "2\r\n{}\r\n0\r\n\r\n",
                                   "1;x=y\r\n{\r\n1\r\n}\r\n000;z\r\nA: b\r\n\r\n"}) {
        MemoryBudget budget(bodyLimit);
        MemoryBudget::Share share(budget);
        RequestParser parser(share);
        parser.eager(true);
        boost::beast::flat_buffer buffer;
        for (const char each : put("Transfer-Encoding: chunked\r\n", body)) {
            boost::asio::buffer_copy(buffer.prepare(1), boost::asio::buffer(&each, 1));
            buffer.commit(1);
            boost::beast::error_code error;
            buffer.consume(parser.put(buffer.data(), error));
            ASSERT_TRUE(!error || error == boost::beast::http::error::need_more) << error.message();
        }
        EXPECT_TRUE(parser.is_done()) << body;
        EXPECT_EQ(parser.body(), body.front() == '0' ? "" : "{}");
    }
}

TEST_F(FramingTest, aSecretInATrailerAuthorisesNothing) {
    const std::string body = R"({"profileId":"parent"})";
    const std::string answer =
        sendRaw(service.baseURL(),
                "POST /v1/binds?profile=parent&v=1 HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n16\r\n" +
                    body + "\r\n0\r\nX-Household-Secret: " + service.secret() + "\r\n\r\n");
    EXPECT_EQ(outcomeOfRaw(answer), "401 secret-required");
}

TEST_F(FramingTest, aTokenInATrailerAuthorisesNothing) {
    const std::string answer =
        sendRaw(service.baseURL(), put("Transfer-Encoding: chunked\r\nConnection: close\r\n",
                                       "0\r\n" + credentials() + "\r\n"));
    EXPECT_EQ(outcomeOfRaw(answer), "401 token-required");
}

TEST_F(FramingTest, aTrailerChangesNoHeader) {
    const std::string headers =
        credentials() + "Transfer-Encoding: chunked\r\nConnection: close\r\n";
    const std::string body = "2\r\n{}\r\n0\r\n";
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(),
                                   put(headers, body + "Content-Type: application/json\r\n\r\n"))),
              "415 unsupported-media-type");
    EXPECT_EQ(outcomeOfRaw(sendRaw(service.baseURL(),
                                   put(headers + "Content-Type: application/json\r\n",
                                       body + "Authorization: JWT x\r\nContent-Encoding: gzip\r\n"
                                              "Content-Type: text/plain\r\n\r\n"))),
              "204");
}

TEST_F(FramingTest, aClientOfHTTP10IsNotMadeToWaitForContinue) {
    const std::string answer =
        sendRaw(service.baseURL(), put(credentials() + "Content-Type: application/json\r\n"
                                                       "Expect: 100-continue\r\n"
                                                       "Content-Length: 2\r\n",
                                       "{}", "1.0"));
    EXPECT_EQ(outcomeOfRaw(answer), "204") << answer;
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
