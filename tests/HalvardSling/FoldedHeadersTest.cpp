// Replies whose headers libcurl has to join with headers of another reply, or must not: the first
// header line of a reply is a folded one. Run under AddressSanitizer these show whether a header of
// an earlier reply, long freed, was written to.

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

/// Heads without the empty line at their end.
const std::vector<std::string>& oddHeads() {
    static const std::vector<std::string> heads{
        "HTTP/1.1 200 OK\r\n X: y\r\n",
        "HTTP/1.1 200 OK\r\n\tX: y\r\n",
        "HTTP/1.1 200 OK\r\n :\r\n",
        "HTTP/1.1 200 OK\r\n  X: y\r\n  Z: y\r\nA: b\r\n c\r\n",
        "HTTP/1.1 200 OK\r\n X: " + std::string(5000, 'y') + "\r\n",
        "HTTP/1.1 200 OK\n X: y\n",
        "HTTP/1.1 200 OK\r\n X: y\rz\r\n",
        "HTTP/1.1 200 OK\r\n \xFF\xFE: \x01\x7F\r\n",
        "HTTP/1.1 200 OK\r\n no colon\r\n",
        "HTTP/1.1 200 OK\r\nno colon\r\n X: y\r\n",
        "HTTP/1.1 200 OK\r\n: no name\r\n X: y\r\n",
        "HTTP/1.1 200 OK\r\nX\xFF: y\r\n z: z\r\n",
        "HTTP/1.1 103 Early Hints\r\n X: y\r\n\r\nHTTP/1.1 200 OK\r\n X: y\r\n",
        "HTTP/1.1 103 Early Hints\r\nA: b\r\n\r\nHTTP/1.1 200 OK\r\n X: y\r\n",
        "HTTP/1.1 302 Found\r\n X: y\r\nLocation: /ordinary\r\n",
        "HTTP/1.1 404 Not Found\r\n X: y\r\n",
    };
    return heads;
}

/// Answers "/0", "/1" … with the odd head of this number, "/redirect/0" … by a redirect to them,
/// and everything else in an ordinary way.
void answer(RawConnection& connection) {
    while (const auto request = connection.readRequest()) {
        const auto path = request->substr(5, request->find(' ', 5) - 5);
        const bool isOdd = path.find_first_not_of("0123456789") == std::string::npos;
        const auto reply =
            isOdd && !path.empty() ? oddHeads().at(std::stoul(path)) + "Content-Length: 2\r\n\r\n{}"
            : path.starts_with("redirect")
                ? httpReply(302, "", "X-One: 1\r\nLocation: " + path.substr(8) + "\r\n")
                : httpReply(200, "{}", "X-One: 1\r\nX-Two: two\r\n");
        if (!connection.send(reply)) return;
    }
}

/// Any outcome will do, but there is one.
void send(const std::string& url, const std::shared_ptr<CurlTransport>& transport) {
    auto request = requestTo(url);
    request.policy.maxRedirects = 3;
    EXPECT_TRUE(sent(request, transport).ended()) << url;
}

TEST(FoldedHeaders, AtTheStartOfALaterReplyTouchNoEarlierReply) {
    const RawServer server(&answer);
    for (std::size_t head = 0; head < oddHeads().size(); ++head) {
        const auto transport = curlTransport({.maxInFlight = 1});
        const auto odd = std::to_string(head);
        SCOPED_TRACE(oddHeads()[head].substr(0, 60));
        for (const std::string& path : {std::string("ordinary"), odd, odd, std::string("ordinary"),
                                        "redirect/" + odd, odd, "redirect/" + odd})
            send(server.url("/" + path), transport);
        EXPECT_THAT(sent(requestTo(server.url("/ordinary")), transport), Answers(200, "{}"));
    }
}

TEST(FoldedHeaders, MayComeInAnyOrderAndManyAtATime) {
    const RawServer server(&answer);
    const auto transport = curlTransport({.maxInFlight = 4});
    std::vector<Responses> all;
    for (std::size_t i = 0; i < 400; ++i) {
        const auto path = std::to_string(i * 7 % oddHeads().size());
        auto request = requestTo(server.url(i % 3 == 0 ? "/ordinary" : "/" + path));
        request.policy.maxRedirects = 3;
        all.push_back(sent(request, transport));
    }
    for (const auto& each : all)
        EXPECT_TRUE(each.ended());
    EXPECT_THAT(sent(requestTo(server.url("/ordinary")), transport), Answers(200, "{}"));
}

}  // namespace
