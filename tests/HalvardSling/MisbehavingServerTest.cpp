#include <array>
#include <chrono>
#include <cstdio>
#include <future>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "Gzip.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Reads one request, sends these bytes and closes.
RawServer::Script sending(std::string bytes) {
    return [bytes = std::move(bytes)](RawConnection& connection) {
        if (connection.readRequest()) connection.send(bytes);
    };
}

/// Reads one request, sends a beginning and then the same bytes until the client closes.
RawServer::Script sendingEndlessly(const std::string& beginning, const std::string& bytes) {
    return [=](RawConnection& connection) {
        if (!connection.readRequest() || !connection.send(beginning)) return;
        while (connection.send(bytes)) {
        }
    };
}

Responses answerOf(const RawServer& server) {
    return sent(requestTo(server.url()), curlTransport());
}

TEST(MisbehavingServer, NobodyListens) {
    std::string url;
    {
        const RawServer gone(sending(""));
        url = gone.url();
    }
    EXPECT_THAT(sent(requestTo(url), curlTransport()), FailsWith(SlingErrorKind::cannotConnect));
}

TEST(MisbehavingServer, TheNameDoesNotExist) {
    EXPECT_THAT(sent(requestTo("http://name.invalid/"), curlTransport()),
                FailsWith(SlingErrorKind::nameNotResolved));
}

TEST(MisbehavingServer, AFailureLeavesTheTransportUsable) {
    const RawServer server(RawServer::answering(httpReply(200, "fine")));
    const auto transport = curlTransport();
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(sent(requestTo("http://name.invalid/"), transport),
                    FailsWith(SlingErrorKind::nameNotResolved));
        EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "fine"));
    }
}

/// A port whose queue of connections is full, so that connecting to it hangs.
class FullPort {
  public:
    FullPort() {
        socklen_t size = sizeof address_;
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(listener_, any(), size), 0);
        EXPECT_EQ(::listen(listener_, 0), 0);
        EXPECT_EQ(::getsockname(listener_, any(), &size), 0);
        for (int& socket : waiting_) {
            socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            ::connect(socket, any(), size);
        }
    }
    FullPort(const FullPort&) = delete;
    FullPort(FullPort&&) = delete;
    FullPort& operator=(const FullPort&) = delete;
    FullPort& operator=(FullPort&&) = delete;
    ~FullPort() {
        for (const int socket : waiting_)
            ::close(socket);
        ::close(listener_);
    }

    [[nodiscard]] std::string url() const {
        return "http://127.0.0.1:" + std::to_string(ntohs(address_.sin_port)) + "/";
    }

  private:
    sockaddr* any() { return reinterpret_cast<sockaddr*>(&address_); }

    int listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address_{};
    std::array<int, 4> waiting_{};
};

TEST(MisbehavingServer, ConnectingTakesTooLong) {
    const FullPort port;
    auto request = requestTo(port.url());
    request.policy.connectTimeout = 150ms;
    EXPECT_THAT(sent(request, curlTransport()), FailsWith(SlingErrorKind::connectTimeout));
}

TEST(MisbehavingServer, TheTotalTimeIsUpWhileConnecting) {
    const FullPort port;
    auto request = requestTo(port.url());
    request.policy.totalTimeout = 150ms;
    EXPECT_THAT(sent(request, curlTransport()), FailsWith(SlingErrorKind::totalTimeout));
}

TEST(MisbehavingServer, ItNeverAnswers) {
    const RawServer server([](RawConnection& connection) {
        connection.readRequest();
        connection.awaitClose();
    });
    auto request = requestTo(server.url());
    request.policy.totalTimeout = 200ms;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(sent(request, curlTransport()), FailsWith(SlingErrorKind::totalTimeout));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms);
    EXPECT_TRUE(server.awaitClosed(1));
}

TEST(MisbehavingServer, ItTricklesOneByteAtATime) {
    for (const char* const beginning :
         {"", "HTTP/1.1 200 OK\r\nX: ", "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n"}) {
        const RawServer server([&](RawConnection& connection) {
            connection.readRequest();
            connection.send(beginning);
            connection.trickle(beginning[0] == 0 ? 'H' : 'x');
        });
        auto request = requestTo(server.url());
        request.policy.totalTimeout = 200ms;
        const auto failure = failureOf(sent(request, curlTransport()));
        // A line of one letter after the other may also be found to be no HTTP at once.
        if (beginning[0] == 0 && failure == SlingErrorKind::malformedReply) continue;
        EXPECT_EQ(failure, SlingErrorKind::totalTimeout) << beginning;
    }
}

