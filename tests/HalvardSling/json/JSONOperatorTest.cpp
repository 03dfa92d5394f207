#include <exception>
#include <memory>
#include <optional>
#include <string>

#include <gmock/gmock.h>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/rx/JSON.hpp>
#include <HalvardSling/rx/Sling.hpp>
#include <HalvardSling/testing/FakeTransport.hpp>

namespace {

using HalvardSling::FakeTransport;
using HalvardSling::JSONDictionary;
using HalvardSling::Response;
using HalvardSling::Sling;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using testing::HasSubstr;
using testing::Not;

struct Outcome {
    std::optional<JSONDictionary> value;
    std::optional<SlingError> error;
    bool completed = false;
};

Outcome outcomeOf(const std::string& body) {
    const auto transport = std::make_shared<FakeTransport>();
    transport->alwaysAnswer([&](const auto& request) {
        return Response({.status = 200,
                         .headers = {},
                         .body = body,
                         .effectiveURL = request.url,
                         .timings = {}});
    });
    HalvardSling::TransportRequest request;
    request.url = "https://api.example.com/v1/x?secret=s3cret";
    Outcome outcome;
    HalvardSling::json(Sling(request).responses(transport))
        .subscribe([&](const JSONDictionary& value) { outcome.value = value; },
                   [&](const std::exception_ptr& error) {
                       try {
                           std::rethrow_exception(error);
                       } catch (const SlingError& known) {
                           outcome.error = known;
                       }
                   },
                   [&] { outcome.completed = true; });
    return outcome;
}

TEST(JSONOperator, EmitsTheDictionaryAndCompletes) {
    const auto outcome = outcomeOf(R"({"a":"b"})");
    ASSERT_TRUE(outcome.value);
    EXPECT_EQ(outcome.value->text("a"), "b");
    EXPECT_TRUE(outcome.completed);
    EXPECT_FALSE(outcome.error);
}

TEST(JSONOperator, ABodyThatIsNotJSONIsAMalformedReplyThatSaysWhere) {
    const auto outcome = outcomeOf("{\"token\":\n\"s3cret\"");
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->kind(), SlingErrorKind::malformedReply);
    EXPECT_THAT(outcome.error->what(), testing::StartsWith("GET, request "));
    EXPECT_THAT(outcome.error->what(), HasSubstr("line 2"));
    EXPECT_THAT(outcome.error->what(), HasSubstr("https://api.example.com:443"));
    EXPECT_THAT(outcome.error->what(), Not(HasSubstr("s3cret")));
}

TEST(JSONOperator, AnEmptyBodyIsAMalformedReply) {
    ASSERT_TRUE(outcomeOf("").error);
    EXPECT_EQ(outcomeOf("").error->kind(), SlingErrorKind::malformedReply);
}

TEST(JSONOperator, ATopThatIsNoObjectIsAMalformedReply) {
    const auto outcome = outcomeOf("[]");
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->kind(), SlingErrorKind::malformedReply);
    EXPECT_THAT(outcome.error->what(), HasSubstr("an array"));
}

TEST(JSONOperator, AReplyOfTooManyValuesIsTooLarge) {
    std::string body = R"({"a":[0)";
    for (int i = 0; i < 8'000'000; ++i)
        body += ",0";
    const auto outcome = outcomeOf(body + "]}");
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->kind(), SlingErrorKind::tooLarge);
    EXPECT_THAT(outcome.error->what(), testing::StartsWith("GET, request "));
    EXPECT_THAT(outcome.error->what(), HasSubstr("too many values for the memory"));
}

TEST(JSONOperator, AReplyWithoutARequestHasTheDefaultLimit) {
    const auto isDecoded = [](std::size_t entries) {
        std::string body = R"({"a":[{})";
        for (std::size_t i = 1; i < entries; ++i)
            body += ",{}";
        const Response response({.status = 200,
                                 .headers = {},
                                 .body = body + "]}",
                                 .effectiveURL = "https://api.example.com/",
                                 .timings = {}});
        EXPECT_EQ(response.policy(), HalvardSling::RequestPolicy());
        std::optional<JSONDictionary> value;
        HalvardSling::json(rxcpp::observable<>::just(response))
            .subscribe([&](const JSONDictionary& each) { value = each; },
                       [](const std::exception_ptr&) {});
        return value.has_value();
    };
    EXPECT_TRUE(isDecoded(300'000));
    EXPECT_FALSE(isDecoded(400'000));
}

}  // namespace
