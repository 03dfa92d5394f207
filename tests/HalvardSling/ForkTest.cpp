// A process that is forked from one that has made requests has the transport, but not its thread.

#include <functional>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "support/Fork.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

int resultOfChild(const std::function<bool()>& isWell) {
    return TestSupport::resultOfChild(isWell,
                                      UNDER_SANITIZER ? ChildEnds::atOnce : ChildEnds::asAProgram);
}

class Fork : public testing::Test {
  protected:
    [[nodiscard]] TransportRequest request() const { return requestTo(server.url()); }

    const RawServer server{RawServer::answering(httpReply(200, "x"))};
};

TEST_F(Fork, ARequestOfTheChildEndsWithAnError) {
    const auto transport = curlTransport();
    ASSERT_THAT(sent(request(), transport), Answers(200, "x"));
    EXPECT_EQ(resultOfChild([&] {
                  return failureOf(sent(request(), transport)) == SlingErrorKind::cannotConnect;
              }),
              0);
    EXPECT_THAT(sent(request(), transport), Answers(200, "x"));
    EXPECT_EQ(server.connections(), 1U);
}

TEST_F(Fork, ARequestOfTheChildOverTheDefaultTransportEndsWithAnError) {
    ASSERT_THAT(sent(request(), nullptr), Answers(200, "x"));
    EXPECT_EQ(resultOfChild([&] {
                  return failureOf(sent(request(), nullptr)) == SlingErrorKind::cannotConnect;
              }),
              0);
    EXPECT_THAT(sent(request(), nullptr), Answers(200, "x"));
}

TEST_F(Fork, TheChildMayLetGoOfTheTransportAndOfWhatIsOpen) {
    const RawServer silent([](RawConnection& connection) {
        while (connection.readRequest()) {
        }
    });
    auto transport = curlTransport();
    Responses open = sent(requestTo(silent.url()), transport);
    ASSERT_TRUE(silent.awaitRequests(1));
    EXPECT_EQ(resultOfChild([&] {
                  open.unsubscribe();
                  transport.reset();
                  return true;
              }),
              0);
    EXPECT_FALSE(open.endedAtOnce());
    EXPECT_THAT(sent(request(), transport), Answers(200, "x"));
    open.unsubscribe();
}

TEST_F(Fork, TheChildMayMakeRequestsWithATransportOfItsOwn) {
    if (UNDER_THREAD_SANITIZER) GTEST_SKIP() << "ThreadSanitizer allows no thread after a fork";
    const auto transport = curlTransport();
    ASSERT_THAT(sent(request(), transport), Answers(200, "x"));
    EXPECT_EQ(resultOfChild([&] {
                  const auto reply = replyOf(sent(request(), curlTransport()));
                  return reply && reply->body() == "x";
              }),
              0);
}

TEST_F(Fork, ATransportThatHasMadeNoRequestIsTheChildsAsWell) {
    if (UNDER_THREAD_SANITIZER) GTEST_SKIP() << "ThreadSanitizer allows no thread after a fork";
    const auto transport = curlTransport();
    EXPECT_EQ(resultOfChild([&] {
                  const auto reply = replyOf(sent(request(), transport));
                  return reply && reply->body() == "x";
              }),
              0);
    EXPECT_THAT(sent(request(), transport), Answers(200, "x"));
}

}  // namespace