TEST(MisbehavingServer, ItClosesInTheMiddle) {
    for (const char* const reply :
         {"", "HTTP/1.1 200", "HTTP/1.1 200 OK\r\nX-Part: 1",
          "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n",
          "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhal"}) {
        const RawServer server(sending(reply));
        EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::connectionLost)) << reply;
    }
}

TEST(MisbehavingServer, ItResetsTheConnection) {
    for (const char* const reply : {"", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf"}) {
        const RawServer server([&](RawConnection& connection) {
            connection.readRequest();
            connection.send(reply);
            connection.resetOnClose();
        });
        EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::connectionLost)) << reply;
    }
}

TEST(MisbehavingServer, ItDoesNotSpeakHTTP) {
    for (const char* const reply :
         {"SSH-2.0-OpenSSH_9\r\n\r\n", "<html>HTTP/0.9 has no head</html>",
          "HTTP/9.9 200 OK\r\n\r\n", "HTTP/1.1 abc\r\n\r\n", "\r\n\r\n\r\n"}) {
        const RawServer server(sending(reply));
        EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::malformedReply)) << reply;
    }
}

TEST(MisbehavingServer, ItsGzipIsBroken) {
    const std::string good = gzipped("some text that is long enough");
    for (const std::string& body :
         {std::string("no gzip at all"), good.substr(0, 10) + "\xFF\xFF\xFF\xFF",
          good.substr(0, good.size() - 8) + "12345678"}) {
        const RawServer server(sending(httpReply(200, body, "Content-Encoding: gzip\r\n")));
        EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::malformedReply));
    }
}

TEST(MisbehavingServer, ItSendsMoreBehindTheEndOfItsGzip) {
    const std::string good = gzipped("text");
    const auto chunk = [](const std::string& data) {
        std::array<char, 16> size{};
        std::snprintf(size.data(), size.size(), "%zx\r\n", data.size());
        return size.data() + data + "\r\n";
    };
    const std::string head =
        "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const std::string& body : {chunk(good) + chunk("more"), chunk(good + "more")}) {
        const RawServer server(sending(head + body + "0\r\n\r\n"));
        EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::malformedReply));
    }
    const RawServer server(sending(head + chunk(good) + "0\r\n\r\n"));
    EXPECT_THAT(answerOf(server), Answers(200, "text"));
}

TEST(MisbehavingServer, ItsChunksAreBroken) {
    const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const std::string& body :
         {std::string("not a size\r\nxx\r\n0\r\n\r\n"), std::string("2\r\nxxx\r\n0\r\n\r\n"),
          std::string("FFFFFFFFFFFFFFFFFFFF\r\nxx\r\n0\r\n\r\n")}) {
        const RawServer server(sending(head + body));
        EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::connectionLost))
            << body.substr(0, 30);
    }
}

TEST(MisbehavingServer, ItsTrailerIsTooLong) {
    const RawServer server(
        sending("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nX-Trailer: " +
                std::string(100'000, 'x')));
    // Older versions of libcurl do not say what was the matter.
    EXPECT_THAT(answerOf(server), testing::AnyOf(FailsWith(SlingErrorKind::tooLarge),
                                                 FailsWith(SlingErrorKind::connectionLost)));
}

TEST(MisbehavingServer, ItsBodyIsLargerThanAllowed) {
    auto request = requestTo("");
    request.policy.maxBodyBytes = 1000;
    const auto outcome = [&](const std::string& reply) {
        const RawServer server(sending(reply));
        request.url = server.url();
        const Responses responses = sent(request, curlTransport());
        EXPECT_TRUE(responses.ended());
        return responses;
    };
    EXPECT_THAT(outcome(httpReply(200, std::string(1000, 'x'))),
                Answers(200, std::string(1000, 'x')));
    EXPECT_THAT(outcome(httpReply(200, std::string(1001, 'x'))),
                FailsWith(SlingErrorKind::tooLarge));
    EXPECT_THAT(outcome(httpReply(404, std::string(1001, 'x'))),
                FailsWith(SlingErrorKind::httpStatus));
}

TEST(MisbehavingServer, ItsBodyNeverEnds) {
    for (const char* const framing :
         {"Connection: close\r\n\r\n", "Transfer-Encoding: chunked\r\n\r\n"}) {
        const bool chunked = framing[0] == 'T';
        const RawServer server(sendingEndlessly(
            "HTTP/1.1 200 OK\r\n" + std::string(framing),
            (chunked ? "1000\r\n" : "") + std::string(0x1000, 'x') + (chunked ? "\r\n" : "")));
        EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::tooLarge));
    }
}

TEST(MisbehavingServer, ItSendsAGzipBomb) {
    const RawServer server(
        sending(httpReply(200, gzipBomb(40'000'000), "Content-Encoding: gzip\r\n")));
    EXPECT_LT(gzipBomb(40'000'000).size(), 300'000U);
    EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::tooLarge));
}

