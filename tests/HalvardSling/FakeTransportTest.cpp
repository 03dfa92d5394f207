#include <gmock/gmock.h>

#include <HalvardSling/testing/FakeTransport.hpp>

using namespace HalvardSling;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

CheckedRequest requestTo(std::string url) {
    TransportRequest request;
    request.url = std::move(url);
    return std::get<CheckedRequest>(CheckedRequest::of(std::move(request)));
}

class FakeTransportTest : public testing::Test {
  protected:
    TransferID send(std::string url = "https://a/") {
        return fake.send(requestTo(std::move(url)),
                         [this](TransportResult result) { results.push_back(std::move(result)); });
    }

    [[nodiscard]] int status(std::size_t index) const {
        return std::get<Response>(results.at(index)).status();
    }

    std::vector<TransportResult> results;
    FakeTransport fake;  // ends the transfers that wait, so it goes first
};

TEST_F(FakeTransportTest, AnswersFromItsScriptInOrder) {
    fake.willAnswer(200, "one", {{"A", "b"}});
    fake.willAnswer(SlingError(SlingErrorKind::tls, ""));
    send();
    send();
    ASSERT_THAT(results, SizeIs(2));
    EXPECT_EQ(std::get<Response>(results[0]).body(), "one");
    EXPECT_EQ(std::get<Response>(results[0]).headers().value("a"), "b");
    EXPECT_EQ(std::get<SlingError>(results[1]).kind(), SlingErrorKind::tls);
}

TEST_F(FakeTransportTest, LetsWaitWhatHasNoAnswer) {
    const auto first = send();
    const auto second = send();
    EXPECT_NE(first, second);
    EXPECT_THAT(fake.waiting(), ElementsAre(first, second));
    EXPECT_TRUE(fake.answer(
        second,
        Response({.status = 202, .headers = {}, .body = {}, .effectiveURL = {}, .timings = {}})));
    EXPECT_FALSE(fake.answer(second, Response(ResponseParts{})));
    EXPECT_THAT(fake.waiting(), ElementsAre(first));
    ASSERT_THAT(results, SizeIs(1));
    EXPECT_EQ(status(0), 202);
}

TEST_F(FakeTransportTest, TheScriptComesBeforeTheStandingAnswer) {
    fake.alwaysAnswer([](const TransportRequest& request) {
        return Response({.status = request.url == "https://b/" ? 201 : 202,
                         .headers = {},
                         .body = {},
                         .effectiveURL = {},
                         .timings = {}});
    });
    fake.willAnswer(500);
    send();
    send();
    send("https://b/");
    fake.alwaysAnswer({});
    send();
    ASSERT_THAT(results, SizeIs(3));
    EXPECT_EQ(status(0), 500);
    EXPECT_EQ(status(1), 202);
    EXPECT_EQ(status(2), 201);
    EXPECT_THAT(fake.waiting(), SizeIs(1));
}

TEST_F(FakeTransportTest, ACancelledTransferGetsNoAnswer) {
    const auto transfer = send();
    fake.cancel(transfer);
    fake.cancel(transfer);
    EXPECT_EQ(fake.cancelled(), 1U);
    EXPECT_FALSE(fake.answer(transfer, Response(ResponseParts{})));
    EXPECT_THAT(results, IsEmpty());
    EXPECT_THAT(fake.requests(), SizeIs(1));
}

}  // namespace
