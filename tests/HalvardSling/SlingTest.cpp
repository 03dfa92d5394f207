#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/testing/FakeTransport.hpp>

#include "Transfers.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class SlingTest : public testing::Test {
  protected:
    [[nodiscard]] Observable<Response> responses() const { return Sling(request).responses(fake); }

    std::shared_ptr<FakeTransport> fake = std::make_shared<FakeTransport>();
    TransportRequest request = requestTo("https://api.example.com/x");
};

TEST_F(SlingTest, SendsNothingBeforeASubscription) {
    const auto cold = responses();
    EXPECT_THAT(fake->requests(), IsEmpty());
}

TEST_F(SlingTest, SendsOnceForEachSubscription) {
    fake->willAnswer(200, "first");
    fake->willAnswer(200, "second");
    const auto cold = responses();
    const Observed<Response> first(cold);
    const Observed<Response> second(cold);
    EXPECT_THAT(fake->requests(), SizeIs(2));
    ASSERT_THAT(first.values(), SizeIs(1));
    EXPECT_EQ(first.values().front().body(), "first");
    ASSERT_THAT(second.values(), SizeIs(1));
    EXPECT_EQ(second.values().front().body(), "second");
    EXPECT_TRUE(first.completed() && second.completed());
}

TEST_F(SlingTest, SendsTheRequestAsItIs) {
    request.method = "PATCH";
    request.headers = {{"A", "b"}};
    request.body = bodyOf("c");
    fake->willAnswer(200);
    EXPECT_TRUE(sent(request, fake).completed());
    ASSERT_THAT(fake->requests(), SizeIs(1));
    const auto got = fake->requests().front();
    EXPECT_EQ(got.method, "PATCH");
    EXPECT_EQ(got.url, request.url);
    EXPECT_EQ(got.headers.value("a"), "b");
    EXPECT_EQ(got.body, request.body);
}

TEST_F(SlingTest, AStatusFrom400IsAnError) {
    for (const int status : {399, 400}) {
        fake->willAnswer(status, "body", {{"X", "y"}});
        const Responses result = sent(request, fake);
        EXPECT_EQ(result.completed(), status == 399);
        const auto error = result.error<SlingError>();
        ASSERT_EQ(error.has_value(), status == 400);
        if (!error) continue;
        EXPECT_EQ(error->statusCode(), 400);
        EXPECT_EQ(error->reply()->body, "body");
        EXPECT_EQ(error->reply()->headers.value("x"), "y");
    }
}

TEST_F(SlingTest, TheTransportsErrorArrivesWithItsRequest) {
    request.operation = "history-get";
    request.method = "PUT";
    request.pathTemplate = "/v1/%ID%";
    fake->willAnswer(SlingError(SlingErrorKind::tls, "text"));
    const auto error = sent(request, fake).error<SlingError>();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), SlingErrorKind::tls);
    ASSERT_NE(error->context(), nullptr);
    EXPECT_EQ(error->context()->operation, "history-get");
    EXPECT_EQ(error->context()->method, "PUT");
    EXPECT_EQ(error->context()->pathTemplate, "/v1/%ID%");
    EXPECT_THAT(error->context()->requestID, testing::MatchesRegex("[0-9a-f]{32}"));
    EXPECT_EQ(error->what(),
              "history-get (PUT /v1/%ID%, request " + error->context()->requestID + "): text");
}

TEST_F(SlingTest, EachSubscriptionHasARequestIDOfItsOwn) {
    const auto cold = responses();
    std::set<std::string> ids;
    for (int i = 0; i < 3; ++i) {
        fake->willAnswer(SlingError(SlingErrorKind::tls, "text"));
        ids.insert(Observed<Response>(cold).error<SlingError>()->context()->requestID);
    }
    EXPECT_THAT(ids, SizeIs(3));
}

TEST_F(SlingTest, ARequestsOwnIDIsKept) {
    request.headers = {{"x-request-id", "mine"}};
    fake->willAnswer(503);
    EXPECT_EQ(sent(request, fake).error<SlingError>()->context()->requestID, "mine");
}

TEST_F(SlingTest, ARequestThatIsNotSentNamesItselfWithoutAnID) {
    request.operation = "op";
    request.url = "https://api.example.com/../x";
    const auto error = sent(request, fake).error<SlingError>();
    EXPECT_THAT(error->what(), testing::StartsWith("op (GET): "));
    EXPECT_EQ(error->context()->requestID, "");
}

