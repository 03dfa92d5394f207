// HTTP itself: paths, methods, sizes, connections.
#include <chrono>
#include <string>

#include <boost/asio.hpp>
#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

class HttpTest : public testing::Test {
  protected:
    TestService service;
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
};

TEST_F(HttpTest, anUnknownPathIsNotFound) {
    for (const char* path : {"/", "/v1", "/v1/history/", "/v1/histories", "/v2/history?v=1",
                             "/V1/history?v=1", "//v1/history?v=1", "/v1/history/video/x?v=1"}) {
        EXPECT_EQ(outcomeOf(client.call(parent, "GET", path)), "404 unknown-path") << path;
    }
}

TEST_F(HttpTest, anUnknownPathIsToldWhichThereAre) {
    const std::string detail = detailOf(client.http.send("GET", "/v1/histories"));
    EXPECT_TRUE(detail.starts_with("the service has no path '/v1/histories'; expected is one of "));
    for (const Route& route : routes())
        EXPECT_NE(detail.find(route.path), std::string::npos) << route.path;
}

TEST_F(HttpTest, aProblemNamesThePathWithoutTheQuery) {
    const auto reply = client.http.send("GET", "/v1/nothing?video=private");
    EXPECT_EQ(reply.json().at("instance").as_string(), "/v1/nothing");
    EXPECT_EQ(reply.body.find("private"), std::string::npos);
}

TEST_F(HttpTest, aMethodThatAPathDoesNotHaveIsRefusedWithThoseItHas) {
    const auto allowed = [this](const std::string& method, const std::string& target) {
        const auto reply = client.http.send(method, target);
        EXPECT_EQ(outcomeOf(reply), "405 method-not-allowed") << method << " " << target;
        return reply.headers.at("allow");
    };
    EXPECT_EQ(allowed("POST", "/v1/history?v=1"), "GET, HEAD, DELETE, OPTIONS");
    EXPECT_EQ(allowed("GET", "/v1/profile?v=1"), "PUT, DELETE, OPTIONS");
    EXPECT_EQ(allowed("BREW", "/v1/binds?v=1"), "POST, OPTIONS");
    EXPECT_EQ(allowed("POST", "/healthz"), "GET, HEAD, OPTIONS");
}

TEST_F(HttpTest, optionsTellTheMethodsOfAPathAndOfTheService) {
    const auto options = [this](const std::string& target) {
        const auto reply = client.http.send("OPTIONS", target);
        EXPECT_EQ(outcomeOf(reply), "204") << target;
        EXPECT_EQ(reply.headers.count("content-length"), 0U);
        return reply.headers.at("allow");
    };
    EXPECT_EQ(options("/v1/history/video?v=1"), "GET, HEAD, PUT, DELETE, OPTIONS");
    EXPECT_EQ(options("/healthz"), "GET, HEAD, OPTIONS");
    EXPECT_EQ(options("*"), "GET, HEAD, POST, PUT, DELETE, OPTIONS");
    EXPECT_EQ(outcomeOf(client.http.send("OPTIONS", "/v1/histories")), "404 unknown-path");
    EXPECT_EQ(outcomeOf(client.http.send("GET", "*")), "404 unknown-path");
}

TEST_F(HttpTest, everyPathOfTheTableRefusesAMethodOfNoRoute) {
    for (const Route& route : routes()) {
        EXPECT_EQ(outcomeOf(client.http.send("PATCH", std::string(route.path))),
                  "405 method-not-allowed")
            << route.path;
    }
}

