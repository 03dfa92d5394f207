// Redirects over the wire.

#include <chrono>
#include <limits>
#include <string>
#include <string_view>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

std::string redirectTo(std::string_view location, int status = 302) {
    return httpReply(status, "moved", "Location: " + std::string(location) + "\r\n");
}

TEST(Redirect, IsTheAnswerWhereNoneIsAllowed) {
    const RawServer server(RawServer::answering(redirectTo("/x")));
    EXPECT_THAT(sent(requestTo(server.url()), curlTransport()), Answers(302, "moved"));
    EXPECT_EQ(server.requests().size(), 1U);
}

TEST(Redirect, IsFollowedOnTheSameConnection) {
    const RawServer server([](RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(request->starts_with("GET /end ") ? httpReply(200, "end")
                                                              : redirectTo("/end"));
    });
    auto request = requestTo(server.url("/start"));
    request.policy.maxRedirects = 1;
    request.headers = {{"Authorization", "mine"}};
    const auto reply = replyOf(sent(request, curlTransport()));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->body(), "end");
    EXPECT_EQ(reply->effectiveURL(), server.url("/end"));
    EXPECT_EQ(server.connections(), 1U);
    EXPECT_THAT(server.requests().at(1), HasSubstr("Authorization: mine"));
}

TEST(Redirect, SendsABodyAgainAfter307) {
    const RawServer server([](RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(request->starts_with("POST /end ") ? httpReply(200, "end")
                                                               : redirectTo("/end", 307));
    });
    auto request = requestTo(server.url("/start"), "POST");
    request.policy.maxRedirects = 1;
    request.body = bodyOf("content");
    EXPECT_THAT(sent(request, curlTransport()), Answers(200, "end"));
    EXPECT_THAT(server.requests().at(1), EndsWith("\r\n\r\ncontent"));
}

TEST(Redirect, TakesNoSecretToAnotherOrigin) {
    const RawServer other(RawServer::answering(httpReply(200, "other")));
    const RawServer server(RawServer::answering(redirectTo(other.url("/there"), 303)));
    auto request = requestTo(server.url(), "POST");
    request.policy.maxRedirects = 1;
    request.body = bodyOf("secret body");
    request.headers = {
        {"Authorization", "secret"}, {"PXRO-PROFILE-ID", "secret"}, {"Accept", "a/b"}};
    EXPECT_THAT(sent(request, curlTransport()), Answers(200, "other"));
    ASSERT_EQ(other.requests().size(), 1U);
    EXPECT_THAT(other.requests().front(), StartsWith("GET /there "));
    EXPECT_THAT(other.requests().front(), HasSubstr("Accept: a/b"));
    EXPECT_THAT(other.requests().front(), Not(HasSubstr("secret")));
}

TEST(Redirect, KeepsSecretsFromAnOriginThatSendsBack) {
    std::string back;
    const RawServer other([&](RawConnection& connection) {
        while (connection.readRequest())
            connection.send(redirectTo(back));
    });
    const RawServer server([&](RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(request->starts_with("GET /back ") ? httpReply(200, "back")
                                                               : redirectTo(other.url()));
    });
    back = server.url("/back");
    auto request = requestTo(server.url());
    request.policy.maxRedirects = 2;
    request.headers = {{"Authorization", "secret"}};
    EXPECT_THAT(sent(request, curlTransport()), Answers(200, "back"));
    EXPECT_THAT(server.requests().at(1), Not(HasSubstr("secret")));
}

TEST(Redirect, TooManyAreAnError) {
    const RawServer server(RawServer::answering(redirectTo("/again")));
    auto request = requestTo(server.url());
    request.policy.maxRedirects = 3;
    EXPECT_THAT(sent(request, curlTransport()), FailsWith(SlingErrorKind::redirect));
    EXPECT_EQ(server.requests().size(), 4U);
}

TEST(Redirect, WithoutALocationIsTheAnswer) {
    const RawServer server(RawServer::answering(httpReply(302, "where?")));
    auto request = requestTo(server.url());
    request.policy.maxRedirects = 3;
    EXPECT_THAT(sent(request, curlTransport()), Answers(302, "where?"));
}

TEST(Redirect, TheTimeForAllOfThemIsLimited) {
    const RawServer server([](RawConnection& connection) {
        while (connection.readRequest())
            connection.send(redirectTo("/again"));
    });
    auto request = requestTo(server.url());
    request.policy.maxRedirects = std::numeric_limits<int>::max();
    request.policy.totalTimeout = std::chrono::milliseconds(200);
    EXPECT_THAT(sent(request, curlTransport()), FailsWith(SlingErrorKind::totalTimeout));
}

TEST(Redirect, TheRequestIDGoesToTheServiceAndOverRedirects) {
    const RawServer server([](RawConnection& connection) {
        while (const auto seen = connection.readRequest())
            connection.send(seen->starts_with("GET /end ")
                                ? httpReply(500, "end")
                                : httpReply(302, "", "Location: /end\r\n"));
    });
    auto request = requestTo(server.url("/start"));
    request.policy.maxRedirects = 1;
    const auto error = sent(request, curlTransport()).error<SlingError>();
    ASSERT_TRUE(error);
    ASSERT_THAT(server.requests(), SizeIs(2));
    const auto line = "\r\nX-Request-ID: " + error->context()->requestID + "\r\n";
    EXPECT_THAT(server.requests(), Each(HasSubstr(line)));
}

}  // namespace