TEST_F(SlingTest, AProblemDocumentArrivesAsFields) {
    const std::string body =
        R"({"type":"urn:x","title":"T","status":422,"detail":"D","instance":"/i","more":1})";
    const auto problemOf = [&](const std::string& type, const std::string& text) {
        fake->willAnswer(422, text, {{"content-type", type}});
        return *sent(request, fake).error<SlingError>();
    };
    const auto error = problemOf("Application/Problem+JSON ; charset=utf-8", body);
    ASSERT_NE(error.problem(), nullptr);
    EXPECT_EQ(error.problem()->type, "urn:x");
    EXPECT_EQ(error.problem()->title, "T");
    EXPECT_EQ(error.problem()->status, 422);
    EXPECT_EQ(error.problem()->detail, "D");
    EXPECT_EQ(error.problem()->instance, "/i");
    EXPECT_EQ(error.reply()->body, body);
    const auto odd = problemOf("application/problem+json", R"({"title":1,"status":"422"})");
    ASSERT_NE(odd.problem(), nullptr);
    EXPECT_EQ(odd.problem()->type, "about:blank");
    EXPECT_EQ(odd.problem()->title, "");
    EXPECT_EQ(odd.problem()->status, std::nullopt);
    EXPECT_EQ(problemOf("application/json", body).problem(), nullptr);
    EXPECT_EQ(problemOf("application/problem+json", "[]").problem(), nullptr);
}

TEST_F(SlingTest, ARequestThatMayNotBeSentFailsAndSendsNothing) {
    request.url = "https://api.example.com/../x";
    EXPECT_THAT(sent(request, fake), FailsWith(SlingErrorKind::malformedURL));
    request = requestTo("http://api.example.com/");
    request.policy.allowsCleartext = false;
    EXPECT_THAT(sent(request, fake), FailsWith(SlingErrorKind::malformedURL));
    request = requestTo("https://api.example.com/");
    request.headers = {{"X", "\r\n"}};
    EXPECT_THAT(sent(request, fake), FailsWith(SlingErrorKind::forbiddenHeader));
    EXPECT_THAT(fake->requests(), IsEmpty());
}

TEST_F(SlingTest, ARequestThatCannotBeMadeFailsOnEachSubscription) {
    const Sling sling(SlingError(SlingErrorKind::malformedURL, "no"));
    EXPECT_EQ(sling.request(), nullptr);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Observed<Response>(sling.responses(fake)).error<SlingError>()->kind(),
                  SlingErrorKind::malformedURL);
    EXPECT_THAT(fake->requests(), IsEmpty());
}

TEST_F(SlingTest, ShowsItsRequest) {
    ASSERT_NE(Sling(request).request(), nullptr);
    EXPECT_EQ(Sling(request).request()->url, request.url);
}

TEST_F(SlingTest, UnsubscribingCancelsTheTransfer) {
    Responses waiting = sent(request, fake);
    EXPECT_THAT(fake->waiting(), SizeIs(1));
    waiting.unsubscribe();
    EXPECT_THAT(fake->waiting(), IsEmpty());
    EXPECT_EQ(fake->cancelled(), 1U);
    EXPECT_FALSE(waiting.endedAtOnce());
}

TEST_F(SlingTest, UnsubscribingOneLeavesTheOther) {
    Responses first = sent(request, fake);
    const Responses second = sent(request, fake);
    first.unsubscribe();
    ASSERT_THAT(fake->waiting(), SizeIs(1));
    EXPECT_TRUE(fake->answer(fake->waiting().front(), Response(ResponseParts{})));
    EXPECT_TRUE(second.completed());
    EXPECT_FALSE(first.endedAtOnce());
}

TEST_F(SlingTest, UnsubscribingAfterTheEndCancelsNothing) {
    fake->willAnswer(200);
    Responses done = sent(request, fake);
    done.unsubscribe();
    EXPECT_EQ(fake->cancelled(), 0U);
}

TEST_F(SlingTest, ASubscriptionThatHasEndedBeforeSendsNothing) {
    rxcpp::composite_subscription ended;
    ended.unsubscribe();
    responses().subscribe(ended, [](const Response&) { ADD_FAILURE(); });
    EXPECT_THAT(fake->requests(), IsEmpty());
}