TEST_F(HttpTest, aHeadRequestIsAnsweredLikeAGetButWithoutItsBody) {
    for (const char* target : {"/v1/history?brand=b&profile=parent&v=1", "/v1/history?v=1",
                               "/healthz", "/v1/nothing", "/v1/binds"}) {
        auto get = client.call(parent, "GET", target);
        auto head = client.call(parent, "HEAD", target);
        EXPECT_NE(head.headers["x-request-id"], get.headers["x-request-id"]) << target;
        for (HttpReply* const each : {&get, &head})
            each->headers.erase("x-request-id");
        EXPECT_EQ(head.status, get.status) << target;
        EXPECT_EQ(head.headers, get.headers) << target;
        EXPECT_EQ(head.body, "") << target;
    }
    EXPECT_EQ(client.call(parent, "HEAD", "/v1/history?brand=b&profile=parent&v=1").status, 200);
    EXPECT_EQ(client.http.connectionCount(), 1) << "the next reply began where it should";
}

TEST_F(HttpTest, theTargetMayNameTheService) {
    const auto outcome = [this](const std::string& line, const std::string& headers) {
        return outcomeOfRaw(sendRaw(
            service.baseURL(), line + " HTTP/1.1\r\nConnection: close\r\n" + headers + "\r\n"));
    };
    const std::string host = "Host: x\r\n";
    for (const char* const target :
         {"http://127.0.0.1:8480/healthz", "HTTP://elsewhere.example/healthz",
          "https://[::1]:1/healthz?a"}) {
        EXPECT_EQ(outcome(std::string("GET ") + target, host), "200") << target;
        EXPECT_EQ(outcome(std::string("GET ") + target, ""), "400 malformed-request") << target;
    }
    EXPECT_EQ(outcome("GET http://x/v1/history?v=1", host), "400 missing-parameter");
    EXPECT_EQ(outcome("GET http://x", host), "404 unknown-path");
    EXPECT_EQ(outcome("GET http://x?/healthz", host), "404 unknown-path");
    EXPECT_EQ(outcome("GET ftp://x/healthz", host), "404 unknown-path");
    EXPECT_EQ(outcome("GET http://me@x/healthz", host), "400 malformed-request");
    EXPECT_EQ(outcome("GET http:///healthz", host), "400 malformed-request");
}

TEST_F(HttpTest, whatIsNoHostIsRefused) {
    for (const char* const host :
         {"a b", "a/b", "me@x", "x\xC3\xA9", "<x>", "a,b\"", "http://x/"}) {
        EXPECT_EQ(
            outcomeOfRaw(sendRaw(service.baseURL(), std::string("GET /healthz HTTP/1.1\r\nHost: ") +
                                                        host + "\r\n\r\n")),
            "400 malformed-request")
            << host;
    }
    for (const char* const host : {"", "x", "x:80", "[::1]:80", "a-b.c_d", "%41"}) {
        EXPECT_EQ(outcomeOfRaw(
                      sendRaw(service.baseURL(),
                              std::string("GET /healthz HTTP/1.1\r\nConnection: close\r\nHost: ") +
                                  host + "\r\n\r\n")),
                  "200")
            << host;
    }
}

TEST_F(HttpTest, healthNeedsNoCredentials) {
    const auto reply = client.http.send("GET", "/healthz");
    EXPECT_EQ(reply.body, R"({"status":"ok"})");
}

TEST_F(HttpTest, aConnectionIsKeptForManyRequestsAlsoAfterRefusals) {
    HttpClient http(service.baseURL());
    for (int round = 0; round < 3; ++round) {
        http.send("GET", "/v1/profiles?profile=parent&v=1", parent.headers());
        http.send("GET", "/v1/profiles?profile=parent&v=1");
        http.send("DELETE", "/v1/history?brand=b&profile=parent&v=1", parent.headers());
        http.send("GET", "/nowhere");
    }
    EXPECT_EQ(http.connectionCount(), 1);
}

TEST_F(HttpTest, aBodyOfMoreThanOneMebibyteIsTooLarge) {
    const std::string target = "/v1/favorites/shows?brand=b&profile=parent&v=1";
    const std::string start = R"({"elements":[{"id":"a"})";
    const auto padded = [&](std::size_t size) {
        return start + std::string(size - start.size() - 2, ' ') + "]}";
    };
    EXPECT_EQ(outcomeOf(client.call(parent, "POST", target, padded(1024 * 1024))), "204");
    EXPECT_EQ(outcomeOf(client.call(parent, "POST", target, padded(1024 * 1024 + 1))),
              "413 body-too-large");
    EXPECT_EQ(outcomeOf(client.call(parent, "POST", target, padded(8 * 1024 * 1024))),
              "413 body-too-large");
}