TEST(MisbehavingServer, ItsHeadersAreLargerThanAllowed) {
    auto request = requestTo("");
    const auto outcome = [&](std::size_t headBytes) {
        const std::string start = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nX: ";
        const RawServer server(
            sending(start + std::string(headBytes - start.size() - 4, 'x') + "\r\n\r\n"));
        request.url = server.url();
        request.policy.maxHeaderBytes = 2000;
        const Responses responses = sent(request, curlTransport());
        EXPECT_TRUE(responses.ended());
        return responses;
    };
    EXPECT_THAT(outcome(2000), Answers(200, ""));
    EXPECT_THAT(outcome(2001), FailsWith(SlingErrorKind::tooLarge));
}

TEST(MisbehavingServer, ItsHeadNeverEnds) {
    const std::string line = "X-Line: " + std::string(1000, 'x') + "\r\n";
    for (const auto& [beginning, rest] : std::vector<std::pair<std::string, std::string>>{
             {"HTTP/1.1 200 OK\r\n", line},
             {"HTTP/1.1 200 OK\r\nX-Endless: ", std::string(1000, 'x')},
             {"HTTP/1.1 ", std::string(1000, '2')},
             {"", "HTTP/1.1 102 Processing\r\n\r\n"},
             {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n", line}}) {
        const RawServer server(sendingEndlessly(beginning, rest));
        EXPECT_THAT(answerOf(server), FailsWith(SlingErrorKind::tooLarge)) << beginning;
    }
}

/// Answers the first request of every connection. The first connection is closed when its second
/// request has arrived, without a byte of a reply.
RawServer::Script answeringOnlyTheFirst() {
    return [](RawConnection& connection) {
        if (!connection.readRequest() || !connection.send(httpReply(200, "first"))) return;
        if (connection.index() > 0)
            return RawServer::answering(httpReply(200, "later"))(connection);
        connection.readRequest();
    };
}

TEST(MisbehavingServer, AChangeIsNeverSentTwice) {
    for (const char* const method : {"POST", "PATCH", "post", "put"})
        for (const char* const body : {"", "change"}) {
            const RawServer server(answeringOnlyTheFirst());
            const auto transport = curlTransport();
            ASSERT_THAT(sent(requestTo(server.url()), transport), Answers(200, "first"));
            auto change = requestTo(server.url("/change"), method);
            change.body = bodyOf(body);
            EXPECT_THAT(sent(change, transport), FailsWith(SlingErrorKind::connectionLost));
            EXPECT_EQ(server.requests().size(), 2U) << method;
        }
}

TEST(MisbehavingServer, AReadIsSentAgainWhenAKeptConnectionCloses) {
    const RawServer server(answeringOnlyTheFirst());
    const auto transport = curlTransport();
    ASSERT_THAT(sent(requestTo(server.url()), transport), Answers(200, "first"));
    EXPECT_THAT(sent(requestTo(server.url()), transport), Answers(200, "first"));
    EXPECT_EQ(server.requests().size(), 3U);
}

TEST(MisbehavingServer, AConnectionThatWasClosedWhileIdleIsNotUsed) {
    Tally closed;
    const RawServer server([&](RawConnection& connection) {
        if (connection.readRequest()) connection.send(httpReply(200, "x"));
        connection.close();
        closed.add();
    });
    const auto transport = curlTransport();
    ASSERT_THAT(sent(requestTo(server.url()), transport), Answers(200, "x"));
    ASSERT_TRUE(closed.reaches(1));
    EXPECT_THAT(sent(requestTo(server.url(), "POST"), transport), Answers(200, "x"));
    EXPECT_EQ(server.connections(), 2U);
}

TEST(MisbehavingServer, ErrorsTellNoSecrets) {
    const RawServer server(
        sending("HTTP/1.1 200 OK\r\nSet-Cookie: reply-secret\r\nContent-Length: 9\r\n\r\n"));
    auto request = requestTo(server.url("/path-secret?query-secret"));
    request.headers = {{"Authorization", "header-secret"}};
    request.pathTemplate = "/{id}";
    const auto error = sent(request, curlTransport()).error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), testing::AllOf(HasSubstr("GET /{id}, request "),
                                              HasSubstr(std::to_string(server.port()))));
    EXPECT_THAT(error->what(), Not(HasSubstr("secret")));
}

}  // namespace