TEST_F(SlingTest, UnsubscribingInsideOnNextStopsTheEvents) {
    const rxcpp::composite_subscription subscription;
    std::vector<std::string> events;
    responses().subscribe(
        subscription,
        [&](const Response&) {
            events.emplace_back("next");
            subscription.unsubscribe();
        },
        [&](const std::exception_ptr&) { events.emplace_back("error"); },
        [&] { events.emplace_back("completed"); });
    EXPECT_TRUE(fake->answer(fake->waiting().front(), Response(ResponseParts{})));
    EXPECT_THAT(events, ElementsAre("next"));
    EXPECT_EQ(fake->cancelled(), 0U);
}

/// Calls a function in the middle of `send`, before the transfer has a name.
class InterruptedTransport final : public Transport {
  public:
    TransferID send(CheckedRequest, TransportCompletion) override {
        interruption();
        return 7;
    }
    void cancel(TransferID transfer) noexcept override { cancelled.push_back(transfer); }

    std::function<void()> interruption;
    std::vector<TransferID> cancelled;
};

TEST_F(SlingTest, UnsubscribingWhileSendRunsCancelsTheTransfer) {
    const auto transport = std::make_shared<InterruptedTransport>();
    const rxcpp::composite_subscription subscription;
    transport->interruption = [&] { subscription.unsubscribe(); };
    Sling(request).responses(transport).subscribe(subscription, [](const Response&) {});
    EXPECT_THAT(transport->cancelled, ElementsAre(7U));
}

TEST_F(SlingTest, ASubscriberIsLetGoOfWhenItsSubscriptionIs) {
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    {
        const rxcpp::composite_subscription subscription;
        responses().subscribe(subscription, [held](const Response&) {});
        held.reset();
        subscription.unsubscribe();
    }
    EXPECT_TRUE(watched.expired());
}

TEST_F(SlingTest, ASubscriberIsLetGoOfAfterTheAnswer) {
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = held;
    fake->willAnswer(200);
    responses().subscribe([held](const Response&) {});
    held.reset();
    EXPECT_TRUE(watched.expired());
}

TEST_F(SlingTest, ASubscriptionDoesNotKeepTheTransport) {
    const std::weak_ptr<FakeTransport> watched = fake;
    const Observed<Response> open(responses());
    fake.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(open.error<SlingError>()->kind(), SlingErrorKind::cancelled);
}

TEST_F(SlingTest, TheBodyIsNotCopiedOnItsWay) {
    const Response reply({.status = 200,
                          .headers = {},
                          .body = std::string(1000, 'x'),
                          .effectiveURL = {},
                          .timings = {}});
    fake->willAnswer(reply);
    const auto got = replyOf(sent(request, fake));
    ASSERT_TRUE(got);
    EXPECT_EQ(got->body().data(), reply.body().data());
}

TEST_F(SlingTest, AThrowOutOfASubscriberEndsTheProgramWithItsText) {
    EXPECT_DEATH(responses().subscribe([](const Response&) { throw std::runtime_error("my own"); });
                 fake->answer(fake->waiting().front(), Response(ResponseParts{})), "my own");
}

class DefaultTransportTest : public SlingTest {
  protected:
    ~DefaultTransportTest() override { setDefaultTransport(nullptr); }
};

TEST_F(DefaultTransportTest, IsChosenWhenSubscribing) {
    const auto cold = Sling(request).responses();
    setDefaultTransport(fake);
    const Observed<Response> first(cold);
    EXPECT_THAT(fake->requests(), SizeIs(1));
    const auto other = std::make_shared<FakeTransport>();
    setDefaultTransport(other);
    const Observed<Response> second(cold);
    EXPECT_THAT(fake->requests(), SizeIs(1));
    EXPECT_THAT(other->requests(), SizeIs(1));
}

TEST_F(DefaultTransportTest, ComesBackAfterNull) {
    setDefaultTransport(fake);
    setDefaultTransport(nullptr);
    EXPECT_NE(defaultTransport(), nullptr);
    EXPECT_NE(defaultTransport(), fake);
}

TEST_F(DefaultTransportTest, MayBeReplacedFromManyThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this, i] {
            for (int round = 0; round < 200; ++round) {
                if (i % 2 == 0) setDefaultTransport(round % 3 == 0 ? nullptr : fake);
                EXPECT_NE(defaultTransport(), nullptr);
            }
        });
    for (auto& thread : threads)
        thread.join();
}

}  // namespace