TEST_F(HttpTest, aClientMayFinishSendingATooLargeBody) {
    namespace asio = boost::asio;
    asio::io_context context;
    asio::ip::tcp::socket socket(context);
    socket.connect({asio::ip::address_v4::loopback(), portIn(service.baseURL())});
    asio::write(socket, asio::buffer(std::string("POST /v1/binds HTTP/1.1\r\nHost: x\r\n"
                                                 "Content-Length: 2000000\r\n\r\n")));
    std::string answer;
    asio::read_until(socket, asio::dynamic_buffer(answer), "\r\n\r\n");
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 413 ")) << answer;
    boost::system::error_code error;
    asio::write(socket, asio::buffer(std::string(2'000'000, ' ')), error);
    EXPECT_FALSE(error) << error.message();
    socket.shutdown(asio::ip::tcp::socket::shutdown_send);
    asio::read(socket, asio::dynamic_buffer(answer), error);
    EXPECT_EQ(error, asio::error::eof) << error.message();
}

TEST_F(HttpTest, aTooLargeBodyInChunksIsRefusedToo) {
    std::string request =
        "POST /v1/favorites/shows?brand=b&profile=parent&v=1 HTTP/1.1\r\n"
        "Host: x\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (int chunk = 0; chunk < 20; ++chunk)
        request += "10000\r\n" + std::string(0x10000, ' ') + "\r\n";
    EXPECT_TRUE(sendRaw(service.baseURL(), request + "0\r\n\r\n").starts_with("HTTP/1.1 413 "));
}

TEST_F(HttpTest, headersOfMoreThan64KibibytesAreTooLarge) {
    auto headers = parent.headers();
    headers.emplace_back("X-Padding", std::string(60 * 1024, 'x'));
    EXPECT_EQ(outcomeOf(client.http.send("GET", "/v1/profiles?profile=parent&v=1", headers)),
              "200");
    headers.back().second = std::string(65 * 1024, 'x');
    EXPECT_EQ(outcomeOf(client.http.send("GET", "/v1/profiles?profile=parent&v=1", headers)),
              "431 headers-too-large");
}

TEST_F(HttpTest, aClientThatWaitsForContinueIsLetGoOn) {
    auto headers = parent.headers();
    headers.emplace_back("Content-Type", "application/json");
    headers.emplace_back("Expect", "100-continue");
    EXPECT_EQ(
        outcomeOf(client.http.send("PUT", "/v1/history/video?video=v&brand=b&profile=parent&v=1",
                                   headers, R"({"progress":"1"})")),
        "204");
}

TEST_F(HttpTest, whatIsNotHTTPIsAnsweredAndDisconnected) {
    for (const char* bytes : {"hello\r\n\r\n", "GET\r\n\r\n", "GET /healthz HTTP/9.9\r\n\r\n",
                              "GET /healthz HTTP/1.1\r\nno colon\r\n\r\n",
                              "POST /v1/binds HTTP/1.1\r\nContent-Length: x\r\n\r\n"}) {
        const std::string answer = sendRaw(service.baseURL(), bytes);
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 400 ")) << bytes << answer;
        EXPECT_NE(answer.find("urn:kestrin-profile:problem:malformed-request"), std::string::npos);
    }
    EXPECT_EQ(outcomeOf(client.http.send("GET", "/healthz")), "200");
}

TEST_F(HttpTest, whoSpeaksTLSIsToldThatTheServiceDoesNot) {
    const std::string answer = sendRaw(service.baseURL(), "\x16\x03\x01 a greeting of TLS");
    EXPECT_NE(answer.find("; expected is HTTP/1.1 in clear text"), std::string::npos) << answer;
}

