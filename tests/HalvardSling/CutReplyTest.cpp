// Replies that end before they are whole, in every framing: none of them is taken for a reply.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "Gzip.hpp"
#include "support/Certificates.hpp"
#include "support/HTTP2Connection.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

/// How a connection ends.
enum class End { inOrder, withoutNotice, reset };

constexpr std::array ends{End::inOrder, End::withoutNotice, End::reset};

void end(RawConnection& connection, End how) {
    if (how == End::inOrder) connection.sendCloseNotify();
    if (how == End::reset) connection.resetOnClose();
}

std::string nameOf(End end) {
    return std::array{"in order", "without notice", "reset"}.at(static_cast<std::size_t>(end));
}

std::string inHex(std::size_t number) {
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

std::size_t numberIn(const std::string& request) {
    return std::stoul(request.substr(request.find('/') + 1));
}

/// HTTP/1.1, in cleartext and over TLS.
class CutReply : public testing::TestWithParam<bool> {
  protected:
    [[nodiscard]] bool isSecure() const { return GetParam(); }

    [[nodiscard]] std::optional<ServerTLS> tls() const {
        if (!isSecure()) return std::nullopt;
        return ServerTLS{.certificateFile = certificate.certificateFile(),
                         .keyFile = certificate.keyFile()};
    }

    /// Expects `connectionLost` wherever the reply is cut.
    /// @param needed  so many of its bytes it cannot do without
    void expectLost(const std::string& reply, std::size_t needed) {
        for (const End how : ends) {
            const RawServer server(
                [&](RawConnection& connection) {
                    const auto request = connection.readRequest();
                    if (!request) return;
                    connection.send(reply.substr(0, numberIn(*request)));
                    end(connection, how);
                },
                tls());
            for (std::size_t size = 0; size < needed; ++size)
                EXPECT_THAT(sent(requestTo(server.url("/" + std::to_string(size))), transport),
                            FailsWith(SlingErrorKind::connectionLost))
                    << nameOf(how) << " after " << size << " of " << reply;
        }
    }

    /// What comes of a reply that the connection's end follows.
    [[nodiscard]] Responses outcome(const std::string& reply, End how) {
        const RawServer server(
            [&](RawConnection& connection) {
                if (!connection.readRequest()) return;
                connection.send(reply);
                end(connection, how);
            },
            tls());
        auto responses = sent(requestTo(server.url()), transport);
        EXPECT_TRUE(responses.ended());
        return responses;
    }

    Certificate certificate;
    std::shared_ptr<CurlTransport> transport =
        curlTransport({.caBundleFile = certificate.certificateFile()});
};

TEST_P(CutReply, WithALengthIsLostWhereverItIsCut) {
    const auto reply = httpReply(200, "twelve bytes");
    expectLost(reply, reply.size());
}

TEST_P(CutReply, InChunksIsLostWhereverItIsCut) {
    const std::string reply =
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nfour\r\n2;x=y\r\nab\r\n"
        "0\r\nTrailer: t\r\n\r\n";
    expectLost(reply, reply.size() - 1);  // the last line feed says nothing more
}

TEST_P(CutReply, InGzipIsLostWhereverItIsCut) {
    const auto reply = httpReply(200, gzipped("twelve bytes"), "Content-Encoding: gzip\r\n");
    expectLost(reply, reply.size());
}

TEST_P(CutReply, OfGzipThatIsCutInsideAWholeMessageIsLost) {
    const std::string body = gzipped("twelve bytes");
    const std::vector<std::function<std::string(const std::string&)>> framings{
        [](const std::string& part) { return httpReply(200, part, "Content-Encoding: gzip\r\n"); },
        [](const std::string& part) {
            return "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nTransfer-Encoding: "
                   "chunked\r\n\r\n" +
                   inHex(part.size()) + "\r\n" + part + "\r\n0\r\n\r\n";
        },
        [](const std::string& part) {
            return "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Encoding: gzip\r\n\r\n" + part;
        }};
    for (const auto& framed : framings)
        for (std::size_t size = 1; size < body.size(); ++size)
            EXPECT_THAT(outcome(framed(body.substr(0, size)), End::inOrder),
                        FailsWith(SlingErrorKind::connectionLost))
                << size;
}

TEST_P(CutReply, OfGzipThatIsWholeIsOneHoweverTheConnectionEnds) {
    for (const End how : {End::inOrder, End::withoutNotice})
        EXPECT_THAT(
            outcome("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\n" + gzipped("twelve bytes"),
                    how),
            Answers(200, "twelve bytes"));
}

TEST_P(CutReply, OfGzipThatIsWholeIsNoneIfMoreWasAnnounced) {
    const auto body = gzipped("twelve bytes");
    for (const End how : ends)
        EXPECT_THAT(outcome("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: " +
                                std::to_string(body.size() + 1) + "\r\n\r\n" + body,
                            how),
                    FailsWith(SlingErrorKind::connectionLost));
}

TEST_P(CutReply, ThatOnlyTheConnectionsEndDelimits) {
    for (const char* const head : {"HTTP/1.1 200 OK\r\n\r\n", "HTTP/1.0 200 OK\r\n\r\n",
                                   "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n",
                                   "HTTP/1.1 200 OK\r\nTransfer-Encoding: identity\r\n\r\n"})
        for (const End how : ends) {
            SCOPED_TRACE(head + nameOf(how));
            const auto responses = outcome(head + std::string("some"), how);
            // In cleartext nothing else says that it is whole; over TLS somebody may have cut it.
            if (isSecure() || how == End::reset)
                EXPECT_THAT(responses, FailsWith(SlingErrorKind::connectionLost));
            else
                EXPECT_THAT(responses, Answers(200, "some"));
        }
}

TEST_P(CutReply, WithoutABodyIsWhole) {
    for (const char* const head : {"HTTP/1.1 204 No Content\r\n\r\n",
                                   "HTTP/1.1 304 Not Modified\r\nContent-Encoding: gzip\r\n\r\n"})
        for (const End how : {End::inOrder, End::withoutNotice})
            EXPECT_THAT(outcome(head, how), Answers(std::stoi(std::string(head).substr(9)), ""));
}

TEST_P(CutReply, WhoseLengthCannotBeUnderstoodIsMalformed) {
    for (const char* const fields :
         {"Content-Length: 99999999999999999999999\r\n", "Content-Length: four\r\n",
          "Content-Length: -4\r\n", "Content-Length:\r\n",
          "Content-Length: 4\r\nContent-Length: 3\r\n"})
        EXPECT_THAT(outcome("HTTP/1.1 200 OK\r\n" + std::string(fields) + "\r\nsome", End::inOrder),
                    FailsWith(SlingErrorKind::malformedReply))
            << fields;
}

INSTANTIATE_TEST_SUITE_P(Over, CutReply, testing::Bool(),
                         [](const auto& each) { return each.param ? "TLS" : "Cleartext"; });

// HTTP/2.

using enum HTTP2Connection::Ends;

// The types of frames (RFC 9113, section 6).
constexpr std::uint8_t dataType = 0;
constexpr std::uint8_t headersType = 1;
constexpr std::uint8_t resetStreamType = 3;
constexpr std::uint8_t settingsType = 4;
constexpr std::uint8_t pingType = 6;
constexpr std::uint8_t goAwayType = 7;
constexpr std::uint8_t windowUpdateType = 8;
constexpr std::uint8_t continuationType = 9;

std::string resetStream(std::uint32_t stream, std::uint32_t code) {
    return HTTP2Connection::frame(resetStreamType, 0, stream, HTTP2Connection::number(code));
}

/// @param last  the last stream that is answered
std::string goAway(std::uint32_t last, std::uint32_t code) {
    return HTTP2Connection::frame(goAwayType, 0, 0,
                                  HTTP2Connection::number(last) + HTTP2Connection::number(code));
}

/// What a server does on a stream once the head of its reply is sent.
struct Play {
    std::string name;
    std::function<void(HTTP2Connection&, RawConnection&, std::uint32_t stream)> act;
};

/// Frames that break the protocol on the whole connection.
std::vector<std::pair<std::string, std::string>> brokenFrames() {
    return {{"DATA on stream 0", HTTP2Connection::frame(dataType, 0, 0, "x")},
            {"a RST_STREAM of 3 bytes", HTTP2Connection::frame(resetStreamType, 0, 1, "abc")},
            {"SETTINGS of 5 bytes", HTTP2Connection::frame(settingsType, 0, 0, "abcde")},
            {"a PING of 7 bytes", HTTP2Connection::frame(pingType, 0, 0, "abcdefg")},
            {"a GOAWAY on a stream", HTTP2Connection::frame(goAwayType, 0, 1, "12345678")},
            {"WINDOW_UPDATE by 0",
             HTTP2Connection::frame(windowUpdateType, 0, 0, std::string(4, '\0'))},
            {"a CONTINUATION of nothing", HTTP2Connection::frame(continuationType, 4, 1, "x")},
            {"a frame that is too large",
             HTTP2Connection::frame(dataType, 0, 1, std::string(20'000, 'x'))},
            {"DATA of a stream that never was", HTTP2Connection::frame(dataType, 0, 99, "x")},
            {"headers that cannot be decoded",
             HTTP2Connection::frame(headersType, 4, 1, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF")}};
}

std::vector<Play> plays() {
    std::vector<Play> all;
    for (const End how : ends)
        all.push_back({"the connection ends " + nameOf(how),
                       [how](auto&, RawConnection& raw, auto) { end(raw, how); }});
    for (const auto& [name, bytes] : brokenFrames())
        all.push_back({name, [text = bytes](HTTP2Connection& connection, RawConnection& raw, auto) {
                           connection.send(text);
                           raw.awaitClose();
                       }});
    // libcurl takes the last code, 13, for a wish for HTTP/1.1.
    for (std::uint32_t code = 1; code <= 12; ++code)
        all.push_back({"RST_STREAM " + std::to_string(code),
                       [code](HTTP2Connection& connection, RawConnection& raw, auto stream) {
                           connection.send(resetStream(stream, code));
                           raw.awaitClose();
                       }});
    for (std::uint32_t code = 0; code <= 13; ++code)
        for (const std::uint32_t last : {0U, 0x7FFFFFFFU})
            all.push_back({"GOAWAY " + std::to_string(code) + " up to " + std::to_string(last),
                           [=](HTTP2Connection& connection, RawConnection& raw, auto) {
                               connection.send(goAway(last, code));
                               raw.sendCloseNotify();
                           }});
    return all;
}

/// The heads and the beginnings of bodies.
struct Beginning {
    std::string name;
    std::string fields;
    std::string part;
};

std::vector<Beginning> beginnings() {
    const std::string whole = gzipped("twelve bytes");
    return {{"with a length", HTTP2Connection::field("content-length", "12"), "twel"},
            {"without a length", "", "twel"},
            {"in gzip", HTTP2Connection::field("content-encoding", "gzip"), whole.substr(0, 20)},
            {"without a byte of its body", "", ""}};
}

class CutHTTP2Reply : public testing::Test {
  protected:
    /// What comes of a reply that ends with a play.
    [[nodiscard]] Responses outcome(const Beginning& beginning, const Play& play,
                                    const std::string& method = "GET") {
        const RawServer server(
            [&](RawConnection& raw) {
                HTTP2Connection connection(raw);
                const auto stream = connection.readRequest();
                if (!stream) return;
                connection.sendHeadWithoutLength(*stream, beginning.fields);
                if (!beginning.part.empty())
                    connection.send(HTTP2Connection::data(*stream, beginning.part, no));
                play.act(connection, raw, *stream);
            },
            ServerTLS{.certificateFile = certificate.certificateFile(),
                      .keyFile = certificate.keyFile(),
                      .protocol = "h2"});
        auto responses = sent(requestTo(server.url(), method), transport);
        EXPECT_TRUE(responses.ended());
        return responses;
    }

    Certificate certificate;
    std::shared_ptr<CurlTransport> transport =
        curlTransport({.caBundleFile = certificate.certificateFile()});
};

TEST_F(CutHTTP2Reply, IsLost) {
    for (const char* const method : {"GET", "POST"})
        for (const auto& play : plays())
            for (const auto& beginning : beginnings())
                EXPECT_THAT(outcome(beginning, play, method),
                            FailsWith(SlingErrorKind::connectionLost))
                    << method << ' ' << beginning.name << ", " << play.name;
}

TEST_F(CutHTTP2Reply, WithALengthOrInGzipIsLostWhenItsStreamIsResetWithoutAnError) {
    for (const auto& beginning : beginnings()) {
        if (beginning.fields.empty()) continue;  // libcurl 7.88.1 does not tell
        EXPECT_THAT(
            outcome(beginning, {"",
                                [](HTTP2Connection& connection, RawConnection& raw, auto stream) {
                                    connection.send(resetStream(stream, 0));
                                    raw.awaitClose();
                                }}),
            FailsWith(SlingErrorKind::connectionLost))
            << beginning.name;
    }
}

TEST_F(CutHTTP2Reply, ThatIsWholeIsOneThoughTheConnectionEndsWithIt) {
    for (const auto& beginning : beginnings())
        for (const bool goesAway : {false, true}) {
            const auto rest = [&](HTTP2Connection& connection, RawConnection& raw, auto stream) {
                const std::string body =
                    beginning.name == "in gzip" ? gzipped("twelve bytes") : "twelve bytes";
                // Without a length such an end cannot be told from a cut, so a read is repeated.
                const bool leaves = goesAway && (!beginning.fields.empty() || raw.index() == 0);
                connection.send(
                    (leaves ? goAway(stream, 0) : "") +
                    HTTP2Connection::data(stream, body.substr(beginning.part.size()), yes));
                if (leaves) raw.sendCloseNotify();
                raw.awaitClose();
            };
            EXPECT_THAT(outcome(beginning, {"", rest}), Answers(200, "twelve bytes"))
                << beginning.name << (goesAway ? ", GOAWAY" : "");
        }
}

}  // namespace
