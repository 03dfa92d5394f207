// A request that changes something reaches the service at most once, whatever happens to its
// connection.

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "support/Certificates.hpp"
#include "support/HTTP2Connection.hpp"
#include "support/Rounds.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

constexpr std::array changing{"POST", "PUT", "PATCH", "DELETE"};

TransportRequest change(const std::string& url, const std::string& method) {
    auto request = requestTo(url, method);
    if (method != "DELETE") request.body = bodyOf("change");
    return request;
}

/// Over HTTP/1.1: answers a read, so that the connection is kept, and ends it after the change that
/// follows was read.
RawServer::Script endingAfterTheChange(void (*end)(RawConnection&)) {
    return [end](RawConnection& connection) {
        if (!connection.readRequest() || !connection.send(httpReply(200, "read"))) return;
        if (connection.readRequest()) end(connection);
    };
}

struct Ending {
    const char* name;
    void (*end)(RawConnection&);
};

constexpr std::array endings{

    Ending{"closes", [](RawConnection&) {}},
    Ending{"resets", [](RawConnection& connection) { connection.resetOnClose(); }},
    Ending{"closes in the status line",
           [](RawConnection& connection) { connection.send("HTTP/1."); }},
    Ending{"closes after 100",
           [](RawConnection& connection) { connection.send("HTTP/1.1 100 C\r\n\r\n"); }},
};

class AtMostOnce : public testing::TestWithParam<Ending> {};

TEST_P(AtMostOnce, AChangeIsSentOnceAndEndsWithOneError) {
    const std::size_t rounds = roundsOf(25);
    for (const char* const method : changing) {
        const RawServer server(endingAfterTheChange(GetParam().end));
        const auto transport = curlTransport();
        for (std::size_t round = 0; round < rounds; ++round) {
            ASSERT_THAT(sent(requestTo(server.url()), transport), Answers(200, "read"));
            ASSERT_THAT(sent(change(server.url("/change"), method), transport),
                        FailsWith(SlingErrorKind::connectionLost))
                << method;
        }
        EXPECT_EQ(server.requests().size(), 2 * rounds) << method;
    }
}

INSTANTIATE_TEST_SUITE_P(Endings, AtMostOnce, testing::ValuesIn(endings), [](const auto& tested) {
    std::string name = tested.param.name;
    std::ranges::replace(name, ' ', '_');
    return name;
});

// Over HTTP/2 a server may say of a stream, or of the connection, that it has not worked on a
// request; libcurl would then send it again.

constexpr std::uint8_t resetStream = 3;
constexpr std::uint8_t goAway = 7;

enum ErrorCode : std::uint32_t { noError = 0, internalError = 2, refusedStream = 7, http11 = 13 };

struct Refusal {
    const char* name;
    /// The frames that answer a change on this stream.
    std::string (*frames)(std::uint32_t stream);
};

std::string resetWith(std::uint32_t stream, ErrorCode code) {
    return HTTP2Connection::frame(resetStream, 0, stream, HTTP2Connection::number(code));
}

std::string goAwayAfter(std::uint32_t lastStream, ErrorCode code) {
    return HTTP2Connection::frame(
        goAway, 0, 0, HTTP2Connection::number(lastStream) + HTTP2Connection::number(code));
}

constexpr std::array refusals{

    Refusal{"RST_STREAM_REFUSED_STREAM",
            [](std::uint32_t id) { return resetWith(id, refusedStream); }},
    Refusal{"RST_STREAM_INTERNAL_ERROR",
            [](std::uint32_t id) { return resetWith(id, internalError); }},
    Refusal{"RST_STREAM_HTTP_1_1_REQUIRED", [](std::uint32_t id) { return resetWith(id, http11); }},
    Refusal{"GOAWAY_before_it", [](std::uint32_t) { return goAwayAfter(0, noError); }},
    Refusal{"GOAWAY_at_it", [](std::uint32_t id) { return goAwayAfter(id, noError); }},
    Refusal{"GOAWAY_with_an_error", [](std::uint32_t) { return goAwayAfter(0, internalError); }},
    Refusal{"nothing", [](std::uint32_t) { return std::string(); }},
};

class AtMostOnceOverHTTP2 : public testing::TestWithParam<Refusal> {
  protected:
    void serve(RawConnection& raw) {
        HTTP2Connection connection(raw);
        const auto read = connection.readRequest();
        if (!read) return;
        connection.sendHead(*read, 4);
        connection.send(HTTP2Connection::data(*read, "read", HTTP2Connection::Ends::yes));
        if (const auto stream = connection.readRequest()) {
            changes.add();
            connection.send(GetParam().frames(*stream));
        }
        // One that came again on the same connection is counted, too.
        if (std::string(GetParam().name) != "nothing")
            while (connection.readRequest())
                changes.add();
    }

    Tally changes;
    Certificate certificate;
    RawServer server{[this](RawConnection& raw) { serve(raw); },
                     ServerTLS{.certificateFile = certificate.certificateFile(),
                               .keyFile = certificate.keyFile(),
                               .protocol = "h2"}};
};

TEST_P(AtMostOnceOverHTTP2, AChangeIsSentOnceAndEndsWithOneError) {
    const std::size_t rounds = roundsOf(5);
    for (const char* const method : changing)
        for (std::size_t round = 0; round < rounds; ++round) {
            const std::size_t before = changes.count();
            const auto transport = curlTransport({.caBundleFile = certificate.certificateFile()});
            ASSERT_THAT(sent(requestTo(server.url()), transport), Answers(200, "read"));
            Responses refused = sent(change(server.url("/change"), method), transport);
            if (std::string(GetParam().name) == "GOAWAY_at_it") {
                // The server still works on it.
                ASSERT_TRUE(changes.reaches(before + 1));
                refused.unsubscribe();
            } else {
                ASSERT_THAT(refused, FailsWith(SlingErrorKind::connectionLost)) << method;
            }
            EXPECT_EQ(changes.count(), before + 1) << method;
        }
}

INSTANTIATE_TEST_SUITE_P(Refusals, AtMostOnceOverHTTP2, testing::ValuesIn(refusals),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