TEST_F(HttpTest, aTransferCodingThatIsNotUnderstoodEndsTheConnection) {
    for (const std::string coding : {"gzip", "gzip, chunked", "chunked, gzip"}) {
        const std::string answer =
            sendRaw(service.baseURL(),
                    "PUT /v1/watchlist/video?video=v&brand=b&profile=parent&v=1 HTTP/1.1"
                    "\r\nHost: x\r\nTransfer-Encoding: " +
                        coding + "\r\n\r\nGET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 400 ")) << coding << answer;
        EXPECT_NE(
            answer.find("the Transfer-Encoding is '" + coding + "'; expected is chunked or none"),
            std::string::npos)
            << answer;
        EXPECT_EQ(answer.find("\"ok\""), std::string::npos) << "the body was taken for a request";
    }
}

TEST_F(HttpTest, aReplyWithoutContentHasNoLength) {
    const auto reply = client.call(parent, "DELETE", "/v1/history?brand=b&profile=parent&v=1");
    EXPECT_EQ(outcomeOf(reply), "204");
    EXPECT_EQ(reply.headers.count("content-length"), 0U);
}

TEST_F(HttpTest, requestsSentTogetherAreAnsweredInTheirOrder) {
    const std::string answer =
        sendRaw(service.baseURL(),
                "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\nGET /a HTTP/1.1\r\nHost: x\r\n\r\n"
                "GET /b HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    const auto healthy = answer.find("\"ok\"");
    const auto first = answer.find("'/a'");
    const auto second = answer.find("'/b'");
    ASSERT_NE(second, std::string::npos) << answer;
    EXPECT_LT(healthy, first);
    EXPECT_LT(first, second);
}

TEST_F(HttpTest, aClientThatTakesTooLongIsDisconnected) {
    service.restart([](ServiceSettings& settings) {
        settings.http.transferTimeout = std::chrono::milliseconds(100);
    });
    for (const char* begun : {"", "GET /healthz HTTP/1.1\r\n",
                              "POST /v1/binds HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\n\r\n{"}) {
        EXPECT_EQ(sendRaw(service.baseURL(), begun), "") << begun;
    }
}

TEST_F(HttpTest, theServiceStopsAlthoughAConnectionIsOpen) {
    HttpClient idle(service.baseURL());
    idle.send("GET", "/healthz");
    service.restart();
    EXPECT_EQ(outcomeOf(HttpClient(service.baseURL()).send("GET", "/healthz")), "200");
}

TEST_F(HttpTest, aFailureInsideIsAnsweredAndSurvived) {
    Connection(service.database(), Connection::Mode::readWrite)
        .database()
        .exec("ALTER TABLE entries RENAME TO gone");
    for (const char* method : {"GET", "DELETE"}) {
        EXPECT_EQ(outcomeOf(client.call(parent, method, "/v1/history?brand=b&profile=parent&v=1")),
                  "500 internal");
    }
    EXPECT_EQ(outcomeOf(client.call(parent, "GET", "/v1/profiles?profile=parent&v=1")), "200");
    EXPECT_EQ(outcomeOf(client.call(parent, "PUT", "/v1/profile?target=parent&v=1",
                                    R"({"username":"Still here"})")),
              "200");
}

TEST_F(HttpTest, anAddressThatIsInUseIsAClearError) {
    ServiceSettings settings;
    TestSupport::TemporaryDirectory folder;
    settings.database = folder / "other.sqlite";
    settings.http.port = portIn(service.baseURL());
    try {
        const Service second(settings);
        FAIL() << "it started";
    } catch (const StartError& error) {
        EXPECT_EQ(std::string(error.what()),
                  "cannot listen on 127.0.0.1:" + std::to_string(settings.http.port) +
                      ": Address already in use. Choose another --host or --port; --port 0 takes a"
                      " free one.");
    }
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
